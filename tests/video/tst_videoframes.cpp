#include <QAction>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>
#include <QSlider>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "support/scriptedprompts.h"
#include "video/toollocator.h"
#include "video/videoframedialog.h"
#include "video/videopickerdialog.h"

// The frame viewer and the Edit menu command, with Debian's ffmpeg and ffprobe on videos
// made here from ffmpeg's test source, and small stand-in tools for the failure paths.

using namespace sessiontest;

namespace {

const QString kReading = QStringLiteral("Reading video info...");

bool runFfmpeg(const QStringList& args)
{
    QProcess p;
    p.start(QStringLiteral("ffmpeg"), QStringList{"-v", "error", "-y"} + args);
    return p.waitForFinished(120000) && p.exitCode() == 0;
}

// A stand-in tool: a shell script with `body`, or a plain file that cannot run.
void writeTool(const QString& path, const QByteArray& body, bool executable = true)
{
    QVERIFY(writeBytes(path, "#!/bin/sh\n" + body + "\n"));
    if (executable)
        QVERIFY(QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner));
}

QImage rgb(const QString& path) { return QImage(path).convertToFormat(QImage::Format_RGB32); }

QString readyStatus(const QString& duration)
{
    return QStringLiteral("Duration: %1  |  \u2190 \u2192 = one frame  |  Shift+\u2190\u2192 = 1 second").arg(duration);
}

bool waitStarted(VideoFrameDialog& v)
{
    v.show();
    return QTest::qWaitFor([&] { return v.statusLabel->text() != kReading; }, 30000);
}

// "R", "L", "SR", "SL" are key presses (S: with Shift); "@N" releases the slider at N.
void act(VideoFrameDialog& v, const QString& actions)
{
    for (const QString& a : actions.split(' ', Qt::SkipEmptyParts)) {
        if (a.startsWith('@')) {
            v.slider->setSliderDown(true);
            v.slider->setValue(a.mid(1).toInt());
            v.slider->setSliderDown(false);
        } else {
            QTest::keyClick(&v, a.endsWith('R') ? Qt::Key_Right : Qt::Key_Left,
                            a.startsWith('S') ? Qt::ShiftModifier : Qt::NoModifier);
        }
    }
}

} // namespace

