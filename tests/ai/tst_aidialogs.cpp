#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QRegularExpression>
#include <csignal>
#include <memory>

#include "ai/aitest.h"
#include "ai/pythonenv.h"
#include "ai/videoinferencedialog.h"
#include "ai/yoloannotatedialog.h"
#include "support/scriptedprompts.h"

// Both AI dialogs driven through their widgets, with fake interpreters on a test PATH and
// a fake helper script whose output, error output and exit code each test chooses.

using namespace AiTest;

namespace {

// Records its arguments, prints HELPER_OUT ("|" = line break) and HELPER_ERR, then sleeps
// HELPER_SLEEP seconds and exits with HELPER_EXIT.
const QByteArray kFakeHelper = R"(import os, sys, time
open(os.environ["HELPER_ARGS"], "w").write("\n".join(sys.argv[1:]))
sys.stdout.write(os.environ.get("HELPER_OUT", "").replace("|", "\n"))
sys.stderr.write(os.environ.get("HELPER_ERR", "").replace("|", "\n"))
sys.stdout.flush()
time.sleep(float(os.environ.get("HELPER_SLEEP", "0")))
sys.exit(int(os.environ.get("HELPER_EXIT", "0")))
)";

// A sandbox with the interpreter `python` (with `numpy2`, a wrapper whose NumPy check
// fails and which records the pip call), the fake helper in place of the dialog's script,
// and the dialog with its fields filled in (model and video exist).
struct Setup : Sandbox {
    std::unique_ptr<AiRunDialog> dialog;
    Setup(const QString& kind, const QString& python = "python", bool numpy2 = false)
    {
        if (numpy2)
            program(python, "[ \"$1\" = -c ] && exit 1\n[ \"$1\" = -m ] && echo \"$@\" > " + path("pip").toUtf8()
                                + " && exit 0\nexec /usr/bin/python3 \"$@\"\n");
        else
            link(python, "/usr/bin/python3");
        writeFile(path("m.pt"), "{}");
        writeFile(path("v.mp4"), "");
        placeScript(kind == "extract" ? "yolo_inference.py" : "yolo_annotate_video.py", kFakeHelper);
        qputenv("HELPER_ARGS", path("args").toUtf8());
        for (const char* v : {"HELPER_OUT", "HELPER_ERR", "HELPER_EXIT", "HELPER_SLEEP"})
            qunsetenv(v);
        if (kind == "extract")
            dialog = std::make_unique<VideoInferenceDialog>(QList<QString>{"person", "car"});
        else
            dialog = std::make_unique<YoloAnnotateDialog>();
        fill(dialog.get(), path("m.pt"), path("v.mp4"), path("o"));
    }
};

struct Install {
    QString kind, installer; // installer: bash; null = absent
    QMessageBox::StandardButton answer;
    QString prompt;    // the warning or the question; "$S" = the installer's path
    QStringList log;
};

struct Protocol {
    QString kind, python; // python: the interpreter on the PATH; "numpy2": NumPy to fix
    QString out, err;     // "|" = line break, "$D" = a folder holding f.jpg
    int exitCode;
    QStringList log;      // after the lines before the helper starts
    QString status;
    int progress;
    bool preview;
};

} // namespace

Q_DECLARE_METATYPE(Install)
Q_DECLARE_METATYPE(Protocol)

class TestAiDialogs : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void findInterpreter_data();
    void findInterpreter();
    void messages_data();
    void messages();
    void install_data();
    void install();
    void protocol_data();
    void protocol();
    void stopAndClose_data();
    void stopAndClose();
    void addLabel();
};

void TestAiDialogs::findInterpreter_data()
{
    QTest::addColumn<QStringList>("programs"); // name=bash body
    QTest::addColumn<QString>("expected");
    QTest::newRow("python first") << QStringList{"python=exit 0", "python3=exit 0"} << "python";
    QTest::newRow("python fails") << QStringList{"python=exit 1", "python3=exit 0"} << "python3";
    QTest::newRow("python hangs") << QStringList{"python=exec /bin/sleep 30", "python3=exit 0"} << "python3";
}

void TestAiDialogs::findInterpreter()
{
    QFETCH(QStringList, programs);
    QFETCH(QString, expected);
    Sandbox box;
    for (const QString& p : programs)
        box.program(p.section('=', 0, 0), p.section('=', 1).toUtf8());
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(PythonEnv::findPythonInterpreter(), expected);
    QVERIFY(clock.elapsed() < 4000); // a hanging candidate costs its 2 s, no more
}

