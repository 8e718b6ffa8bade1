#pragma once

#include <QDialog>
#include <QList>

#include "model/annotation.h"

class QLineEdit;
class QListWidget;
class QListWidgetItem;

// Edits a copy of the label list: add, rename in place, recolour, reorder by dragging,
// delete one row or all. The caller takes result() after the dialog was accepted.
class LabelsDialog : public QDialog {
    Q_OBJECT
public:
    LabelsDialog(const QList<LabelDef>& labels, QWidget* parent = nullptr);

    // The rows from top to bottom; rows without a name are left out. (Hides
    // QDialog::result(), which remains reachable through a QDialog pointer.)
    QList<LabelDef> result() const;

    QListWidget* listWidget() const { return m_list; }
    QLineEdit* nameEdit() const { return m_nameEdit; }

public Q_SLOTS:
    void onAddLabel();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void appendRow(const QString& name, const QColor& color);
    void onDeleteAll();

    QListWidget* m_list = nullptr;
    QLineEdit* m_nameEdit = nullptr;
};
