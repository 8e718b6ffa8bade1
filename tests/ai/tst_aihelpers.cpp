#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QRegularExpression>
#include <QSlider>
#include <QSpinBox>
#include <memory>

#include "ai/aitest.h"
#include "ai/videoinferencedialog.h"
#include "ai/yoloannotatedialog.h"
#include "model/vocxml.h"
#include "support/records.h"
#include "support/scriptedprompts.h"

// The shipped scripts for real: the helpers with Debian's Python, OpenCV and NumPy, a video
// made here and the fake ultralytics model, run directly and through the real dialogs; the
// installer with stub interpreters. Each table starts all its helpers at once in its _data
// function (a Python start with OpenCV is the cost here); the rows wait for theirs.

using namespace AiTest;

namespace {

QString frameName(int n, const QString& suffix = ".jpg")
{
    return QStringLiteral("v_frame%1").arg(n, 6, 10, QLatin1Char('0')) + suffix;
}

struct Extraction {
    QString checked; // the label row ticked, if any
    int conf, skip;  // skip 0: unchecked (its spin box then says 7, which must not count)
    bool invert, xml;
    QList<int> frames;
    QString firstSaved; // the log line of the first saved frame
};

struct Installer {
    QString interpreters; // names on the PATH running the stub
    QString env;
    int exitCode;
    QString lastLine;  // "$E" = the private environment
    QStringList calls; // among the recorded calls, in order
};

} // namespace

Q_DECLARE_METATYPE(Extraction)
Q_DECLARE_METATYPE(Installer)

class TestAiHelpers : public QObject {
    Q_OBJECT
    std::unique_ptr<Sandbox> m_box; // the video, the model, the scripts in place, python on the PATH
    std::unique_ptr<ScriptedPrompts> m_prompts;
    QMap<QString, QProcess*> m_helpers;     // by row
    QMap<QString, QWidget*> m_dialogs;      // by row
    QString path(const QString& name) const { return m_box->path(name); }
private Q_SLOTS:
    void initTestCase()
    {
        m_box = std::make_unique<Sandbox>();
        m_box->link("python", "/usr/bin/python3");
        makeVideo(path("v.avi"));
        writeFile(path("m.pt"), AiTest::model);
        writeFile(path("text.avi"), "RIFF");
        for (const QString& s : m_box->scripts)
            placeScript(s);
        m_prompts = std::make_unique<ScriptedPrompts>();
    }
    void cleanupTestCase()
    {
        qDeleteAll(m_helpers);
        qDeleteAll(m_dialogs);
        m_prompts.reset();
        m_box.reset();
    }
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
    QTest::addColumn<QString>("fault");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("error"); // "$D" = the sandbox
    const auto row = [this](const QString& script, const QString& fault, int code, const QString& error) {
        const QString tag = script + ' ' + fault;
        QTest::newRow(qPrintable(tag)) << fault << code << error;
        QStringList args{"--model", path(fault.contains(".pt") || fault == "text.avi" ? fault : "m.pt"),
                         "--video", path(fault == "video" ? "m.pt" : "text.avi"), "--output", path("out-" + fault)};
        if (fault == "option")
            args << "--conf" << "x";
        m_helpers.insert(tag, startScript(script, args, fault != "package"));
    };
    for (const char* s : {"yolo_inference.py", "yolo_annotate_video.py"}) {
        row(s, "package", 3, "ERROR:Missing Python package: ultralytics. Click "
            "'Install AI Dependencies' or run: pip install ultralytics opencv-python \"numpy<2.0\"");
        row(s, "none.pt", 2, "ERROR:Model file not found: $D/none.pt");
        row(s, "text.avi", 2, "ERROR:Could not load model $D/text.avi");
        row(s, "video", 4, "ERROR:Cannot read video: $D/m.pt");
    }
    row("yolo_inference.py", "option", 2, "ERROR:Bad arguments: argument --conf: invalid float value: 'x'");
}

