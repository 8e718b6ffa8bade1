#include <QAction>
#include <QComboBox>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QListWidget>
#include <QTemporaryDir>
#include <QTest>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "canvas/imagecanvas.h"
#include "formats/exportimport.h"
#include "formats/yoloposeexportdialog.h"
#include "labels/annotationspanel.h"
#include "model/vocxml.h"
#include "support/scriptedprompts.h"

// The Export / Import menu driven through the main window: which chooser each command
// raises, the checks before it, what reaches the converters and what the user is told.

using namespace sessiontest;

namespace {

void trigger(MainWindow& w, const QString& actionName)
{
    QAction* action = w.findChild<QAction*>(actionName);
    QVERIFY2(action, qPrintable(actionName));
    action->trigger();
}

// Every file under `folder`, relative path -> bytes.
QMap<QString, QByteArray> folderContents(const QString& folder)
{
    QMap<QString, QByteArray> out;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        out.insert(QDir(folder).relativeFilePath(path), readBytes(path));
    }
    return out;
}

QStringList comboTexts(const QComboBox* combo)
{
    QStringList texts;
    for (int i = 0; i < combo->count(); ++i)
        texts << combo->itemText(i);
    return texts;
}

QStringList labelNames(const QList<LabelDef>& labels)
{
    QStringList names;
    for (const LabelDef& label : labels)
        names << label.name;
    return names;
}

// Names and colours, for comparing label lists.
QStringList describe(const QList<LabelDef>& labels)
{
    QStringList out;
    for (const LabelDef& label : labels)
        out << label.name + QLatin1Char(' ') + label.color.name();
    return out;
}

BoxAnnotation keypoint(const QString& label, double x, double y)
{
    BoxAnnotation k;
    k.label = label;
    k.type = ShapeType::Keypoint;
    k.points = {QPointF(x, y)};
    return k;
}

enum Export { Yolo, Coco, Dota, Csv };

} // namespace

class TestExportImport : public QObject {
    Q_OBJECT

    static void commandTable();

private Q_SLOTS:
    void cancelledChooserShowsNothing_data() { commandTable(); }
    void cancelledChooserShowsNothing();
    void noDataLoadedStopsFirst_data();
    void noDataLoadedStopsFirst();
    void exportContainsUnsavedEdit_data();
    void exportContainsUnsavedEdit();
    void exportFailureShowsWarning_data();
    void exportFailureShowsWarning();
    void exportObjectNamesWritesLabelList();
    void importUpdatesCanvasListAndLabels_data();
    void importUpdatesCanvasListAndLabels();
    void importFailureShowsWarningAndChangesNothing_data();
    void importFailureShowsWarningAndChangesNothing();
    void importObjectNames_data();
    void importObjectNames();
    void importObjectNamesFailure();
    void poseExportCancelled();
    void poseExportUsesDialogOrderAndSavesDirtyImage();
};

// Object name of the menu action, chooser kind, caption, start name, filter.
void TestExportImport::commandTable()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("caption");
    QTest::addColumn<QString>("startName");
    QTest::addColumn<QString>("filter");

    QTest::newRow("export yolo") << "exportYoloAction" << "directory"
                                 << "Select output folder for YOLO files" << "" << "";
    QTest::newRow("import yolo") << "importYoloAction" << "directory"
                                 << "Select folder containing YOLO txt files" << "" << "";
    QTest::newRow("export coco") << "exportCocoAction" << "save" << "Save COCO JSON file"
                                 << "annotations.json" << "JSON (*.json)";
    QTest::newRow("import coco") << "importCocoAction" << "open" << "Open COCO JSON file" << ""
                                 << "JSON (*.json)";
    QTest::newRow("export dota") << "exportDotaAction" << "directory"
                                 << "Select output folder for DOTA files" << "" << "";
    QTest::newRow("import dota") << "importDotaAction" << "directory"
                                 << "Select folder containing DOTA txt files" << "" << "";
    QTest::newRow("export csv") << "exportCsvAction" << "save" << "Save CSV file"
                                << "annotations.csv" << "CSV (*.csv)";
    QTest::newRow("import csv") << "importCsvAction" << "open" << "Open CSV file" << ""
                                << "CSV (*.csv)";
    QTest::newRow("export names") << "exportObjectNamesAction" << "save" << "Save object names file"
                                  << "classes.txt" << "Text (*.txt)";
    QTest::newRow("import names") << "importObjectNamesAction" << "open"
                                  << "Open classes/labels file" << ""
                                  << "Text files (*.txt);;All files (*.*)";
}

