#include <QLabel>
#include <QRegularExpression>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QSpinBox>
#include <QCheckBox>
#include <QSlider>
#include <csignal>
#include <memory>

#include "ai/aitest.h"
#include "ai/videoinferencedialog.h"
#include "ai/yoloannotatedialog.h"
#include "support/scriptedprompts.h"

// Both AI dialogs driven through their widgets, with a fake helper script whose output,
// error output and exit code each test chooses.

using namespace AiTest;

namespace {

// Records its arguments, prints HELPER_OUT ("|" = line break) and HELPER_ERR, then sleeps
// HELPER_SLEEP seconds and exits with HELPER_EXIT.
const QByteArray kFakeHelper = R"(import os, sys, time
open(os.environ["HELPER_ARGS"], "w").write("\n".join(sys.argv[1:]))
sys.stdout.write(os.environ.get("HELPER_OUT", "").replace("|", "\n"))
sys.stderr.write(os.environ.get("HELPER_ERR", "").replace("|", "\n"))
if os.environ.get("HELPER_SLEEP"):
    sys.stdout.flush()
    time.sleep(float(os.environ["HELPER_SLEEP"]))
sys.exit(int(os.environ.get("HELPER_EXIT", "0")))
)";

std::unique_ptr<AiRunDialog> makeDialog(const QString& kind)
{
    if (kind == "extract")
        return std::make_unique<VideoInferenceDialog>(QList<QString>{"person", "car"});
    return std::make_unique<YoloAnnotateDialog>();
}

QString scriptOf(const QString& kind)
{
    return kind == "extract" ? "yolo_inference.py" : "yolo_annotate_video.py";
}

void fill(QWidget* d, const QString& model, const QString& video, const QString& output)
{
    d->findChild<QLineEdit*>("modelEdit")->setText(model);
    d->findChild<QLineEdit*>("videoEdit")->setText(video);
    d->findChild<QLineEdit*>("outputEdit")->setText(output);
}

// A sandbox with "python" running Debian's interpreter (or, with numpy2, a wrapper whose
// NumPy check fails), the fake helper in place and the dialog's fields filled in.
struct Setup : Sandbox {
    explicit Setup(const QString& kind, bool numpy2 = false, const QString& python = "python")
    {
        if (numpy2)
            program(python, "[ \"$1\" = -c ] && exit 1\n[ \"$1\" = -m ] && exit 0\n"
                            "exec /usr/bin/python3 \"$@\"\n");
        else
            link(python, "/usr/bin/python3");
        writeFile(path("m.pt"), "{}");
        writeFile(path("v.mp4"), "");
        placeScript(scriptOf(kind), kFakeHelper);
        qputenv("HELPER_ARGS", path("args").toUtf8());
        for (const char* v : {"HELPER_OUT", "HELPER_ERR", "HELPER_EXIT", "HELPER_SLEEP"})
            qunsetenv(v);
    }
};

QStringList pairs(const QList<QPair<QString, QString>>& lines)
{
    QStringList out;
    for (const auto& l : lines)
        out << l.first + '|' + l.second;
    return out;
}

} // namespace

class TestAiDialogs : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void messages_data();
    void messages();
    void install_data();
    void install();
    void protocol_data();
    void protocol();
    void commandLine_data();
    void commandLine();
    void stopAndClose_data();
    void stopAndClose();
    void addLabel();
};

void TestAiDialogs::messages_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QStringList>("fields"); // model, video, output; "@" = an existing file
    QTest::addColumn<QString>("setup");      // "" | "no python" | "no script"
    QTest::addColumn<QStringList>("message"); // kind, title, text ("$S" = script path)
    const QString w = "warning", c = "critical";
    QTest::newRow("no model") << "extract" << QStringList{"", "@", "o"} << ""
                              << QStringList{w, "Missing", "Select a YOLO model file."};
    QTest::newRow("no video") << "extract" << QStringList{"@", "", "o"} << ""
                              << QStringList{w, "Missing", "Select a video file."};
    QTest::newRow("no video 2") << "annotate" << QStringList{"@", "", "o"} << ""
                                << QStringList{w, "Missing", "Select an input video file."};
    QTest::newRow("no output") << "annotate" << QStringList{"@", "@", ""} << ""
                               << QStringList{w, "Missing", "Select an output folder."};
    QTest::newRow("model gone") << "extract" << QStringList{"/no/m.pt", "@", "o"} << ""
                                << QStringList{c, "Not Found", "Model file not found:\n/no/m.pt"};
    QTest::newRow("video gone") << "annotate" << QStringList{"@", "/no/v.mp4", "o"} << ""
                                << QStringList{c, "Not Found", "Video file not found:\n/no/v.mp4"};
    QTest::newRow("no python") << "extract" << QStringList{"@", "@", "o"} << "no python"
        << QStringList{c, "Python Not Found", "Could not find Python 3.\nClick 'Install AI "
                       "Dependencies' or install from https://www.python.org/downloads/"};
    QTest::newRow("no python 2") << "annotate" << QStringList{"@", "@", "o"} << "no python"
        << QStringList{c, "Python Not Found", "Could not find Python 3.\nInstall Python from "
                       "https://www.python.org/downloads/ or use Edit → AI Video Frame "
                       "Extraction → Install AI Dependencies."};
    QTest::newRow("no script") << "extract" << QStringList{"@", "@", "o"} << "no script"
        << QStringList{c, "Script Not Found", "yolo_inference.py not found at:\n$S\n\nPlease re-run the installer."};
    QTest::newRow("no script 2") << "annotate" << QStringList{"@", "@", "o"} << "no script"
        << QStringList{c, "Script Not Found", "yolo_annotate_video.py not found at:\n$S\n\nRe-run the installer."};
}

