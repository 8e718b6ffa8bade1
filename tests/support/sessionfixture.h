#pragma once

// A main window on a dataset made in a temporary folder, answered by scripted prompts,
// and readers of what the window shows and what lies on disk.

#include <QComboBox>
#include <QDir>
#include <QListWidget>
#include <QSize>
#include <QTemporaryDir>
#include <QTest>

#include "app/sessiontestutil.h"
#include "labels/annotationspanel.h"
#include "model/vocxml.h"
#include "support/scriptedprompts.h"

namespace sessionfx {

using namespace sessiontest;
using Shapes = QList<BoxAnnotation>;

inline Shapes saved(const QString& xmlPath)
{
    ImageAnnotations record;
    record.xmlPath = xmlPath;
    return VocXml::load(record) ? record.boxes : Shapes{};
}

inline QStringList labelsOf(const Shapes& shapes)
{
    QStringList out;
    for (const BoxAnnotation& b : shapes)
        out << b.label;
    return out;
}

inline QStringList savedLabels(const QString& xmlPath)
{
    ImageAnnotations record;
    record.xmlPath = xmlPath;
    return VocXml::load(record) ? labelsOf(record.boxes) : QStringList{"<unreadable>"};
}

inline QStringList labelNames(const QList<LabelDef>& labels)
{
    QStringList names;
    for (const LabelDef& l : labels)
        names << l.name;
    return names;
}

inline QStringList itemsOf(const QComboBox* combo)
{
    QStringList out;
    for (int i = 0; i < combo->count(); ++i)
        out << combo->itemText(i);
    return out;
}

inline QStringList panelRows(const MainWindow& w)
{
    QStringList out;
    for (int i = 0; i < w.annotationsPanel->rowCount(); ++i)
        out << w.annotationsPanel->rowText(i);
    return out;
}

struct Session {
    QTemporaryDir dir;
    ScriptedPrompts prompts;
    MainWindow w;

    // Images a.png, b.png ... (after z: z26, z27 ..., so list order is index order), each
    // with an annotation file holding one box per label given (no labels: no file).
    // Opens them and waits for the background scan when asked.
    bool open(const QList<QStringList>& labelsPerImage, bool waitForScan = true,
              QSize size = QSize(8, 6))
    {
        QDir().mkpath(dir.filePath("annotations"));
        for (int i = 0; i < labelsPerImage.size(); ++i) {
            const QString base = i < 26 ? QString(QChar('a' + i)) : QStringLiteral("z%1").arg(i);
            if (!writeImage(dir.filePath(base + ".png"), size.width(), size.height()))
                return false;
            if (labelsPerImage[i].isEmpty())
                continue;
            ImageAnnotations record;
            record.xmlPath = dir.filePath("annotations/" + base + ".xml");
            record.width = size.width();
            record.height = size.height();
            int k = 0;
            for (const QString& label : labelsPerImage[i]) {
                record.boxes.append(box(label, k, k, k + 2, k + 3));
                ++k;
            }
            if (!VocXml::save(record, "images"))
                return false;
        }
        return w.openDataset(dir.path())
               && (!waitForScan || QTest::qWaitFor([this] { return scanDone(w); }, 10000));
    }
    bool show(QSize size = QSize(900, 600))
    {
        w.resize(size);
        w.show();
        return QTest::qWaitForWindowExposed(&w);
    }
    QString path(const QString& name) const { return dir.filePath(name); }
    QString xml(int i) const { return w.images.at(i).xmlPath; }
    bool call(const char* slot) { return QMetaObject::invokeMethod(&w, slot, Qt::DirectConnection); }
};

} // namespace sessionfx