void TestExportImport::cancelledChooserShowsNothing()
{
    QFETCH(QString, action);
    QFETCH(QString, kind);
    QFETCH(QString, caption);
    QFETCH(QString, startName);
    QFETCH(QString, filter);

    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    const BoxAnnotation unsaved = box("object", 1, 1, 3, 3);
    w.canvas->setBoxes({unsaved});
    const QList<LabelDef> labelsBefore = w.labels;
    const QStringList filesBefore = folderContents(dir.path()).keys();

    trigger(w, action);

    QCOMPARE(prompts.calls.size(), 1);
    const ScriptedPrompts::Call call = prompts.calls.first();
    QCOMPARE(call.kind, kind);
    QCOMPARE(call.title, caption);
    QCOMPARE(call.text, startName);
    if (kind != QLatin1String("directory"))
        QCOMPARE(call.informativeText, filter);
    QCOMPARE(describe(w.labels), describe(labelsBefore));
    QCOMPARE(folderContents(dir.path()).keys(), filesBefore);
    QCOMPARE(w.canvas->boxes(), QList<BoxAnnotation>{unsaved});
    QVERIFY(!w.images[0].dirty);
}

void TestExportImport::noDataLoadedStopsFirst_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");

    const QString loadFirst = UserPrompts::richText(QStringLiteral(
        "Please click <b>Load Data</b> first and point Brindle to your\n"
        "images directory and annotations directory\n"
        "(they can be empty folders if you are starting fresh)."));
    for (const char* action :
         {"exportYoloAction", "importYoloAction", "exportCocoAction", "importCocoAction",
          "exportDotaAction", "importDotaAction", "exportCsvAction", "importCsvAction",
          "exportObjectNamesAction"}) {
        QTest::newRow(action) << action << "No Data Loaded" << loadFirst;
    }
    QTest::newRow("exportYoloPoseAction")
        << "exportYoloPoseAction" << "No Data" << "Load images and annotations first.";
}

void TestExportImport::noDataLoadedStopsFirst()
{
    QFETCH(QString, action);
    QFETCH(QString, title);
    QFETCH(QString, text);

    ScriptedPrompts prompts;
    prompts.directoryAnswers << QDir::tempPath();
    prompts.openFileAnswers << QStringLiteral("/nonexistent/file");
    prompts.saveFileAnswers << QStringLiteral("/nonexistent/file");
    prompts.dialogHandler = [](QDialog*) { return int(QDialog::Accepted); };
    MainWindow w;

    trigger(w, action);

    QCOMPARE(prompts.calls.size(), 1);
    QCOMPARE(prompts.calls.first().kind, QStringLiteral("information"));
    QCOMPARE(prompts.calls.first().title, title);
    QCOMPARE(prompts.calls.first().text, text);
}

void TestExportImport::exportContainsUnsavedEdit_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<QString>("action");

    QTest::newRow("yolo") << int(Yolo) << "exportYoloAction";
    QTest::newRow("coco") << int(Coco) << "exportCocoAction";
    QTest::newRow("dota") << int(Dota) << "exportDotaAction";
    QTest::newRow("csv") << int(Csv) << "exportCsvAction";
}