void TestAiDialogs::messages_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QStringList>("fields"); // model, video, output; "@" = the existing file
    QTest::addColumn<QStringList>("message"); // kind, title, text ("$S" = script path)
    const QString w = "warning", c = "critical";
    QTest::newRow("no model") << "extract" << QStringList{"", "@", "o"} << QStringList{w, "Missing", "Select a YOLO model file."};
    QTest::newRow("no video") << "extract" << QStringList{"@", "", "o"} << QStringList{w, "Missing", "Select a video file."};
    QTest::newRow("no video 2") << "annotate" << QStringList{"@", "", "o"} << QStringList{w, "Missing", "Select an input video file."};
    QTest::newRow("no output") << "annotate" << QStringList{"@", "@", ""} << QStringList{w, "Missing", "Select an output folder."};
    QTest::newRow("model gone") << "extract" << QStringList{"/no/m.pt", "@", "o"} << QStringList{c, "Not Found", "Model file not found:\n/no/m.pt"};
    QTest::newRow("video gone") << "annotate" << QStringList{"@", "/no/v", "o"} << QStringList{c, "Not Found", "Video file not found:\n/no/v"};
    QTest::newRow("no python") << "extract" << QStringList{"@", "@", "-"} << QStringList{c, "Python Not Found",
        "Could not find Python 3.\nClick 'Install AI Dependencies' or install from https://www.python.org/downloads/"};
    QTest::newRow("no python 2") << "annotate" << QStringList{"@", "@", "-"} << QStringList{c, "Python Not Found",
        "Could not find Python 3.\nInstall Python from https://www.python.org/downloads/ or use Edit → AI Video "
        "Frame Extraction → Install AI Dependencies."};
    QTest::newRow("no script") << "extract" << QStringList{"@", "@", "+"} << QStringList{c, "Script Not Found",
        "yolo_inference.py not found at:\n$S\n\nPlease re-run the installer."};
    QTest::newRow("no script 2") << "annotate" << QStringList{"@", "@", "+"} << QStringList{c, "Script Not Found",
        "yolo_annotate_video.py not found at:\n$S\n\nRe-run the installer."};
}

void TestAiDialogs::messages()
{
    QFETCH(QString, kind);
    QFETCH(QStringList, fields);
    QFETCH(QStringList, message);
    Setup box(kind);
    const QString script = scriptPath(kind == "extract" ? "yolo_inference.py" : "yolo_annotate_video.py");
    QFile::remove(fields[2] == "-" ? box.bin() + "/python" : fields[2] == "+" ? script : QString());
    ScriptedPrompts prompts;
    fill(box.dialog.get(), fields[0].replace("@", box.path("m.pt")), fields[1].replace("@", box.path("v.mp4")), fields[2]);
    button(box.dialog.get(), "runButton")->click();
    QCOMPARE(prompts.calls.size(), 1);
    QCOMPARE(QStringList({prompts.last().kind, prompts.last().title, prompts.last().text}),
             message.replaceInStrings("$S", script));
    QVERIFY(logLines(box.dialog.get()).isEmpty());
    QVERIFY(!QFile::exists(box.path("args"))); // nothing was started
}

void TestAiDialogs::install_data()
{
    QTest::addColumn<Install>("row");
    const QString manual = "$S\n\nManually run:\npip install ultralytics opencv-python \"numpy<2.0\"";
    const QString steps = "echo INFO:Step 1/4; echo Collecting ultralytics;";
    QTest::newRow("absent") << Install{"extract", {}, QMessageBox::Yes, "Script not found:\n" + manual, {}};
    QTest::newRow("absent 2") << Install{"annotate", {}, QMessageBox::Yes, "Installer script not found:\n" + manual, {}};
    QTest::newRow("declined") << Install{"extract", steps, QMessageBox::No,
        "Installs Python (if needed) + ultralytics + opencv-python + numpy<2.0\n\nMay take 5-15 min. "
        "Requires internet.\n\nContinue?", {}};
    QTest::newRow("installed") << Install{"extract", steps, QMessageBox::Yes, {},
        {"Installing dependencies...|#5ab0e8", "Step 1/4|#6890cc", "Collecting ultralytics|#b0b8cc",
         "Done — 0 frames saved.|#50d898"}};
    QTest::newRow("failed") << Install{"annotate", steps + " echo ERROR:no network; exit 3", QMessageBox::Yes,
        "This will install Python (if needed) and:\n  - ultralytics\n  - opencv-python\n  - numpy<2.0\n\n"
        "May take 5-15 min.\n\nContinue?",
        {"Installing dependencies...|#5ab0e8", "Step 1/4|#6890cc", "Collecting ultralytics|#aaaaaa",
         "ERROR: no network|#ff5050", "Process exited with code 3.|#ff6060"}};
}

