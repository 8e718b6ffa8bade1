#include "app/mainwindow.h"

// The AI commands of the Edit menu: YOLO models over videos.

void MainWindow::onYoloInference() {}
void MainWindow::onYoloAnnotateVideo() {}
