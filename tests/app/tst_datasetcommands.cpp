#include <QAction>
#include <QCheckBox>
#include <QDirIterator>
#include <QInputDialog>
#include <QLineEdit>
#include <QProgressDialog>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "formats/collagedialog.h"
#include "model/vocxml.h"
#include "support/records.h"
#include "support/scriptedprompts.h"

// The split, conversion and collage commands driven through the main window and the
// dialog seam: what the user is asked and told, and what lands on disk.

using sessiontest::makeImageFile;
using sessiontest::readBytes;
using Shapes = QList<BoxAnnotation>;

namespace {

// Images a.png, b.png ... in `dir`; each non-empty shape list goes into the image's
// annotation file.
void makeDataset(const QTemporaryDir& dir, const QList<Shapes>& shapesPerImage)
{
    QDir().mkpath(dir.filePath("annotations"));
    for (int i = 0; i < shapesPerImage.size(); ++i) {
        const QString base(QChar('a' + i));
        QVERIFY(makeImageFile(dir.filePath(base + ".png")));
        ImageAnnotations record = image(dir.filePath(base + ".png"), 8, 6, shapesPerImage[i]);
        record.xmlPath = dir.filePath("annotations/" + base + ".xml");
        if (!record.boxes.isEmpty())
            QVERIFY(VocXml::save(record, "images"));
    }
}

QMap<QString, QByteArray> contents(const QString& folder)
{
    QMap<QString, QByteArray> out;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        out.insert(QDir(folder).relativeFilePath(path), readBytes(path));
    }
    return out;
}

void trigger(MainWindow& w, const char* action)
{
    QAction* a = w.findChild<QAction*>(QLatin1String(action));
    QVERIFY2(a, action);
    a->trigger();
}

BoxAnnotation keypoint(const QString& label, double x, double y)
{
    return shape(label, ShapeType::Keypoint, {QPointF(x, y)});
}

// Runs `look` on the window's progress dialog at the first chance events get.
void atProgress(MainWindow& w, std::function<void(QProgressDialog*)> look)
{
    QTimer::singleShot(0, &w, [&w, look] {
        if (auto* progress = w.findChild<QProgressDialog*>())
            look(progress);
    });
}

} // namespace

class TestDatasetCommands : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void stopsWithoutWhatItNeeds_data();
    void stopsWithoutWhatItNeeds();
    void split();
    void conversion_data();
    void conversion();
    void collage();
    void collageCancelledInProgressDialog();
};

void TestDatasetCommands::stopsWithoutWhatItNeeds_data()
{
    QTest::addColumn<bool>("load");
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");

    QTest::newRow("to keypoints, no data") << false << "bboxesToKeyPointsAction" << "No Data"
                                           << "Please click 'Load Data' first.";
    QTest::newRow("to boxes, no files") << true << "keyPointsToBBoxesAction" << "No Annotations"
                                        << "No annotation files found for the loaded images.";
    QTest::newRow("collage, nothing annotated")
        << true << "exportCollageAction" << "Export Collage"
        << "No annotated images found. Please annotate some images first.";
}

void TestDatasetCommands::stopsWithoutWhatItNeeds()
{
    QFETCH(bool, load);
    QFETCH(QString, action);
    QFETCH(QString, title);
    QFETCH(QString, text);

    QTemporaryDir dir;
    makeDataset(dir, {{}, {}});
    ScriptedPrompts prompts;
    MainWindow w;
    if (load)
        QVERIFY(w.openDataset(dir.path()));
    trigger(w, action.toLatin1());
    QCOMPARE(prompts.calls.size(), 1);
    QCOMPARE(prompts.last().kind, QStringLiteral("information"));
    QCOMPARE(prompts.last().title, title);
    QCOMPARE(prompts.last().text, text);
}

