#pragma once

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <utility>

#include <QFuture>
#include <QList>
#include <QSize>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include "model/annotation.h"

// Brings records that were never shown up to date with their files, so that a command
// working on the whole dataset (an export, a rename, the check) sees every shape on disk
// and not only those of the images opened so far. Files are read on every core; results
// are applied in the dataset's order, so the outcome is the one of a single-thread run.
namespace DatasetReading {

// Told the number of items done and the total; returning false stops the work (what was
// applied so far stays).
using Progress = std::function<bool(int done, int total)>;

// Calls work(i) for every i in [0, count) on the global thread pool, a batch at a time,
// and hands each result to apply(i, result) on the calling thread in ascending order of
// i. Only a few batches per thread are ahead of the one being applied, so memory stays
// bounded whatever the count. progress is called on the calling thread before the first
// batch and after each applied one. Returns false when progress stopped the run.
template <typename Result>
bool forEachOrdered(int count, const std::function<Result(int)>& work,
                    const std::function<void(int, Result&)>& apply, const Progress& progress = {})
{
    if (progress && !progress(0, count))
        return false;
    QThreadPool* pool = QThreadPool::globalInstance();
    const int threads = std::max(1, pool->maxThreadCount());
    const int batch = std::clamp(count / (threads * 32), 1, 32);
    const std::size_t ahead = std::size_t(threads) * 4;
    std::atomic<bool> stop{false};
    std::deque<std::pair<int, QFuture<QList<Result>>>> running;
    int next = 0;
    const auto submit = [&] {
        const int begin = next;
        const int end = std::min(count, begin + batch);
        next = end;
        running.emplace_back(begin, QtConcurrent::run(pool, [&work, &stop, begin, end] {
            QList<Result> out;
            out.reserve(end - begin);
            for (int i = begin; i < end && !stop.load(std::memory_order_relaxed); ++i)
                out.append(work(i));
            return out;
        }));
    };
    while (next < count && running.size() < ahead)
        submit();
    int done = 0;
    bool going = true;
    while (!running.empty()) {
        const int begin = running.front().first;
        QList<Result> results = running.front().second.result();
        running.pop_front();
        if (!going)
            continue; // let the batches still running finish before the locals go
        for (int k = 0; k < results.size(); ++k)
            apply(begin + k, results[k]);
        done += int(results.size());
        if (progress && !progress(done, count)) {
            going = false;
            stop = true;
            continue;
        }
        if (next < count)
            submit();
    }
    return going;
}

struct Options {
    // Also give every record that holds shapes but no size the size of its image, read
    // from the file header (oriented), as the canvas would store it.
    bool imageSizes = false;
};

struct Outcome {
    int done = 0;
    bool cancelled = false;
    // Records whose file stopped at an XML error; they keep the shapes read before it.
    QList<int> incomplete;
};

// What reading one record found.
struct RecordRead {
    bool loaded = false;  // the annotation file was read (shapes below replace none)
    bool partial = false; // ... and stopped at an XML error
    QList<BoxAnnotation> boxes;
    QSize size;           // valid when an image size was read
};

// Indices of the records the reading would touch: those holding no shapes whose
// annotation file exists and, with imageSizes, those holding shapes without a size.
QList<int> recordsToRead(const QList<ImageAnnotations>& images, const Options& options);

// Reads one record as readRecords would, without changing it.
RecordRead readRecord(const ImageAnnotations& record, const Options& options);

// Reads the given records in parallel without changing them: result k belongs to
// indices[k]. *cancelled (when given) tells whether progress stopped the reading; the
// list then holds only the records read before.
QList<RecordRead> readAll(const QList<ImageAnnotations>& images, const QList<int>& indices,
                          const Options& options, const Progress& progress = {},
                          bool* cancelled = nullptr);

// Puts what readAll found into the records, in order.
Outcome apply(QList<ImageAnnotations>& images, const QList<int>& indices,
              const QList<RecordRead>& reads);

// Appends to `labels` the names the window's label scan finds in the records' annotation
// files (the names of the shapes of records that hold some), in dataset order, each with
// the palette colour of its position. Returns false when progress stopped it.
bool scanLabels(const QList<ImageAnnotations>& images, QList<LabelDef>& labels,
                const Progress& progress = {});

// readAll, then apply: the annotation file of a record holding no shapes (as showing the
// image would), then its image size when asked for.
Outcome readRecords(QList<ImageAnnotations>& images, const QList<int>& indices,
                    const Options& options, const Progress& progress = {});

} // namespace DatasetReading
