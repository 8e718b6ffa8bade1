// Throughput of the annotation files: saving (atomic, synced to disk), and loading
// compared with merely tokenizing the same files with QXmlStreamReader.

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QXmlStreamReader>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>

#include "model/vocxml.h"

namespace {

constexpr int kFiles = 10000;
constexpr int kShapes = 20;
constexpr int kRepeats = 3;

BoxAnnotation randomShape(QRandomGenerator& rng, int i)
{
    auto coord = [&rng](double max) { return rng.bounded(max * 100) / 100.0; };
    auto point = [&] { return QPointF(coord(1920), coord(1080)); };
    static const char* const labels[] = {"car", "person", "traffic light", "bicycle", "dog"};
    BoxAnnotation b;
    b.label = QString::fromLatin1(labels[rng.bounded(5)]);
    b.type = ShapeType(i % 7);
    switch (b.type) {
    case ShapeType::BoundingBox:
    case ShapeType::Line:
        b.points = {point(), point()};
        break;
    case ShapeType::Polygon:
        for (int k = 0; k < 6; ++k)
            b.points << point();
        break;
    case ShapeType::Keypoint:
        b.points = {point()};
        b.visible = rng.bounded(2) == 1;
        break;
    case ShapeType::RotatedBox:
        b.angle = coord(360) - 180;
        b.points = rotatedBoxCorners(point(), coord(300), coord(200), b.angle);
        break;
    case ShapeType::Cuboid:
        for (int k = 0; k < 8; ++k)
            b.points << point();
        break;
    case ShapeType::Ellipse:
        b.points = {point(), QPointF(coord(200), coord(100))};
        b.angle = coord(180);
        break;
    }
    return b;
}

struct Rate {
    double wall = 0; // files per second of elapsed time
    double cpu = 0;  // files per second of this process's CPU time
};

// Best rates over up to kRepeats runs of `run`, which returns the number of files it
// handled, or -1 on failure. No further run is started once `budgetSeconds` have passed,
// so that a slow disk does not make the benchmark crawl.
bool measure(Rate& best, double budgetSeconds, const std::function<int()>& run)
{
    double spent = 0;
    int r = 0;
    for (; r < kRepeats && (r == 0 || spent < budgetSeconds); ++r) {
        QElapsedTimer timer;
        timer.start();
        const std::clock_t cpuStart = std::clock();
        const int count = run();
        if (count < 0)
            return false;
        const double cpuSeconds = double(std::clock() - cpuStart) / CLOCKS_PER_SEC;
        const double seconds = timer.nsecsElapsed() / 1e9;
        spent += seconds;
        best.wall = std::max(best.wall, count / seconds);
        best.cpu = std::max(best.cpu, count / std::max(cpuSeconds, 1e-9));
    }
    return true;
}

} // namespace

