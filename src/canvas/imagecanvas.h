#pragma once

#include <QList>
#include <QMap>
#include <QPixmap>
#include <QPointF>
#include <QRect>
#include <QWidget>

#include <memory>
#include <optional>

#include "model/annotation.h"
#include "model/proposals.h"

// The centre pane: shows the current image, maps image <-> widget pixels, zooms and
// pans, paints the shapes and lets the user draw and edit them. It keeps its own copy
// of the current image's shapes; the main window hands them in with setBoxes and reads
// them back after boxesChanged. The canvas never touches files.
//
// The implementation is split by concern: imagecanvas.cpp (state, view, zoom and pan),
// canvashittest.cpp, canvaspaint.cpp, canvasinput.cpp.
class ImageCanvas : public QWidget {
    Q_OBJECT
public:
    enum DragMode : int {
        None = 0,
        Pan = 1,
        MoveAll = 2,
        CreateDrag = 3,
        Handle = 4,
        Move = 5,
        PlacePoints = 6,
        CreateLine = 7,
        Rotate = 8,
    };

    explicit ImageCanvas(QWidget* parent = nullptr);

    // --- Called by the main window -------------------------------------------------
    void setImage(const QPixmap& pixmap);
    // Shows `pixmap` for an image of `fullSize` pixels: a photo larger than the view may
    // come reduced first. Shapes and the view work in full-resolution pixels throughout.
    void setImage(const QPixmap& pixmap, const QSize& fullSize);
    // The full resolution of the image shown arrived: the view stays where it is and
    // only the pixels get finer. Ignored when the size is not that of the image shown.
    void setFullResolution(const QPixmap& full);
    void setBoxes(const QList<BoxAnnotation>& boxes);
    void setImageInfo(int index, int count);
    void setLabelColors(const QMap<QString, QColor>& colors);
    void setLabelNames(const QList<QString>& names);
    void setCurrentShape(ShapeType type);
    void setSpaceHeld(bool held);

    void zoomIn();
    void zoomOut();
    void zoomFit();
    void zoomToAnnotations(int border);

    // Selection and editing operations.
    void deselect();
    void setSelectedIndex(int index);
    BoxAnnotation selectedBox() const;
    void selectAll();
    void deleteSelected();
    void cancelWip();
    // Closes the polygon or cuboid in progress (dropped when it has too few points).
    void finaliseWip();

    // --- Read access ---------------------------------------------------------------
    const QList<BoxAnnotation>& boxes() const { return m_boxes; }
    int selectedIndex() const { return m_selectedIndex; }
    bool allSelected() const { return m_allSelected; }
    double scale() const { return m_scale; }
    double zoom() const { return m_zoom; }
    QPointF offset() const { return m_offset; }
    QPointF pan() const { return m_pan; }
    bool hasImage() const { return !m_pixmap.isNull(); }
    const QPixmap& pixmap() const { return m_pixmap; }
    // Size of the image in full-resolution pixels, whatever the pixmap shown.
    QSize imageSize() const { return m_imageSize; }
    bool hasFullResolution() const { return hasImage() && m_pixmap.size() == m_imageSize; }
    ShapeType currentShape() const { return m_currentShape; }
    DragMode dragMode() const { return m_dragMode; }
    bool spaceHeld() const { return m_spaceHeld; }
    // The one-line hint painted in the bottom-right corner.
    QString hintText() const;

    // --- View transform ------------------------------------------------------------
    QPointF imageToWidget(const QPointF& p) const;
    QPointF widgetToImage(const QPointF& w) const;
    QRectF imageRectToWidget(const QRect& r) const;
    QPointF clampPtToImage(const QPointF& p) const;
    QRect clampToImage(const QRect& r) const;

    // --- Hit testing (widget positions) ----------------------------------------------
    // Handle number of shape `index` under the position, or -1.
    int hitTestHandle(const QPointF& pos, int index) const;
    // 0 on the rotation handle of shape `index` (rotated boxes and ellipses), else -1.
    int hitTestRotHandle(const QPointF& pos, int index) const;
    // Index of the smallest shape under the position, or -1.
    int hitTestBox(const QPointF& pos) const;
    // Whether the position is on the selected shape or its label badge.
    bool hitSelectedBox(const QPointF& pos) const;

    // Corners of a rotated box (centre, width, height, angle in degrees clockwise).
    static QList<QPointF> rotatedBoxCorners(const QPointF& centre, double w, double h,
                                            double angleDegrees);

    // --- Proposals (canvasproposals.cpp) ----------------------------------------------
    // Shapes a model proposed, drawn dashed with their confidence until the main window
    // takes them over as shapes or drops them. One may be selected: Delete rejects it,
    // and dragging it or one of its handles turns it into a shape being moved or resized.
    void setProposals(const QList<Proposal>& proposals, int selected = -1);
    const QList<Proposal>& proposals() const { return m_proposals; }
    int selectedProposal() const { return m_selectedProposal; }
    // Index of the smallest proposal under a widget position, or -1.
    int hitTestProposal(const QPointF& pos) const;