// The shapes on the canvas have changed but nothing told the window yet (as in the
// middle of an edit): the export must see them anyway. So must it see the shapes in the
// file of an image never shown.
void TestExportImport::exportContainsUnsavedEdit()
{
    QFETCH(int, format);
    QFETCH(QString, action);

    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    QVERIFY(makeImageFile(dir.filePath("b.png")));
    ImageAnnotations unread;
    unread.xmlPath = dir.filePath("annotations/b.xml");
    unread.boxes = {box("object", 1, 1, 4, 3)};
    QVERIFY(QDir().mkpath(dir.filePath("annotations")) && VocXml::save(unread, "x"));
    QTemporaryDir out;
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    editShapes(w, {box("object", 0, 0, 2, 2)});

    const QList<BoxAnnotation> edited = {box("object", 0, 0, 2, 2), box("object", 3, 1, 7, 5)};
    w.canvas->setBoxes(edited);
    QCOMPARE(w.images[0].boxes.size(), 1);

    const bool toFolder = format == Yolo || format == Dota;
    const QString target = toFolder ? out.path() : out.filePath("export.out");
    (toFolder ? prompts.directoryAnswers : prompts.saveFileAnswers) << target;
    trigger(w, action);

    QCOMPARE(w.images[0].boxes, edited);
    QCOMPARE(w.images[1].boxes, unread.boxes);
    const QMap<QString, QByteArray> written = folderContents(out.path());
    QVERIFY(!written.isEmpty());

    // The same converter on the edited records gives the same bytes and message.
    QList<ImageAnnotations> expected = w.images;
    QVERIFY(QDir(out.path()).removeRecursively() && QDir().mkpath(out.path()));
    ExportImportResult result;
    switch (format) {
    case Yolo: result = ExportImport::exportYolo(expected, w.labels, target); break;
    case Coco: result = ExportImport::exportCoco(expected, w.labels, target); break;
    case Dota: result = ExportImport::exportDota(expected, target); break;
    case Csv: result = ExportImport::exportCsv(expected, target); break;
    }
    QVERIFY(result.ok);
    QCOMPARE(written, folderContents(out.path()));

    QCOMPARE(prompts.calls.size(), 2);
    QCOMPARE(prompts.last().kind, QStringLiteral("information"));
    QCOMPARE(prompts.last().title, QStringLiteral("Export complete"));
    QCOMPARE(prompts.last().text, result.message);
    QVERIFY(result.message.endsWith(target));
    // The count tells the edit went out: two shapes on a, one on b.
    if (format == Coco)
        QCOMPARE(result.count, 3);
    if (format == Csv)
        QCOMPARE(result.message, QStringLiteral("Exported 3 CSV row(s) to:\n") + target);
}

void TestExportImport::exportFailureShowsWarning_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("kind");

    QTest::newRow("coco") << "exportCocoAction" << "save";
    QTest::newRow("csv") << "exportCsvAction" << "save";
    QTest::newRow("names") << "exportObjectNamesAction" << "save";
    QTest::newRow("yolo") << "exportYoloAction" << "directory";
}

void TestExportImport::exportFailureShowsWarning()
{
    QFETCH(QString, action);
    QFETCH(QString, kind);

    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    editShapes(w, {box("object", 0, 0, 2, 2)});

    // A regular file where the folder should be: nothing can be written below it.
    const QString blocker = dir.filePath("blocker");
    QVERIFY(writeBytes(blocker, "x"));
    const QString target = kind == QLatin1String("save") ? blocker + QStringLiteral("/out.file")
                                                         : blocker;
    (kind == QLatin1String("save") ? prompts.saveFileAnswers : prompts.directoryAnswers) << target;
    prompts.calls.clear();

    trigger(w, action);

    QCOMPARE(prompts.calls.size(), 2);
    QCOMPARE(prompts.last().kind, QStringLiteral("warning"));
    QCOMPARE(prompts.last().title, QStringLiteral("Export failed"));
    QVERIFY2(prompts.last().text.startsWith(QStringLiteral("Cannot write")),
             qPrintable(prompts.last().text));
    QVERIFY(prompts.last().text.endsWith(target + "\nNot a directory"));
}

void TestExportImport::exportObjectNamesWritesLabelList()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    w.labels.append({QStringLiteral("car"), QColor(255, 100, 100)});
    // Shapes on the canvas do not matter to this export.
    w.canvas->setBoxes({box("person", 0, 0, 2, 2)});

    const QString target = dir.filePath("names.txt");
    prompts.saveFileAnswers << target;
    trigger(w, "exportObjectNamesAction");

    QCOMPARE(readBytes(target), QByteArray("object\ncar\n"));
    QCOMPARE(prompts.last().title, QStringLiteral("Export complete"));
    QCOMPARE(prompts.last().text, QStringLiteral("Wrote 2 label(s) to:\n") + target);
    QVERIFY(w.images[0].boxes.isEmpty());
}

