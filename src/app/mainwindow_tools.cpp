#include "app/mainwindow.h"

// Dataset tools of the Edit and Export / Import menus: split, box/keypoint conversion,
// collage.

void MainWindow::onConvertBBoxesToKeyPoints() {}
void MainWindow::onConvertKeyPointsToBBoxes() {}
void MainWindow::onExportSplit() {}
void MainWindow::onExportCollage() {}
