#include "cli/commands.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <cstdio>
#include <unistd.h>

#include "formats/converterrules.h"
#include "formats/datasetreading.h"
#include "formats/exportimport.h"
#include "model/datasetfolders.h"
#include "model/labelcolorfile.h"
#include "model/labelpalette.h"
#include "training/datasetcheck.h"
#include "training/trainingexport.h"

namespace Commands {

namespace {

void print(FILE* stream, const QString& text)
{
    std::fputs(text.toUtf8().constData(), stream);
    std::fflush(stream);
}

void printJson(const QJsonObject& json)
{
    print(stdout, QString::fromUtf8(QJsonDocument(json).toJson(QJsonDocument::Indented)));
}

// Progress on stderr: rewritten in place on a terminal, a line every few seconds in a log.
class ProgressLine {
public:
    explicit ProgressLine(const QString& what)
        : m_what(what), m_terminal(::isatty(STDERR_FILENO)) { m_timer.start(); }
    ~ProgressLine()
    {
        if (m_shown && m_terminal)
            print(stderr, QStringLiteral("\n"));
    }

    // Quiet for short runs: the first line comes after a while, the last one only when
    // others came before it.
    bool operator()(int done, int total)
    {
        const qint64 every = m_terminal ? 200 : 5000;
        const bool last = done == total;
        if (last ? !m_shown || m_finished : m_timer.elapsed() - m_last < every)
            return true;
        m_finished = last;
        m_last = m_timer.elapsed();
        m_shown = true;
        print(stderr, QStringLiteral("%1brindle-convert: %2 %3 / %4 images%5")
                          .arg(m_terminal ? QStringLiteral("\r") : QString(), m_what,
                               QString::number(done), QString::number(total),
                               m_terminal ? QString() : QStringLiteral("\n")));
        return true;
    }