void TestAiDialogs::messages()
{
    QFETCH(QString, kind);
    QFETCH(QStringList, fields);
    QFETCH(QString, setup);
    QFETCH(QStringList, message);
    Setup box(kind);
    if (setup == "no python")
        QFile::remove(box.bin() + "/python");
    if (setup == "no script")
        QFile::remove(scriptPath(scriptOf(kind)));
    ScriptedPrompts prompts;
    auto dialog = makeDialog(kind);
    fill(dialog.get(), fields[0].replace("@", box.path("m.pt")),
         fields[1].replace("@", box.path("v.mp4")), fields[2]);
    button(dialog.get(), "runButton")->click();
    QCOMPARE(prompts.calls.size(), 1);
    QCOMPARE(prompts.last().kind, message[0]);
    QCOMPARE(prompts.last().title, message[1]);
    QCOMPARE(prompts.last().text, message[2].replace("$S", scriptPath(scriptOf(kind))));
    QVERIFY(logTexts(dialog.get()).isEmpty());
    QVERIFY(!QFile::exists(box.path("args"))); // nothing was started
}

void TestAiDialogs::install_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("present");
    QTest::addColumn<int>("answer");
    QTest::addColumn<QString>("prompt"); // the warning or the question
    QTest::addColumn<QStringList>("log");
    const QString manual = "\n\nManually run:\npip install ultralytics opencv-python \"numpy<2.0\"";
    QTest::newRow("absent") << "extract" << false << 0 << "Script not found:\n$S" + manual << QStringList{};
    QTest::newRow("absent 2") << "annotate" << false << 0 << "Installer script not found:\n$S" + manual
                              << QStringList{};
    QTest::newRow("declined") << "extract" << true << int(QMessageBox::No)
        << "Installs Python (if needed) + ultralytics + opencv-python + numpy<2.0\n\nMay take "
           "5-15 min. Requires internet.\n\nContinue?" << QStringList{};
    QTest::newRow("installed") << "extract" << true << int(QMessageBox::Yes) << ""
        << QStringList{"Installing dependencies...|#5ab0e8", "Step 1/4|#6890cc",
                       "Collecting ultralytics|#b0b8cc", "Done — 0 frames saved.|#50d898"};
    QTest::newRow("failed") << "annotate" << true << int(QMessageBox::Yes)
        << "This will install Python (if needed) and:\n  - ultralytics\n  - opencv-python\n  - "
           "numpy<2.0\n\nMay take 5-15 min.\n\nContinue?"
        << QStringList{"Installing dependencies...|#5ab0e8", "Step 1/4|#6890cc",
                       "Collecting ultralytics|#aaaaaa", "ERROR: no network|#ff5050",
                       "Process exited with code 3.|#ff6060"};
}

void TestAiDialogs::install()
{
    QFETCH(QString, kind);
    QFETCH(bool, present);
    QFETCH(int, answer);
    QFETCH(QString, prompt);
    QFETCH(QStringList, log);
    Setup box(kind);
    const QString script = QFileInfo(scriptPath("install_python_deps_mac.sh")).absoluteFilePath();
    if (present)
        placeScript("install_python_deps_mac.sh",
                    kind == "extract" ? "echo INFO:Step 1/4; echo Collecting ultralytics"
                                      : "echo INFO:Step 1/4; echo Collecting ultralytics; "
                                        "echo ERROR:no network; exit 3");
    ScriptedPrompts prompts;
    prompts.questionAnswers.enqueue(QMessageBox::StandardButton(answer));
    auto dialog = makeDialog(kind);
    button(dialog.get(), "installButton")->click();
    QVERIFY(waitIdle(dialog.get()));
    if (!prompt.isEmpty())
        QCOMPARE(prompts.calls.first().text, prompt.replace("$S", script));
    QCOMPARE(prompts.calls.first().kind, present ? "question" : "warning");
    QCOMPARE(pairs(logLines(dialog.get())), log);
    QCOMPARE(dialog->findChild<QProgressBar*>()->maximum(), 100);
}

