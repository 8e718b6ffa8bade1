#pragma once

#include <QList>
#include <QStringList>
#include <QWidget>

#include "model/annotation.h"

class ImageListDelegate;
class QListView;
class ShapeListModel;

// Right-hand pane: one row per shape of the current image. Holds no data of its own;
// the main window refills it and the panel reports the user's wishes by signal.
//
// The rows are a model over the shape list handed in, so an image with 100,000s of
// shapes is shown, and refilled after each edit, without making a row object per shape.
class AnnotationsPanel : public QWidget {
    Q_OBJECT
public:
    explicit AnnotationsPanel(QWidget* parent = nullptr);

    void setLabelNames(const QList<QString>& names);
    void setBoxes(const QList<BoxAnnotation>& boxes);
    void setSelectedIndex(int index);

    QListView* listView() const { return m_list; }
    int rowCount() const;
    QString rowText(int row) const;
    QString rowToolTip(int row) const;
    // The list's current row, -1 when there is none.
    int currentRow() const;

Q_SIGNALS:
    void selectionRequested(int row);
    void deleteRequested(int row);
    void labelChangeRequested(int row, const QString& label);

public Q_SLOTS:
    void onContextMenu(const QPoint& pos);
    void onRowChanged(int row);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QListView* m_list = nullptr;
    ShapeListModel* m_model = nullptr;
    ImageListDelegate* m_delegate = nullptr;
    bool m_updating = false;
    QStringList m_labelNames;
};