    DatasetReading::Progress callback()
    {
        return [this](int done, int total) { return (*this)(done, total); };
    }

private:
    QString m_what;
    bool m_terminal;
    QElapsedTimer m_timer;
    qint64 m_last = 0;
    bool m_shown = false;
    bool m_finished = false;
};

struct Dataset {
    QString images;
    QString annotations;
    QStringList files;
    QList<ImageAnnotations> records;
};

bool openDataset(const QString& images, const QString& annotations, Dataset* dataset)
{
    dataset->images = QDir::cleanPath(QFileInfo(images).absoluteFilePath());
    dataset->annotations = QDir::cleanPath(QFileInfo(annotations).absoluteFilePath());
    if (!QFileInfo(dataset->images).isDir()) {
        fail(images + QStringLiteral(": no such folder"));
        return false;
    }
    if (!QFileInfo(dataset->annotations).isDir()) {
        fail(annotations + QStringLiteral(": no such folder"));
        return false;
    }
    dataset->files = DatasetFolders::listImageFiles(dataset->images);
    dataset->records = DatasetFolders::records(dataset->images, dataset->annotations, dataset->files);
    return true;
}

// The list a window starts from on opening the dataset: the default label, then the
// label file's.
QList<LabelDef> initialLabels(const QString& annotations)
{
    QList<LabelDef> labels = {LabelPalette::defaultLabel()};
    LabelColorFile::merge(LabelColorFile::pathIn(annotations), labels);
    return labels;
}

// Names one a line, kept as written (only line ends and blank lines go).
bool readNameList(const QString& path, const char* what, QStringList* names)
{
    QStringList lines;
    if (!QFileInfo(path).isFile() || !ConverterRules::readTextLines(path, &lines)) {
        fail(path + QStringLiteral(": cannot read the %1").arg(QLatin1String(what)));
        return false;
    }
    for (QString line : std::as_const(lines)) {
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
        if (!line.trimmed().isEmpty())
            names->append(line);
    }
    if (names->isEmpty()) {
        fail(path + QStringLiteral(": the %1 is empty").arg(QLatin1String(what)));
        return false;
    }
    return true;
}

bool readClasses(const QString& path, QList<LabelDef>* labels)
{
    QStringList names;
    if (!readNameList(path, "class list", &names))
        return false;
    labels->clear();
    for (const QString& name : std::as_const(names))
        labels->append({name, LabelPalette::colorForIndex(int(labels->size()))});
    return true;
}

// One flag per record: whether LIST names its image.
bool readSelection(const QString& path, const Dataset& dataset, QList<bool>* selected)
{
    QStringList names;
    if (!readNameList(path, "file list", &names))
        return false;
    QHash<QString, int> index;
    for (int i = 0; i < dataset.files.size(); ++i)
        index.insert(dataset.files.at(i), i);
    *selected = QList<bool>(dataset.files.size(), false);
    for (const QString& line : std::as_const(names)) {
        const QString name = line.contains(QLatin1Char('/')) ? QFileInfo(line).fileName() : line;
        const auto it = index.constFind(name);
        if (it == index.constEnd()) {
            fail(path + QStringLiteral(": \"%1\" is not an image of %2").arg(name, dataset.images));
            return false;
        }
        (*selected)[*it] = true;
    }
    return true;
}

QString problemLine(const DatasetCheck::Problem& p)
{
    return p.image + (p.shape >= 0 ? QStringLiteral(":%1").arg(p.shape) : QString())
        + QStringLiteral(": ") + DatasetCheck::severityName(p.severity) + QStringLiteral(": ")
        + p.code + QStringLiteral(": ") + p.message + u'\n';
}

bool isPart6Format(const QString& layout)
{
    static const QStringList formats = {QStringLiteral("yolo"), QStringLiteral("coco"),
                                        QStringLiteral("dota"), QStringLiteral("csv"),
                                        QStringLiteral("classes"), QStringLiteral("yolo-pose")};
    return formats.contains(layout);
}

// The classes and keypoint order the pose export dialog proposes, with --kp-order applied.
bool poseSetup(const QList<ImageAnnotations>& records, const Arguments& args,
               const QList<LabelDef>* classes, QStringList* classList,
               QMap<QString, QStringList>* order)
{
    QSet<QString> boxes, keypoints;
    for (const ImageAnnotations& record : records) {
        for (const BoxAnnotation& shape : record.boxes) {
            if (shape.type == ShapeType::BoundingBox)
                boxes.insert(shape.label);
            else if (shape.type == ShapeType::Keypoint)
                keypoints.insert(shape.label);
        }
    }
    QStringList keypointList(keypoints.cbegin(), keypoints.cend());
    keypointList.sort(Qt::CaseSensitive);
    if (classes) {
        for (const LabelDef& label : *classes)
            classList->append(label.name);
    } else {
        *classList = QStringList(boxes.cbegin(), boxes.cend());
        classList->sort(Qt::CaseSensitive);
    }
    if (classList->isEmpty()) {
        fail(QStringLiteral("yolo-pose: no bounding box in the dataset"));
        return false;
    }
    for (const QString& name : std::as_const(*classList))
        order->insert(name, keypointList);
    for (auto it = args.keypointOrder.cbegin(); it != args.keypointOrder.cend(); ++it) {
        if (!classList->contains(it.key())) {
            fail(QStringLiteral("--kp-order: \"%1\" is not a class of the export").arg(it.key()));
            return false;
        }
        order->insert(it.key(), it.value());
    }
    return true;
}

int exportPart6(const Arguments& args, Dataset& dataset, QList<LabelDef>& labels, bool fixedClasses)
{
    for (const QString& option : args.given) {
        const bool applies = option == QLatin1String("--classes") || option == QLatin1String("--files")
            || (option == QLatin1String("--kp-order") && args.layout == QLatin1String("yolo-pose"));
        if (!applies)
            return fail(option + QStringLiteral(" does not apply to ") + args.layout);
    }
    if (!fixedClasses) {
        ProgressLine progress(QStringLiteral("scanning labels of"));
        DatasetReading::scanLabels(dataset.records, labels, progress.callback());
    }
    QList<ImageAnnotations> records = dataset.records;
    if (!args.filesList.isEmpty()) {
        QList<bool> selected;
        if (!readSelection(args.filesList, dataset, &selected))
            return Failed;
        QList<ImageAnnotations> chosen;
        for (int i = 0; i < records.size(); ++i)
            if (selected.at(i))
                chosen.append(records.at(i));
        records = chosen;
    }
    const bool pose = args.layout == QLatin1String("yolo-pose");
    if (args.layout != QLatin1String("classes")) {
        DatasetReading::Options options;
        options.imageSizes = pose;
        ProgressLine progress(QStringLiteral("reading"));
        DatasetReading::readRecords(records, DatasetReading::recordsToRead(records, options),
                                    options, progress.callback());
    }

    const QString out = args.out;
    ExportImportResult result;
    if (args.layout == QLatin1String("yolo")) {
        result = ExportImport::exportYolo(records, labels, out);
    } else if (args.layout == QLatin1String("coco")) {
        result = ExportImport::exportCoco(records, labels, out);
    } else if (args.layout == QLatin1String("dota")) {
        result = ExportImport::exportDota(records, out);
    } else if (args.layout == QLatin1String("csv")) {
        result = ExportImport::exportCsv(records, out);
    } else if (args.layout == QLatin1String("classes")) {
        result = ExportImport::exportObjectNames(labels, out);
    } else {
        QStringList classList;
        QMap<QString, QStringList> order;
        if (!poseSetup(records, args, fixedClasses ? &labels : nullptr, &classList, &order))
            return Failed;
        result = ExportImport::exportYoloPose(records, order, classList, out);
    }
    if (args.json) {
        QJsonObject json;
        json.insert(QStringLiteral("format"), args.layout);
        json.insert(QStringLiteral("ok"), result.ok);
        json.insert(QStringLiteral("message"), result.message);
        json.insert(QStringLiteral("count"), result.count);
        printJson(json);
    } else if (result.ok) {
        print(stdout, result.message + u'\n');
    }
    if (!result.ok)
        return fail(result.message.simplified());
    return Done;
}

int exportTraining(const Arguments& args, TrainingExport::Layout layout, Dataset& dataset,
                   QList<LabelDef>& labels, bool fixedClasses)
{
    TrainingExport::Options options;
    options.layout = layout;
    options.outputFolder = args.out;
    options.valPercent = args.valPercent;
    options.testPercent = args.testPercent;
    options.seed = args.seed;
    options.images = args.link ? TrainingExport::ImageMode::Link : TrainingExport::ImageMode::Copy;
    options.scanLabels = !fixedClasses;
    options.shard = args.shard;
    if (!args.filesList.isEmpty() && !readSelection(args.filesList, dataset, &options.selected))
        return Failed;
    if (QFileInfo(args.out).exists() && !QFileInfo(args.out).isDir())
        return fail(args.out + QStringLiteral(": not a folder"));

    if (!args.keypointOrder.isEmpty()) {
        options.keypointOrder = args.keypointOrder;
    } else if (layout == TrainingExport::Layout::UltralyticsPose) {
        ProgressLine progress(QStringLiteral("finding keypoint labels in"));
        options.keypointOrder = TrainingExport::defaultKeypointOrder(dataset.records, progress.callback());
        if (options.keypointOrder.isEmpty())
            return fail(QStringLiteral("ultralytics-pose: the dataset has no bounding box with keypoints; "
                                       "give the order with --kp-order"));
    }

    TrainingExport::Summary summary;
    {
        ProgressLine progress(QStringLiteral("exporting"));
        summary = TrainingExport::run(dataset.records, labels, options, progress.callback());
    }
    if (args.json)
        printJson(summary.toJson());
    else
        print(stdout, summary.text() + u'\n');
    if (!summary.ok)
        return fail(summary.error);
    return Done;
}

} // namespace

int fail(const QString& message)
{
    print(stderr, QStringLiteral("brindle-convert: ") + message + u'\n');
    return Failed;
}

int check(const Arguments& args)
{
    Dataset dataset;
    if (!openDataset(args.images, args.annotations, &dataset))
        return Failed;
    QList<LabelDef> labels = initialLabels(dataset.annotations);
    DatasetCheck::Options options;
    options.scanLabels = true;
    options.decodeImages = args.full;
    DatasetCheck::Report report;
    {
        ProgressLine progress(QStringLiteral("checking"));
        report = DatasetCheck::run(dataset.records, labels, dataset.annotations, options,
                                   progress.callback());
    }
    if (args.json) {
        printJson(report.toJson());
    } else {
        QString text;
        for (const DatasetCheck::Problem& p : std::as_const(report.problems))
            text += problemLine(p);
        print(stdout, text + report.summary() + u'\n');
    }
    return report.errors() > 0 ? CheckFailed : Done;
}

int exportDataset(const Arguments& args)
{
    TrainingExport::Layout layout;
    const bool training = TrainingExport::layoutFromName(args.layout, &layout);
    if (!training && !isPart6Format(args.layout))
        return fail(QStringLiteral("unknown layout \"%1\"; one of %2, yolo, coco, dota, csv, classes, yolo-pose")
                        .arg(args.layout, TrainingExport::layoutNames().join(QStringLiteral(", "))));
    Dataset dataset;
    if (!openDataset(args.images, args.annotations, &dataset))
        return Failed;
    QList<LabelDef> labels = initialLabels(dataset.annotations);
    const bool fixedClasses = !args.classesFile.isEmpty();
    if (fixedClasses && !readClasses(args.classesFile, &labels))
        return Failed;
    if (training)
        return exportTraining(args, layout, dataset, labels, fixedClasses);
    return exportPart6(args, dataset, labels, fixedClasses);
}

int merge(const Arguments& args)
{
    TrainingExport::Summary summary;
    QString error;
    if (!TrainingExport::merge(args.out, &summary, &error))
        return fail(QStringLiteral("merge: ") + error);
    if (args.json)
        printJson(summary.toJson());
    else
        print(stdout, summary.text() + u'\n');
    return summary.ok ? Done : fail(summary.error);
}

} // namespace Commands
