#include <QtTest>
#include <QtWidgets>
#include <memory>
#include <unistd.h>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "support/scriptedprompts.h"
#include "video/toollocator.h"
#include "video/videoframedialog.h"
#include "video/videopickerdialog.h"

// The frame viewer and the Edit menu command, with Debian's ffmpeg and ffprobe on videos made
// here from ffmpeg's test source, and quick stand-in tools where the real ones are not tested.

using namespace sessiontest;

namespace {

// A stand-in tool: a shell script with `body`, or a plain file that cannot run.
bool writeTool(const QString& path, const QByteArray& body, bool executable = true)
{
    return writeBytes(path, "#!/bin/sh\n" + body + "\n")
           && (!executable || QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner));
}

QImage rgb(const QImage& image) { return image.convertToFormat(QImage::Format_RGB32); }

QString ready(const QString& duration) { return QString("Duration: %1  |  \u2190 \u2192 = one frame  |  Shift+\u2190\u2192 = 1 second").arg(duration); }

bool waitStarted(VideoFrameDialog& v)
{
    v.show();
    return QTest::qWaitFor([&] { return v.statusLabel->text() != "Reading video info..."; }, 30000);
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
    QByteArray m_copyFrame; // a stand-in ffmpeg: "-version" succeeds, a frame is a copy of one PNG
    std::unique_ptr<VideoFrameDialog> m_walk; // the viewer stepSeekSave's rows go on with
    QTemporaryDir m_walkImages;
    QString path(const QString& name) const { return m_dir.filePath(name); }
    // Frame k (from 0) of a video, as ffmpeg decodes it from the start.
    QImage reference(const QString& video, int k) const { return rgb(QImage(path(QString("ref-%1/%2.png").arg(QFileInfo(video).baseName()).arg(k + 1)))); }

private Q_SLOTS:
    void initTestCase()
    {
        m_ffmpeg = QStandardPaths::findExecutable("ffmpeg");
        QVERIFY2(!m_ffmpeg.isEmpty(), "ffmpeg is needed (scripts/install-deps.sh)");
        // The command looks beside the executable first; that must not find a real tool.
        QCOMPARE(locateTool("ffmpeg"), QString("ffmpeg"));
        for (const auto& [name, rate] : {std::pair{"clip25.mp4", "25"}, {"my clip \u00fcn\u00ef.mp4", "30000/1001"}}) {
            const QString refs = path("ref-" + QFileInfo(name).baseName());
            QVERIFY(runTool(m_ffmpeg, {"-v", "error", "-f", "lavfi", "-i", QString("testsrc=size=160x120:duration=2:rate=") + rate,
                                       "-pix_fmt", "yuv420p", path(name)}, 60000).succeeded());
            QVERIFY(QDir().mkpath(refs) && runTool(m_ffmpeg, {"-i", path(name), refs + "/%d.png"}, 60000).succeeded());
        }
        m_copyFrame = "[ \"$1\" = -version ] && exit 0\nfor a; do last=$a; done\nexec cp '" + path("ref-clip25/2.png").toUtf8() + "' \"$last\"";
    }

    void locate_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("found"); // ffmpeg, then the ffprobe that goes with it
        QTest::newRow("exe first") << QStringList{"ffmpeg", "ffmpeg.exe", "ffprobe.exe"} << "D/ffmpeg.exe D/ffprobe.exe";
        QTest::newRow("ffprobe missing") << QStringList{"ffmpeg"} << "D/ffmpeg ffprobe";
        QTest::newRow("a folder named ffmpeg") << QStringList{"ffmpeg/", "ffprobe"} << "ffmpeg ffprobe";
    }
    void locate()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, found);
        QTemporaryDir dir;
        for (const QString& f : files)
            QVERIFY(f.endsWith('/') ? QDir().mkpath(dir.filePath(f)) : writeBytes(dir.filePath(f), "x"));
        const QString ffmpeg = locateToolIn(dir.path(), "ffmpeg");
        QCOMPARE(ffmpeg + ' ' + VideoFrameDialog("v.mp4", ffmpeg, QString()).ffprobePath(), found.replace("D/", dir.path() + '/'));
    }

    // What ffprobe reports (stand-ins) and bad input: the length and frame step, or a clear
    // message; never a hang or a crash.
    void viewer_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QByteArray>("probe"); // a stand-in ffprobe's output; null: the real one
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("info");     // after one step forward
        QTest::addColumn<QString>("warning");  // after "Add to Dataset"
        const auto stream = [](const QByteArray& fields) { return "{\"streams\":[{" + fields + "}]}"; };
        const QString none = "Frame: \u2014 / \u2014    Time: \u2014", at40 = "Frame: 2 / 50    Time: 00:00.040 / 00:02.000";
        const QByteArray probe25 = stream("\"duration\":\"2.000000\",\"r_frame_rate\":\"25/1\"");
        QTest::newRow("25/1") << "" << probe25 << ready("00:02.000") << at40 << "";
        QTest::newRow("30000/1001") << "" << stream("\"duration\":\"2.002000\",\"r_frame_rate\":\"30000/1001\"")
                                    << ready("00:02.002") << "Frame: 2 / 60    Time: 00:00.033 / 00:02.002" << "";
        for (const char* rate : {"0", "0/0", "300/1", ""})
            QTest::newRow(qPrintable(QString("rate '%1'").arg(rate))) << "" << stream("\"duration\":\"2\",\"r_frame_rate\":\"" + QByteArray(rate) + "\"")
                                                                      << ready("00:02.000") << "Frame: 2 / 60    Time: 00:00.033 / 00:02.000" << "";
        QTest::newRow("container duration") << "" << QByteArray("{\"streams\":[{\"r_frame_rate\":\"25/1\"}],\"format\":{\"duration\":\"1.5\"}}")
                                            << ready("00:01.500") << "Frame: 2 / 37    Time: 00:00.040 / 00:01.500" << "";
        QTest::newRow("Matroska tag") << "" << stream("\"r_frame_rate\":\"25/1\",\"tags\":{\"DURATION\":\"00:00:01.200000000\"}")
                                      << ready("00:01.200") << "Frame: 2 / 30    Time: 00:00.040 / 00:01.200" << "";
        QTest::newRow("over an hour") << "" << stream("\"duration\":\"3787.042\",\"r_frame_rate\":\"25/1\"")
                                      << ready("1:03:07.042") << "Frame: 2 / 94676    Time: 00:00.040 / 1:03:07.042" << "";
        QTest::newRow("no streams") << "" << QByteArray("{\"streams\":[]}") << "No video stream found in file." << none << "";
        QTest::newRow("no output") << "" << QByteArray("") << "No video stream found in file." << none << "";
        QTest::newRow("ffprobe cannot run") << "no exec" << QByteArray("") << "Could not read video info. Is ffprobe available?" << none << "";
        QTest::newRow("not a video") << "text" << QByteArray() << "No video stream found in file." << none << "";
        QTest::newRow("video deleted while open") << "deleted" << QByteArray() << "Could not extract the frame at 00:00.040." << at40 << "";
        QTest::newRow("ffmpeg fails on frames") << "ffmpeg exits 1" << probe25 << "Could not extract the frame at 00:00.040." << at40 << "";
        QTest::newRow("read-only images folder") << "read-only" << probe25 << ready("00:02.000") << at40 << "Save failed";
        QTest::newRow("images folder gone") << "gone" << probe25 << ready("00:02.000") << at40 << "No images folder";
    }
    void viewer()
    {
        QFETCH(QString, kind);
        QFETCH(QByteArray, probe);
        QFETCH(QString, warning);
        ScriptedPrompts prompts;
        QTemporaryDir work;
        const QString video = work.filePath("clip.mp4"), ffmpeg = work.filePath("ffmpeg"), images = work.filePath("images");
        QVERIFY((kind == "text" ? writeBytes(video, "not a video\n") : QFile::copy(path("clip25.mp4"), video)) && QDir().mkpath(images));
        QVERIFY(kind == "deleted" ? QFile::link(m_ffmpeg, ffmpeg) : writeTool(ffmpeg, kind == "ffmpeg exits 1" ? "exit 1" : m_copyFrame));
        QVERIFY(probe.isNull() ? QFile::link(QStandardPaths::findExecutable("ffprobe"), work.filePath("ffprobe"))
                               : writeTool(work.filePath("ffprobe"), "printf '%s' '" + probe + "'", kind != "no exec"));
        // Root writes into read-only folders; /proc takes no new files from anyone.
        QVERIFY(kind != "read-only" || QFile::setPermissions(images, QFile::ReadOwner | QFile::ExeOwner));
        const QString target = kind == "read-only" && geteuid() == 0 ? "/proc" : images;
        VideoFrameDialog v(video, ffmpeg, target);
        QVERIFY(waitStarted(v));
        QCOMPARE(v.addButton->isEnabled(), !v.infoLabel->text().contains(u'\u2014')); // only once the info is read
        const QImage first = v.currentFrame();
        QVERIFY(kind != "deleted" || QFile::remove(video));
        QVERIFY(kind != "gone" || QDir(images).removeRecursively());
        act(v, "R");
        QTEST(v.statusLabel->text(), "status");
        QTEST(v.infoLabel->text(), "info");
        if (v.statusLabel->text().startsWith("Could not extract"))
            QCOMPARE(v.currentFrame(), first); // the picture stays, the position moves on
        if (!warning.isEmpty()) {
            QTest::mouseClick(v.addButton, Qt::LeftButton);
            QCOMPARE(prompts.callsOf("warning").size(), 1);
            QCOMPARE(prompts.last().title, warning);
            QVERIFY(kind != "read-only" || prompts.last().text.startsWith("Could not save:\n" + target + "/brindle_"));
        }
        QVERIFY(QDir(images).entryList(QDir::Files).isEmpty());
        QFile::setPermissions(images, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // The Edit menu command through the real main window, its dialogs answered by script.
    void command_data()
    {
        QTest::addColumn<QByteArray>("ffmpeg"); // the stand-in first on the PATH
        QTest::addColumn<bool>("dataset");
        QTest::addColumn<QStringList>("calls");
        const QString picker = "dialog:Extract Video Frames", chosen = picker + "|open:Select video file";
        const QString viewer = "dialog:Extract Video Frames  -  clip25.mp4", missing = "warning:FFmpeg not found";
        QTest::newRow("ffmpeg exits 1") << QByteArray("exit 1") << true << QStringList{missing};
        QTest::newRow("ffmpeg hangs") << QByteArray("exec sleep 30") << true << QStringList{missing};
        QTest::newRow("picker cancelled") << m_copyFrame << true << QStringList{picker};
        QTest::newRow("no dataset") << m_copyFrame << false << QStringList{chosen, "information:No dataset loaded", viewer};
        QTest::newRow("dataset") << m_copyFrame << true << QStringList{chosen, viewer};
    }
    void command()
    {
        QFETCH(QByteArray, ffmpeg);
        QFETCH(bool, dataset);
        QFETCH(QStringList, calls);
        QTemporaryDir work;
        const QByteArray oldPath = qgetenv("PATH");
        const QString oldCwd = QDir::currentPath(), images = work.filePath("images");
        QVERIFY(writeTool(work.filePath("ffmpeg"), ffmpeg)
                && writeTool(work.filePath("ffprobe"), "printf '%s' '{\"streams\":[{\"duration\":\"2\",\"r_frame_rate\":\"25/1\"}]}'"));
        qputenv("PATH", work.path().toUtf8() + ':' + oldPath);
        QVERIFY(QDir::setCurrent(work.path()));
        MainWindow w;
        QVERIFY(QDir().mkpath(images) && makeImageFile(images + "/a.png") && makeImageFile(images + "/z.png"));
        if (dataset) {
            QVERIFY(w.openDataset(images));
            w.imageList->setCurrentRow(1);
        }
        ScriptedPrompts prompts;
        const bool pick = calls.size() > 1;
        prompts.openFileAnswers << path("clip25.mp4");
        prompts.dialogHandler = [&](QDialog* d) {
            if (auto* picker = qobject_cast<VideoPickerDialog*>(d)) {
                for (const char* button : pick ? QList{"browseButton", "continueButton"} : QList{"cancelButton"})
                    picker->findChild<QPushButton*>(button)->click();
                return picker->result();
            }
            auto* v = qobject_cast<VideoFrameDialog*>(d);
            if (waitStarted(*v)) {
                act(*v, "R");
                v->addButton->click();
                QTest::keyClick(v, Qt::Key_Escape);
            }
            return v->result();
        };
        QElapsedTimer clock;
        clock.start();
        w.findChild<QAction*>("extractVideoFramesAction")->trigger();
        const qint64 elapsed = clock.elapsed();
        qputenv("PATH", oldPath);
        QDir::setCurrent(oldCwd);

        QStringList seen;
        for (const ScriptedPrompts::Call& c : prompts.calls)
            seen << c.kind + ':' + c.title;
        QCOMPARE(seen.join('|'), calls.join('|'));
        if (calls.first().startsWith("warning:")) {
            // A hanging ffmpeg is given its 3000 ms, not less and not much more.
            QVERIFY2(elapsed < 3000 + 2000 && (!ffmpeg.contains("sleep") || elapsed >= 2900), qPrintable(QString::number(elapsed)));
            QVERIFY(prompts.last().text.startsWith("FFmpeg is required for video frame extraction but was not found.\n\nInstall it with:\n  "));
            QVERIFY(prompts.last().text.endsWith("\nPlace ffmpeg.exe and ffprobe.exe next to Brindle.exe."));
        }
        // The frame lands in the images folder (the working folder without a dataset); the
        // list is read again and starts at its first image.
        const QStringList saved = QDir(dataset ? images : work.path()).entryList({"brindle_*.png"});
        QCOMPARE(saved.size(), int(pick));
        QVERIFY(!QFile::exists(QDir::tempPath() + "/brindle_frame_preview.png")); // gone with the viewer
        if (dataset && pick) {
            QCOMPARE(rowTexts(w), (QStringList{"a.png", saved[0], "z.png"}));
            QCOMPARE(w.currentIndex, 0);
            QCOMPARE(rgb(QImage(images + '/' + saved[0])), reference("clip25.mp4", 1));
        }
    }

    // Step, seek and save on the real tools, each video's rows in turn on one viewer: the frame
    // shown and saved is the one ffmpeg decodes for that time (the first at or after it, or the last).
    void stepSeekSave_data()
    {
        QTest::addColumn<QString>("video");
        QTest::addColumn<QString>("actions");
        QTest::addColumn<int>("frame");
        QTest::addColumn<QString>("info");
        QTest::addColumn<QString>("arrows"); // the arrow buttons enabled
        const QString v25 = "clip25.mp4", v30 = "my clip \u00fcn\u00ef.mp4";
        QTest::newRow("first frame") << v25 << "" << 0 << "Frame: 1 / 50    Time: 00:00.000 / 00:02.000" << ">";
        QTest::newRow("two steps of 40 ms") << v25 << "R R" << 2 << "Frame: 3 / 50    Time: 00:00.080 / 00:02.000" << "<>";
        QTest::newRow("back below zero") << v25 << "L L L" << 0 << "Frame: 1 / 50    Time: 00:00.000 / 00:02.000" << ">";
        QTest::newRow("shift past the end") << v25 << "SR SR" << 49 << "Frame: 50 / 50    Time: 00:01.999 / 00:02.000" << "<";
        QTest::newRow("shift back") << v25 << "SL" << 25 << "Frame: 25 / 50    Time: 00:00.999 / 00:02.000" << "<>";
        QTest::newRow("one step of 33 ms") << v30 << "R" << 1 << "Frame: 2 / 60    Time: 00:00.033 / 00:02.002" << "<>";
        QTest::newRow("slider a quarter in") << v30 << "@2500" << 15 << "Frame: 16 / 60    Time: 00:00.500 / 00:02.002" << "<>";
        QTest::newRow("slider at the end") << v30 << "@10000" << 59 << "Frame: 61 / 60    Time: 00:02.001 / 00:02.002" << "<";
    }
    void stepSeekSave()
    {
        QFETCH(QString, video);
        QFETCH(QString, actions);
        QFETCH(int, frame);
        ScriptedPrompts prompts; // a failed save must not wait on a real message box
        if (!m_walk || !m_walk->windowTitle().endsWith(video)) {
            // The previous video's viewer goes: its "Saved!" flash has ended by now.
            QTRY_VERIFY_WITH_TIMEOUT(!m_walk || (m_walk->addButton->text() == "Add to Dataset" && m_walk->addButton->styleSheet().contains("background:#2a7a2a;")), 5000);
            m_walk = std::make_unique<VideoFrameDialog>(path(video), m_ffmpeg, m_walkImages.path());
            QVERIFY(waitStarted(*m_walk));
        }
        VideoFrameDialog& v = *m_walk;
        act(v, actions);
        QTEST(v.infoLabel->text(), "info");
        QTEST(QString(v.prevButton->isEnabled() ? "<" : "") + (v.nextButton->isEnabled() ? ">" : ""), "arrows");
        QCOMPARE(rgb(v.currentFrame()), reference(video, frame));
        if (QTest::currentDataTag() != QByteArray("two steps of 40 ms"))
            return;
        // Saved under the time of the click, to the millisecond.
        const QDateTime before = QDateTime::currentDateTime();
        QTest::mouseClick(v.addButton, Qt::LeftButton);
        const QStringList files = QDir(m_walkImages.path()).entryList(QDir::Files);
        QCOMPARE(files.size(), 1);
        const QDateTime at = QDateTime::fromString(files[0], "'brindle_'yyyyMMdd_HHmmss_zzz'.png'");
        QVERIFY2(at.isValid() && at >= before && at <= QDateTime::currentDateTime(), qPrintable(files[0]));
        QVERIFY(prompts.calls.isEmpty());
        QCOMPARE(v.addButton->text(), QString("Saved!"));
        QVERIFY(v.addButton->styleSheet().contains("background:#2a5a9a;"));
        QCOMPARE(rgb(QImage(m_walkImages.filePath(files[0]))), reference(video, frame));
    }
};

QTEST_MAIN(TestVideoFrames)
#include "tst_videoframes.moc"
