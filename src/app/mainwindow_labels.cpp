#include "app/mainwindow.h"

#include <QComboBox>
#include <QIcon>
#include <QMap>
#include <QPixmap>
#include <QSignalBlocker>

#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "labels/labellistmodel.h"

void MainWindow::applyLabels()
{
    if (!canvas || !classCombo)
        return;

    QMap<QString, QColor> colors;
    QList<QString> names;
    for (const LabelDef& label : labels) {
        colors.insert(label.name, label.color); // a later duplicate wins
        names.append(label.name);
    }
    canvas->setLabelColors(colors);
    canvas->setLabelNames(names);
    if (annotationsPanel)
        annotationsPanel->setLabelNames(names);

    const QString previous = classCombo->currentText();
    {
        // Refilling must not reach onClassComboChanged, which would drop the selection.
        const QSignalBlocker blocker(classCombo);
        if (auto* model = qobject_cast<LabelListModel*>(classCombo->model()))
            model->setLabels(labels);
        int index = -1;
        for (int i = 0; i < labels.size(); ++i) {
            if (labels.at(i).name == previous) {
                index = i;
                break;
            }
        }
        classCombo->setCurrentIndex(index >= 0 ? index : 0);
    }
    canvas->currentLabel = classCombo->currentText();
}

void MainWindow::onClassComboChanged(const QString& text)
{
    if (!canvas)
        return;
    canvas->currentLabel = text;

    const bool singleSelected =
        canvas->m_selectedIndex >= 0 && canvas->m_selectedIndex < canvas->m_boxes.size();
    if (!singleSelected && !canvas->m_allSelected)
        return;
    // Deselect so that the next drag draws a new shape with the new label instead of
    // editing the selected one.
    if (canvas->m_allSelected) {
        canvas->m_allSelected = false;
        canvas->m_selectedIndex = -1;
        canvas->update();
    } else {
        canvas->setSelectedIndex(-1);
    }
    if (annotationsPanel)
        annotationsPanel->setSelectedIndex(-1);
}

void MainWindow::onCreateComboChanged(const QString& text)
{
    if (!canvas)
        return;
    // First word found wins; anything else draws bounding boxes.
    static const struct {
        const char* word;
        ShapeType type;
    } kinds[] = {
        {"Polygon", ShapeType::Polygon}, {"Line", ShapeType::Line},
        {"Keypoint", ShapeType::Keypoint}, {"Rotated", ShapeType::RotatedBox},
        {"Cuboid", ShapeType::Cuboid}, {"Ellipse", ShapeType::Ellipse},
    };
    ShapeType type = ShapeType::BoundingBox;
    for (const auto& kind : kinds) {
        if (text.contains(QLatin1String(kind.word), Qt::CaseSensitive)) {
            type = kind.type;
            break;
        }
    }
    canvas->setCurrentShape(type);
}
