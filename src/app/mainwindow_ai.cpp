#include "app/mainwindow.h"

#include "ai/videoinferencedialog.h"
#include "ai/yoloannotatedialog.h"
#include "ui/userprompts.h"

// The AI commands of the Edit menu: YOLO models over videos. Neither changes the dataset.

void MainWindow::onYoloInference()
{
    QList<QString> names;
    for (const LabelDef& label : labels)
        names << label.name;
    VideoInferenceDialog dialog(names, this);
    UserPrompts::current().exec(&dialog);
}

void MainWindow::onYoloAnnotateVideo()
{
    YoloAnnotateDialog dialog(this);
    UserPrompts::current().exec(&dialog);
}
