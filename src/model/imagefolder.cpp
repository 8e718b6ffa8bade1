#include "model/imagefolder.h"

#include <QFile>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>

namespace ImageFolder {

namespace {

constexpr int kTwoThreadSort = 100000;

bool hasImageSuffix(const char* name, size_t length)
{
    static const char* const suffixes[] = {".jpg", ".jpeg", ".png", ".bmp", ".gif", ".tiff"};
    for (const char* suffix : suffixes) {
        const size_t n = std::strlen(suffix);
        if (length >= n && strncasecmp(name + length - n, suffix, n) == 0)
            return true;
    }
    return false;
}

// Eight UTF-16 units of a name from `from` on, packed so that comparing the numbers
// compares the units in order; a name that ends early is padded with 0, which sorts
// before every character as a shorter name does.
struct Key {
    quint64 high = 0;
    quint64 low = 0;
    int index = 0;
};

Key keyOf(QStringView name, int from, int index)
{
    Key key;
    key.index = index;
    for (int i = 0; i < 8; ++i) {
        const quint64 unit = from + i < name.size() ? name.at(from + i).unicode() : 0;
        if (i < 4)
            key.high |= unit << (48 - 16 * i);
        else
            key.low |= unit << (48 - 16 * (i - 4));
    }
    return key;
}

} // namespace

void sortNames(QStringList& names, int skip)
{
    if (names.size() < 2)
        return;
    // The keys start after the part every name shares, so that names that differ only
    // in a counter are told apart by their keys alone; a contiguous array of keys sorts
    // without following a pointer per comparison.
    int common = names.first().size();
    const QStringView first(names.first());
    for (const QString& name : std::as_const(names)) {
        common = std::min<int>(common, name.size());
        int i = skip;
        while (i < common && name.at(i) == first.at(i))
            ++i;
        common = i;
        if (common <= skip)
            break;
    }
    common = std::max(common, skip);

    std::vector<Key> keys(names.size());
    const auto less = [&names, common](const Key& a, const Key& b) {
        if (a.high != b.high)
            return a.high < b.high;
        if (a.low != b.low)
            return a.low < b.low;
        return QStringView(names.at(a.index)).mid(common) < QStringView(names.at(b.index)).mid(common);
    };
    const auto sortPart = [&](int begin, int end) {
        for (int i = begin; i < end; ++i)
            keys[i] = keyOf(names.at(i), common, i);
        std::sort(keys.begin() + begin, keys.begin() + end, less);
    };
    // A large folder is sorted in two halves at once, then merged: the window waits for
    // this list before it shows the first image.
    const int count = int(names.size());
    if (count >= kTwoThreadSort && std::thread::hardware_concurrency() > 1) {
        const int half = count / 2;
        std::thread other(sortPart, 0, half);
        sortPart(half, count);
        other.join();
        std::inplace_merge(keys.begin(), keys.begin() + half, keys.end(), less);
    } else {
        sortPart(0, count);
    }
    QStringList sorted;
    sorted.reserve(names.size());
    for (const Key& key : keys)
        sorted.append(std::move(names[key.index]));
    names = std::move(sorted);
}

QStringList list(const QString& folder, const QString& prefix)
{
    QStringList paths;
    if (folder.isEmpty())
        return paths;
    const QByteArray encoded = QFile::encodeName(folder);
    DIR* dir = ::opendir(encoded.constData());
    if (!dir)
        return paths;
    // Read straight from the directory: a listing through QDir matches every name
    // against six wildcard patterns and builds file information for it, which takes
    // seconds at a million files.
    QByteArray full = encoded + '/';
    const int base = full.size();
    while (const dirent* entry = ::readdir(dir)) {
        const char* name = entry->d_name;
        if (name[0] == '.')
            continue; // hidden, and the . and .. entries
        const size_t length = std::strlen(name);
        if (!hasImageSuffix(name, length))
            continue;
        bool regular = entry->d_type == DT_REG;
        if (entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN) {
            full.truncate(base);
            full.append(name, qsizetype(length));
            struct stat st {};
            regular = ::stat(full.constData(), &st) == 0 && S_ISREG(st.st_mode);
        }
        if (!regular)
            continue;
        // One allocation per path: plain ASCII names (nearly all) go in as they are.
        QString path;
        path.reserve(prefix.size() + qsizetype(length));
        path.append(prefix);
        if (std::all_of(name, name + length, [](char c) { return uchar(c) < 0x80; }))
            path.append(QLatin1String(name, qsizetype(length)));
        else
            path.append(QFile::decodeName(QByteArray::fromRawData(name, qsizetype(length))));
        paths.append(std::move(path));
    }
    ::closedir(dir);
    sortNames(paths, prefix.size());
    return paths;
}

} // namespace ImageFolder