void TestAiDialogs::protocol_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("python"); // the interpreter on the PATH; "numpy2": NumPy to fix
    QTest::addColumn<QString>("out");    // "|" = line break, "$D" = a folder holding f.jpg
    QTest::addColumn<QString>("err");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QStringList>("log"); // after the lines before the helper starts
    QTest::addColumn<QString>("status");
    QTest::addColumn<int>("progress");
    QTest::addColumn<bool>("preview");
    // The last record has no line break: it arrives together with the exit.
    QTest::newRow("records") << "extract" << "python"
        << "TOTAL:20|INFO:Output folder: $D|PROGRESS:5:20:1|SAVED:5:f.jpg:person, car|"
           "DETECTED:7:car|PREVIEW:x|something else|ERROR:bad <b>model</b>|DONE:3:/out:put"
        << "" << 0
        << QStringList{"Output folder: $D|#6890cc", "SAVED Frame 5  [person, car]  f.jpg|#ff4444",
                       "Frame 7  [car]|#666666", "something else|#b0b8cc",
                       "ERROR: bad <b>model</b>|#ff5050", "Done — 2 frames saved.|#50d898"}
        << "Done — 3 frames saved to: /out" << 100 << true;
    QTest::newRow("saved before the folder") << "extract" << "python3"
        << "SAVED:1:f.jpg:|INFO:Output folder: $D|PROGRESS:5:0:2|PROGRESS:1" << "Traceback <x>|  oops" << 3
        << QStringList{"SAVED Frame 1  []  f.jpg|#ff4444", "Output folder: $D|#6890cc", "Traceback <x>|#ff9060",
                       "oops|#ff9060", "Process exited with code 3.|#ff6060"}
        << "Frame 5 / 0  —  2 saved" << 0 << false;
    QTest::newRow("error") << "extract" << "numpy2" << "PROGRESS:4:8:0|ERROR:no model" << "" << 2
        << QStringList{"ERROR: no model|#ff5050", "Process exited with code 2.|#ff6060"}
        << "Error — see log" << 50 << false;
    QTest::newRow("reduced") << "annotate" << "python"
        << "TOTAL:9|PROGRESS:7|PROGRESS:3:9|SAVED:1:a.jpg:x|INFO:<i>i</i>|ERROR:e|DONE:C:/out:v.mp4"
        << "" << 0
        << QStringList{"Frame 3 / 9|#555555", "SAVED:1:a.jpg:x|#aaaaaa", "<i>i</i>|#6890cc",
                       "ERROR: e|#ff5050", "✓ Done: C:/out:v.mp4|#50d898"}
        << "Done — output saved to:\nC:/out:v.mp4" << 100 << false;
    QTest::newRow("reduced failure") << "annotate" << "python3" << "PROGRESS:3:9|PROGRESS:0:0" << "" << 1
        << QStringList{"Frame 3 / 9|#555555", "Frame 0 / 0|#555555", "Process exited with code 1.|#ff6060"}
        << "Processing frame 0 / 0" << 33 << false;
}

void TestAiDialogs::protocol()
{
    QFETCH(QString, kind);
    QFETCH(QString, python);
    QFETCH(QString, out);
    QFETCH(QString, err);
    QFETCH(int, exitCode);
    QFETCH(QStringList, log);
    QFETCH(QString, status);
    QFETCH(int, progress);
    QFETCH(bool, preview);
    const bool numpy2 = python == "numpy2";
    Setup box(kind, numpy2, numpy2 ? "python" : python);
    QImage(8, 8, QImage::Format_RGB32).save(box.path("f.jpg"));
    qputenv("HELPER_OUT", out.replace("$D", box.path("")).toUtf8());
    qputenv("HELPER_ERR", err.toUtf8());
    qputenv("HELPER_EXIT", QByteArray::number(exitCode));
    ScriptedPrompts prompts;
    auto dialog = makeDialog(kind);
    dialog->show();
    fill(dialog.get(), box.path("m.pt"), box.path("v.mp4"), box.path("o"));
    button(dialog.get(), "runButton")->click();
    QVERIFY(waitIdle(dialog.get()));
    QStringList before{"Python: " + (numpy2 ? "python" : python) + "|#6890cc"};
    if (numpy2)
        before << "Fixing NumPy version...|#ffb040" << "NumPy fixed.|#50d898";
    if (kind == "extract")
        before << "Starting inference...|#5ab0e8";
    QCOMPARE(pairs(logLines(dialog.get())), before + log.replaceInStrings("$D", box.path("")));
    QCOMPARE(dialog->findChild<QLabel*>("statusLabel")->text(), status);
    QCOMPARE(dialog->findChild<QProgressBar*>()->value(), progress);
    if (auto* label = dialog->findChild<QLabel*>("previewLabel")) {
        QTest::qWait(20);
        QCOMPARE(!label->pixmap().isNull(), preview);
    }
    QVERIFY(prompts.calls.isEmpty());
}

