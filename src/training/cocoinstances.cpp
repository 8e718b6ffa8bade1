// COCO instances files: written as the export goes (one entry a line), and joined from
// the files of several shards.

#include "training/exportparts.h"

#include <QFile>
#include <QList>

#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include <unistd.h>

#include "model/shapegeometry.h"

namespace TrainingExport::Parts {

namespace {

const QByteArray kHeader =
    "{\n\"info\": {\"description\": \"Brindle training export\", \"version\": \"1.0\"},\n"
    "\"licenses\": [],\n\"annotations\": [\n";
const QByteArray kImagesOpen = "\"images\": [\n";
const QByteArray kCategoriesOpen = "\"categories\": [\n";

// Pixel values keep three decimals: far below what any trainer resolves.
double round3(double v)
{
    return std::round(v * 1000.0) / 1000.0;
}

void appendList(QByteArray& out, const QList<double>& values)
{
    out += '[';
    for (int i = 0; i < values.size(); ++i) {
        if (i)
            out += ", ";
        appendNumber(out, values.at(i));
    }
    out += ']';
}

// "]" closing an array whose entries were written one a line, and what follows it.
QByteArray closing(bool any, const char* after)
{
    return QByteArray(any ? "\n]" : "]") + after;
}

// Entry lines of one section of a file written by CocoFile.
struct Sections {
    QByteArray header;
    QList<QByteArray> images;
    QList<QByteArray> categories;
    qint64 annotationsAt = 0; // file offset of the first annotation line
};

QByteArray entryOf(QByteArray line)
{
    line = line.trimmed();
    if (line.endsWith(','))
        line.chop(1);
    return line;
}

// The number after `key` in an entry ("\"id\": "), -1 when missing.
qint64 numberAfter(const QByteArray& entry, const QByteArray& key)
{
    const qsizetype at = entry.indexOf(key);
    if (at < 0)
        return -1;
    qsizetype end = at + key.size();
    qint64 value = 0;
    bool any = false;
    while (end < entry.size() && entry.at(end) >= '0' && entry.at(end) <= '9') {
        value = value * 10 + (entry.at(end++) - '0');
        any = true;
    }
    return any ? value : -1;
}

bool readSections(QFile& file, Sections* out, QString* error)
{
    enum { Header, Annotations, Between, Images, Categories, End } state = Header;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        const QByteArray entry = entryOf(line);
        switch (state) {
        case Header:
            out->header += line;
            if (line == "\"annotations\": [\n") {
                out->annotationsAt = file.pos();
                state = Annotations;
            }
            break;
        case Annotations:
            if (entry == "]")
                state = Between;
            else if (!entry.startsWith("{\"id\": "))
                state = End;
            break;
        case Between:
            state = line == kImagesOpen ? Images : End;
            break;
        case Images:
            if (entry == "]")
                state = Categories;
            else
                out->images.append(entry);
            break;
        case Categories:
            if (line == kCategoriesOpen)
                break;
            if (entry == "]")
                return true;
            out->categories.append(entry);
            break;
        case End:
            break;
        }
        if (state == End)
            break;
    }
    *error = file.fileName() + QStringLiteral(" is not a file of a shard export");
    return false;
}

} // namespace

QByteArray cocoAnnotationFields(const Converted& shape, const QList<Slot>* keypoints)
{
    QList<double> polygon;
    double x0 = round3(shape.box.left()), y0 = round3(shape.box.top());
    double w = round3(round3(shape.box.right()) - x0);
    double h = round3(round3(shape.box.bottom()) - y0);
    double area = 0;
    if (shape.boxOnly) {
        const double x1 = round3(shape.box.right()), y1 = round3(shape.box.bottom());
        polygon = {x0, y0, x1, y0, x1, y1, x0, y1};
        area = w * h;
    } else {
        QPolygonF rounded;
        for (const QPointF& p : shape.polygon) {
            rounded.append(QPointF(round3(p.x()), round3(p.y())));
            polygon << rounded.last().x() << rounded.last().y();
        }
        area = ShapeGeometry::area(rounded);
    }
    QByteArray out = "\"iscrowd\": 0, \"area\": ";
    appendNumber(out, area);
    out += ", \"bbox\": ";
    appendList(out, {x0, y0, w, h});
    out += ", \"segmentation\": [";
    appendList(out, polygon);
    out += ']';
    if (keypoints) {
        QList<double> values;
        int placed = 0;
        for (const Slot& slot : *keypoints) {
            if (slot.placed) {
                values << round3(slot.point.x()) << round3(slot.point.y()) << (slot.visible ? 2 : 1);
                ++placed;
            } else {
                values << 0 << 0 << 0;
            }
        }
        out += ", \"keypoints\": ";
        appendList(out, values);
        out += ", \"num_keypoints\": " + QByteArray::number(placed);
    }
    return out;
}

QByteArray cocoAnnotationRest(int imageId, int categoryId, const QByteArray& fields)
{
    return "\"image_id\": " + QByteArray::number(imageId) + ", \"category_id\": "
        + QByteArray::number(categoryId) + ", " + fields + '}';
}

QByteArray cocoImageEntry(int imageId, const QString& fileName, const QSize& size)
{
    QByteArray out = "{\"id\": " + QByteArray::number(imageId) + ", \"file_name\": ";
    appendJsonString(out, fileName);
    out += ", \"width\": " + QByteArray::number(size.width()) + ", \"height\": "
        + QByteArray::number(size.height()) + '}';
    return out;
}

