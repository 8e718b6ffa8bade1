#include "app/mainwindow.h"

// Dataset tools of the Edit and Export / Import menus; filled in as each command lands.

void MainWindow::onExtractVideoFrames() {}
void MainWindow::onYoloInference() {}
void MainWindow::onYoloAnnotateVideo() {}
void MainWindow::onConvertBBoxesToKeyPoints() {}
void MainWindow::onConvertKeyPointsToBBoxes() {}
void MainWindow::onExportSplit() {}
void MainWindow::onExportCollage() {}
