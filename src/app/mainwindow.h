#pragma once

#include <QList>
#include <QMainWindow>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

#include "model/annotation.h"

class AnnotationsPanel;
class CheckDialog;
class ImageCanvas;
class ImageListWidget;
class ProposalReview;
class QComboBox;
class QLabel;
class QToolButton;

// The single window: toolbar, menus, the three panes (image list, canvas, annotations
// panel), the status line, and the dataset session.
//
// Implementation by concern: mainwindow.cpp (construction and wiring),
// mainwindow_session.cpp (loading, showing, saving, undo), mainwindow_labelfile.cpp,
// mainwindow_keys.cpp (keyboard and window events), mainwindow_labels.cpp (label list,
// combos), mainwindow_labelops.cpp (label changes across the dataset),
// mainwindow_exportimport.cpp, mainwindow_tools.cpp (split, conversions, collage),
// mainwindow_training.cpp (dataset check, export for training),
// mainwindow_video.cpp (video frames), mainwindow_ai.cpp (YOLO over videos),
// mainwindow_prelabel.cpp (YOLO over the dataset; the review is ProposalReview's).
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    // Opens a dataset as if the user had accepted the Load Data dialog with these
    // folders. An empty annotations folder means IMAGES_DIR/annotations. Returns false
    // (after telling the user) when the annotations folder cannot be created.
    bool openDataset(const QString& imagesDir, const QString& annotationsDir = QString());

    // Session operations.
    bool requireDataLoaded();
    void rebuildImageList();
    void updateImageListItem(int row);
    void loadImageAt(int row);
    void saveAnnotationsFor(int index);
    // Writes the files of several images with one disk flush for all of them. Each file
    // that cannot be written gets its own "Save error" when reportEach is set; the
    // failures are returned as "path" + line break + reason.
    QStringList saveAnnotationsForAll(const QList<int>& indices, bool reportEach = true);
    void pushUndo();
    void refreshAnnotationsPanel();
    void updateStatusLabel();
    void loadLabelConfig();
    void saveLabelConfig();
    void applyLabels();
    void copySelection();
    void paste();
    // Adds the label names found in the dataset's annotation files to the label list.
    void syncClassComboFromAnnotations();
    // Reports an import's result and brings the canvas, list and labels up to date.
    void doAfterImport(bool ok, const QString& message);
    // Reads the annotation file of every record that holds no shapes (and, with
    // imageSizes, the image size of every record with shapes but no size) under a
    // progress dialog shown when it takes long. False when the user cancelled.
    // *incomplete (when given) lists the records whose file stopped at an XML error.
    bool readWholeDataset(bool imageSizes, QList<int>* incomplete = nullptr);

    // Widgets the window talks to.
    ImageListWidget* imageList = nullptr;
    AnnotationsPanel* annotationsPanel = nullptr;
    QComboBox* classCombo = nullptr;
    QToolButton* autoZoomButton = nullptr;
    QComboBox* createCombo = nullptr;
    ImageCanvas* canvas = nullptr;
    QLabel* statusLabel = nullptr;
    // Notes at the right of the status bar: a file changed by another program, a file
    // read only in part ... Each stays for a while.
    QLabel* statusNote = nullptr;
    void showStatusNote(const QString& text);
    ProposalReview* proposalReview = nullptr;
    // The result of the last dataset check; made on the first check.
    CheckDialog* checkDialog = nullptr;

    // Dataset session state.
    QString imagesFolder;
    QString annotationsFolder;
    QList<ImageAnnotations> images;
    int currentIndex = -1;
    int scanIndex = 0;
    QList<BoxAnnotation> clipboard;
    QList<QList<BoxAnnotation>> undoStack;
    QList<QList<BoxAnnotation>> redoStack;
    QList<LabelDef> labels;
    bool autoZoom = false;

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private Q_SLOTS:
    void onLoadData();
    void onReloadData();
    void scanNextBatch();
    void onSaveCurrent();
    void onImageRowChanged(int row);
    void onCanvasBoxesChanged();
    void onCanvasSelectionChanged(int index);
    void onDrawingCoords(int left, int top, int right, int bottom);
    void onAnnotationSelected(int index);
    void onAnnotationDeleteRequested(int index);
    void onLabelChangeRequested(int index, const QString& label);
    void onUndo();
    void onRedo();
    void onNextImage();
    void onPrevImage();
    void onToggleAutoZoom();
    void onRemoveImageRequested(int row);
    void onClassComboChanged(const QString& text);
    void onRenameLabel();
    void onRemoveLabel();
    void onExtractVideoFrames();
    void onYoloInference();
    void onYoloAnnotateVideo();
    void onPrelabel();
    void onConvertBBoxesToKeyPoints();
    void onConvertKeyPointsToBBoxes();
    void onExportYoloPose();
    void onImportObjectNames();
    void onExportYolo();
    void onImportYolo();
    void onExportCoco();
    void onImportCoco();
    void onExportDota();
    void onImportDota();
    void onExportCsv();
    void onImportCsv();
    void onExportSplit();
    void onExportObjectNames();
    void onExportCollage();
    void onCheckDataset();
    void onExportForTraining();
    void syncCurrentBoxes();
    void onCreateComboChanged(const QString& text);
    void onManageLabels();
    void onCanvasChangeCancelled();

private:
    void buildToolbar();
    void buildCentralArea();
    bool hasCurrentImage() const { return currentIndex >= 0 && currentIndex < images.size(); }
    // Deletes a record's XML file (after its last shape went) and clears `dirty`; what has
    // to be kept of it first is kept (see AnnotationStore).
    void removeAnnotationFile(ImageAnnotations& record);
    // Deletes the XML file of the current image after its last shape went.
    void removeFileOfEmptiedImage();
    // Shows the snapshot `shapes` on the canvas and writes (or removes) the file.
    void restoreSnapshot(const QList<BoxAnnotation>& shapes);
    void selectImageRow(int row);
    // Shows the image of a check result and selects its shape.
    void openCheckedShape(int record, const QString& image, int shape);
    // Empties the canvas and the annotations panel.
    void showNoImage();
    // Tells once per file, in the status bar, that the file of the image shown was read
    // only in part or not at all.
    void noteLoadProblem(const ImageAnnotations& record, const QString& refusal, int errorLine);
    void noteOutcome(const QString& xmlPath, const QString& theirsPath);
    void reportSaveError(const QString& xmlPath, const QString& reason);
    // The row Prev and Next step from: the one the list highlights, which after an image
    // failed to load is not the image shown.
    int navigationRow() const;
    // At close, after the write-all: whether to quit although some images' files could not
    // be written (`failures` as saveAnnotationsForAll returns them).
    bool confirmQuitWithUnsaved(const QStringList& failures);

    // Label names the background scan found so far, in order; they join the label list
    // when the scan ends.
    QStringList scanFound;
    QSet<QString> scanFoundSet;
    QStringList statusNotes;
    QSet<QString> toldAboutFile;
    bool labelFileDamaged = false;

    // Undo and redo as they were before the last snapshot, so that a change the canvas
    // calls off leaves no step behind; dropped by every other change of the history.
    struct History {
        QList<QList<BoxAnnotation>> undo;
        QList<QList<BoxAnnotation>> redo;
    };
    std::optional<History> historyBeforeChange;
};
