#pragma once

#include <QList>
#include <QStringList>
#include <QWidget>

#include "model/annotation.h"

class ImageListDelegate;
class QListWidget;

// Right-hand pane: one row per shape of the current image. Holds no data of its own;
// the main window refills it and the panel reports the user's wishes by signal.
class AnnotationsPanel : public QWidget {
    Q_OBJECT
public:
    explicit AnnotationsPanel(QWidget* parent = nullptr);

    void setLabelNames(const QList<QString>& names);
    void setBoxes(const QList<BoxAnnotation>& boxes);
    void setSelectedIndex(int index);

    QListWidget* listWidget() const { return m_list; }

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
    QListWidget* m_list = nullptr;
    ImageListDelegate* m_delegate = nullptr;
    bool m_updating = false;
    QStringList m_labelNames;
};
