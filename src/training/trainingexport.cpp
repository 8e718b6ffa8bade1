#include "training/trainingexport.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <deque>
#include <memory>
#include <vector>

#include "formats/datasetreading.h"
#include "model/labelpalette.h"
#include "model/labelscan.h"
#include "model/shapegeometry.h"
#include "training/exportparts.h"
#include "training/imageinput.h"
#include "training/stablesplit.h"

namespace TrainingExport {

namespace {

using namespace Parts;
using StableSplit::Subset;

struct LayoutInfo {
    Layout layout;
    const char* name;
};
const LayoutInfo kLayouts[] = {
    {Layout::UltralyticsDetect, "ultralytics-detect"},
    {Layout::UltralyticsSegment, "ultralytics-segment"},
    {Layout::UltralyticsObb, "ultralytics-obb"},
    {Layout::UltralyticsPose, "ultralytics-pose"},
    {Layout::CocoInstances, "coco-instances"},
};

QString shardNoteName(const QString& shard)
{
    return QStringLiteral(".brindle-shard-%1.json").arg(shard);
}

QString cocoFileName(Subset subset, const QString& shard)
{
    return QStringLiteral("instances_") + StableSplit::subsetName(subset)
        + (shard.isEmpty() ? QString() : QLatin1Char('.') + shard) + QStringLiteral(".json");
}

QString reasonText(const QString& reason)
{
    static const QHash<QString, QString> texts = {
        {Reason::Degenerate, QStringLiteral("degenerate")},
        {Reason::Empty, QStringLiteral("empty after clipping to the image")},
        {Reason::NotOutline, QStringLiteral("not outlines (lines, keypoints, cuboids)")},
        {Reason::Keypoint, QStringLiteral("keypoints (no box of their own)")},
        {Reason::UnplacedKeypoint, QStringLiteral("keypoints near no shape of a class that uses them")},
        {Reason::UnknownLabel, QStringLiteral("labels not in the class list")},
        {Reason::UnreadableImage, QStringLiteral("on images that cannot be read")},
        {Reason::WriteFailed, QStringLiteral("could not be written")},
    };
    return texts.value(reason, reason);
}

QString reasonsText(const QMap<QString, int>& reasons)
{
    QStringList parts;
    for (auto it = reasons.cbegin(); it != reasons.cend(); ++it)
        parts << grouped(it.value()) + QLatin1Char(' ') + reasonText(it.key());
    return parts.join(QStringLiteral(", "));
}

QJsonObject countsJson(const QMap<QString, int>& counts)
{
    QJsonObject o;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        o.insert(it.key(), it.value());
    return o;
}

QMap<QString, int> countsFromJson(const QJsonObject& o)
{
    QMap<QString, int> counts;
    for (auto it = o.begin(); it != o.end(); ++it)
        counts.insert(it.key(), it.value().toInt());
    return counts;
}

int keypointCount(const Options& options)
{
    if (options.layout != Layout::UltralyticsPose)
        return -1;
    int k = 0;
    for (const QStringList& order : options.keypointOrder)
        k = std::max(k, int(order.size()));
    return k;
}

QStringList subsetsOf(bool testUsed)
{
    QStringList names = {QStringLiteral("train"), QStringLiteral("val")};
    if (testUsed)
        names << QStringLiteral("test");
    return names;
}

struct ShapeOut {
    QString label;
    QByteArray body; // the label line after the class index, or the COCO fields
    bool clipped = false;
};

struct ImageWork {
    bool exported = false;
    QStringList scanNames;
    QString leftOut; // the image's reason, when it is left out
    int shapeCount = 0;
    Subset subset = Subset::Train;
    QSize size;
    bool turned = false;
    QList<ShapeOut> shapes;
    QMap<QString, int> shapesLeftOut;
    int keypointsPlaced = 0;
};

struct WriteJob {
    QString labelTarget; // empty for COCO
    QByteArray lines;
    QString imageSource;
    QString imageTarget;
    bool turned = false;
};

struct WriteResult {
    ImageWrite image = ImageWrite::Copied;
    QString error;
};

class Engine {
public:
    Engine(const QList<ImageAnnotations>& records, QList<LabelDef>& labels, const Options& options)
        : m_records(records), m_labels(labels), m_options(options),
          m_out(QDir::cleanPath(QFileInfo(options.outputFolder).absoluteFilePath())),
          m_keypoints(keypointCount(options))
    {
        for (int i = 0; i < labels.size(); ++i) {
            if (!m_index.contains(labels.at(i).name))
                m_index.insert(labels.at(i).name, i);
        }
        m_fixedLabels = QSet<QString>(m_index.keyBegin(), m_index.keyEnd());
        m_summary.layout = options.layout;
        m_summary.outputFolder = m_out;
        m_summary.testUsed = options.testPercent > 0;
    }

