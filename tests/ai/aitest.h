#pragma once

// Scaffolding of the AI tests: a sandbox whose PATH, PYTHONPATH and TMPDIR the dialogs and
// helpers see, helper scripts placed next to the test executable, a small test video and
// fake model, and the run log read back as "text|colour" lines.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBlock>
#include <QTextEdit>
#include <QLineEdit>

#include "support/corefiles.h"

namespace AiTest {

inline QString scriptPath(const QString& name)
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + name;
}

// Next to the executable: the shipped script, or `text` in its place.
inline void placeScript(const QString& name, const QByteArray& text = {})
{
    QFile::remove(scriptPath(name));
    if (text.isNull())
        QVERIFY(QFile::copy(QStringLiteral(AI_SCRIPTS_DIR "/") + name, scriptPath(name)));
    else
        writeFile(scriptPath(name), text);
}

// A shipped script run by Debian's Python in `dir`, with the fake ultralytics or none.
inline QProcess* startScript(const QString& script, const QStringList& args, bool withPackage, const QString& dir = {})
{
    auto* helper = new QProcess;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("PYTHONPATH", withPackage ? AI_TEST_DIR "/fake_ultralytics" : "");
    helper->setProcessEnvironment(env);
    helper->setWorkingDirectory(dir);
    helper->start("/usr/bin/python3", QStringList{QStringLiteral(AI_SCRIPTS_DIR "/") + script} + args);
    return helper;
}

// A scratch folder; while it lives PATH holds only its bin/, TMPDIR is its tmp/, the fake
// ultralytics is on PYTHONPATH, and no helper script lies next to the executable.
struct Sandbox {
    QTemporaryDir dir;
    const char* vars[3] = {"PATH", "PYTHONPATH", "TMPDIR"};
    QByteArray saved[3] = {qgetenv(vars[0]), qgetenv(vars[1]), qgetenv(vars[2])};
    const QStringList scripts{"yolo_inference.py", "yolo_annotate_video.py", "yolo_prelabel.py",
                              "install_python_deps_mac.sh"};

    Sandbox()
    {
        QDir(dir.path()).mkpath("bin");
        QDir(dir.path()).mkpath("tmp");
        const QByteArray values[3] = {bin().toUtf8(), AI_TEST_DIR "/fake_ultralytics", path("tmp").toUtf8()};
        for (int i = 0; i < 3; ++i)
            qputenv(vars[i], values[i]);
        for (const QString& s : scripts)
            QFile::remove(scriptPath(s));
    }
    ~Sandbox()
    {
        for (int i = 0; i < 3; ++i)
            qputenv(vars[i], saved[i]);
        for (const QString& s : scripts)
            QFile::remove(scriptPath(s));
    }
    QString path(const QString& name) const { return dir.filePath(name); }
    QString bin() const { return path("bin"); }
    void link(const QString& name, const QString& target) const { QFile::link(target, bin() + '/' + name); }
    void program(const QString& name, const QByteArray& bashBody) const
    {
        writeFile(bin() + '/' + name, "#!/bin/bash\n" + bashBody);
        QFile::setPermissions(bin() + '/' + name, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
};

// A fake model that finds person (red) with confidence 0.9 and car (blue) with 0.4.
inline const QByteArray model = R"({"classes": [{"name": "person", "bgr": [0, 0, 255], "conf": 0.9},
                                   {"name": "car", "bgr": [255, 0, 0], "conf": 0.4}], "keypoints": true})";

// 160 x 120, 10 fps, 9 frames: a red square ("person", pixels 10..49 x 20..49) in frames
// 1-4, a blue one ("car", 80..139 x 60..99) in frames 3-7, nothing in 8-9.
inline void makeVideo(const QString& video)
{
    QProcess p;
    p.start("/usr/bin/ffmpeg", {"-v", "error", "-f", "lavfi", "-i", "color=c=black:s=160x120:r=10", "-frames:v", "9",
                                "-vf", "drawbox=10:20:40:30:red:fill:enable='lt(n,4)',drawbox=80:60:60:40:blue:fill:"
                                "enable='between(n,2,6)'", "-c:v", "mjpeg", "-q:v", "2", "-pix_fmt", "yuvj420p", video});
    QVERIFY(p.waitForFinished(30000) && p.exitCode() == 0);
}

// The model, video and output fields of an AI run dialog.
inline void fill(QWidget* dialog, const QString& model, const QString& video, const QString& output)
{
    dialog->findChild<QLineEdit*>("modelEdit")->setText(model);
    dialog->findChild<QLineEdit*>("videoEdit")->setText(video);
    dialog->findChild<QLineEdit*>("outputEdit")->setText(output);
}

inline QPushButton* button(QWidget* dialog, const char* name)
{
    return dialog->findChild<QPushButton*>(QLatin1String(name));
}

inline bool waitIdle(QWidget* dialog)
{
    return QTest::qWaitFor([dialog] { return button(dialog, "runButton")->isEnabled(); }, 30000);
}

inline QStringList logLines(QWidget* dialog, bool withColour = true)
{
    QStringList lines;
    const auto* log = dialog->findChild<QTextEdit*>("logView");
    for (QTextBlock b = log->document()->begin(); b.isValid(); b = b.next())
        if (!b.text().isEmpty())
            lines << (withColour ? b.text() + '|' + b.begin().fragment().charFormat().foreground().color().name()
                                 : b.text());
    return lines;
}

} // namespace AiTest