void TestExportImport::importUpdatesCanvasListAndLabels_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("inputName");     // file or folder answered, under the input dir
    QTest::addColumn<QStringList>("fileNames"); // written under the input dir
    QTest::addColumn<QList<QByteArray>>("fileBytes");
    QTest::addColumn<QString>("message");
    QTest::addColumn<int>("shapesOnA"); // YOLO and DOTA files replace, the others add

    QTest::newRow("yolo") << "importYoloAction" << "directory" << ""
                          << QStringList{"classes.txt", "a.txt"}
                          << QList<QByteArray>{"car\n", "0 0.5 0.5 0.5 0.5\n"}
                          << "Imported YOLO annotations for 1 image(s)." << 1;
    QTest::newRow("dota") << "importDotaAction" << "directory" << "" << QStringList{"a.txt"}
                          << QList<QByteArray>{"1 1 4 1 4 4 1 4 car 0\n"}
                          << "Imported DOTA annotations for 1 image(s)." << 1;
    QTest::newRow("csv") << "importCsvAction" << "open" << "in.csv" << QStringList{"in.csv"}
                         << QList<QByteArray>{"filename,width,height,class,xmin,ymin,xmax,ymax\n"
                                              "a.png,8,6,car,1,1,4,4\n"}
                         << "Imported 1 CSV annotation(s)." << 2;
    QTest::newRow("coco")
        << "importCocoAction" << "open" << "in.json" << QStringList{"in.json"}
        << QList<QByteArray>{R"({"categories":[{"id":1,"name":"car"}],
                                "images":[{"id":7,"file_name":"a.jpg"}],
                                "annotations":[{"image_id":7,"category_id":1,"bbox":[1,1,3,3]}]})"}
        << "Imported 1 COCO annotation(s)." << 2;
}

void TestExportImport::importUpdatesCanvasListAndLabels()
{
    QFETCH(QString, action);
    QFETCH(QString, kind);
    QFETCH(QString, inputName);
    QFETCH(QStringList, fileNames);
    QFETCH(QList<QByteArray>, fileBytes);
    QFETCH(QString, message);
    QFETCH(int, shapesOnA);

    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    QVERIFY(makeImageFile(dir.filePath("b.png")));
    QTemporaryDir input;
    for (int i = 0; i < fileNames.size(); ++i)
        QVERIFY(writeBytes(input.filePath(fileNames[i]), fileBytes[i]));

    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    editShapes(w, {box("object", 0, 0, 2, 2)});
    QVERIFY(!w.images[0].dirty);
    // A file that appeared behind the session's back: the import refreshes every row.
    QVERIFY(writeBytes(w.images[1].xmlPath, "<annotation/>"));
    QCOMPARE(rowTexts(w), (QStringList{"a.png  *", "b.png"}));

    (kind == QLatin1String("open") ? prompts.openFileAnswers : prompts.directoryAnswers)
        << (inputName.isEmpty() ? input.path() : input.filePath(inputName));
    prompts.calls.clear();
    trigger(w, action);

    QCOMPARE(prompts.calls.size(), 2);
    QCOMPARE(prompts.last().kind, QStringLiteral("information"));
    QCOMPARE(prompts.last().title, QStringLiteral("Import complete"));
    QCOMPARE(prompts.last().text, message);

    // The image on screen shows the imported shapes at once.
    QCOMPARE(w.images[0].boxes.size(), shapesOnA);
    QCOMPARE(w.canvas->boxes(), w.images[0].boxes);
    QCOMPARE(w.canvas->boxes().last().label, QStringLiteral("car"));
    QCOMPARE(w.annotationsPanel->rowCount(), shapesOnA);
    QVERIFY(w.images[0].dirty);
    QVERIFY(!w.images[1].dirty);
    QVERIFY(w.images[1].boxes.isEmpty());

    QCOMPARE(rowTexts(w), (QStringList{"a.png  *", "b.png  *"}));
    QVERIFY(labelNames(w.labels).contains(QStringLiteral("car")));
    QCOMPARE(comboTexts(w.classCombo), labelNames(w.labels));
    QVERIFY(w.canvas->m_labelNames.contains(QStringLiteral("car")));
}

