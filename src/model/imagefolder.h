#pragma once

#include <QStringList>

// The image files of a dataset's images folder.
namespace ImageFolder {

// Plain, non-hidden files directly in `folder` (no recursion; links to files count)
// whose name ends in .jpg, .jpeg, .png, .bmp, .gif or .tiff in any letter case, sorted
// by file name in case-sensitive character order. Each comes as `prefix` followed by
// its file name, so that a caller can build the path it keeps without a second copy.
QStringList list(const QString& folder, const QString& prefix);

// Sorts names that all start with the same `skip` characters in case-sensitive
// character order (the order of QString's operator<), faster than std::sort on the
// strings when there are many.
void sortNames(QStringList& names, int skip = 0);

} // namespace ImageFolder
