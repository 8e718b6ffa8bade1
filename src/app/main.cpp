#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QIcon>
#include <cstdio>
#include <cstring>

#include "app/mainwindow.h"
#include "app/theme.h"

namespace {

const char* const kUsage =
    "Usage: brindle [IMAGES_DIR [ANNOTATIONS_DIR]]\n"
    "\n"
    "Brindle (Beta): image annotation for object detection, pose and segmentation datasets.\n"
    "\n"
    "  IMAGES_DIR       folder of images to open at start (optional)\n"
    "  ANNOTATIONS_DIR  folder of the annotation XML files; defaults to\n"
    "                   IMAGES_DIR/annotations, created when missing\n"
    "  -h, --help       show this text and exit\n";

bool asksForHelp(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")
            || !std::strcmp(argv[i], "-?") || !std::strcmp(argv[i], "--help-all"))
            return true;
    }
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    // Answered before the GUI starts, so that it also works without a display.
    if (asksForHelp(argc, argv)) {
        std::fputs(kUsage, stdout);
        return 0;
    }

    QApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("IMAGES_DIR"), QString());
    parser.addPositionalArgument(QStringLiteral("ANNOTATIONS_DIR"), QString());
    parser.process(app); // rejects unknown options with a message
    const QStringList folders = parser.positionalArguments();
    if (folders.size() > 2) {
        std::fputs("brindle: too many arguments\n\n", stderr);
        std::fputs(kUsage, stderr);
        return 1;
    }

    Theme::apply(app);
    QIcon icon;
    for (int size : {32, 64, 256})
        icon.addFile(QStringLiteral(":/icons/brindle-%1.png").arg(size));
    app.setWindowIcon(icon);
    // Lets desktops match the window with the installed desktop entry.
    QGuiApplication::setDesktopFileName(QStringLiteral("brindle"));

    auto* window = new MainWindow;
    window->show();
    if (!folders.isEmpty()) {
        const QString images = QFileInfo(folders.at(0)).absoluteFilePath();
        const QString annotations =
            folders.size() > 1 ? QFileInfo(folders.at(1)).absoluteFilePath() : QString();
        window->openDataset(images, annotations);
    }
    const int result = app.exec();
    delete window;
    return result;
}