    Summary run(const Progress& progress)
    {
        if (m_options.layout == Layout::UltralyticsPose && m_keypoints < 1)
            return fail(QStringLiteral("ultralytics-pose needs keypoints: no class has a keypoint order"));
        if (!m_options.dryRun && !prepare())
            return m_summary;
        const bool whole = DatasetReading::forEachOrdered<ImageWork>(
            int(m_records.size()), [this](int i) { return work(i); },
            [this](int i, ImageWork& w) { apply(i, w); }, progress);
        flushWrites();
        while (!m_writes.empty())
            collectWrites();
        m_summary.cancelled = !whole;
        if (m_options.dryRun || !whole)
            return m_summary;
        syncFolder(m_out);
        finish();
        return m_summary;
    }

private:
    bool coco() const { return m_options.layout == Layout::CocoInstances; }

    Summary fail(const QString& error)
    {
        m_summary.ok = false;
        if (m_summary.error.isEmpty())
            m_summary.error = error;
        return m_summary;
    }

    QStringList names() const
    {
        QStringList list;
        for (const LabelDef& label : std::as_const(m_labels))
            list << label.name;
        return list;
    }

    bool prepare()
    {
        const QStringList kinds = coco() ? QStringList{QStringLiteral("images")}
                                         : QStringList{QStringLiteral("images"), QStringLiteral("labels")};
        QStringList folders;
        for (const QString& kind : kinds)
            for (const QString& subset : subsetsOf(m_summary.testUsed))
                folders << m_out + QLatin1Char('/') + kind + QLatin1Char('/') + subset;
        if (coco())
            folders << m_out + QStringLiteral("/annotations");
        for (const QString& folder : std::as_const(folders)) {
            if (!QDir().mkpath(folder)) {
                fail(QStringLiteral("Cannot create the folder ") + folder);
                return false;
            }
        }
        if (coco()) {
            for (int s = 0; s < (m_summary.testUsed ? 3 : 2); ++s) {
                m_coco[s] = std::make_unique<CocoFile>(
                    m_out + QStringLiteral("/annotations/") + cocoFileName(Subset(s), m_options.shard));
                QString error;
                if (!m_coco[s]->open(&error)) {
                    fail(error);
                    return false;
                }
            }
        }
        return true;
    }

    // Runs on the pool: everything of one image that does not need the label list.
    ImageWork work(int i) const
    {
        const ImageAnnotations& record = m_records.at(i);
        ImageWork w;
        if (!m_options.selected.isEmpty() && !m_options.selected.value(i)) {
            if (m_options.scanLabels) {
                if (record.boxes.isEmpty())
                    w.scanNames = scanLabelNames(record.xmlPath);
                for (const BoxAnnotation& shape : record.boxes)
                    w.scanNames << shape.label;
            }
            return w;
        }
        w.exported = true;
        ImageInput::Request request;
        request.scanNames = m_options.scanLabels;
        const ImageInput::Input in = ImageInput::read(record, request);
        w.scanNames = in.scanNames;
        if (in.image != ImageInput::ImageState::Readable || !in.imageSize.isValid()) {
            w.leftOut = Reason::UnreadableImage;
            w.shapeCount = int(in.shapes.size());
            return w;
        }
        w.subset = StableSplit::subsetOf(QFileInfo(record.imagePath).fileName(), m_options.seed,
                                         m_options.valPercent, m_options.testPercent);
        w.size = in.imageSize;
        w.turned = in.turned;
        convertShapes(in.shapes, w);
        return w;
    }

