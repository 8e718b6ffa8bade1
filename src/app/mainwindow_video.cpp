#include "app/mainwindow.h"

// Video frame extraction from the Edit menu.

void MainWindow::onExtractVideoFrames() {}
