#include "app/proposalreview.h"

#include <QFileInfo>
#include <QKeyEvent>
#include <QListWidget>
#include <QStatusBar>

#include <algorithm>

#include "app/imagelistwidget.h"
#include "app/mainwindow.h"
#include "canvas/imagecanvas.h"
#include "model/labelpalette.h"
#include "model/vocxml.h"
#include "ui/userprompts.h"

namespace {

// The sidecar folder is listed in slices of this many entries, so that the marks of a
// large dataset never hold up the first image or the event loop.
constexpr int kListSlice = 2000;
constexpr int kFirstListDelayMs = 60; // after the first image is on the screen
constexpr int kListIntervalMs = 20;

QString fileName(const QString& path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

// The proposal selected when a list is shown afresh: the most confident.
int mostConfident(const QList<Proposal>& proposals)
{
    const auto best = std::max_element(proposals.cbegin(), proposals.cend(), [](const Proposal& a, const Proposal& b) {
        return a.confidence < b.confidence;
    });
    return best == proposals.cend() ? -1 : int(best - proposals.cbegin());
}

template <typename T>
void trimTo(QList<T>& stack, qsizetype size)
{
    while (stack.size() > size)
        stack.removeFirst();
}

} // namespace

ProposalReview::ProposalReview(MainWindow* window) : QObject(window), w(window)
{
    connect(&m_listing, &QTimer::timeout, this, &ProposalReview::listSome);
    connect(w->canvas, &ImageCanvas::proposalAccepted, this, &ProposalReview::onProposalTaken);
    connect(w->canvas, &ImageCanvas::proposalAcceptRequested, this, &ProposalReview::acceptAt);
    connect(w->canvas, &ImageCanvas::proposalRejectRequested, this, &ProposalReview::rejectAt);
    w->imageList->delegate->rowMarked = [this](int row) { return hasOpen(row); };
}

bool ProposalReview::hasCurrentImage() const
{
    return w->currentIndex >= 0 && w->currentIndex < w->images.size();
}

bool ProposalReview::hasOpen(int row) const
{
    return row >= 0 && row < w->images.size() && m_store.hasOpen(w->images.at(row).xmlPath);
}

// --- Session hooks -------------------------------------------------------------------------

void ProposalReview::datasetOpened()
{
    m_store.open(w->annotationsFolder);
    m_current.clear();
    m_undo.clear();
    m_redo.clear();
    m_rowByName.clear();
    m_store.startListing();
    m_listing.start(kFirstListDelayMs);
}

void ProposalReview::listSome()
{
    m_listing.setInterval(kListIntervalMs);
    if (m_store.listSome(kListSlice))
        m_listing.stop();
    w->imageList->viewport()->update();
}

void ProposalReview::imageShown()
{
    m_undo.clear();
    m_redo.clear();
    m_beforeChange.reset();
    m_current = hasCurrentImage() ? m_store.proposalsFor(w->images.at(w->currentIndex).xmlPath)
                                  : QList<Proposal>();
    w->canvas->setProposals(m_current, mostConfident(m_current));
}

void ProposalReview::historyPushed()
{
    m_beforeChange.emplace(m_undo, m_redo);
    m_undo.append(m_current);
    trimTo(m_undo, w->undoStack.size());
    m_redo.clear();
}

void ProposalReview::historyCancelled()
{
    if (!m_beforeChange)
        return;
    m_undo = m_beforeChange->first;
    m_redo = m_beforeChange->second;
    m_beforeChange.reset();
}

void ProposalReview::stepBack()
{
    m_beforeChange.reset();
    if (m_undo.isEmpty())
        return;
    m_redo.append(m_current);
    trimTo(m_redo, w->redoStack.size());
    const QList<Proposal> previous = m_undo.takeLast();
    setCurrent(previous, mostConfident(previous));
}

void ProposalReview::stepForward()
{
    m_beforeChange.reset();
    if (m_redo.isEmpty())
        return;
    m_undo.append(m_current);
    trimTo(m_undo, w->undoStack.size());
    const QList<Proposal> next = m_redo.takeLast();
    setCurrent(next, mostConfident(next));
}

// --- Review --------------------------------------------------------------------------------

void ProposalReview::setCurrent(const QList<Proposal>& proposals, int selected)
{
    if (!hasCurrentImage())
        return;
    const ImageAnnotations& record = w->images.at(w->currentIndex);
    m_current = proposals;
    m_store.set(record.xmlPath, fileName(record.imagePath), proposals);
    w->canvas->setProposals(proposals, std::min<int>(selected, proposals.size() - 1));
    repaintRow(w->currentIndex);
}

// The shapes join the current image's as one edit: saved as every edit is.
void ProposalReview::addShapes(const QList<BoxAnnotation>& added)
{
    bool labelsAdded = false;
    for (const BoxAnnotation& shape : added)
        labelsAdded |= LabelPalette::appendIfMissing(w->labels, shape.label);
    if (labelsAdded) {
        w->applyLabels();
        w->saveLabelConfig();
    }
    QList<BoxAnnotation> shapes = w->canvas->boxes();
    shapes += added;
    w->canvas->setBoxes(shapes);
    w->images[w->currentIndex].boxes = shapes;
    w->saveAnnotationsFor(w->currentIndex);
    w->refreshAnnotationsPanel();
    w->updateImageListItem(w->currentIndex);
    w->updateStatusLabel();
}

void ProposalReview::acceptAt(int index, const QString& label)
{
    if (!hasCurrentImage() || index < 0 || index >= m_current.size())
        return;
    w->pushUndo();
    QList<Proposal> rest = m_current;
    BoxAnnotation shape = rest.takeAt(index).shape;
    if (!label.isEmpty())
        shape.label = label;
    addShapes({shape});
    setCurrent(rest, index);
    reportWriteFailures();
}

void ProposalReview::acceptAll()
{
    if (!hasCurrentImage() || m_current.isEmpty())
        return;
    w->pushUndo();
    QList<BoxAnnotation> shapes;
    for (const Proposal& p : std::as_const(m_current))
        shapes.append(p.shape);
    addShapes(shapes);
    setCurrent({}, -1);
    reportWriteFailures();
}

void ProposalReview::rejectAt(int index)
{
    if (!hasCurrentImage() || index < 0 || index >= m_current.size())
        return;
    w->pushUndo();
    QList<Proposal> rest = m_current;
    rest.removeAt(index);
    setCurrent(rest, index);
    reportWriteFailures();
}

void ProposalReview::rejectAll()
{
    if (!hasCurrentImage() || m_current.isEmpty())
        return;
    w->pushUndo();
    setCurrent({}, -1);
    reportWriteFailures();
}

// A drag has already made the proposal a shape on the canvas; the release saves it.
void ProposalReview::onProposalTaken(int index)
{
    if (!hasCurrentImage() || index < 0 || index >= m_current.size())
        return;
    const QString label = m_current.at(index).shape.label;
    if (LabelPalette::appendIfMissing(w->labels, label)) {
        w->applyLabels();
        w->saveLabelConfig();
    }
    m_current.removeAt(index);
    const ImageAnnotations& record = w->images.at(w->currentIndex);
    m_store.set(record.xmlPath, fileName(record.imagePath), m_current);
    repaintRow(w->currentIndex);
}

void ProposalReview::showNextWithProposals(int step)
{
    const int count = w->images.size();
    for (int k = 1; k <= count; ++k) {
        const int row = ((w->currentIndex + k * step) % count + count) % count;
        if (hasOpen(row) && row != w->currentIndex) {
            w->imageList->setCurrentRow(row);
            return;
        }
    }
    w->statusBar()->showMessage(hasOpen(w->currentIndex)
                                    ? QStringLiteral("No other image has open proposals.")
                                    : QStringLiteral("No image has open proposals."),
                                4000);
}

bool ProposalReview::handleKey(QKeyEvent* event)
{
    const Qt::KeyboardModifiers mods = event->modifiers();
    const bool shift = mods.testFlag(Qt::ShiftModifier);
    if (mods.testFlag(Qt::ControlModifier) || mods.testFlag(Qt::AltModifier))
        return false;
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (m_current.isEmpty())
            return false;
        if (shift)
            acceptAll();
        else
            acceptAt(w->canvas->selectedProposal());
        return true;
    case Qt::Key_Delete:
    case Qt::Key_Backspace:
        if (!shift || m_current.isEmpty())
            return false;
        rejectAll();
        return true;
    case Qt::Key_N:
        showNextWithProposals(shift ? -1 : 1);
        return true;
    default:
        return false;
    }
}