    void convertShapes(const QList<BoxAnnotation>& shapes, ImageWork& w) const
    {
        const Layout layout = m_options.layout;
        const QRectF image(0, 0, w.size.width(), w.size.height());
        const bool pose = layout == Layout::UltralyticsPose;
        const bool keypointsUsed = pose || (coco() && !m_options.keypointOrder.isEmpty());
        QList<bool> used(shapes.size(), false);
        for (const BoxAnnotation& shape : shapes) {
            if (shape.type == ShapeType::Keypoint)
                continue;
            // With a fixed class list, a label outside it is known here; a list that grows
            // with the scan holds every label of the file by the time it is applied.
            if (!m_options.scanLabels && !m_fixedLabels.contains(shape.label)) {
                ++w.shapesLeftOut[Reason::UnknownLabel];
                continue;
            }
            const Converted c = convert(shape, layout, image);
            if (!c.leftOut.isEmpty()) {
                ++w.shapesLeftOut[c.leftOut];
                continue;
            }
            ShapeOut out;
            out.label = shape.label;
            out.clipped = c.clipped;
            const auto order = m_options.keypointOrder.constFind(shape.label);
            QList<Slot> keypointSlots;
            if (keypointsUsed && order != m_options.keypointOrder.constEnd())
                keypointSlots = placeKeypoints(ShapeGeometry::bounds(shape), *order, shapes, image, used);
            if (coco())
                out.body = cocoAnnotationFields(
                    c, order != m_options.keypointOrder.constEnd() ? &keypointSlots : nullptr);
            else
                out.body = ultralyticsLine(layout, c, w.size, keypointSlots, m_keypoints);
            w.shapes.append(out);
        }
        const bool outlines = layout == Layout::UltralyticsSegment || layout == Layout::UltralyticsObb;
        for (int s = 0; s < shapes.size(); ++s) {
            if (shapes.at(s).type != ShapeType::Keypoint)
                continue;
            if (!keypointsUsed)
                ++w.shapesLeftOut[outlines ? Reason::NotOutline : Reason::Keypoint];
            else if (used.at(s))
                ++w.keypointsPlaced;
            else
                ++w.shapesLeftOut[Reason::UnplacedKeypoint];
        }
    }

    // Runs on the calling thread, in dataset order.
    void apply(int i, ImageWork& w)
    {
        for (const QString& name : std::as_const(w.scanNames)) {
            if (m_index.contains(name))
                continue;
            LabelPalette::appendIfMissing(m_labels, name);
            m_index.insert(name, int(m_labels.size()) - 1);
        }
        if (!w.exported)
            return;
        if (!w.leftOut.isEmpty()) {
            ++m_summary.imagesLeftOut[w.leftOut];
            if (w.shapeCount > 0)
                m_summary.shapesLeftOut[w.leftOut] += w.shapeCount;
            return;
        }
        for (auto it = w.shapesLeftOut.cbegin(); it != w.shapesLeftOut.cend(); ++it)
            m_summary.shapesLeftOut[it.key()] += it.value();
        m_summary.keypointsPlaced += w.keypointsPlaced;
        const int subset = int(w.subset);
        ++m_summary.images[subset];

        const ImageAnnotations& record = m_records.at(i);
        const QString fileName = QFileInfo(record.imagePath).fileName();
        const int imageId = i + 1;
        const bool writing = !m_options.dryRun;
        if (coco() && writing)
            m_coco[subset]->addImage(cocoImageEntry(imageId, fileName, w.size));
        QByteArray lines;
        for (const ShapeOut& shape : std::as_const(w.shapes)) {
            const auto index = m_index.constFind(shape.label);
            if (index == m_index.constEnd()) {
                ++m_summary.shapesLeftOut[Reason::UnknownLabel];
                continue;
            }
            ++m_summary.shapesWritten;
            m_summary.shapesClipped += shape.clipped;
            if (!writing)
                continue;
            if (coco()) {
                m_coco[subset]->addAnnotation(cocoAnnotationRest(imageId, *index + 1, shape.body));
            } else {
                lines += QByteArray::number(*index);
                lines += shape.body;
                lines += '\n';
            }
        }
        if (!writing)
            return;
        const QString subsetName = StableSplit::subsetName(w.subset);
        const QString imageTarget = m_out + QStringLiteral("/images/") + subsetName + QLatin1Char('/') + fileName;
        QString labelTarget;
        if (!coco()) {
            const int dot = fileName.lastIndexOf(QLatin1Char('.'));
            labelTarget = m_out + QStringLiteral("/labels/") + subsetName + QLatin1Char('/')
                + (dot < 0 ? fileName : fileName.left(dot)) + QStringLiteral(".txt");
        }
        submitWrite(labelTarget, lines, record.imagePath, imageTarget, w.turned);
    }

