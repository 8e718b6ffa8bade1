#include <QCheckBox>
#include <QDirIterator>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QSlider>
#include <QSpinBox>

#include "ai/aitest.h"
#include "ai/videoinferencedialog.h"
#include "ai/yoloannotatedialog.h"
#include "model/vocxml.h"
#include "support/scriptedprompts.h"

// The shipped helper scripts for real: Debian's Python with OpenCV and NumPy, a video made
// here, the fake ultralytics model, run directly and through the real dialogs.

using namespace AiTest;

namespace {

struct Helpers : Sandbox {
    Helpers()
    {
        link("python", "/usr/bin/python3");
        makeVideo(path("v.avi"));
        writeModel(path("m.pt"));
        for (const QString& s : kScripts)
            placeScript(s);
    }
};

QStringList files(const QString& dir, const QString& pattern)
{
    QStringList names = QDir(dir).entryList({pattern}, QDir::Files, QDir::Name);
    return names;
}

QString frameName(int n)
{
    return QStringLiteral("v_frame%1.jpg").arg(n, 6, 10, QLatin1Char('0'));
}

} // namespace

class TestAiHelpers : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void scriptErrors_data();
    void scriptErrors();
    void frameExtraction_data();
    void frameExtraction();
    void annotateVideo();
};

void TestAiHelpers::scriptErrors_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("fault");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("error");
    for (const QString& s : {QString("yolo_inference.py"), QString("yolo_annotate_video.py")}) {
        QTest::addRow("%s no package", qPrintable(s)) << s << "package" << 3
            << "ERROR:Missing Python package: ultralytics. Click 'Install AI Dependencies' or run: "
               "pip install ultralytics opencv-python \"numpy<2.0\"";
        QTest::addRow("%s no model", qPrintable(s)) << s << "model" << 2 << "ERROR:Model file not found: $D/none.pt";
        QTest::addRow("%s bad model", qPrintable(s)) << s << "bad model" << 2 << "ERROR:Could not load model $D/v.avi";
        QTest::addRow("%s bad video", qPrintable(s)) << s << "video" << 4 << "ERROR:Cannot read video: $D/m.pt";
    }
    QTest::newRow("bad option") << "yolo_inference.py" << "option" << 2
                                << "ERROR:Bad arguments: argument --conf: invalid float value: 'x'";
}

void TestAiHelpers::scriptErrors()
{
    QFETCH(QString, script);
    QFETCH(QString, fault);
    QFETCH(int, exitCode);
    QFETCH(QString, error);
    Helpers box;
    QString model = box.path(fault == "model" ? "none.pt" : fault == "bad model" ? "v.avi" : "m.pt");
    QString video = box.path(fault == "video" ? "m.pt" : "v.avi");
    QStringList args{AI_SCRIPTS_DIR "/" + script, "--model", model, "--video", video, "--output", box.path("out")};
    if (fault == "option")
        args << "--conf" << "x";
    if (fault == "package")
        qputenv("PYTHONPATH", "");
    QProcess helper;
    helper.start("/usr/bin/python3", args);
    QVERIFY(helper.waitForFinished(30000));
    QCOMPARE(helper.exitCode(), exitCode);
    const QStringList out = QString::fromUtf8(helper.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    QCOMPARE(out.size(), 1);
    QVERIFY2(out[0].startsWith(error.replace("$D", box.path(""))), qPrintable(out[0]));
    QVERIFY(!helper.readAllStandardError().contains("Traceback"));
    QVERIFY(!QFileInfo::exists(box.path("out"))); // nothing half made
}

void TestAiHelpers::frameExtraction_data()
{
    QTest::addColumn<QStringList>("checked");
    QTest::addColumn<int>("conf");
    QTest::addColumn<int>("skip"); // 0: every frame
    QTest::addColumn<bool>("invert");
    QTest::addColumn<bool>("xml");
    QTest::addColumn<QList<int>>("frames");
    QTest::addColumn<QString>("firstSaved"); // the log line of the first saved frame
    QTest::newRow("any detection, xml") << QStringList{} << 25 << 0 << false << true
        << QList<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}
        << "SAVED Frame 1  [person]  images/v_frame000001.jpg";
    QTest::newRow("car") << QStringList{"car"} << 25 << 0 << false << false
        << QList<int>{6, 7, 8, 9, 10, 11, 12, 13, 14, 15} << "SAVED Frame 6  [person, car]  v_frame000006.jpg";
    QTest::newRow("car below threshold, inverse") << QStringList{"car"} << 50 << 0 << true << false
        << QList<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}
        << "SAVED Frame 1  [person]  v_frame000001.jpg";
    QTest::newRow("nothing detected") << QStringList{} << 25 << 0 << true << false
        << QList<int>{16, 17, 18, 19, 20} << "SAVED Frame 16  []  v_frame000016.jpg";
    QTest::newRow("person absent, every 3rd, xml") << QStringList{"person"} << 25 << 3 << true << true
        << QList<int>{13, 16, 19} << "SAVED Frame 13  [car]  images/v_frame000013.jpg";
}

