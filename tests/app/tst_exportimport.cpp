#include <QAction>
#include <QComboBox>
#include <QDirIterator>
#include <QListWidget>
#include <QTemporaryDir>
#include <QTest>

#include "app/mainwindow.h"
#include "canvas/imagecanvas.h"
#include "formats/exportimport.h"
#include "formats/yoloposeexportdialog.h"
#include "labels/annotationspanel.h"
#include "model/vocxml.h"
#include "support/appfiles.h"
#include "support/sessionfixture.h"

// The Export / Import menu driven through the main window: which chooser each command
// raises, the checks before it, what reaches the converters and what the user is told.

using namespace sessionfx;

using appfiles::contents;

namespace {


QString describe(const QList<LabelDef>& labels)
{
    QStringList out;
    for (const LabelDef& label : labels)
        out << label.name + ' ' + label.color.name();
    return out.join(", ");
}

// The labels as the window, its class box and the canvas hold them.
QStringList labelViews(const MainWindow& w)
{
    QStringList names, combo;
    for (const LabelDef& label : w.labels)
        names << label.name;
    for (int i = 0; i < w.classCombo->count(); ++i)
        combo << w.classCombo->itemText(i);
    return {names.join(' '), combo.join(' '), w.canvas->m_labelNames.join(' ')};
}

BoxAnnotation keypoint(const QString& label, double x, double y)
{
    BoxAnnotation k = box(label, x, y, x, y);
    k.type = ShapeType::Keypoint;
    k.points = {QPointF(x, y)};
    return k;
}

void trigger(MainWindow& w, const QString& action)
{
    QAction* a = w.findChild<QAction*>(action);
    QVERIFY2(a, qPrintable(action));
    a->trigger();
}

QString call(const ScriptedPrompts::Call& c)
{
    return QStringList({c.kind, c.title, c.text, c.informativeText}).join('|');
}

} // namespace