    // Writes go to the pool in batches, so that a task's start and end cost little
    // beside its files; their results are taken in order.
    void submitWrite(const QString& labelTarget, const QByteArray& lines, const QString& imageSource,
                     const QString& imageTarget, bool turned)
    {
        m_pending.push_back({labelTarget, lines, imageSource, imageTarget, turned});
        if (m_pending.size() >= kWriteBatch)
            flushWrites();
    }

    void flushWrites()
    {
        if (m_pending.empty())
            return;
        const std::size_t limit = std::size_t(std::max(1, QThreadPool::globalInstance()->maxThreadCount())) * 4;
        while (m_writes.size() >= limit)
            collectWrites();
        const bool link = m_options.images == ImageMode::Link;
        m_writes.push_back(QtConcurrent::run(QThreadPool::globalInstance(), [jobs = std::move(m_pending), link] {
            std::vector<WriteResult> results(jobs.size());
            for (std::size_t k = 0; k < jobs.size(); ++k) {
                const WriteJob& job = jobs[k];
                WriteResult& result = results[k];
                if (!job.labelTarget.isEmpty() && !writeFile(job.labelTarget, job.lines, &result.error)) {
                    result.image = ImageWrite::Failed;
                    continue;
                }
                result.image = writeImage(job.imageSource, job.imageTarget, link, job.turned, &result.error);
            }
            return results;
        }));
        m_pending = {};
        m_pending.reserve(kWriteBatch);
    }

    void collectWrites()
    {
        const std::vector<WriteResult> results = m_writes.front().result();
        m_writes.pop_front();
        for (const WriteResult& result : results) {
            switch (result.image) {
            case ImageWrite::Failed:
                ++m_summary.imagesLeftOut[Reason::WriteFailed];
                fail(result.error);
                break;
            case ImageWrite::Reoriented:
                ++m_summary.reoriented;
                break;
            case ImageWrite::CopiedForLink:
                ++m_summary.linkedAsCopies;
                break;
            default:
                break;
            }
        }
    }

    void finish()
    {
        QString error;
        if (!m_options.shard.isEmpty()) {
            for (auto& file : m_coco) {
                if (file && !file->finish(cocoCategories(names(), m_options.keypointOrder), &error))
                    fail(error);
            }
            QJsonObject note;
            note.insert(QStringLiteral("layout"), layoutName(m_options.layout));
            note.insert(QStringLiteral("names"), QJsonArray::fromStringList(names()));
            note.insert(QStringLiteral("test_used"), m_summary.testUsed);
            note.insert(QStringLiteral("keypoint_count"), m_keypoints);
            note.insert(QStringLiteral("summary"), m_summary.toJson());
            if (!writeFile(m_out + QLatin1Char('/') + shardNoteName(m_options.shard),
                           QJsonDocument(note).toJson(), &error))
                fail(error);
            return;
        }
        if (coco()) {
            for (auto& file : m_coco) {
                if (file && !file->finish(cocoCategories(names(), m_options.keypointOrder), &error))
                    fail(error);
            }
        } else if (!writeFile(m_out + QStringLiteral("/data.yaml"),
                              dataYaml(m_out, names(), m_summary.testUsed, m_keypoints), &error)) {
            fail(error);
        }
    }

