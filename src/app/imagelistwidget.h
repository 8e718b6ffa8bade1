#pragma once

#include <QListWidget>

#include "model/annotation.h"
#include "ui/imagelistdelegate.h"

class ImageListWidget : public QListWidget {
    Q_OBJECT
public:
    explicit ImageListWidget(QWidget* parent = nullptr);

    ImageListDelegate* delegate = nullptr;
    // The records the rows stand for, row i for record i: a row takes its file name
    // and tool tip from its record instead of keeping copies of its own.
    const QList<ImageAnnotations>* records = nullptr;

    // Appends `count` rows for the records from row count() on, in one step however
    // many there are.
    void appendRecordRows(int count);
    // Row `row` gets (or loses) the mark of an image with an annotation file, and its
    // tool tip.
    void setRowAnnotated(int row, bool annotated);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
};