// --- Runs ----------------------------------------------------------------------------------

bool ProposalReview::merge(const QString& imageName, QList<Proposal> proposals)
{
    int row = m_rowByName.value(imageName, -1);
    if (row < 0 || row >= w->images.size() || fileName(w->images.at(row).imagePath) != imageName) {
        m_rowByName.clear();
        for (int i = 0; i < w->images.size(); ++i)
            m_rowByName.insert(fileName(w->images.at(i).imagePath), i);
        row = m_rowByName.value(imageName, -1);
    }
    if (row < 0 || !QFileInfo::exists(w->images.at(row).imagePath))
        return false;

    // What the image already has is not proposed again.
    QList<BoxAnnotation> shapes = row == w->currentIndex ? w->canvas->boxes() : w->images.at(row).boxes;
    if (shapes.isEmpty() && QFileInfo::exists(w->images.at(row).xmlPath)) {
        ImageAnnotations stored = w->images.at(row);
        VocXml::load(stored);
        shapes = stored.boxes;
    }
    proposals.removeIf([&shapes](const Proposal& p) { return Proposals::repeatsShape(p.shape, shapes); });

    bool labelsAdded = false;
    for (const Proposal& p : std::as_const(proposals))
        labelsAdded |= LabelPalette::appendIfMissing(w->labels, p.shape.label);
    if (labelsAdded) {
        w->applyLabels();
        m_labelsAdded = true;
    }
    std::stable_sort(proposals.begin(), proposals.end(), [](const Proposal& a, const Proposal& b) {
        return a.confidence > b.confidence;
    });
    if (row == w->currentIndex) {
        // New proposals replace the old outright: no step back to those.
        w->undoStack.clear();
        w->redoStack.clear();
        m_undo.clear();
        m_redo.clear();
        setCurrent(proposals, 0);
    } else {
        m_store.set(w->images.at(row).xmlPath, imageName, proposals);
        repaintRow(row);
    }
    return true;
}

void ProposalReview::finishRun()
{
    if (m_labelsAdded)
        w->saveLabelConfig();
    m_labelsAdded = false;
    // The run's sidecars are written in the background: its failures are known only
    // once they are all done.
    m_store.flush();
    reportWriteFailures();
}

void ProposalReview::repaintRow(int row)
{
    if (QListWidgetItem* item = w->imageList->item(row))
        w->imageList->viewport()->update(w->imageList->visualItemRect(item));
}

void ProposalReview::reportWriteFailures()
{
    const QStringList failed = m_store.takeFailures();
    if (!failed.isEmpty())
        UserPrompts::current().warning(w, QStringLiteral("Save error"),
                                       QStringLiteral("Could not write:\n")
                                           + failed.join(QStringLiteral("\n\n")));
}