void TestDatasetCommands::split()
{
    QTemporaryDir dir, out;
    QList<Shapes> shapes(10);
    shapes[1] = shapes[4] = shapes[9] = {box("car", 1, 1, 3, 3)};
    makeDataset(dir, shapes);
    ScriptedPrompts prompts;
    prompts.directoryAnswers << out.path();
    QList<int> seen;
    prompts.dialogHandler = [&](QDialog* d) {
        auto* train = d->findChild<QSpinBox*>("trainSpinBox");
        auto* test = d->findChild<QSpinBox*>("testSpinBox");
        seen << train->value() << test->value();
        test->setValue(35);
        seen << train->value();
        QSignalSpy testChanged(test, &QSpinBox::valueChanged); // set with its signal blocked
        train->setValue(70);
        seen << test->value() << int(testChanged.count());
        QSignalSpy finished(d, &QDialog::finished);
        d->show(); // a shown dialog would press its default button on Return
        QTest::keyClick(train, Qt::Key_Return);
        seen << int(finished.count());
        return int(QDialog::Accepted);
    };
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY(sessiontest::scanDone(w)); // the scan writes the label colour file
    const QMap<QString, QByteArray> before = contents(dir.path());

    trigger(w, "exportSplitAction");

    QCOMPARE(seen, QList<int>({80, 20, 65, 30, 0, 0}));
    QCOMPARE(prompts.callsOf("directory").value(0).title, "Select output folder for Train/Test split");
    QCOMPARE(prompts.last().title, "Split complete");
    QCOMPARE(prompts.last().text,
             "Split complete:\n\nTrain: 7 images (70%)\nTest:  3 images (30%)\n\nOutput: " + out.path());
    const QStringList copied = contents(out.path()).keys();
    QCOMPARE(copied.filter(QRegularExpression("^Train/images/.\\.png$")).size(), 7);
    QCOMPARE(copied.filter(QRegularExpression("^Test/images/.\\.png$")).size(), 3);
    QCOMPARE(copied.filter("annotations/").size(), 3);
    QCOMPARE(contents(dir.path()), before);
}

void TestDatasetCommands::conversion_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QList<Shapes>>("dataset");
    QTest::addColumn<QString>("question");
    QTest::addColumn<QString>("progressLabel");
    QTest::addColumn<QString>("summary");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QList<Shapes>>("written");

    const BoxAnnotation road = shape("road", ShapeType::Polygon, {{0, 0}, {5, 0}, {5, 5}});
    // a.png is shown, so its size (8 x 6) is known; b.png's is not.
    QTest::newRow("keypoints to boxes")
        << "keyPointsToBBoxesAction"
        << QList<Shapes>{{keypoint("eye", 5, 4)}, {keypoint("eye", 5, 4)}, {road}, {}}
        << "This will process 3 annotated image(s).\n\nEach key point becomes a 20x20 px bounding "
           "box centered on it with the same label.\n\nOutput saved to a 'bounding_boxes' folder "
           "next to your annotations folder.\n\nContinue?"
        << "Converting key points to bounding boxes..."
        << "Conversion complete!\n\nImages processed: 2\nBounding boxes created: 2\nImages skipped "
           "(no key points): 1\n\nOutput folder:\n%1/bounding_boxes"
        << "bounding_boxes"
        << QList<Shapes>{{box("eye", 0, 0, 7, 5)}, {box("eye", -5, -6, 15, 14)}};
    QTest::newRow("boxes to keypoints")
        << "bboxesToKeyPointsAction"
        << QList<Shapes>{{box("car", 2, 2, 6, 4), road}, {box("a", 0, 0, 2, 2), box("b", 1, 1, 5, 5)}, {road}}
        << "This will process 3 annotated image(s).\n\nFor each bounding box a keypoint is placed "
           "at its center with the same label.\n\nOutput saved to a 'key_points' folder next to "
           "your annotations folder.\n\nContinue?"
        << "Converting bounding boxes to key points..."
        << "Conversion complete!\n\nImages processed: 2\nKey points created: 3\nImages skipped "
           "(no bboxes): 1\n\nOutput folder:\n%1/key_points"
        << "key_points"
        << QList<Shapes>{{keypoint("car", 4, 3)}, {keypoint("a", 1, 1), keypoint("b", 3, 3)}};
}

