#pragma once

// What lies on disk under a folder, for tests of the window's commands that compare the
// files a command wrote (or left alone) as a whole.

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>

namespace appfiles {

// Every file under `folder`, hidden ones too: relative path -> bytes.
inline QMap<QString, QByteArray> contents(const QString& folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        files.insert(QDir(folder).relativeFilePath(path), file.open(QIODevice::ReadOnly) ? file.readAll() : "?");
    }
    return files;
}

} // namespace appfiles
