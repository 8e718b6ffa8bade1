#pragma once

#include <QListWidget>

#include "ui/imagelistdelegate.h"

class ImageListWidget : public QListWidget {
    Q_OBJECT
public:
    explicit ImageListWidget(QWidget* parent = nullptr);

    ImageListDelegate* delegate = nullptr;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
};