void TestAiHelpers::scriptErrors()
{
    QFETCH(QString, fault);
    QFETCH(QString, error);
    QProcess* helper = m_helpers.value(QTest::currentDataTag());
    QVERIFY(helper->waitForFinished(30000));
    QTEST(helper->exitCode(), "exitCode");
    const QStringList out = QString::fromUtf8(helper->readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    QCOMPARE(out.size(), 1);
    QVERIFY2(out[0].startsWith(error.replace("$D", m_box->dir.path())), qPrintable(out[0]));
    QVERIFY(!helper->readAllStandardError().contains("Traceback"));
    QVERIFY(!QFileInfo::exists(path("out-" + fault))); // nothing half made
}

void TestAiHelpers::frameExtraction_data()
{
    QTest::addColumn<Extraction>("row");
    QTest::addColumn<QString>("output");
    const auto row = [this](const char* tag, const Extraction& e) {
        const QString output = "extract-" + QString::number(m_dialogs.size());
        QTest::newRow(tag) << e << output;
        auto* dialog = new VideoInferenceDialog({"person", "car"});
        dialog->show();
        fill(dialog, path("m.pt"), path("v.avi"), path(output));
        for (QListWidgetItem* item : dialog->findChild<QListWidget*>()->findItems(e.checked, Qt::MatchExactly))
            item->setCheckState(Qt::Checked);
        dialog->findChild<QSlider*>()->setValue(e.conf);
        dialog->findChild<QCheckBox*>("frameSkipCheck")->setChecked(e.skip > 0);
        dialog->findChild<QSpinBox*>()->setValue(e.skip > 0 ? e.skip : 7);
        dialog->findChild<QCheckBox*>("invertCheck")->setChecked(e.invert);
        dialog->findChild<QCheckBox*>("saveXmlCheck")->setChecked(e.xml);
        button(dialog, "runButton")->click();
        m_dialogs.insert(tag, dialog);
    };
    row("any detection, xml", {"", 25, 0, false, true, {1, 2, 3, 4, 5, 6, 7}, "SAVED Frame 1 [person] images/v_frame000001.jpg"});
    row("nothing above 0.5, inverse", {"", 50, 0, true, false, {5, 6, 7, 8, 9}, "SAVED Frame 5 [] v_frame000005.jpg"});
    row("no person, every 2nd, xml", {"person", 25, 2, true, true, {5, 7, 9}, "SAVED Frame 5 [car] images/v_frame000005.jpg"});
}

void TestAiHelpers::frameExtraction()
{
    QFETCH(Extraction, row);
    QFETCH(QString, output);
    QWidget* dialog = m_dialogs.value(QTest::currentDataTag());
    QVERIFY(waitIdle(dialog));
    QVERIFY(m_prompts->calls.isEmpty());
    const QStringList made = QDir(path(output)).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(made.size(), 1);
    QVERIFY(QRegularExpression("^v_\\d{8}_\\d{6}$").match(made[0]).hasMatch());
    const QString folder = path(output + '/' + made[0]), images = row.xml ? folder + "/images" : folder;
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
        QCOMPARE(ann.boxes, (n <= 4 ? person : QList<BoxAnnotation>{}) + (n >= 3 && n <= 7 ? car : QList<BoxAnnotation>{}));
        QCOMPARE(readAll(ann.xmlPath), VocXml::toXml(ann, "images")); // our own layout, byte for byte
    }
    const QStringList log = logLines(dialog, false), saved = log.filter(QRegularExpression("^SAVED Frame"));
    QCOMPARE(saved.size(), row.frames.size());
    QCOMPARE(saved.first(), row.firstSaved);
    QVERIFY(log.contains("Output folder: " + folder));
    QCOMPARE(log.last(), QStringLiteral("Done — %1 frames saved.").arg(row.frames.size()));
    QCOMPARE(dialog->findChild<QLabel*>("statusLabel")->text(),
             QStringLiteral("Done — %1 frames saved to: %2").arg(row.frames.size()).arg(folder));
}

// Every frame drawn into a new video, whose name never overwrites an earlier one.
void TestAiHelpers::annotateVideo()
{
    YoloAnnotateDialog dialog;
    fill(&dialog, path("m.pt"), path("v.avi"), path("annotated"));
    QDir().mkpath(path("annotated"));
    for (const char* earlier : {"annotated/v_annotated.mp4", "annotated/v_annotated_2.mp4"})
        writeFile(path(earlier), "earlier");
    button(&dialog, "runButton")->click();
    QVERIFY(waitIdle(&dialog));
    const QString video = path("annotated/v_annotated_3.mp4");
    QProcess count;
    count.start("/usr/bin/ffprobe", {"-v", "error", "-count_frames", "-show_entries", "stream=width,height,nb_read_frames",
                                     "-of", "csv=p=0", video});
    QVERIFY(count.waitForFinished(30000));
    QCOMPARE(count.readAllStandardOutput(), "160,120,9\n");
    const QStringList log = logLines(&dialog);
    QCOMPARE(log.filter("|#555555").size(), 9);
    QVERIFY(log.contains("Frame 9 / 9|#555555"));
    QCOMPARE(log.last(), "✓ Done: " + video + "|#50d898");
    QCOMPARE(readAll(path("annotated/v_annotated.mp4")) + readAll(path("annotated/v_annotated_2.mp4")), "earlierearlier");
    QCOMPARE(QDir(path("annotated")).entryList(QDir::Files | QDir::Hidden).size(), 3); // no temporary left
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
        "INFO:All AI dependencies are installed for $E/bin/python.", {"bin/python3 -m venv $E", "$E/bin/python " + pip.arg("")}};
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
    const QString recorded = readAll(box.path("calls"));
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
