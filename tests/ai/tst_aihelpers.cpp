#include <QCheckBox>
#include <QProcessEnvironment>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QRegularExpression>
#include <QSlider>
#include <QSpinBox>

#include "ai/aitest.h"
#include "ai/videoinferencedialog.h"
#include "ai/yoloannotatedialog.h"
#include "model/vocxml.h"
#include "support/records.h"
#include "support/scriptedprompts.h"

// The shipped scripts for real: the helpers with Debian's Python, OpenCV and NumPy, a
// video made here and the fake ultralytics model, run directly and through the real
// dialogs; the installer with stub interpreters.

using namespace AiTest;

namespace {

struct Helpers : Sandbox {
    Helpers()
    {
        link("python", "/usr/bin/python3");
        makeVideo(path("v.avi"));
        writeFile(path("m.pt"), AiTest::model);
        for (const QString& s : scripts)
            placeScript(s);
    }
    void fill(QWidget* dialog) const
    {
        dialog->findChild<QLineEdit*>("modelEdit")->setText(path("m.pt"));
        dialog->findChild<QLineEdit*>("videoEdit")->setText(path("v.avi"));
        dialog->findChild<QLineEdit*>("outputEdit")->setText(path("out"));
    }
};

QString frameName(int n, const QString& suffix = ".jpg")
{
    return QStringLiteral("v_frame%1").arg(n, 6, 10, QLatin1Char('0')) + suffix;
}

struct Extraction {
    QString checked; // the label row ticked, if any
    int conf, skip; // skip 0: unchecked (its spin box then says 7, which must not count)
    bool invert, xml;
    QList<int> frames;
    QString firstSaved; // the log line of the first saved frame
};

struct Installer {
    QString interpreters; // names on the PATH running the stub
    QString env;
    int exitCode;
    QString lastLine;   // "$E" = the private environment
    QStringList calls;  // among the recorded calls, in order
};

} // namespace

Q_DECLARE_METATYPE(Extraction)
Q_DECLARE_METATYPE(Installer)

class TestAiHelpers : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void scriptErrors_data();
    void scriptErrors();
    void frameExtraction_data();
    void frameExtraction();
    void annotateVideo();
    void installer_data();
    void installer();
};

void TestAiHelpers::scriptErrors_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("fault");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("error"); // "$D" = the sandbox
    for (const char* s : {"yolo_inference.py", "yolo_annotate_video.py"}) {
        QTest::addRow("%s no package", s) << s << "package" << 3 << "ERROR:Missing Python package: ultralytics. Click "
            "'Install AI Dependencies' or run: pip install ultralytics opencv-python \"numpy<2.0\"";
        QTest::addRow("%s no model", s) << s << "none.pt" << 2 << "ERROR:Model file not found: $D/none.pt";
        QTest::addRow("%s bad model", s) << s << "v.avi" << 2 << "ERROR:Could not load model $D/v.avi";
        QTest::addRow("%s bad video", s) << s << "video" << 4 << "ERROR:Cannot read video: $D/m.pt";
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
    Sandbox box; // no row gets as far as reading a video
    writeFile(box.path("m.pt"), AiTest::model);
    writeFile(box.path("v.avi"), "RIFF");
    const QString model = box.path(fault.contains('.') ? fault : "m.pt");
    QStringList args{AI_SCRIPTS_DIR "/" + script, "--model", model, "--video", box.path(fault == "video" ? "m.pt" : "v.avi"),
                     "--output", box.path("out")};
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
    QVERIFY2(out[0].startsWith(error.replace("$D", box.dir.path())), qPrintable(out[0]));
    QVERIFY(!helper.readAllStandardError().contains("Traceback"));
    QVERIFY(!QFileInfo::exists(box.path("out"))); // nothing half made
}

