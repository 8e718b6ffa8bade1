#pragma once

// Shared scaffolding of the AI tests: a sandbox whose PATH, PYTHONPATH and TMPDIR the
// dialogs and helpers see, helper scripts placed next to the test executable, a small
// test video and fake model, and the log read back as (text, colour) lines.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QPair>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBlock>
#include <QTextEdit>

namespace AiTest {

inline const QStringList kScripts{"yolo_inference.py", "yolo_annotate_video.py",
                                  "install_python_deps_mac.sh"};

inline QString scriptPath(const QString& name)
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + name;
}

inline void writeFile(const QString& path, const QByteArray& bytes, bool executable = false)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
    f.close();
    if (executable)
        f.setPermissions(f.permissions() | QFile::ExeOwner);
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

struct Sandbox {
    QTemporaryDir dir;
    const QByteArray saved[3] = {qgetenv("PATH"), qgetenv("PYTHONPATH"), qgetenv("TMPDIR")};

    Sandbox()
    {
        QDir(dir.path()).mkpath(QStringLiteral("bin"));
        QDir(dir.path()).mkpath(QStringLiteral("tmp"));
        qputenv("PATH", bin().toUtf8());
        qputenv("PYTHONPATH", AI_TEST_DIR "/fake_ultralytics");
        qputenv("TMPDIR", path("tmp").toUtf8());
        for (const QString& s : kScripts)
            QFile::remove(scriptPath(s));
    }
    ~Sandbox()
    {
        qputenv("PATH", saved[0]);
        qputenv("PYTHONPATH", saved[1]);
        qputenv("TMPDIR", saved[2]);
        for (const QString& s : kScripts)
            QFile::remove(scriptPath(s));
    }
    QString path(const QString& name) const { return dir.filePath(name); }
    QString bin() const { return path(QStringLiteral("bin")); }
    // A program on the sandbox PATH: a link to `target`, or a bash script `body`.
    void link(const QString& name, const QString& target) const
    {
        QFile::link(target, bin() + QLatin1Char('/') + name);
    }
    void program(const QString& name, const QByteArray& body) const
    {
        writeFile(bin() + QLatin1Char('/') + name, "#!/bin/bash\n" + body, true);
    }
};

// 160 x 120, 10 fps, 20 frames: a red square ("person", 10..49 x 20..49) in frames 1-10,
// a blue one ("car", 80..139 x 60..99) in frames 6-15, nothing in 16-20.
inline void makeVideo(const QString& path)
{
    QProcess p;
    p.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral("-c"), QStringLiteral(R"(
import sys, cv2, numpy as np
w = cv2.VideoWriter(sys.argv[1], cv2.VideoWriter_fourcc(*"MJPG"), 10, (160, 120))
for i in range(20):
    f = np.zeros((120, 160, 3), np.uint8)
    if i < 10: f[20:50, 10:50] = (0, 0, 255)
    if 5 <= i < 15: f[60:100, 80:140] = (255, 0, 0)
    w.write(f)
w.release()
)"), path});
    QVERIFY(p.waitForFinished(30000) && p.exitCode() == 0);
}

// The fake model: "person" (red, confidence 0.9) and "car" (blue, 0.4).
inline void writeModel(const QString& path, double delay = 0)
{
    writeFile(path, QStringLiteral(R"({"classes": [{"name": "person", "bgr": [0, 0, 255], "conf": 0.9},
{"name": "car", "bgr": [255, 0, 0], "conf": 0.4}], "keypoints": true, "delay": %1})")
                        .arg(delay).toUtf8());
}

inline QPushButton* button(QWidget* dialog, const char* name)
{
    return dialog->findChild<QPushButton*>(QLatin1String(name));
}

inline bool waitIdle(QWidget* dialog, int ms = 30000)
{
    return QTest::qWaitFor([dialog] { return button(dialog, "runButton")->isEnabled(); }, ms);
}

// Each log line with the colour of its first piece.
inline QList<QPair<QString, QString>> logLines(QWidget* dialog)
{
    QList<QPair<QString, QString>> lines;
    const auto* log = dialog->findChild<QTextEdit*>(QStringLiteral("logView"));
    for (QTextBlock b = log->document()->begin(); b.isValid(); b = b.next())
        if (!b.text().isEmpty())
            lines.append({b.text(), b.begin().fragment().charFormat().foreground().color().name()});
    return lines;
}

inline QStringList logTexts(QWidget* dialog)
{
    QStringList texts;
    for (const auto& line : logLines(dialog))
        texts << line.first;
    return texts;
}

} // namespace AiTest