QByteArray cocoCategories(const QStringList& names, const QMap<QString, QStringList>& keypointOrder)
{
    QByteArray out;
    for (int i = 0; i < names.size(); ++i) {
        if (i)
            out += ",\n";
        out += "{\"id\": " + QByteArray::number(i + 1) + ", \"name\": ";
        appendJsonString(out, names.at(i));
        out += ", \"supercategory\": \"none\"";
        const auto order = keypointOrder.constFind(names.at(i));
        if (order != keypointOrder.constEnd()) {
            out += ", \"keypoints\": [";
            for (int k = 0; k < order->size(); ++k) {
                if (k)
                    out += ", ";
                appendJsonString(out, order->at(k));
            }
            out += "], \"skeleton\": []";
        }
        out += '}';
    }
    return out;
}

struct CocoFile::Private {
    QString path;
    QString temp;
    QFile file;
    QByteArray images;
    qint64 nextId = 1;
    bool anyAnnotation = false;
    bool finished = false;
};

CocoFile::CocoFile(const QString& path) : d(new Private)
{
    d->path = path;
    d->temp = path + QStringLiteral(".tmp%1").arg(qint64(::getpid()));
}

CocoFile::~CocoFile()
{
    if (!d->finished) {
        d->file.close();
        QFile::remove(d->temp);
    }
    delete d;
}

bool CocoFile::open(QString* error)
{
    d->file.setFileName(d->temp);
    if (!d->file.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || d->file.write(kHeader) != kHeader.size()) {
        *error = d->path + QStringLiteral(": ") + d->file.errorString();
        return false;
    }
    return true;
}

void CocoFile::addImage(const QByteArray& entry)
{
    if (!d->images.isEmpty())
        d->images += ",\n";
    d->images += entry;
}

void CocoFile::addAnnotation(const QByteArray& rest)
{
    QByteArray line = d->anyAnnotation ? ",\n{\"id\": " : "{\"id\": ";
    line += QByteArray::number(d->nextId++);
    line += ", ";
    line += rest;
    d->file.write(line);
    d->anyAnnotation = true;
}

bool CocoFile::finish(const QByteArray& categories, QString* error)
{
    QByteArray tail = closing(d->anyAnnotation, ",\n");
    tail += kImagesOpen + d->images + closing(!d->images.isEmpty(), ",\n");
    tail += kCategoriesOpen + categories + closing(!categories.isEmpty(), "\n}\n");
    d->file.write(tail);
    const bool written = d->file.flush() && d->file.error() == QFileDevice::NoError;
    d->file.close();
    if (!written || std::rename(QFile::encodeName(d->temp).constData(),
                                QFile::encodeName(d->path).constData()) != 0) {
        *error = d->path + QStringLiteral(": ") + d->file.errorString();
        return false;
    }
    d->finished = true;
    return true;
}

bool mergeCocoFiles(const QStringList& shardFiles, const QString& target, QString* error)
{
    std::vector<std::unique_ptr<QFile>> files;
    std::vector<Sections> sections(shardFiles.size());
    for (int i = 0; i < shardFiles.size(); ++i) {
        files.push_back(std::make_unique<QFile>(shardFiles.at(i)));
        QFile& file = *files.back();
        if (!file.open(QIODevice::ReadOnly)) {
            *error = shardFiles.at(i) + QStringLiteral(": ") + file.errorString();
            return false;
        }
        if (!readSections(file, &sections[i], error))
            return false;
        if (sections[i].categories != sections[0].categories) {
            *error = shardFiles.at(i) + QStringLiteral(" has other categories than ") + shardFiles.at(0);
            return false;
        }
        file.seek(sections[i].annotationsAt);
    }

    CocoFile out(target);
    if (!out.open(error))
        return false;
    // Every shard lists its images, and their annotations, in ascending image id: a
    // k-way merge gives the order of one run over all of them.
    std::vector<int> at(files.size(), 0);
    qint64 lastImage = -1;
    for (;;) {
        int pick = -1;
        qint64 pickId = 0;
        for (int i = 0; i < int(files.size()); ++i) {
            if (at[i] >= sections[i].images.size())
                continue;
            const qint64 id = numberAfter(sections[i].images.at(at[i]), "{\"id\": ");
            if (pick < 0 || id < pickId) {
                pick = i;
                pickId = id;
            }
        }
        if (pick < 0)
            break;
        if (pickId == lastImage) {
            *error = QStringLiteral("image %1 is in more than one shard").arg(pickId);
            return false;
        }
        lastImage = pickId;
        out.addImage(sections[pick].images.at(at[pick]++));
    }
    std::vector<QByteArray> pending(files.size());
    const auto next = [&](int i) {
        const QByteArray entry = entryOf(files[i]->readLine());
        pending[i] = entry.startsWith("{\"id\": ") ? entry : QByteArray();
    };
    for (int i = 0; i < int(files.size()); ++i)
        next(i);
    for (;;) {
        int pick = -1;
        qint64 pickId = 0;
        for (int i = 0; i < int(files.size()); ++i) {
            if (pending[i].isEmpty())
                continue;
            const qint64 id = numberAfter(pending[i], "\"image_id\": ");
            if (pick < 0 || id < pickId) {
                pick = i;
                pickId = id;
            }
        }
        if (pick < 0)
            break;
        const QByteArray& entry = pending[pick];
        const qsizetype rest = entry.indexOf(", \"image_id\": ");
        out.addAnnotation(entry.mid(rest + 2));
        next(pick);
    }
    return out.finish(sections[0].categories.join(",\n"), error);
}

} // namespace TrainingExport::Parts