void TestAiHelpers::frameExtraction_data()
{
    QTest::addColumn<Extraction>("row");
    const auto frames = [](int first, int last) { QList<int> r; for (int i = first; i <= last; ++i) r << i; return r; };
    QTest::newRow("any detection, xml") << Extraction{"", 25, 0, false, true, frames(1, 15),
                                                      "SAVED Frame 1 [person] images/v_frame000001.jpg"};
    QTest::newRow("car") << Extraction{"car", 25, 0, false, false, frames(6, 15),
                                       "SAVED Frame 6 [person, car] v_frame000006.jpg"};
    QTest::newRow("nothing above 0.5, inverse") << Extraction{"", 50, 0, true, false, frames(11, 20),
                                                              "SAVED Frame 11 [] v_frame000011.jpg"};
    QTest::newRow("no person, every 3rd, xml") << Extraction{"person", 25, 3, true, true, {13, 16, 19},
                                                             "SAVED Frame 13 [car] images/v_frame000013.jpg"};
}

void TestAiHelpers::frameExtraction()
{
    QFETCH(Extraction, row);
    Helpers box;
    ScriptedPrompts prompts;
    VideoInferenceDialog dialog({"person", "car"});
    dialog.show();
    box.fill(&dialog);
    for (QListWidgetItem* item : dialog.findChild<QListWidget*>()->findItems(row.checked, Qt::MatchExactly))
        item->setCheckState(Qt::Checked);
    dialog.findChild<QSlider*>()->setValue(row.conf);
    dialog.findChild<QCheckBox*>("frameSkipCheck")->setChecked(row.skip > 0);
    dialog.findChild<QSpinBox*>()->setValue(row.skip > 0 ? row.skip : 7);
    dialog.findChild<QCheckBox*>("invertCheck")->setChecked(row.invert);
    dialog.findChild<QCheckBox*>("saveXmlCheck")->setChecked(row.xml);
    button(&dialog, "runButton")->click();
    QVERIFY(waitIdle(&dialog));
    QVERIFY(prompts.calls.isEmpty());

    const QStringList made = QDir(box.path("out")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(made.size(), 1);
    QVERIFY(QRegularExpression("^v_\\d{8}_\\d{6}$").match(made[0]).hasMatch());
    const QString folder = box.path("out/" + made[0]), images = row.xml ? folder + "/images" : folder;
    QStringList expected;
    for (int n : row.frames)
        expected << frameName(n);
    QCOMPARE(QDir(images).entryList(QDir::Files | QDir::Hidden), expected); // and no temporary left
    QCOMPARE(QImage(images + '/' + expected[0]).size(), QSize(160, 120));
    const QList<BoxAnnotation> person{::box("person", 10, 20, 49, 49)}, car{::box("car", 80, 60, 139, 99)};
    for (int n : row.xml ? row.frames : QList<int>{}) {
        ImageAnnotations ann = image(images + '/' + frameName(n), 160, 120);
        ann.xmlPath = folder + "/annotations/" + frameName(n, ".xml");
        QVERIFY(VocXml::load(ann));
        QCOMPARE(ann.boxes, (n <= 10 ? person : QList<BoxAnnotation>{}) + (n >= 6 && n <= 15 ? car : QList<BoxAnnotation>{}));
        QCOMPARE(readFile(ann.xmlPath).toUtf8(), VocXml::toXml(ann, "images")); // our own layout, byte for byte
    }
    const QStringList log = logLines(&dialog, false), saved = log.filter(QRegularExpression("^SAVED Frame"));
    QCOMPARE(saved.size(), row.frames.size());
    QCOMPARE(saved.first(), row.firstSaved);
    QVERIFY(log.contains("Output folder: " + folder));
    QCOMPARE(log.last(), QStringLiteral("Done — %1 frames saved.").arg(row.frames.size()));
    QCOMPARE(dialog.findChild<QLabel*>("statusLabel")->text(),
             QStringLiteral("Done — %1 frames saved to: %2").arg(row.frames.size()).arg(folder));
    QCOMPARE(dialog.findChild<QProgressBar*>()->value(), 100);
    QTRY_VERIFY(!dialog.findChild<QLabel*>("previewLabel")->pixmap().isNull());
}

void TestAiHelpers::annotateVideo()
{
    Helpers box;
    ScriptedPrompts prompts;
    YoloAnnotateDialog dialog;
    box.fill(&dialog);
    for (const QString name : {"v_annotated.mp4", "v_annotated_2.mp4"}) { // never overwrites
        button(&dialog, "runButton")->click();
        QVERIFY(waitIdle(&dialog));
        const QString video = box.path("out/" + name);
        QProcess count;
        count.start("/usr/bin/ffprobe", {"-v", "error", "-count_frames", "-show_entries",
                                         "stream=width,height,nb_read_frames", "-of", "csv=p=0", video});
        QVERIFY(count.waitForFinished(30000));
        QCOMPARE(count.readAllStandardOutput(), "160,120,20\n");
        const QStringList log = logLines(&dialog);
        QCOMPARE(log.filter("|#555555").size(), 20);
        QVERIFY(log.contains("Frame 20 / 20|#555555"));
        QCOMPARE(log.last(), "✓ Done: " + video + "|#50d898");
        QCOMPARE(dialog.findChild<QLabel*>("statusLabel")->text(), "Done — output saved to:\n" + video);
    }
    QCOMPARE(QDir(box.path("out")).entryList(QDir::Files | QDir::Hidden).size(), 2); // no temporary left
}

// The installer with stub interpreters that record what they are asked to do.
void TestAiHelpers::installer_data()
{
    QTest::addColumn<Installer>("row");
    const QString pip = "-m pip install%1 --upgrade --progress-bar off ultralytics opencv-python numpy<2.0";
    QTest::newRow("no python") << Installer{"", "", 1, "ERROR:Python 3 was not found.", {}};
    QTest::newRow("no network") << Installer{"python3", "STUB_NET=1", 3, "ERROR:Cannot reach pypi.org.", {}};
    QTest::newRow("own environment") << Installer{"python python3", "", 0,
        "INFO:All AI dependencies are installed for python.", {"bin/python " + pip.arg("")}};
    QTest::newRow("user site") << Installer{"python3", "STUB_MODE=user", 0,
        "INFO:All AI dependencies are installed for python3.", {"bin/python3 " + pip.arg(" --user")}};
    QTest::newRow("externally managed") << Installer{"python3", "STUB_MODE=managed", 0,
        "INFO:All AI dependencies are installed for $E/bin/python.",
        {"bin/python3 -m venv $E", "$E/bin/python " + pip.arg("")}};
    QTest::newRow("pip fails") << Installer{"python3", "STUB_PIP=1", 4, "ERROR:pip could not install the packages",
                                            {"bin/python3 " + pip.arg("")}};
}

void TestAiHelpers::installer()
{
    QFETCH(Installer, row);
    Sandbox box;
    for (const char* tool : {"mkdir", "dirname", "readlink", "ln", "cp"})
        box.link(tool, QStringLiteral("/usr/bin/") + tool);
    for (const QString& name : row.interpreters.split(' ', Qt::SkipEmptyParts) + QStringList{"pip", "pip3"})
        box.link(name, AI_TEST_DIR "/stubs/python");
    QProcessEnvironment environment;
    environment.insert("PATH", box.bin());
    environment.insert("HOME", box.path("home"));
    environment.insert("STUB_LOG", box.path("calls"));
    environment.insert(row.env.section('=', 0, 0), row.env.section('=', 1));
    QProcess installer;
    installer.setProcessEnvironment(environment);
    installer.start("/bin/bash", {AI_SCRIPTS_DIR "/install_python_deps_mac.sh"});
    QVERIFY(installer.waitForFinished(20000));
    const QString venv = box.path("home/.local/share/brindle/python-env");
    QCOMPARE(installer.exitCode(), row.exitCode);
    const QString last = QString::fromUtf8(installer.readAllStandardOutput()).trimmed().section('\n', -1);
    QVERIFY2(last.startsWith(row.lastLine.replace("$E", venv)), qPrintable(last));
    const QString recorded = readFile(box.path("calls"));
    qsizetype at = 0;
    for (const QString& call : row.calls.replaceInStrings("$E", venv)) {
        at = recorded.indexOf(call, at);
        QVERIFY2(at >= 0, qPrintable(call + "\nnot in\n" + recorded));
    }
    QCOMPARE(recorded.count("pip install"), row.calls.filter("pip install").size());
    QVERIFY(!recorded.contains("break-system-packages") && !recorded.contains("bin/pip"));
    if (row.env == "STUB_MODE=managed")
        QCOMPARE(QFile::symLinkTarget(box.path("home/.local/bin/python")), venv + "/bin/python");
}

QTEST_MAIN(TestAiHelpers)
#include "tst_aihelpers.moc"