void TestExportImport::importFailureShowsWarningAndChangesNothing_data()
{
    QTest::addColumn<QString>("action");
    QTest::newRow("coco") << "importCocoAction";
    QTest::newRow("csv") << "importCsvAction";
}

void TestExportImport::importFailureShowsWarningAndChangesNothing()
{
    QFETCH(QString, action);

    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    const BoxAnnotation unsaved = box("object", 1, 1, 3, 3);
    w.canvas->setBoxes({unsaved});
    const QList<LabelDef> labelsBefore = w.labels;

    const QString missing = dir.filePath("missing.file");
    prompts.openFileAnswers << missing;
    trigger(w, action);

    QCOMPARE(prompts.calls.size(), 2);
    QCOMPARE(prompts.last().kind, QStringLiteral("warning"));
    QCOMPARE(prompts.last().title, QStringLiteral("Import failed"));
    QCOMPARE(prompts.last().text, QStringLiteral("Cannot open ") + missing);
    QCOMPARE(w.canvas->boxes(), QList<BoxAnnotation>{unsaved});
    QCOMPARE(describe(w.labels), describe(labelsBefore));
    QVERIFY(!w.images[0].dirty);
}

void TestExportImport::importObjectNames_data()
{
    QTest::addColumn<bool>("withDataset");
    QTest::newRow("before any dataset") << false;
    QTest::newRow("dataset loaded") << true;
}

void TestExportImport::importObjectNames()
{
    QFETCH(bool, withDataset);

    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    const QString namesFile = dir.filePath("names.txt");
    QVERIFY(writeBytes(namesFile, "car\nCar\ntruck\n\n object \n"));
    ScriptedPrompts prompts;
    MainWindow w;
    if (withDataset)
        QVERIFY(w.openDataset(dir.path()));
    const QString colourFile = dir.filePath("annotations/label_colors.json");
    QFile::remove(colourFile);
    w.labels.append({QStringLiteral("car"), QColor(255, 100, 100)});
    prompts.openFileAnswers << namesFile;
    prompts.calls.clear();

    trigger(w, "importObjectNamesAction");

    QCOMPARE(prompts.calls.size(), 2);
    QCOMPARE(prompts.last().kind, QStringLiteral("information"));
    QCOMPARE(prompts.last().title, QStringLiteral("Import Complete"));
    QCOMPARE(prompts.last().text,
             QStringLiteral("Imported 1 label(s) (3 already existed, skipped):\n") + namesFile);
    QCOMPARE(labelNames(w.labels), (QStringList{"object", "car", "truck"}));
    QCOMPARE(comboTexts(w.classCombo), labelNames(w.labels));
    QCOMPARE(w.canvas->m_labelNames, labelNames(w.labels));

    QCOMPARE(QFile::exists(colourFile), withDataset);
    if (withDataset)
        QVERIFY(readBytes(colourFile).contains("\"truck\""));
    else
        QVERIFY(folderContents(dir.path()).keys() == (QStringList{"a.png", "names.txt"}));
}

void TestExportImport::importObjectNamesFailure()
{
    ScriptedPrompts prompts;
    MainWindow w;
    const QList<LabelDef> before = w.labels;
    const QString missing = QDir::tempPath() + QStringLiteral("/brindle-no-such-names.txt");
    prompts.openFileAnswers << missing;

    trigger(w, "importObjectNamesAction");

    QCOMPARE(prompts.calls.size(), 2);
    QCOMPARE(prompts.last().kind, QStringLiteral("critical"));
    QCOMPARE(prompts.last().title, QStringLiteral("Import Failed"));
    QCOMPARE(prompts.last().text, QStringLiteral("Cannot open ") + missing);
    QCOMPARE(describe(w.labels), describe(before));
}

