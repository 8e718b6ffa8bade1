#pragma once

#include <QDialog>
#include <QString>

class QLineEdit;

// Asks for the pair of folders that make a dataset: the images folder and the
// annotations folder (created on OK when missing).
class LoadDataDialog : public QDialog {
    Q_OBJECT
public:
    LoadDataDialog(QWidget* parent, const QString& imagesFolder, const QString& annotationsFolder);

    QString imagesFolder() const;
    QString annotationsFolder() const;

    QLineEdit* imagesEdit = nullptr;
    QLineEdit* annotationsEdit = nullptr;

public Q_SLOTS:
    void onBrowseImages();
    void onBrowseAnnotations();
    void onAccept();
};