    // Label given to new shapes; assigned directly by the main window.
    QString currentLabel = QStringLiteral("object");

Q_SIGNALS:
    void aboutToChange();
    void boxesChanged();
    void selectionChanged(int index);
    void drawingCoords(int left, int top, int right, int bottom);
    void labelChangeRequested(int index, const QString& label);
    // The change announced by the last aboutToChange() will not come (Escape during a
    // creating drag): the shapes are as they were before it.
    void changeCancelled();
    // A drag took proposal `index` over: it is now the last shape, selected and being
    // edited, announced by aboutToChange() before and boxesChanged() at the release.
    void proposalAccepted(int index);
    // Double-click or the context menu: accept (with `label`, or its own when empty).
    void proposalAcceptRequested(int index, const QString& label);
    // Delete with the proposal selected, or the context menu.
    void proposalRejectRequested(int index);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;

public:
    // State shared by the view, hit testing, painting and input code. Public for
    // reading by the main window (the shape list and the selection) and by tests.
    QPixmap m_pixmap;
    QSize m_imageSize;
    // The image reduced to about the view's size, while the full resolution is awaited
    // and afterwards, to paint the fitted view from.
    QPixmap m_reducedPixmap;
    QList<BoxAnnotation> m_boxes;
    ShapeType m_currentShape = ShapeType::BoundingBox;
    QMap<QString, QColor> m_labelColors;
    QList<QString> m_labelNames;
    double m_scale = 1.0;
    double m_zoom = 1.0;
    QPointF m_fitOffset;
    QPointF m_pan;
    QPointF m_offset;
    int m_selectedIndex = -1;
    bool m_allSelected = false;
    DragMode m_dragMode = None;
    int m_activeHandle = -1;
    QPointF m_dragStart;
    QRect m_dragOrigRect;
    QList<QPointF> m_dragOrigPoints;
    QList<QPointF> m_wipPoints;
    QPointF m_hoverImagePos;
    QPointF m_panStartMouse;
    QPointF m_panStartPan;
    bool m_spaceHeld = false;
    int m_imageIndex = 0;
    int m_imageCount = 0;
    QList<Proposal> m_proposals;
    int m_selectedProposal = -1;
    int m_pendingProposal = -1; // pressed, taken over at the first move
    QPointF m_pendingPress;

private:
    bool hasValidSelection() const;
    void recomputeFitScale();
    // Zoom 1, no pan, fitted.
    void resetView();
    // Pans so that image point `target` sits in the widget's centre.
    void centreOn(const QPointF& target);
    // What zoomIn/zoomOut keep in the centre: the selected shape, all shapes, or the image.
    QPointF zoomTarget() const;
    // Union of the bounding rectangles of all shapes that have points (none if no shape
    // has any). A keypoint's rectangle has no extent, so this is not QRect::united.
    std::optional<QRect> shapesUnion() const;
    // Widget rectangle of a shape: the bounding rectangle of its points, mapped.
    QRectF shapeWidgetRect(const BoxAnnotation& box) const;
    void updateCursor(const QPointF& widgetPos);
    void emitDrawingCoords();
    void clearDrawingCoords();

    // Input (canvasinput.cpp).
    void startPan(const QPointF& widgetPos);
    void rightPress(const QPointF& widgetPos);
    void leftPress(const QPointF& widgetPos);
    void selectForMove(int index, const QPointF& imagePos);
    void startEdit(DragMode mode, const QPointF& imagePos);
    void placePoint(const QPointF& imagePos);
    void createShape(const QPointF& imagePos);
    void dragTo(const QPointF& imagePos);
    void finishCreate();
    void finishEdit(DragMode mode);
    bool nudgeSelected(int key, Qt::KeyboardModifiers modifiers);

    // Proposals (canvasproposals.cpp).
    bool validProposal(int index) const { return index >= 0 && index < m_proposals.size(); }
    bool onSelectedProposal(const QPointF& pos);
    bool proposalPress(const QPointF& pos);
    void takePendingProposal();
    bool proposalDoubleClick(const QPointF& pos);
    bool proposalMenu(const QPointF& pos);
    void drawProposals(QPainter& p) const;
    QString proposalHint() const;

    // Painting (canvaspaint.cpp).
    struct PaintCache;
    void paintImage(QPainter& p, const QRect& exposed);
    void paintImageCounter(QPainter& p);
    void paintNoImageText(QPainter& p);
    void paintHint(QPainter& p);
    void drawAnnotation(QPainter& p, const BoxAnnotation& box, bool selected) const;
    void drawWipShape(QPainter& p) const;
    // Scaled copy of the image, pens and text layouts per label, kept between paints.
    std::shared_ptr<PaintCache> m_paintCache;
};