void TestExportImport::poseExportCancelled()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    editShapes(w, {box("person", 0, 0, 4, 4)});
    prompts.calls.clear();

    // Dialog cancelled: no folder is asked.
    trigger(w, "exportYoloPoseAction");
    QCOMPARE(prompts.calls.size(), 1);
    QCOMPARE(prompts.calls.first().kind, QStringLiteral("dialog"));
    QCOMPARE(prompts.calls.first().title,
             QStringLiteral("Export YOLO Pose \u2014 Configure Keypoint Order"));

    // Folder chooser cancelled: nothing is shown.
    prompts.calls.clear();
    prompts.dialogHandler = [](QDialog*) { return int(QDialog::Accepted); };
    trigger(w, "exportYoloPoseAction");
    QCOMPARE(prompts.calls.size(), 2);
    QCOMPARE(prompts.last().kind, QStringLiteral("directory"));
    QCOMPARE(prompts.last().title, QStringLiteral("Select output folder for YOLO Pose files"));
    QCOMPARE(prompts.last().text, QString());
}

void TestExportImport::poseExportUsesDialogOrderAndSavesDirtyImage()
{
    QTemporaryDir dir;
    QVERIFY(writeImage(dir.filePath("a.png"), 640, 480));
    // b is never shown: its file and its size are read for the export.
    QVERIFY(writeImage(dir.filePath("b.png"), 320, 240));
    ImageAnnotations unread;
    unread.xmlPath = dir.filePath("annotations/b.xml");
    unread.boxes = {box("person", 0, 0, 160, 120), keypoint("foot", 80, 120)};
    QVERIFY(QDir().mkpath(dir.filePath("annotations")) && VocXml::save(unread, "x"));
    QTemporaryDir out;
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    const QString xml = w.images[0].xmlPath;

    // As after an import: the record is dirty and the canvas holds shapes not yet written.
    const QList<BoxAnnotation> shapes = {box("person", 100, 100, 200, 300),
                                         keypoint("head", 150, 90), keypoint("foot", 150, 320),
                                         keypoint("hand", 120, 200)};
    w.canvas->setBoxes(shapes);
    w.images[0].dirty = true;
    QVERIFY(!QFile::exists(xml));

    QStringList seenClasses;
    prompts.dialogHandler = [&](QDialog* dialog) {
        auto* pose = qobject_cast<YoloPoseExportDialog*>(dialog);
        if (!pose)
            return int(QDialog::Rejected);
        seenClasses = pose->classList;
        // Sorted: foot, hand, head. Drop hand, then move head to the front.
        pose->orderListWidget->setCurrentRow(1);
        pose->onKpRemove();
        pose->orderListWidget->setCurrentRow(1);
        pose->onKpUp();
        pose->accept();
        return pose->result();
    };
    prompts.directoryAnswers << out.path();
    trigger(w, "exportYoloPoseAction");

    QVERIFY(QFile::exists(xml));
    QVERIFY(!w.images[0].dirty);
    QCOMPARE(w.images[0].boxes, shapes);
    QCOMPARE(seenClasses, QStringList{"person"});
    QCOMPARE(readBytes(out.filePath("labels/a.txt")),
             QByteArray("0 0.234375 0.416667 0.15625 0.416667 0.234375 0.1875 2 "
                        "0.234375 0.666667 2\n"));
    QCOMPARE(readBytes(out.filePath("labels/b.txt")), QByteArray("0 0.25 0.25 0.5 0.5 0 0 0 0.25 0.5 2\n"));
    QVERIFY(readBytes(out.filePath("data.yaml")).endsWith("\nkpt_shape: [2, 3]\n"));
    QCOMPARE(prompts.last().kind, QStringLiteral("information"));
    QCOMPARE(prompts.last().title, QStringLiteral("Export Complete"));
    QCOMPARE(prompts.last().text,
             QStringLiteral("Exported YOLO Pose for 2 image(s) to:\n") + out.path());
}

QTEST_MAIN(TestExportImport)
#include "tst_exportimport.moc"