void TestAiHelpers::frameExtraction()
{
    QFETCH(QStringList, checked);
    QFETCH(int, conf);
    QFETCH(int, skip);
    QFETCH(bool, invert);
    QFETCH(bool, xml);
    QFETCH(QList<int>, frames);
    QFETCH(QString, firstSaved);
    Helpers box;
    ScriptedPrompts prompts;
    VideoInferenceDialog dialog({"person", "car"});
    dialog.show();
    dialog.findChild<QLineEdit*>("modelEdit")->setText(box.path("m.pt"));
    dialog.findChild<QLineEdit*>("videoEdit")->setText(box.path("v.avi"));
    dialog.findChild<QLineEdit*>("outputEdit")->setText(box.path("out"));
    for (const QString& label : checked)
        dialog.findChild<QListWidget*>()->findItems(label, Qt::MatchExactly).first()->setCheckState(Qt::Checked);
    dialog.findChild<QSlider*>()->setValue(conf);
    dialog.findChild<QCheckBox*>("frameSkipCheck")->setChecked(skip > 0);
    dialog.findChild<QSpinBox*>()->setValue(qMax(skip, 1));
    dialog.findChild<QCheckBox*>("invertCheck")->setChecked(invert);
    dialog.findChild<QCheckBox*>("saveXmlCheck")->setChecked(xml);
    button(&dialog, "runButton")->click();
    QVERIFY(waitIdle(&dialog));
    QVERIFY(prompts.calls.isEmpty());

    const QStringList folders = QDir(box.path("out")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(folders.size(), 1);
    QVERIFY(QRegularExpression("^v_\\d{8}_\\d{6}$").match(folders[0]).hasMatch());
    const QString folder = box.path("out/" + folders[0]);
    const QString images = xml ? folder + "/images" : folder;
    QStringList expected;
    for (int n : frames)
        expected << frameName(n);
    QCOMPARE(files(images, "*.jpg"), expected);
    QCOMPARE(QImage(images + '/' + expected[0]).size(), QSize(160, 120));
    if (xml) {
        QCOMPARE(files(folder + "/annotations", "*.xml").size(), frames.size());
        for (int n : frames) {
            ImageAnnotations ann{images + '/' + frameName(n), folder + "/annotations/" + QString(frameName(n)).replace(".jpg", ".xml"), 160, 120, {}, false};
            QVERIFY(VocXml::load(ann));
            QFile file(ann.xmlPath);
            QVERIFY(file.open(QIODevice::ReadOnly));
            QCOMPARE(file.readAll(), VocXml::toXml(ann, "images")); // our own layout, byte for byte
            QStringList shapes;
            for (const BoxAnnotation& b : ann.boxes) {
                const QRect r = b.rect();
                shapes << QStringLiteral("%1 %2,%3 %4,%5").arg(b.label).arg(r.left()).arg(r.top()).arg(r.right()).arg(r.bottom());
            }
            QStringList truth;
            if (n <= 10)
                truth << "person 10,20 49,49";
            if (n >= 6 && n <= 15)
                truth << "car 80,60 139,99";
            QCOMPARE(shapes, truth);
        }
    }

    const QStringList log = logTexts(&dialog);
    QCOMPARE(log.filter(QRegularExpression("^SAVED Frame")).size(), frames.size());
    QCOMPARE(log.filter(QRegularExpression("^SAVED Frame")).first(), firstSaved);
    QVERIFY(log.contains("Output folder: " + folder));
    QCOMPARE(log.last(), QStringLiteral("Done — %1 frames saved.").arg(frames.size()));
    QCOMPARE(dialog.findChild<QLabel*>("statusLabel")->text(),
             QStringLiteral("Done — %1 frames saved to: %2").arg(frames.size()).arg(folder));
    QCOMPARE(dialog.findChild<QProgressBar*>()->value(), 100);
    QTRY_VERIFY(!dialog.findChild<QLabel*>("previewLabel")->pixmap().isNull());
}

void TestAiHelpers::annotateVideo()
{
    Helpers box;
    ScriptedPrompts prompts;
    YoloAnnotateDialog dialog;
    dialog.findChild<QLineEdit*>("modelEdit")->setText(box.path("m.pt"));
    dialog.findChild<QLineEdit*>("videoEdit")->setText(box.path("v.avi"));
    dialog.findChild<QLineEdit*>("outputEdit")->setText(box.path("out"));
    for (int run = 1; run <= 2; ++run) { // the second run does not overwrite the first
        button(&dialog, "runButton")->click();
        QVERIFY(waitIdle(&dialog));
        const QString video = box.path(run == 1 ? "out/v_annotated.mp4" : "out/v_annotated_2.mp4");
        QProcess count;
        count.start("/usr/bin/python3", {"-c", "import cv2,sys\nc=cv2.VideoCapture(sys.argv[1]);n=0\n"
                                               "while c.read()[0]: n+=1\nprint(n)", video});
        QVERIFY(count.waitForFinished(30000));
        QCOMPARE(count.readAllStandardOutput().trimmed(), "20");
        const auto lines = logLines(&dialog);
        QStringList frameLines;
        for (const auto& l : lines)
            if (l.second == "#555555")
                frameLines << l.first;
        QCOMPARE(frameLines.size(), 20);
        QCOMPARE(frameLines.last(), "Frame 20 / 20");
        QCOMPARE(lines.last().first, "✓ Done: " + video);
        QCOMPARE(dialog.findChild<QLabel*>("statusLabel")->text(), "Done — output saved to:\n" + video);
    }
    QCOMPARE(files(box.path("out"), "*").size(), 2); // no temporary left behind
    QCOMPARE(QDir(box.path("out")).entryList(QDir::Hidden | QDir::Files).size(), 2);
}

QTEST_MAIN(TestAiHelpers)
#include "tst_aihelpers.moc"