class TestVideoFrames : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_ffmpeg;
    QString path(const QString& name) const { return m_dir.filePath(name); }
    // Frame k (from 0) of a video, as ffmpeg decodes it from the start.
    QImage reference(const QString& video, int k) const
    {
        return rgb(path(QStringLiteral("ref-%1/%2.png").arg(QFileInfo(video).baseName()).arg(k + 1)));
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
        QVERIFY2(!m_ffmpeg.isEmpty(), "ffmpeg is needed (scripts/install-deps.sh)");
        // The command looks beside the executable first; that must not find a real tool.
        QCOMPARE(locateTool("ffmpeg"), QStringLiteral("ffmpeg"));
        const QList<QPair<QString, QString>> videos{{"clip25.mp4", "25"},
                                                    {"my clip \u00fcn\u00ef.mp4", "30000/1001"}};
        for (const auto& [name, rate] : videos) {
            QVERIFY(runFfmpeg({"-f", "lavfi", "-i", "testsrc=size=160x120:duration=2:rate=" + rate,
                               "-pix_fmt", "yuv420p", path(name)}));
            const QString refs = path("ref-" + QFileInfo(name).baseName());
            QVERIFY(QDir().mkpath(refs));
            QVERIFY(runFfmpeg({"-i", path(name), refs + "/%d.png"}));
        }
    }

    void locateAndPair_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("located");
        QTest::addColumn<QString>("ffprobe");
        QTest::newRow("nothing beside") << QStringList{} << "ffmpeg" << "ffprobe";
        QTest::newRow("ffmpeg beside") << QStringList{"ffmpeg", "ffprobe"} << "D/ffmpeg" << "D/ffprobe";
        QTest::newRow("exe first") << QStringList{"ffmpeg", "ffmpeg.exe", "ffprobe.exe"} << "D/ffmpeg.exe" << "D/ffprobe.exe";
        QTest::newRow("ffprobe missing") << QStringList{"ffmpeg"} << "D/ffmpeg" << "ffprobe";
        QTest::newRow("a folder named ffmpeg") << QStringList{"ffmpeg/"} << "ffmpeg" << "ffprobe";
    }
    void locateAndPair()
    {
        QFETCH(QStringList, files);
        QTemporaryDir dir;
        for (const QString& f : files)
            QVERIFY(f.endsWith('/') ? QDir().mkpath(dir.filePath(f)) : writeBytes(dir.filePath(f), "x"));
        QFETCH(QString, located);
        QFETCH(QString, ffprobe);
        const auto inDir = [&](QString p) { return p.replace(QLatin1String("D/"), dir.path() + '/'); };
        const QString found = locateToolIn(dir.path(), "ffmpeg");
        QCOMPARE(found, inDir(located));
        QCOMPARE(VideoFrameDialog("v.mp4", found, QString()).ffprobePath(), inDir(ffprobe));
    }

    void formatTime_data()
    {
        QTest::addColumn<qint64>("ms");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << qint64(0) << "00:00.000";
        QTest::newRow("minutes") << qint64(187042) << "03:07.042";
        QTest::newRow("last before an hour") << qint64(3599999) << "59:59.999";
        QTest::newRow("hours") << qint64(3787042) << "1:03:07.042";
    }
    void formatTime()
    {
        QFETCH(qint64, ms);
        QFETCH(QString, text);
        QCOMPARE(VideoFrameDialog::formatTime(ms), text);
    }

    // Step, seek and save on the real tools; the saved file is the frame ffmpeg decodes for
    // that time (the first frame starting at or after it, the last one past the end).
    void stepSeekSave_data()
    {
        QTest::addColumn<QString>("video");
        QTest::addColumn<QString>("actions");
        QTest::addColumn<int>("frame");
        QTest::addColumn<QString>("info");
        QTest::addColumn<bool>("prevOn");
        QTest::addColumn<bool>("nextOn");
        const QString v25 = "clip25.mp4", v30 = "my clip \u00fcn\u00ef.mp4";
        QTest::newRow("first frame") << v25 << "" << 0 << "Frame: 1 / 50    Time: 00:00.000 / 00:02.000" << false << true;
        QTest::newRow("two steps of 40 ms") << v25 << "R R" << 2 << "Frame: 3 / 50    Time: 00:00.080 / 00:02.000" << true << true;
        QTest::newRow("back below zero") << v25 << "R L L" << 0 << "Frame: 1 / 50    Time: 00:00.000 / 00:02.000" << false << true;
        QTest::newRow("shift past the end") << v25 << "SR SR" << 49 << "Frame: 50 / 50    Time: 00:01.999 / 00:02.000" << true << false;
        QTest::newRow("shift back") << v25 << "SR SR SL" << 25 << "Frame: 25 / 50    Time: 00:00.999 / 00:02.000" << true << true;
        QTest::newRow("one step of 33 ms") << v30 << "R" << 1 << "Frame: 2 / 60    Time: 00:00.033 / 00:02.002" << true << true;
        QTest::newRow("slider a quarter in") << v30 << "@2500" << 15 << "Frame: 16 / 60    Time: 00:00.500 / 00:02.002" << true << true;
        QTest::newRow("slider at the end") << v30 << "@10000" << 59 << "Frame: 61 / 60    Time: 00:02.001 / 00:02.002" << true << false;
    }
    void stepSeekSave()
    {
        QFETCH(QString, video);
        QFETCH(QString, actions);
        QFETCH(int, frame);
        QFETCH(QString, info);
        QTemporaryDir images;
        QString preview;
        {
            VideoFrameDialog v(path(video), m_ffmpeg, images.path());
            preview = v.previewPath();
            QVERIFY(waitStarted(v));
            QCOMPARE(v.windowTitle(), "Extract Video Frames  -  " + video);
            act(v, actions);
            QCOMPARE(v.infoLabel->text(), info);
            QTEST(v.prevButton->isEnabled(), "prevOn");
            QTEST(v.nextButton->isEnabled(), "nextOn");
            QCOMPARE(v.currentFrame().convertToFormat(QImage::Format_RGB32), reference(video, frame));

            // Every name the next second can give is taken: the save replaces one of them.
            int taken = 0;
            for (QDateTime t = QDateTime::currentDateTime(); t < QDateTime::currentDateTime().addMSecs(1000);
                 t = t.addMSecs(1), ++taken)
                writeBytes(images.filePath(t.toString("'brindle_'yyyyMMdd_HHmmss_zzz'.png'")), "old");
            QTest::mouseClick(v.addButton, Qt::LeftButton);
            QCOMPARE(v.addButton->text(), QStringLiteral("Saved!"));
            const QFileInfoList files = QDir(images.path()).entryInfoList(QDir::Files);
            QCOMPARE(files.size(), taken);
            QList<QImage> saved;
            for (const QFileInfo& f : files)
                if (f.size() > 3)
                    saved << rgb(f.filePath());
            QCOMPARE(saved.size(), 1);
            QCOMPARE(saved[0].size(), QSize(160, 120));
            QCOMPARE(saved[0], reference(video, frame));
            QTRY_COMPARE_WITH_TIMEOUT(v.addButton->text(), QStringLiteral("Add to Dataset"), 5000);
        }
        QVERIFY(!QFile::exists(preview));
    }

    // What ffprobe reports decides the length and the frame step; stand-in ffprobes.
    void videoInfo_data()
    {
        QTest::addColumn<QByteArray>("probe"); // null: a file that cannot run
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("afterStep");
        const auto stream = [](const QByteArray& fields) { return "{\"streams\":[{" + fields + "}]}"; };
        const QString none = "Frame: \u2014 / \u2014    Time: \u2014";
        QTest::newRow("25/1") << stream("\"duration\":\"2.000000\",\"r_frame_rate\":\"25/1\"")
                              << readyStatus("00:02.000") << "Frame: 2 / 50    Time: 00:00.040 / 00:02.000";
        QTest::newRow("30000/1001") << stream("\"duration\":\"2.002000\",\"r_frame_rate\":\"30000/1001\"")
                                    << readyStatus("00:02.002") << "Frame: 2 / 60    Time: 00:00.033 / 00:02.002";
        for (const char* rate : {"0", "0/0", "300/1", ""})
            QTest::newRow(qPrintable(QStringLiteral("rate '%1'").arg(rate)))
                << stream("\"duration\":\"2\",\"r_frame_rate\":\"" + QByteArray(rate) + "\"")
                << readyStatus("00:02.000") << "Frame: 2 / 60    Time: 00:00.033 / 00:02.000";
        QTest::newRow("container duration") << QByteArray("{\"streams\":[{\"r_frame_rate\":\"25/1\"}],\"format\":{\"duration\":\"1.5\"}}")
                                            << readyStatus("00:01.500") << "Frame: 2 / 37    Time: 00:00.040 / 00:01.500";
        QTest::newRow("Matroska tag") << stream("\"r_frame_rate\":\"25/1\",\"tags\":{\"DURATION\":\"00:00:01.200000000\"}")
                                      << readyStatus("00:01.200") << "Frame: 2 / 30    Time: 00:00.040 / 00:01.200";
        QTest::newRow("no streams") << QByteArray("{\"streams\":[]}") << "No video stream found in file." << none;
        QTest::newRow("no output") << QByteArray("") << "No video stream found in file." << none;
        QTest::newRow("cannot run") << QByteArray() << "Could not read video info. Is ffprobe available?" << none;
    }
    void videoInfo()
    {
        QFETCH(QByteArray, probe);
        QFETCH(QString, status);
        QTemporaryDir tools;
        QVERIFY(QFile::link(m_ffmpeg, tools.filePath("ffmpeg")));
        QVERIFY(writeBytes(tools.filePath("probe.json"), probe));
        writeTool(tools.filePath("ffprobe"), "cat '" + tools.filePath("probe.json").toUtf8() + "'", !probe.isNull());
        VideoFrameDialog v(path("clip25.mp4"), tools.filePath("ffmpeg"), QString());
        QVERIFY(waitStarted(v));
        QCOMPARE(v.statusLabel->text(), status);
        QCOMPARE(v.addButton->isEnabled(), status.startsWith("Duration"));
        act(v, "R");
        QTEST(v.infoLabel->text(), "afterStep");
    }

    // Bad input ends in a clear message, never a hang or a crash.
    void badInput_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("warning");
        QTest::newRow("not a video") << "text" << "No video stream found in file." << "";
        QTest::newRow("video deleted while open") << "deleted" << "Could not extract the frame at 00:00.040." << "";
        QTest::newRow("ffmpeg fails on frames") << "ffmpeg exits 1" << "Could not extract the frame at 00:00.000." << "";
        QTest::newRow("read-only images folder") << "read-only" << readyStatus("00:02.000") << "Save failed";
        QTest::newRow("images folder gone") << "gone" << readyStatus("00:02.000") << "No images folder";
    }
    void badInput()
    {
        QFETCH(QString, kind);
        QFETCH(QString, warning);
        ScriptedPrompts prompts;
        QTemporaryDir work;
        QString video = work.filePath("clip.mp4"), ffmpeg = m_ffmpeg, images = work.filePath("images");
        QVERIFY(kind == "text" ? writeBytes(video, "not a video\n") : QFile::copy(path("clip25.mp4"), video));
        QVERIFY(QDir().mkpath(images));
        if (kind == "ffmpeg exits 1") {
            ffmpeg = work.filePath("ffmpeg");
            writeTool(ffmpeg, "exit 1");
            QVERIFY(QFile::link(QStandardPaths::findExecutable("ffprobe"), work.filePath("ffprobe")));
        }
        // Root writes into read-only folders; /proc takes no new files from anyone.
        if (kind == "read-only" && !QFile::setPermissions(images, QFile::ReadOwner | QFile::ExeOwner))
            QFAIL("cannot make the folder read-only");
        const QString target = kind == "read-only" && geteuid() == 0 ? "/proc" : images;
        VideoFrameDialog v(video, ffmpeg, target);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(waitStarted(v));
        QVERIFY(clock.elapsed() < 8000);
        if (kind == "deleted") {
            QVERIFY(QFile::remove(video));
            act(v, "R");
            QCOMPARE(v.currentFrame().convertToFormat(QImage::Format_RGB32), reference("clip25.mp4", 0));
        }
        if (kind == "gone")
            QVERIFY(QDir(images).removeRecursively());
        if (!warning.isEmpty())
            QTest::mouseClick(v.addButton, Qt::LeftButton);
        QTEST(v.statusLabel->text(), "status");
        QCOMPARE(prompts.callsOf("warning").size(), int(!warning.isEmpty()));
        if (!warning.isEmpty())
            QCOMPARE(prompts.last().title, warning);
        if (kind == "read-only")
            QVERIFY(prompts.last().text.startsWith("Could not save:\n" + target + "/brindle_"));
        QVERIFY(QDir(images).entryList(QDir::Files).isEmpty());
        QFile::setPermissions(images, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // The Edit menu command through the real main window, its dialogs answered by script.
    void command_data()
    {
        QTest::addColumn<QByteArray>("ffmpeg"); // a stand-in's script; empty: the real one
        QTest::addColumn<bool>("dataset");
        QTest::addColumn<bool>("pick");
        QTest::addColumn<QStringList>("calls");
        const QString picker = "dialog:Extract Video Frames", viewer = picker + "  -  clip25.mp4",
                      chooser = "open:Select video file";
        const QString missing = "warning:FFmpeg not found", noData = "information:No dataset loaded";
        QTest::newRow("ffmpeg exits 1") << QByteArray("exit 1") << true << true << QStringList{missing};
        QTest::newRow("ffmpeg hangs") << QByteArray("exec sleep 30") << true << true << QStringList{missing};
        QTest::newRow("picker cancelled") << QByteArray() << true << false << QStringList{picker};
        QTest::newRow("no dataset") << QByteArray() << false << true << QStringList{picker, chooser, noData, viewer};
        QTest::newRow("dataset") << QByteArray() << true << true << QStringList{picker, chooser, viewer};
    }
    void command()
    {
        QFETCH(QByteArray, ffmpeg);
        QFETCH(bool, dataset);
        QFETCH(bool, pick);
        QTemporaryDir work;
        const QByteArray oldPath = qgetenv("PATH");
        const QString oldCwd = QDir::currentPath();
        if (!ffmpeg.isEmpty()) {
            writeTool(work.filePath("ffmpeg"), ffmpeg);
            qputenv("PATH", work.path().toUtf8() + ':' + oldPath);
        }
        QVERIFY(QDir::setCurrent(work.path()));
        MainWindow w;
        const QString images = work.filePath("images");
        QVERIFY(QDir().mkpath(images) && makeImageFile(images + "/a.png") && makeImageFile(images + "/z.png"));
        if (dataset) {
            QVERIFY(w.openDataset(images));
            w.imageList->setCurrentRow(1);
        }
        ScriptedPrompts prompts;
        if (pick)
            prompts.openFileAnswers << path("clip25.mp4");
        prompts.dialogHandler = [&](QDialog* d) {
            if (auto* picker = qobject_cast<VideoPickerDialog*>(d)) {
                picker->findChild<QPushButton*>(pick ? "browseButton" : "cancelButton")->click();
                if (pick)
                    picker->findChild<QPushButton*>("continueButton")->click();
                return picker->result();
            }
            auto* v = qobject_cast<VideoFrameDialog*>(d);
            if (!waitStarted(*v))
                return int(QDialog::Rejected);
            act(*v, "R");
            v->addButton->click();
            v->accept();
            return v->result();
        };
        QElapsedTimer clock;
        clock.start();
        w.findChild<QAction*>("extractVideoFramesAction")->trigger();
        const qint64 elapsed = clock.elapsed();
        qputenv("PATH", oldPath);
        QDir::setCurrent(oldCwd);

        QStringList calls;
        for (const ScriptedPrompts::Call& c : prompts.calls)
            calls << c.kind + ':' + c.title;
        QTEST(calls, "calls");
        if (calls.first().startsWith("warning")) {
            QVERIFY(elapsed < 3000 + 2000);
            QVERIFY(prompts.last().text.startsWith("FFmpeg is required for video frame extraction but was not found.\n\nInstall it with:\n  "));
            QVERIFY(prompts.last().text.endsWith("\nPlace ffmpeg.exe and ffprobe.exe next to Brindle.exe."));
        }
        // A saved frame lands in the images folder (the working folder without a dataset),
        // and the list shows it with the image that was on screen still current.
        const QStringList saved = QDir(dataset ? images : work.path()).entryList({"brindle_*.png"});
        QCOMPARE(saved.size(), calls.size() > 1 ? 1 : 0);
        if (dataset && !saved.isEmpty()) {
            QCOMPARE(rowTexts(w), (QStringList{"a.png", saved[0], "z.png"}));
            QCOMPARE(w.currentIndex, 2);
            QCOMPARE(rgb(images + '/' + saved[0]), reference("clip25.mp4", 1));
        }
    }
};

QTEST_MAIN(TestVideoFrames)
#include "tst_videoframes.moc"