    const QList<ImageAnnotations>& m_records;
    QList<LabelDef>& m_labels;
    const Options& m_options;
    const QString m_out;
    const int m_keypoints;
    QHash<QString, int> m_index; // label name -> class index (its first position)
    QSet<QString> m_fixedLabels;
    Summary m_summary;
    std::unique_ptr<CocoFile> m_coco[StableSplit::kSubsets];
    static constexpr std::size_t kWriteBatch = 32;
    std::vector<WriteJob> m_pending;
    std::deque<QFuture<std::vector<WriteResult>>> m_writes;
};

} // namespace

QString layoutName(Layout layout)
{
    for (const LayoutInfo& info : kLayouts)
        if (info.layout == layout)
            return QLatin1String(info.name);
    return {};
}

bool layoutFromName(const QString& name, Layout* layout)
{
    for (const LayoutInfo& info : kLayouts) {
        if (name == QLatin1String(info.name)) {
            *layout = info.layout;
            return true;
        }
    }
    return false;
}

QStringList layoutNames()
{
    QStringList names;
    for (const LayoutInfo& info : kLayouts)
        names << QLatin1String(info.name);
    return names;
}

int Summary::shapesLeftOutTotal() const
{
    int n = 0;
    for (int count : shapesLeftOut)
        n += count;
    return n;
}

QString Summary::text() const
{
    const auto count = [](int n, const char* word) {
        return grouped(n) + QLatin1Char(' ') + QLatin1String(word) + (n == 1 ? "" : "s");
    };
    QStringList lines;
    lines << QStringLiteral("%1 export to %2:").arg(layoutName(layout), outputFolder);
    QString written = QStringLiteral("%1 written (%2 train, %3 val")
                          .arg(count(imagesWritten(), "image"), grouped(images[0]), grouped(images[1]));
    if (testUsed)
        written += QStringLiteral(", %1 test").arg(grouped(images[2]));
    lines << written + QStringLiteral(").");
    lines << QStringLiteral("%1 written, %2 of them clipped to their image.")
                 .arg(count(shapesWritten, "shape"), grouped(shapesClipped));
    if (!shapesLeftOut.isEmpty())
        lines << QStringLiteral("%1 left out: %2.").arg(count(shapesLeftOutTotal(), "shape"), reasonsText(shapesLeftOut));
    else
        lines << QStringLiteral("No shape left out.");
    if (!imagesLeftOut.isEmpty()) {
        int n = 0;
        for (int c : imagesLeftOut)
            n += c;
        QStringList parts;
        for (auto it = imagesLeftOut.cbegin(); it != imagesLeftOut.cend(); ++it)
            parts << grouped(it.value()) + QLatin1Char(' ')
                    + (it.key() == Reason::UnreadableImage ? QStringLiteral("unreadable") : reasonText(it.key()));
        lines << QStringLiteral("%1 left out: %2.").arg(count(n, "image"), parts.join(QStringLiteral(", ")));
    }
    if (keypointsPlaced > 0)
        lines << QStringLiteral("%1 placed.").arg(count(keypointsPlaced, "keypoint"));
    if (reoriented > 0)
        lines << QStringLiteral("%1 written turned upright by their EXIF orientation.").arg(count(reoriented, "image"));
    if (linkedAsCopies > 0)
        lines << QStringLiteral("%1 copied: the file system refused hard links.").arg(count(linkedAsCopies, "image"));
    if (cancelled)
        lines << QStringLiteral("Cancelled: the export is incomplete.");
    if (!ok)
        lines << QStringLiteral("Error: ") + error;
    return lines.join(QLatin1Char('\n'));
}

QJsonObject Summary::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("layout"), layoutName(layout));
    o.insert(QStringLiteral("output"), outputFolder);
    o.insert(QStringLiteral("ok"), ok);
    o.insert(QStringLiteral("cancelled"), cancelled);
    o.insert(QStringLiteral("error"), error);
    QJsonObject perSubset;
    perSubset.insert(QStringLiteral("train"), images[0]);
    perSubset.insert(QStringLiteral("val"), images[1]);
    perSubset.insert(QStringLiteral("test"), images[2]);
    o.insert(QStringLiteral("images"), perSubset);
    o.insert(QStringLiteral("test_used"), testUsed);
    o.insert(QStringLiteral("images_left_out"), countsJson(imagesLeftOut));
    QJsonObject shapes;
    shapes.insert(QStringLiteral("written"), shapesWritten);
    shapes.insert(QStringLiteral("clipped"), shapesClipped);
    shapes.insert(QStringLiteral("left_out"), shapesLeftOutTotal());
    o.insert(QStringLiteral("shapes"), shapes);
    o.insert(QStringLiteral("shapes_left_out"), countsJson(shapesLeftOut));
    o.insert(QStringLiteral("keypoints_placed"), keypointsPlaced);
    o.insert(QStringLiteral("reoriented"), reoriented);
    o.insert(QStringLiteral("linked_as_copies"), linkedAsCopies);
    return o;
}

