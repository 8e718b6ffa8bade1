#pragma once

#include <QList>
#include <QMap>
#include <QPixmap>
#include <QPointF>
#include <QRect>
#include <QWidget>

#include "model/annotation.h"

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
    void setSelectedIndex(int index);
    BoxAnnotation selectedBox() const;
    void selectAll();
    void deleteSelected();
    void cancelWip();

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
    ShapeType currentShape() const { return m_currentShape; }
    DragMode dragMode() const { return m_dragMode; }
    bool spaceHeld() const { return m_spaceHeld; }

    // --- View transform ------------------------------------------------------------
    QPointF imageToWidget(const QPointF& p) const;
    QPointF widgetToImage(const QPointF& w) const;
    QRectF imageRectToWidget(const QRect& r) const;
    QPointF clampPtToImage(const QPointF& p) const;
    QRect clampToImage(const QRect& r) const;

    // Corners of a rotated box (centre, width, height, angle in degrees clockwise).
    static QList<QPointF> rotatedBoxCorners(const QPointF& centre, double w, double h,
                                            double angleDegrees);

    // Label given to new shapes; assigned directly by the main window.
    QString currentLabel = QStringLiteral("object");

Q_SIGNALS:
    void aboutToChange();
    void boxesChanged();
    void selectionChanged(int index);
    void drawingCoords(int left, int top, int right, int bottom);
    void labelChangeRequested(int index, const QString& label);

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

private:
    void recomputeFitScale();
    // Pans so that image point `target` sits in the widget's centre.
    void centreOn(const QPointF& target);
    // Union of the bounding rectangles of all shapes that have points (null if none).
    QRect shapesUnion() const;
    void updateCursor(const QPointF& widgetPos);
    void emitDrawingCoords();
    void clearDrawingCoords();

    // Painting (canvaspaint.cpp).
    void paintImageCounter(QPainter& p);
    void paintNoImageText(QPainter& p);
};