void TestAiDialogs::install()
{
    QFETCH(Install, row);
    Setup box(row.kind);
    if (!row.installer.isNull())
        placeScript("install_python_deps_mac.sh", row.installer.toUtf8());
    ScriptedPrompts prompts;
    prompts.questionAnswers.enqueue(row.answer);
    if (auto* extract = qobject_cast<VideoInferenceDialog*>(box.dialog.get()))
        extract->savedCount = 4; // left from an earlier run
    button(box.dialog.get(), "installButton")->click();
    QVERIFY(waitIdle(box.dialog.get()));
    QCOMPARE(prompts.calls.first().kind, row.installer.isNull() ? "warning" : "question");
    if (!row.prompt.isEmpty())
        QCOMPARE(prompts.calls.first().text,
                 row.prompt.replace("$S", QFileInfo(scriptPath("install_python_deps_mac.sh")).absoluteFilePath()));
    QCOMPARE(logLines(box.dialog.get()), row.log);
    QCOMPARE(box.dialog->findChild<QProgressBar*>()->maximum(), 100);
}

void TestAiDialogs::protocol_data()
{
    QTest::addColumn<Protocol>("row");
    // The last record has no line break: it arrives together with the exit.
    QTest::newRow("records") << Protocol{"extract", "python",
        "TOTAL:20|INFO:Output folder: $D|PROGRESS:5:20:1|SAVED:5:f.jpg:person, car|"
        "DETECTED:7:car|PREVIEW:x|some   thing\telse|ERROR:bad <b>model</b>|DONE:3:/out:put", "", 0,
        {"Output folder: $D|#6890cc", "SAVED Frame 5 [person, car] f.jpg|#ff4444", "Frame 7 [car]|#666666",
         "some thing else|#b0b8cc", "ERROR: bad <b>model</b>|#ff5050", "Done — 2 frames saved.|#50d898"},
        "Done — 3 frames saved to: /out", 100, true};
    QTest::newRow("saved before the folder") << Protocol{"extract", "python3",
        "SAVED:1:f.jpg:|INFO:Output folder: $D|PROGRESS:5:0:2|PROGRESS:1", "Traceback <x>|  oops", 3,
        {"SAVED Frame 1 [] f.jpg|#ff4444", "Output folder: $D|#6890cc", "Traceback <x>|#ff9060", "oops|#ff9060",
         "Process exited with code 3.|#ff6060"},
        "Frame 5 / 0  —  2 saved", 0, false};
    QTest::newRow("error") << Protocol{"extract", "numpy2", "PROGRESS:4:8:0|ERROR:no model", "", 2,
        {"ERROR: no model|#ff5050", "Process exited with code 2.|#ff6060"}, "Error — see log", 50, false};
    QTest::newRow("reduced") << Protocol{"annotate", "python",
        "TOTAL:9|PROGRESS:7|PROGRESS:3:9|SAVED:1:a.jpg:x|INFO:<i>i</i>|ERROR:e|DONE:C:/out:v.mp4", "", 0,
        {"Frame 3 / 9|#555555", "SAVED:1:a.jpg:x|#aaaaaa", "<i>i</i>|#6890cc", "ERROR: e|#ff5050",
         "✓ Done: C:/out:v.mp4|#50d898"},
        "Done — output saved to:\nC:/out:v.mp4", 100, false};
    QTest::newRow("reduced failure") << Protocol{"annotate", "python3", "PROGRESS:3:9|PROGRESS:0:0", "", 1,
        {"Frame 3 / 9|#555555", "Frame 0 / 0|#555555", "Process exited with code 1.|#ff6060"},
        "Processing frame 0 / 0", 33, false};
}