Summary Summary::fromJson(const QJsonObject& json)
{
    Summary s;
    layoutFromName(json.value(QStringLiteral("layout")).toString(), &s.layout);
    s.outputFolder = json.value(QStringLiteral("output")).toString();
    s.ok = json.value(QStringLiteral("ok")).toBool(true);
    s.cancelled = json.value(QStringLiteral("cancelled")).toBool();
    s.error = json.value(QStringLiteral("error")).toString();
    const QJsonObject images = json.value(QStringLiteral("images")).toObject();
    s.images[0] = images.value(QStringLiteral("train")).toInt();
    s.images[1] = images.value(QStringLiteral("val")).toInt();
    s.images[2] = images.value(QStringLiteral("test")).toInt();
    s.testUsed = json.value(QStringLiteral("test_used")).toBool();
    s.imagesLeftOut = countsFromJson(json.value(QStringLiteral("images_left_out")).toObject());
    const QJsonObject shapes = json.value(QStringLiteral("shapes")).toObject();
    s.shapesWritten = shapes.value(QStringLiteral("written")).toInt();
    s.shapesClipped = shapes.value(QStringLiteral("clipped")).toInt();
    s.shapesLeftOut = countsFromJson(json.value(QStringLiteral("shapes_left_out")).toObject());
    s.keypointsPlaced = json.value(QStringLiteral("keypoints_placed")).toInt();
    s.reoriented = json.value(QStringLiteral("reoriented")).toInt();
    s.linkedAsCopies = json.value(QStringLiteral("linked_as_copies")).toInt();
    return s;
}

void Summary::add(const Summary& other)
{
    ok = ok && other.ok;
    cancelled = cancelled || other.cancelled;
    if (error.isEmpty())
        error = other.error;
    for (int s = 0; s < 3; ++s)
        images[s] += other.images[s];
    testUsed = testUsed || other.testUsed;
    for (auto it = other.imagesLeftOut.cbegin(); it != other.imagesLeftOut.cend(); ++it)
        imagesLeftOut[it.key()] += it.value();
    shapesWritten += other.shapesWritten;
    shapesClipped += other.shapesClipped;
    for (auto it = other.shapesLeftOut.cbegin(); it != other.shapesLeftOut.cend(); ++it)
        shapesLeftOut[it.key()] += it.value();
    keypointsPlaced += other.keypointsPlaced;
    reoriented += other.reoriented;
    linkedAsCopies += other.linkedAsCopies;
}

Summary run(const QList<ImageAnnotations>& records, QList<LabelDef>& labels,
            const Options& options, const Progress& progress)
{
    Engine engine(records, labels, options);
    return engine.run(progress);
}

