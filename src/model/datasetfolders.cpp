#include "model/datasetfolders.h"

#include "model/imagefolder.h"

#include <QDir>
#include <QDirIterator>

#include <algorithm>

namespace DatasetFolders {

const QStringList& imageFilePatterns()
{
    static const QStringList patterns = {
        QStringLiteral("*.jpg"), QStringLiteral("*.jpeg"), QStringLiteral("*.png"),
        QStringLiteral("*.bmp"), QStringLiteral("*.gif"),  QStringLiteral("*.tiff"),
    };
    return patterns;
}

// The iterator avoids the per-file QFileInfo list that QDir::entryInfoList builds, which
// matters at 100,000 files.
QStringList listImageFiles(const QString& folder)
{
    return ImageFolder::list(folder, QString());
}

QList<ImageAnnotations> records(const QString& imagesFolder, const QString& annotationsFolder,
                                const QStringList& imageFiles)
{
    const QDir imagesDir(imagesFolder);
    const QDir annotationsDir(annotationsFolder);
    QList<ImageAnnotations> list;
    list.reserve(imageFiles.size());
    for (const QString& name : imageFiles) {
        ImageAnnotations record;
        record.imagePath = imagesDir.absoluteFilePath(name);
        const int dot = name.lastIndexOf(QLatin1Char('.'));
        record.xmlPath = annotationsDir.filePath((dot < 0 ? name : name.left(dot)) + QStringLiteral(".xml"));
        list.append(record);
    }
    return list;
}

QStringList listAnnotationFiles(const QString& folder)
{
    QStringList names;
    if (folder.isEmpty())
        return names;
    QDirIterator it(folder, QDir::Files | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        it.next();
        if (it.fileName().endsWith(QLatin1String(".xml")))
            names.append(it.fileName());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace DatasetFolders
