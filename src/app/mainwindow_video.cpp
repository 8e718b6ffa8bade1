#include "app/mainwindow.h"

#include "ui/userprompts.h"
#include "video/toollocator.h"
#include "video/videoframedialog.h"
#include "video/videopickerdialog.h"

// Video frame extraction from the Edit menu.

namespace {

constexpr int kPresenceCheckTimeoutMs = 3000;

} // namespace

void MainWindow::onExtractVideoFrames()
{
    const QString ffmpeg = locateTool(QStringLiteral("ffmpeg"));
    if (!runTool(ffmpeg, {QStringLiteral("-version")}, kPresenceCheckTimeoutMs).succeeded()) {
        UserPrompts::current().warning(
            this, QStringLiteral("FFmpeg not found"),
            QStringLiteral("FFmpeg is required for video frame extraction but was not found.\n\n"
                           "Install it with:\n  winget install --id Gyan.FFmpeg -e"
                           "\n\nOr download from: https://www.gyan.dev/ffmpeg/builds/"
                           "\nPlace ffmpeg.exe and ffprobe.exe next to Brindle.exe."));
        return;
    }

    VideoPickerDialog picker(this);
    if (UserPrompts::current().exec(&picker) != QDialog::Accepted)
        return;
    const QString videoPath = picker.videoPath();

    if (imagesFolder.isEmpty())
        UserPrompts::current().information(
            this, QStringLiteral("No dataset loaded"),
            QStringLiteral("No dataset is loaded. Extracted frames will still be saved but won't "
                           "appear in the image list until you load a dataset."));

    {
        VideoFrameDialog viewer(videoPath, ffmpeg, imagesFolder, this);
        UserPrompts::current().exec(&viewer);
    }

    if (imagesFolder.isEmpty())
        return;
    // Listing the folder again drops the records held in memory: write the changed ones
    // first. The list then starts again at its first image.
    syncCurrentBoxes();
    QList<int> dirty;
    for (int i = 0; i < images.size(); ++i)
        if (images[i].dirty)
            dirty.append(i);
    if (!dirty.isEmpty())
        saveAnnotationsForAll(dirty);
    rebuildImageList();
}