int main()
{
    QTemporaryDir dir;
    if (!dir.isValid()) {
        std::fprintf(stderr, "cannot create a temporary folder\n");
        return 1;
    }

    QRandomGenerator rng(7);
    QList<ImageAnnotations> records;
    records.reserve(kFiles);
    for (int f = 0; f < kFiles; ++f) {
        ImageAnnotations ann;
        ann.imagePath = QStringLiteral("/data/images/frame_%1.jpg").arg(f, 6, 10, QLatin1Char('0'));
        ann.width = 1920;
        ann.height = 1080;
        for (int s = 0; s < kShapes; ++s)
            ann.boxes << randomShape(rng, f + s);
        records << ann;
    }

    qint64 bytes = 0;
    Rate toXml;
    measure(toXml, 10, [&] {
        bytes = 0;
        for (const ImageAnnotations& ann : std::as_const(records))
            bytes += VocXml::toXml(ann, QStringLiteral("images")).size();
        return kFiles;
    });

    // Each round saves every record into a fresh folder, so every save creates a new
    // file. Beside each save the same bytes go through a bare QSaveFile into a second
    // folder: both see the same disk at the same moment, and the bare write shows what
    // the disk allows. A round stops early when the disk is too slow for kSaveLimit.
    constexpr double kSaveLimit = 25;
    QStringList paths;
    double saveRate = 0;
    double rawRate = 0;
    int saveRounds = 0;
    double spent = 0;
    for (int round = 0; round < kRepeats && (round == 0 || spent < 15); ++round, ++saveRounds) {
        const QString folder = dir.filePath(QStringLiteral("save%1").arg(round));
        const QString rawFolder = dir.filePath(QStringLiteral("raw%1").arg(round));
        if (!QDir().mkpath(folder) || !QDir().mkpath(rawFolder)) {
            std::fprintf(stderr, "cannot create folders\n");
            return 1;
        }
        paths.clear();
        qint64 saveNs = 0;
        qint64 rawNs = 0;
        QElapsedTimer roundTimer;
        roundTimer.start();
        for (ImageAnnotations& ann : records) {
            const QString name = QStringLiteral("/frame_%1.xml").arg(paths.size());
            ann.xmlPath = folder + name;
            const QByteArray bytes = VocXml::toXml(ann, QStringLiteral("images"));

            QElapsedTimer timer;
            timer.start();
            if (!VocXml::save(ann, QStringLiteral("images"))) {
                std::fprintf(stderr, "saving failed\n");
                return 1;
            }
            saveNs += timer.nsecsElapsed();

            timer.start();
            QSaveFile file(rawFolder + name);
            if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()
                || !file.commit()) {
                std::fprintf(stderr, "plain QSaveFile failed\n");
                return 1;
            }
            rawNs += timer.nsecsElapsed();

            paths << ann.xmlPath;
            if (paths.size() % 100 == 0 && roundTimer.elapsed() > kSaveLimit * 1000)
                break;
        }
        spent += roundTimer.elapsed() / 1000.0;
        if (saveNs > 0 && rawNs > 0) {
            saveRate = std::max(saveRate, paths.size() / (saveNs / 1e9));
            rawRate = std::max(rawRate, paths.size() / (rawNs / 1e9));
        }
    }

    // Tokenizing and loading alternate, so that a busy machine slows both alike.
    qint64 tokens = 0;
    Rate tokenize;
    Rate load;
    for (int r = 0; r < kRepeats; ++r) {
        const bool tokenized = measure(tokenize, 0, [&] {
            for (const QString& p : std::as_const(paths)) {
                QFile file(p);
                if (!file.open(QIODevice::ReadOnly))
                    return -1;
                QXmlStreamReader xml(file.readAll());
                while (!xml.atEnd()) {
                    xml.readNext();
                    ++tokens;
                }
                if (xml.hasError())
                    return -1;
            }
            return int(paths.size());
        });
        const bool loaded = measure(load, 0, [&] {
            for (const QString& p : std::as_const(paths)) {
                ImageAnnotations ann;
                ann.xmlPath = p;
                if (!VocXml::load(ann) || ann.boxes.size() != kShapes)
                    return -1;
            }
            return int(paths.size());
        });
        if (!tokenized || !loaded) {
            std::fprintf(stderr, "reading failed\n");
            return 1;
        }
    }

    auto verdict = [](bool ok) { return ok ? "met" : "NOT met"; };
    std::printf("vocxml.files: %d files of %d shapes, %.1f KB each on average\n", kFiles, kShapes,
                bytes / 1024.0 / kFiles);
    std::printf("vocxml.toXml: %.0f files/s (in memory, %.1f us each)\n", toXml.wall,
                1e6 / toXml.wall);
    std::printf("vocxml.save: %.0f files/s (best of %d rounds of %lld new files, each synced and "
                "renamed; target >= 2000: %s)\n",
                saveRate, saveRounds, qlonglong(paths.size()), verdict(saveRate >= 2000));
    if (paths.size() < kFiles)
        std::printf("vocxml.save: the disk is slow; rounds stopped after %.0f s\n", kSaveLimit);
    std::printf("vocxml.qsavefile: %.0f files/s (the same bytes through a bare QSaveFile, "
                "interleaved with the saves: what the disk allows)\n",
                rawRate);
    std::printf("vocxml.tokenize: %.0f files/s (%.0f per CPU second; QXmlStreamReader alone, "
                "file read included)\n",
                tokenize.wall, tokenize.cpu);
    std::printf("vocxml.load: %.0f files/s (%.0f per CPU second)\n", load.wall, load.cpu);
    const double wallRatio = 100.0 * load.wall / tokenize.wall;
    const double cpuRatio = 100.0 * load.cpu / tokenize.cpu;
    std::printf("vocxml.load/tokenize: %.0f %% elapsed, %.0f %% CPU (target >= 80 %%: %s)\n",
                wallRatio, cpuRatio, verdict(std::max(wallRatio, cpuRatio) >= 80));
    return 0;
}
