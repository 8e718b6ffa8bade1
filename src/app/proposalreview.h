#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <optional>

#include "model/proposals.h"

class MainWindow;
class QKeyEvent;

// The review of a model's proposals in the main window: which images have open ones (the
// image list's marks), the current image's on the canvas, accepting them as shapes and
// rejecting them as edits with undo, and the results of a pre-labelling run merged in as
// they arrive. The proposals of the current image have an undo history of their own that
// moves in step with the window's.
class ProposalReview : public QObject {
    Q_OBJECT
public:
    explicit ProposalReview(MainWindow* window);

    // Session hooks: a dataset was (re)listed; an image was shown; a snapshot was pushed,
    // called off, undone or redone.
    void datasetOpened();
    void imageShown();
    void historyPushed();
    void historyCancelled();
    void stepBack();
    void stepForward();
    // Enter, Shift+Enter, Shift+Delete, N and Shift+N; false for every other key.
    bool handleKey(QKeyEvent* event);

    bool hasOpen(int row) const;
    // Replaces the open proposals of the session's image named imageName (new labels join
    // the label list). False when there is no such image or its file is gone.
    bool merge(const QString& imageName, QList<Proposal> proposals);
    // After a run: the label list is written if the run added to it.
    void finishRun();

    void acceptAt(int index, const QString& label = QString());
    void acceptAll();
    void rejectAt(int index);
    void rejectAll();
    // Shows the next (step 1) or previous (step -1) image with open proposals, wrapping.
    void showNextWithProposals(int step);

    ProposalStore& store() { return m_store; }

private:
    bool hasCurrentImage() const;
    void setCurrent(const QList<Proposal>& proposals, int selected);
    void addShapes(const QList<BoxAnnotation>& shapes);
    void onProposalTaken(int index);
    void listSome();
    void repaintRow(int row);
    void reportWriteFailures();

    MainWindow* w;
    ProposalStore m_store;
    QList<Proposal> m_current;
    QList<QList<Proposal>> m_undo;
    QList<QList<Proposal>> m_redo;
    std::optional<QPair<QList<QList<Proposal>>, QList<QList<Proposal>>>> m_beforeChange;
    QTimer m_listing;
    QHash<QString, int> m_rowByName;
    bool m_labelsAdded = false;
};