class TestExportImport : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // Without data, the command says so first; with data, a cancelled chooser (its caption,
    // start name and filter) changes nothing: no file, no label, no shape lost.
    void choosers_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("noData"); // "L" = the Load Data notice
        QTest::addColumn<QString>("chooser");
        const QString L = "L";
        QTest::newRow("export yolo") << "exportYoloAction" << L << "directory|Select output folder for YOLO files||";
        QTest::newRow("import yolo") << "importYoloAction" << L << "directory|Select folder containing YOLO txt files||";
        QTest::newRow("export coco") << "exportCocoAction" << L << "save|Save COCO JSON file|annotations.json|JSON (*.json)";
        QTest::newRow("import coco") << "importCocoAction" << L << "open|Open COCO JSON file||JSON (*.json)";
        QTest::newRow("export dota") << "exportDotaAction" << L << "directory|Select output folder for DOTA files||";
        QTest::newRow("import dota") << "importDotaAction" << L << "directory|Select folder containing DOTA txt files||";
        QTest::newRow("export csv") << "exportCsvAction" << L << "save|Save CSV file|annotations.csv|CSV (*.csv)";
        QTest::newRow("import csv") << "importCsvAction" << L << "open|Open CSV file||CSV (*.csv)";
        QTest::newRow("export names") << "exportObjectNamesAction" << L << "save|Save object names file|classes.txt|Text (*.txt)";
        QTest::newRow("import names") << "importObjectNamesAction" << ""
                                      << "open|Open classes/labels file||Text files (*.txt);;All files (*.*)";
        QTest::newRow("export pose") << "exportYoloPoseAction" << "information|No Data|Load images and annotations first.|"
                                     << "dialog|Export YOLO Pose \u2014 Configure Keypoint Order||";
    }

    void choosers()
    {
        QFETCH(QString, action);
        QFETCH(QString, noData);
        QFETCH(QString, chooser);
        ScriptedPrompts prompts;
        if (!noData.isEmpty()) {
            prompts.directoryAnswers << QDir::tempPath();
            prompts.openFileAnswers << "/nonexistent/file";
            prompts.saveFileAnswers << "/nonexistent/file";
            MainWindow empty;
            trigger(empty, action);
            QCOMPARE(prompts.calls.size(), 1);
            QCOMPARE(call(prompts.last()), noData != "L" ? noData : "information|No Data Loaded|" + UserPrompts::richText(
                "Please click <b>Load Data</b> first and point Brindle to your\nimages directory and annotations directory\n"
                "(they can be empty folders if you are starting fresh).") + '|');
        }
        Session s;
        QVERIFY(s.open({{}}));
        s.w.canvas->setBoxes({box("object", 1, 1, 3, 3)});
        const QString labels = describe(s.w.labels);
        const QStringList files = contents(s.dir.path()).keys();
        trigger(s.w, action);
        QCOMPARE(s.prompts.calls.size(), 1);
        QCOMPARE(call(s.prompts.last()), chooser);
        QCOMPARE(describe(s.w.labels), labels);
        QCOMPARE(contents(s.dir.path()).keys(), files);
        QCOMPARE(s.w.canvas->boxes(), Shapes{box("object", 1, 1, 3, 3)});
        QVERIFY(!s.w.images[0].dirty);
    }

    void exportSeesUnsavedEdit_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("message"); // "$T" = the target
        QTest::newRow("yolo") << "exportYoloAction" << "";
        QTest::newRow("coco") << "exportCocoAction" << "";
        QTest::newRow("dota") << "exportDotaAction" << "";
        QTest::newRow("csv") << "exportCsvAction" << "Exported 3 CSV row(s) to:\n$T";
    }

    // The shapes on the canvas have changed but nothing told the window yet (as in the middle
    // of an edit): the export must see them anyway, and the shapes in the file of an image never
    // shown. The same converter on those records gives the same bytes and message.
    void exportSeesUnsavedEdit()
    {
        QFETCH(QString, action);
        QFETCH(QString, message);
        Session s;
        QTemporaryDir out;
        QVERIFY(s.open({{}, {"object"}}, false));
        const Shapes unread = saved(s.xml(1));
        editShapes(s.w, {box("object", 0, 0, 2, 2)});
        const QList<BoxAnnotation> edited = {box("object", 0, 0, 2, 2), box("object", 3, 1, 7, 5)};
        s.w.canvas->setBoxes(edited);
        const bool toFolder = action == "exportYoloAction" || action == "exportDotaAction";
        const QString target = toFolder ? out.path() : out.filePath("export.out");
        (toFolder ? s.prompts.directoryAnswers : s.prompts.saveFileAnswers) << target;
        trigger(s.w, action);
        QCOMPARE(s.w.images[0].boxes, edited);
        QCOMPARE(s.w.images[1].boxes, unread);
        const QMap<QString, QByteArray> written = contents(out.path());
        QVERIFY(QDir(out.path()).removeRecursively() && QDir().mkpath(out.path()));
        const ExportImportResult result = action == "exportYoloAction" ? ExportImport::exportYolo(s.w.images, s.w.labels, target)
                                          : action == "exportCocoAction" ? ExportImport::exportCoco(s.w.images, s.w.labels, target)
                                          : action == "exportDotaAction" ? ExportImport::exportDota(s.w.images, target)
                                                                         : ExportImport::exportCsv(s.w.images, target);
        QVERIFY(result.ok && !written.isEmpty());
        QCOMPARE(written, contents(out.path()));
        QCOMPARE(s.prompts.calls.size(), 2);
        QCOMPARE(call(s.prompts.last()), "information|Export complete|" + result.message + '|');
        QVERIFY(result.message.endsWith(target));
        QVERIFY(message.isEmpty() || result.message == message.replace("$T", target));
        QVERIFY(action != "exportCocoAction" || result.count == 3); // two shapes on a, one on b
    }

    void commandFails_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("message"); // kind|title|text ("$T": the target)
        const QString cannotWrite = "warning|Export failed|Cannot write";
        QTest::newRow("export coco") << "exportCocoAction" << cannotWrite;
        QTest::newRow("export csv") << "exportCsvAction" << cannotWrite;
        QTest::newRow("export names") << "exportObjectNamesAction" << cannotWrite;
        QTest::newRow("export yolo") << "exportYoloAction" << cannotWrite;
        QTest::newRow("import coco") << "importCocoAction" << "warning|Import failed|Cannot open $T|";
        QTest::newRow("import csv") << "importCsvAction" << "warning|Import failed|Cannot open $T|";
        QTest::newRow("import names") << "importObjectNamesAction" << "critical|Import Failed|Cannot open $T|";
    }

    // Exports to below a plain file (nothing can be written there), imports of a file not
    // there: the user is told, and the shapes and labels stay as they were.
    void commandFails()
    {
        QFETCH(QString, action);
        QFETCH(QString, message);
        Session s;
        QVERIFY(writeBytes(s.path("blocker"), "x") && s.open({{}}));
        editShapes(s.w, {box("object", 0, 0, 2, 2)});
        const QString labels = describe(s.w.labels);
        const QString target = s.path(action == "exportYoloAction" ? "blocker" : "blocker/out.file");
        (action == "exportYoloAction" ? s.prompts.directoryAnswers
         : action.startsWith("export") ? s.prompts.saveFileAnswers : s.prompts.openFileAnswers) << target;
        trigger(s.w, action);
        QCOMPARE(s.prompts.calls.size(), 2);
        if (action.startsWith("export"))
            QVERIFY2(call(s.prompts.last()).startsWith(message) && s.prompts.last().text.endsWith(target + "\nNot a directory"),
                     qPrintable(s.prompts.last().text));
        else
            QCOMPARE(call(s.prompts.last()), message.replace("$T", target));
        QCOMPARE(s.w.canvas->boxes(), Shapes{box("object", 0, 0, 2, 2)});
        QCOMPARE(describe(s.w.labels), labels);
    }

    // The label list goes out, whatever shapes the canvas holds.
    void exportObjectNames()
    {
        Session s;
        QVERIFY(s.open({{}}));
        s.w.labels.append({"car", QColor(255, 100, 100)});
        s.w.canvas->setBoxes({box("person", 0, 0, 2, 2)});
        s.prompts.saveFileAnswers << s.path("names.txt");
        trigger(s.w, "exportObjectNamesAction");
        QCOMPARE(readBytes(s.path("names.txt")), "object\ncar\n");
        QCOMPARE(call(s.prompts.last()), "information|Export complete|Wrote 2 label(s) to:\n" + s.path("names.txt") + '|');
        QVERIFY(s.w.images[0].boxes.isEmpty());
    }

    void import_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<QStringList>("files"); // name=bytes, under the input folder; the first is answered ("" = the folder)
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("shapesOnA"); // YOLO and DOTA files replace, the others add
        QTest::newRow("yolo") << "importYoloAction" << QStringList{"", "classes.txt=car\n", "a.txt=0 0.5 0.5 0.5 0.5\n"}
                              << "Imported YOLO annotations for 1 image(s)." << 1;
        QTest::newRow("dota") << "importDotaAction" << QStringList{"", "a.txt=1 1 4 1 4 4 1 4 car 0\n"}
                              << "Imported DOTA annotations for 1 image(s)." << 1;
        QTest::newRow("csv") << "importCsvAction"
                             << QStringList{"in.csv=filename,width,height,class,xmin,ymin,xmax,ymax\na.png,8,6,car,1,1,4,4\n"}
                             << "Imported 1 CSV annotation(s)." << 2;
        QTest::newRow("coco") << "importCocoAction" << QStringList{R"(in.json={"categories":[{"id":1,"name":"car"}],)"
            R"("images":[{"id":7,"file_name":"a.jpg"}],"annotations":[{"image_id":7,"category_id":1,"bbox":[1,1,3,3]}]})"}
                              << "Imported 1 COCO annotation(s)." << 2;
    }

    // The image on screen shows the imported shapes at once, every row is read again, the new
    // label reaches every list of labels.
    void import()
    {
        QFETCH(QString, action);
        QFETCH(QStringList, files);
        QFETCH(QString, message);
        QFETCH(int, shapesOnA);
        Session s;
        QTemporaryDir input;
        for (const QString& f : files)
            QVERIFY(f.isEmpty() || writeBytes(input.filePath(f.section('=', 0, 0)), f.section('=', 1).toUtf8()));
        QVERIFY(s.open({{}, {}}));
        editShapes(s.w, {box("object", 0, 0, 2, 2)});
        QVERIFY(writeBytes(s.w.images[1].xmlPath, "<annotation/>")); // appeared behind the session's back
        (files[0].isEmpty() ? s.prompts.directoryAnswers : s.prompts.openFileAnswers) << input.filePath(files[0].section('=', 0, 0));
        s.prompts.calls.clear();
        trigger(s.w, action);
        QCOMPARE(s.prompts.calls.size(), 2);
        QCOMPARE(call(s.prompts.last()), "information|Import complete|" + message + '|');
        QCOMPARE(s.w.images[0].boxes.size(), shapesOnA);
        QCOMPARE(s.w.canvas->boxes(), s.w.images[0].boxes);
        QCOMPARE(s.w.canvas->boxes().last().label, "car");
        QCOMPARE(s.w.annotationsPanel->rowCount(), shapesOnA);
        QVERIFY(s.w.images[0].dirty && !s.w.images[1].dirty && s.w.images[1].boxes.isEmpty());
        QCOMPARE(rowTexts(s.w), QStringList({"a.png  *", "b.png  *"}));
        const QStringList views = labelViews(s.w);
        QVERIFY(views[0].contains("car"));
        QCOMPARE(views, QStringList({views[0], views[0], views[0]}));
    }

    void importObjectNames_data()
    {
        QTest::addColumn<bool>("withDataset");
        QTest::newRow("before any dataset") << false;
        QTest::newRow("dataset loaded") << true;
    }

    // Names already there (in any case), blank lines and blanks round names are skipped; the
    // colour file is written only with a dataset.
    void importObjectNames()
    {
        QFETCH(bool, withDataset);
        Session s;
        QVERIFY(makeImageFile(s.path("a.png")) && writeBytes(s.path("names.txt"), "car\nCar\ntruck\n\n object \n"));
        QVERIFY(!withDataset || s.w.openDataset(s.dir.path()));
        const QString colours = s.path("annotations/label_colors.json");
        QFile::remove(colours);
        s.w.labels.append({"car", QColor(255, 100, 100)});
        s.prompts.openFileAnswers << s.path("names.txt");
        trigger(s.w, "importObjectNamesAction");
        QCOMPARE(call(s.prompts.last()), "information|Import Complete|Imported 1 label(s) (3 already existed, skipped):\n"
                                           + s.path("names.txt") + '|');
        QCOMPARE(labelViews(s.w), QStringList(3, "object car truck"));
        QCOMPARE(readBytes(colours).contains("\"truck\""), withDataset);
        QCOMPARE(contents(s.dir.path()).size(), withDataset ? 3 : 2);
    }

    // The dirty image is saved first; b is never shown, so its file and size are read; the
    // keypoint order chosen in the dialog sets the slots (hand dropped, head moved first).
    void poseExport()
    {
        Session s;
        QTemporaryDir out;
        QVERIFY(writeImage(s.path("a.png"), 640, 480) && writeImage(s.path("b.png"), 320, 240));
        ImageAnnotations unread;
        unread.xmlPath = s.path("annotations/b.xml");
        unread.boxes = {box("person", 0, 0, 160, 120), keypoint("foot", 80, 120)};
        QVERIFY(QDir().mkpath(s.path("annotations")) && VocXml::save(unread, "x"));
        QVERIFY(s.w.openDataset(s.dir.path()));
        const QList<BoxAnnotation> shapes = {box("person", 100, 100, 200, 300), keypoint("head", 150, 90),
                                             keypoint("foot", 150, 320), keypoint("hand", 120, 200)};
        s.w.canvas->setBoxes(shapes);
        s.w.images[0].dirty = true;
        s.prompts.dialogHandler = [&](QDialog* dialog) {
            auto* pose = qobject_cast<YoloPoseExportDialog*>(dialog);
            pose->orderListWidget->setCurrentRow(1); // foot, hand, head
            pose->onKpRemove();
            pose->orderListWidget->setCurrentRow(1);
            pose->onKpUp();
            pose->accept();
            return pose->result();
        };
        s.prompts.directoryAnswers << out.path();
        trigger(s.w, "exportYoloPoseAction");
        QVERIFY(QFile::exists(s.w.images[0].xmlPath) && !s.w.images[0].dirty);
        QCOMPARE(s.w.images[0].boxes, shapes);
        QCOMPARE(readBytes(out.filePath("labels/a.txt")), "0 0.234375 0.416667 0.15625 0.416667 0.234375 0.1875 2 0.234375 0.666667 2\n");
        QCOMPARE(readBytes(out.filePath("labels/b.txt")), "0 0.25 0.25 0.5 0.5 0 0 0 0.25 0.5 2\n");
        QVERIFY(readBytes(out.filePath("data.yaml")).endsWith("\nkpt_shape: [2, 3]\n"));
        QCOMPARE(call(s.prompts.calls[1]), "directory|Select output folder for YOLO Pose files||");
        QCOMPARE(call(s.prompts.last()), "information|Export Complete|Exported YOLO Pose for 2 image(s) to:\n" + out.path() + '|');
    }
};

QTEST_MAIN(TestExportImport)
#include "tst_exportimport.moc"
