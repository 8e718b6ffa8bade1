#pragma once

#include <QDialog>

#include "training/datasetcheck.h"

class QLabel;
class QSortFilterProxyModel;
class QTableView;
class CheckProblemsModel;

// The result of "Check Dataset...": a summary line and a table of the problems, sortable
// by severity, code and image. Double-clicking a row asks the window to open the image
// and select the shape. The dialog stays open beside the window while the user fixes
// what it lists.
class CheckDialog : public QDialog {
    Q_OBJECT
public:
    explicit CheckDialog(QWidget* parent = nullptr);

    void setReport(const DatasetCheck::Report& report);

    QTableView* table() const { return m_table; }

Q_SIGNALS:
    // `record` is the image's index in the dataset (-1 for an annotation file without
    // image), `image` its file name, `shape` the shape's index in the file or -1.
    void openRequested(int record, const QString& image, int shape);

private:
    void onActivated(const QModelIndex& index);

    QLabel* m_summary = nullptr;
    QTableView* m_table = nullptr;
    CheckProblemsModel* m_model = nullptr;
    QSortFilterProxyModel* m_sorted = nullptr;
};