bool merge(const QString& outputFolder, Summary* summary, QString* error)
{
    const QString out = QDir::cleanPath(QFileInfo(outputFolder).absoluteFilePath());
    const QStringList notes = QDir(out).entryList({QStringLiteral(".brindle-shard-*.json")},
                                                  QDir::Files | QDir::Hidden, QDir::Name);
    if (notes.isEmpty()) {
        *error = QStringLiteral("no shards to merge in ") + out;
        return false;
    }
    QJsonObject first;
    QStringList shards;
    Summary total;
    for (const QString& note : notes) {
        QFile file(out + QLatin1Char('/') + note);
        const QJsonObject json = file.open(QIODevice::ReadOnly)
            ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
        if (json.isEmpty()) {
            *error = file.fileName() + QStringLiteral(": cannot be read");
            return false;
        }
        if (first.isEmpty()) {
            first = json;
        } else {
            for (const char* key : {"layout", "names", "test_used", "keypoint_count"}) {
                if (json.value(QLatin1String(key)) != first.value(QLatin1String(key))) {
                    *error = QStringLiteral("the shards %1 and %2 differ in their %3")
                                 .arg(notes.first(), note, QLatin1String(key));
                    return false;
                }
            }
        }
        shards << note.mid(15, note.size() - 15 - 5); // ".brindle-shard-" NAME ".json"
        total.add(Summary::fromJson(json.value(QStringLiteral("summary")).toObject()));
    }
    Layout layout;
    if (!layoutFromName(first.value(QStringLiteral("layout")).toString(), &layout)) {
        *error = QStringLiteral("unknown layout in ") + notes.first();
        return false;
    }
    total.layout = layout;
    total.outputFolder = out;
    const bool testUsed = first.value(QStringLiteral("test_used")).toBool();
    QStringList names;
    for (const QJsonValue& name : first.value(QStringLiteral("names")).toArray())
        names << name.toString();

    if (layout == Layout::CocoInstances) {
        for (int s = 0; s < (testUsed ? 3 : 2); ++s) {
            QStringList files;
            for (const QString& shard : std::as_const(shards))
                files << out + QStringLiteral("/annotations/") + cocoFileName(Subset(s), shard);
            if (!mergeCocoFiles(files, out + QStringLiteral("/annotations/") + cocoFileName(Subset(s), QString()), error))
                return false;
            for (const QString& file : std::as_const(files))
                QFile::remove(file);
        }
    } else {
        const QByteArray yaml = dataYaml(out, names, testUsed,
                                         first.value(QStringLiteral("keypoint_count")).toInt(-1));
        if (!writeFile(out + QStringLiteral("/data.yaml"), yaml, error))
            return false;
    }
    for (const QString& note : notes)
        QFile::remove(out + QLatin1Char('/') + note);
    syncFolder(out);
    *summary = total;
    return true;
}

QMap<QString, QStringList> defaultKeypointOrder(const QList<ImageAnnotations>& records,
                                                const Progress& progress)
{
    using Kinds = std::pair<QSet<QString>, QSet<QString>>; // box labels, keypoint labels
    Kinds all;
    DatasetReading::forEachOrdered<Kinds>(
        int(records.size()),
        [&](int i) {
            const ImageAnnotations& record = records.at(i);
            const QList<BoxAnnotation> shapes = record.boxes.isEmpty()
                ? DatasetReading::readRecord(record, DatasetReading::Options()).boxes
                : record.boxes;
            Kinds kinds;
            for (const BoxAnnotation& shape : shapes) {
                if (shape.type == ShapeType::BoundingBox)
                    kinds.first.insert(shape.label);
                else if (shape.type == ShapeType::Keypoint)
                    kinds.second.insert(shape.label);
            }
            return kinds;
        },
        [&](int, Kinds& kinds) {
            all.first.unite(kinds.first);
            all.second.unite(kinds.second);
        },
        progress);
    QStringList classes(all.first.cbegin(), all.first.cend());
    QStringList keypoints(all.second.cbegin(), all.second.cend());
    classes.sort(Qt::CaseSensitive);
    keypoints.sort(Qt::CaseSensitive);
    QMap<QString, QStringList> order;
    if (keypoints.isEmpty())
        return order;
    for (const QString& name : std::as_const(classes))
        order.insert(name, keypoints);
    return order;
}

} // namespace TrainingExport