void TestAiDialogs::protocol()
{
    QFETCH(Protocol, row);
    const bool numpy2 = row.python == "numpy2";
    const QString python = numpy2 ? "python" : row.python;
    Setup box(row.kind, python, numpy2);
    QImage(8, 8, QImage::Format_RGB32).save(box.path("f.jpg"));
    qputenv("HELPER_OUT", row.out.replace("$D", box.dir.path()).toUtf8());
    qputenv("HELPER_ERR", row.err.toUtf8());
    qputenv("HELPER_EXIT", QByteArray::number(row.exitCode));
    ScriptedPrompts prompts;
    AiRunDialog* dialog = box.dialog.get();
    dialog->show();
    button(dialog, "runButton")->click();
    QVERIFY(waitIdle(dialog));
    QStringList before{"Python: " + python + "|#6890cc"};
    if (numpy2) {
        before << "Fixing NumPy version...|#ffb040" << "NumPy fixed.|#50d898";
        QCOMPARE(readAll(box.path("pip")), "-m pip install numpy<2.0 -q\n");
    }
    QStringList args{"--model", box.path("m.pt"), "--video", box.path("v.mp4"), "--output", box.path("o")};
    if (row.kind == "extract") {
        before << "Starting inference...|#5ab0e8";
        args << "--labels" << "" << "--conf" << "0.25" << "--frame-skip" << "1";
    }
    QCOMPARE(logLines(dialog), before + row.log.replaceInStrings("$D", box.dir.path()));
    QVERIFY(dialog->findChild<QTextEdit*>("logView")->toPlainText().endsWith('\n')); // every line ends in a break
    QCOMPARE(dialog->findChild<QLabel*>("statusLabel")->text(), row.status);
    QCOMPARE(dialog->findChild<QProgressBar*>()->value(), row.progress);
    if (auto* extract = qobject_cast<VideoInferenceDialog*>(dialog)) {
        QCOMPARE(!extract->previewLabel->pixmap().isNull(), row.preview);
        extract->previewLabel->clear();
        extract->parseLine("SAVED:9:f.jpg:"); // a single record shows its frame at once
        QCOMPARE(!extract->previewLabel->pixmap().isNull(), !extract->outputFolder.isEmpty());
    }
    QCOMPARE(QString(readAll(box.path("args"))).split('\n'), args);
    QVERIFY(prompts.calls.isEmpty());
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
    button(box.dialog.get(), "runButton")->click();
    QTRY_VERIFY(logLines(box.dialog.get(), false).contains("started"));
    const pid_t pid = pid_t(box.dialog->findChild<QProcess*>()->processId());
    button(box.dialog.get(), "installButton")->click(); // not locked by a run, but waits for the helper
    QVERIFY(button(box.dialog.get(), "installButton")->isEnabled() && prompts.calls.isEmpty());
    QCOMPARE(::kill(pid, 0), 0);
    if (close) {
        QTest::failOnWarning(QRegularExpression("Destroyed while process"));
        QElapsedTimer clock;
        clock.start();
        box.dialog.reset();
        QVERIFY(clock.elapsed() < 2000);
    } else {
        button(box.dialog.get(), "stopButton")->click();
        QVERIFY(button(box.dialog.get(), "runButton")->isEnabled());
        const auto after = [&] {
            const QStringList lines = logLines(box.dialog.get(), false);
            return lines.mid(lines.indexOf("started") + 1);
        };
        QTRY_COMPARE(after(), QStringList({"Stopped by user.", "Process exited with code 9."}));
    }
    QCOMPARE(::kill(pid, 0), -1); // gone and reaped
}

void TestAiDialogs::addLabel()
{
    VideoInferenceDialog dialog({"person", "car"});
    auto* list = dialog.findChild<QListWidget*>();
    auto* edit = dialog.findChild<QLineEdit*>("addLabelEdit");
    for (const char* typed : {"PERSON", " dog "}) {
        edit->setText(typed);
        QTest::keyClick(edit, Qt::Key_Return);
    }
    QCOMPARE(list->count(), 3); // PERSON is person
    QCOMPARE(list->item(2)->text(), "dog");
    QCOMPARE(list->item(0)->checkState(), Qt::Unchecked); // from the session
    QCOMPARE(list->item(2)->checkState(), Qt::Checked);   // added here
}

QTEST_MAIN(TestAiDialogs)
#include "tst_aidialogs.moc"
