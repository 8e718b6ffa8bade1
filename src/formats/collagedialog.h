#pragma once

#include <QDialog>

class QCheckBox;
class QLineEdit;
class QPushButton;

// Asks how many annotated images the collage shows and whether they are picked at
// random. Export keeps the dialog open, with the number corrected, while the number
// lies outside 1 .. maximum.
class CollageDialog : public QDialog {
    Q_OBJECT
public:
    // `maximum` is the number of annotated images; 1000 when it is not positive.
    explicit CollageDialog(int maximum, QWidget* parent = nullptr);

    // The number typed, limited to 1 .. maximum (1 when it is not a number).
    int imageCount() const;
    bool randomize() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void onExport();

    int m_maximum = 1000;
    QLineEdit* m_countEdit = nullptr;
    QCheckBox* m_randomCheck = nullptr;
    QPushButton* m_exportButton = nullptr;
};