void TestDatasetCommands::conversion()
{
    QFETCH(QString, action);
    QFETCH(QList<Shapes>, dataset);
    QFETCH(QString, question);
    QFETCH(QString, progressLabel);
    QFETCH(QString, summary);
    QFETCH(QString, folder);
    QFETCH(QList<Shapes>, written);

    QTemporaryDir dir;
    makeDataset(dir, dataset);
    ScriptedPrompts prompts;
    prompts.questionAnswers << QMessageBox::Yes;
    QStringList radiusDialog;
    prompts.dialogHandler = [&](QDialog* d) {
        auto* input = qobject_cast<QInputDialog*>(d);
        radiusDialog << input->windowTitle() << input->labelText()
                     << QStringLiteral("%1 %2..%3 step %4")
                            .arg(input->intValue())
                            .arg(input->intMinimum())
                            .arg(input->intMaximum())
                            .arg(input->intStep());
        input->setIntValue(10);
        return int(QDialog::Accepted);
    };
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY(sessiontest::scanDone(w));
    const QMap<QString, QByteArray> annotations = contents(dir.filePath("annotations"));
    QString shownLabel;
    atProgress(w, [&](QProgressDialog* p) { shownLabel = p->labelText(); });

    trigger(w, action.toLatin1());

    if (action == "keyPointsToBBoxesAction") {
        QCOMPARE(radiusDialog,
                 QStringList({"Bounding Box Radius",
                              "Radius around each key point in pixels:\n(Box will be radius*2 x "
                              "radius*2 centered on the key point)",
                              "20 1..9999 step 1"}));
    }
    QCOMPARE(prompts.callsOf("question").value(0).text, question);
    QCOMPARE(shownLabel, progressLabel);
    QCOMPARE(prompts.last().title, "Conversion Complete");
    QCOMPARE(prompts.last().text, summary.arg(dir.path()));
    QCOMPARE(contents(dir.filePath(folder)).keys(), QStringList({"a.xml", "b.xml"}));
    for (int i = 0; i < written.size(); ++i) {
        ImageAnnotations result;
        result.xmlPath = dir.filePath(folder + "/" + QChar('a' + i) + ".xml");
        QVERIFY(VocXml::load(result));
        QCOMPARE(result.boxes, written[i]);
    }
    QCOMPARE(contents(dir.filePath("annotations")), annotations);
}

void TestDatasetCommands::collage()
{
    QTemporaryDir dir, out;
    makeDataset(dir, {{box("car", 0, 0, 7, 5)}, {}, {box("car", 1, 1, 4, 4)}, {box("dog", 2, 2, 5, 5)}});
    ScriptedPrompts prompts;
    const QString png = out.filePath("collage.png");
    prompts.saveFileAnswers << png;
    QStringList seen;
    prompts.dialogHandler = [&](QDialog* d) {
        auto* edit = d->findChild<QLineEdit*>("collageCountEdit");
        auto* random = d->findChild<QCheckBox*>("collageRandomCheck");
        auto* exportButton = d->findChild<QPushButton*>("collageExportButton");
        QSignalSpy accepted(d, &QDialog::accepted);
        seen << d->windowTitle() << edit->text() << edit->placeholderText() << random->text();
        edit->setText("0");
        QTest::keyClick(edit, Qt::Key_Return);
        seen << edit->text();
        edit->setText("99");
        exportButton->click();
        seen << edit->text() << QString::number(accepted.count());
        random->setChecked(false);
        seen << random->text();
        edit->setText("2");
        QTest::keyClick(edit, Qt::Key_Return);
        seen << QString::number(accepted.count());
        return d->result();
    };
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));

    trigger(w, "exportCollageAction");

    QCOMPARE(seen, QStringList({"Export Collage", "3", "1\u20133", "On  (randomly pick images)", "1",
                                "3", "0", "Off  (top to bottom)", "1"}));
    const ScriptedPrompts::Call save = prompts.callsOf("save").value(0);
    QCOMPARE(QStringList({save.title, save.text, save.informativeText}),
             QStringList({"Save Collage PNG", "collage.png", "PNG Image (*.png)"}));
    QCOMPARE(prompts.last().title, "Export Collage");
    QCOMPARE(prompts.last().text, "Collage saved with 2 image(s):\n" + png);
    QCOMPARE(QImage(png).size(), QSize(2584, 1040));
}

void TestDatasetCommands::collageCancelledInProgressDialog()
{
    QTemporaryDir dir, out;
    makeDataset(dir, {{box("car", 0, 0, 7, 5)}, {box("car", 1, 1, 4, 4)}});
    ScriptedPrompts prompts;
    prompts.saveFileAnswers << out.filePath("collage.png");
    prompts.dialogHandler = [](QDialog*) { return int(QDialog::Accepted); };
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QStringList shown;
    atProgress(w, [&](QProgressDialog* p) {
        shown << p->windowTitle() << p->labelText() << QString::number(p->maximum());
        QVERIFY(p->windowModality() == Qt::WindowModal && p->isVisible());
        p->cancel();
    });

    trigger(w, "exportCollageAction");

    QCOMPARE(shown, QStringList({"Exporting Collage", "Processing images for collage...\n2 images total", "2"}));
    QCOMPARE(prompts.callsOf("information").size() + prompts.callsOf("warning").size(), 0);
    QVERIFY(contents(out.path()).isEmpty());
}

QTEST_MAIN(TestDatasetCommands)
#include "tst_datasetcommands.moc"