void TestAiDialogs::commandLine_data()
{
    QTest::addColumn<bool>("options");
    QTest::addColumn<QStringList>("tail"); // after script, --model, --video, --output
    QTest::newRow("defaults") << false
        << QStringList{"--labels", "", "--conf", "0.25", "--frame-skip", "1"};
    QTest::newRow("all options") << true
        << QStringList{"--labels", "person,bus", "--conf", "0.40", "--frame-skip", "7", "--save-xml", "--invert"};
}

void TestAiDialogs::commandLine()
{
    QFETCH(bool, options);
    QFETCH(QStringList, tail);
    Setup box("extract");
    ScriptedPrompts prompts;
    VideoInferenceDialog dialog({"person", "car"});
    fill(&dialog, box.path("m.pt"), box.path("v.mp4"), "out dir");
    dialog.findChild<QSpinBox*>("frameSkipSpin")->setValue(7); // no effect while unchecked
    if (options) {
        dialog.findChild<QListWidget*>()->item(0)->setCheckState(Qt::Checked);
        dialog.findChild<QLineEdit*>("addLabelEdit")->setText(" bus ");
        button(&dialog, "addLabelButton")->click();
        dialog.findChild<QSlider*>()->setValue(40);
        dialog.findChild<QCheckBox*>("frameSkipCheck")->setChecked(true);
        dialog.findChild<QCheckBox*>("saveXmlCheck")->setChecked(true);
        dialog.findChild<QCheckBox*>("invertCheck")->setChecked(true);
    }
    button(&dialog, "runButton")->click();
    QVERIFY(waitIdle(&dialog));
    QFile f(box.path("args"));
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(f.readAll()).split('\n'),
             QStringList({"--model", box.path("m.pt"), "--video", box.path("v.mp4"), "--output", "out dir"}) + tail);
}

void TestAiDialogs::stopAndClose_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("close");
    QTest::newRow("stop") << "extract" << false;
    QTest::newRow("stop 2") << "annotate" << false;
    QTest::newRow("close") << "extract" << true;
}

void TestAiDialogs::stopAndClose()
{
    QFETCH(QString, kind);
    QFETCH(bool, close);
    Setup box(kind);
    qputenv("HELPER_OUT", "INFO:started\n");
    qputenv("HELPER_SLEEP", "60");
    ScriptedPrompts prompts;
    auto dialog = makeDialog(kind);
    fill(dialog.get(), box.path("m.pt"), box.path("v.mp4"), box.path("o"));
    button(dialog.get(), "runButton")->click();
    QTRY_VERIFY(logTexts(dialog.get()).contains("started"));
    QVERIFY(!button(dialog.get(), "runButton")->isEnabled());
    const qint64 pid = dialog->findChild<QProcess*>()->processId();
    QCOMPARE(::kill(pid_t(pid), 0), 0);
    if (close) {
        QTest::failOnWarning(QRegularExpression("Destroyed while process"));
        QElapsedTimer clock;
        clock.start();
        dialog.reset();
        QVERIFY(clock.elapsed() < 2000);
    } else {
        button(dialog.get(), "stopButton")->click();
        QVERIFY(button(dialog.get(), "runButton")->isEnabled());
        QTRY_COMPARE(logTexts(dialog.get()).mid(logTexts(dialog.get()).indexOf("started") + 1),
                     QStringList({"Stopped by user.", "Process exited with code 9."}));
    }
    QCOMPARE(::kill(pid_t(pid), 0), -1); // gone and reaped
}

void TestAiDialogs::addLabel()
{
    VideoInferenceDialog dialog({"person", "car"});
    auto* list = dialog.findChild<QListWidget*>();
    auto* edit = dialog.findChild<QLineEdit*>("addLabelEdit");
    QCOMPARE(list->item(0)->checkState(), Qt::Unchecked);
    edit->setText("PERSON");
    QTest::keyClick(edit, Qt::Key_Return);
    QCOMPARE(list->count(), 2);
    QCOMPARE(edit->text(), "PERSON");
    edit->setText(" dog ");
    QTest::keyClick(edit, Qt::Key_Return);
    QCOMPARE(list->item(2)->text(), "dog");
    QCOMPARE(list->item(2)->checkState(), Qt::Checked);
    QVERIFY(edit->text().isEmpty());
}

QTEST_MAIN(TestAiDialogs)
#include "tst_aidialogs.moc"
