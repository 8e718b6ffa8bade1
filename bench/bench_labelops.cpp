// "Rename Label..." and "Remove Label..." over a dataset of 10,000 annotation files of
// 20 shapes each, run through the main window right after the dataset is opened, so
// that no file but the first has been read yet. Timings include the durable writes.

#include <QApplication>
#include <QBuffer>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QLineEdit>
#include <QPushButton>
#include <QStorageInfo>
#include <QTemporaryDir>

#include <cstdio>

#include "app/mainwindow.h"
#include "model/vocxml.h"
#include "ui/userprompts.h"

namespace {

constexpr int kImages = 10000;
constexpr int kShapesPerFile = 20;
const char* const kLabelNames[] = {"car", "person", "traffic light", "bicycle", "dog"};

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray tinyPng()
{
    QImage image(1, 1, QImage::Format_RGB32);
    image.fill(Qt::gray);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

QByteArray typicalXml(const QString& xmlPath, int seed)
{
    ImageAnnotations record;
    record.xmlPath = xmlPath;
    record.width = 1920;
    record.height = 1080;
    for (int k = 0; k < kShapesPerFile; ++k) {
        BoxAnnotation b;
        b.label = QString::fromLatin1(kLabelNames[(seed + k) % 5]);
        b.points = {QPointF(10 + k * 40, 20 + k * 30), QPointF(60 + k * 40, 90 + k * 30)};
        record.boxes.append(b);
    }
    return VocXml::toXml(record, QStringLiteral("images"));
}

// Answers the rename and remove dialogs and the removal confirmation like a user who
// picks `from` and types `to`; keeps the last notice for checking.
class BenchPrompts : public QtUserPrompts {
public:
    QString from;
    QString to;
    QString lastNotice;
    int warnings = 0;

    void information(QWidget*, const QString&, const QString& text) override { lastNotice = text; }
    void warning(QWidget*, const QString& title, const QString& text) override
    {
        ++warnings;
        std::fprintf(stderr, "warning: %s: %s\n", qPrintable(title), qPrintable(text));
    }
    int choose(QWidget*, QMessageBox::Icon, const QString&, const QString&, const QString&,
               const QList<Choice>&, int) override
    {
        return 0; // "Yes, delete all"
    }
    int exec(QDialog* dialog) override
    {
        auto* combo = dialog->findChild<QComboBox*>(QStringLiteral("renameLabelCombo"));
        if (!combo)
            combo = dialog->findChild<QComboBox*>(QStringLiteral("removeLabelCombo"));
        if (!combo || combo->findText(from) < 0)
            return QDialog::Rejected;
        combo->setCurrentIndex(combo->findText(from));
        if (auto* edit = dialog->findChild<QLineEdit*>(QStringLiteral("newLabelNameEdit")))
            edit->setText(to);
        for (const char* name : {"renameButton", "removeButton"})
            if (auto* button = dialog->findChild<QPushButton*>(QLatin1String(name)))
                button->click();
        return dialog->result();
    }
};

int countInFile(const QString& path, const QByteArray& needle)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? int(file.readAll().count(needle)) : -1;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    BenchPrompts prompts;
    UserPrompts::install(&prompts);

    QTemporaryDir dir;
    const QString ann = dir.filePath(QStringLiteral("annotations"));
    QDir().mkpath(ann);
    const QByteArray png = tinyPng();
    QElapsedTimer setup;
    setup.start();
    for (int i = 0; i < kImages; ++i) {
        const QString name = QStringLiteral("img%1").arg(i, 5, 10, QLatin1Char('0'));
        const QString xmlPath = ann + QLatin1Char('/') + name + QStringLiteral(".xml");
        if (!writeFile(dir.filePath(name + QStringLiteral(".png")), png)
            || !writeFile(xmlPath, typicalXml(xmlPath, i))) {
            std::fprintf(stderr, "bench_labelops: cannot write the dataset\n");
            return 1;
        }
    }
    // The colour file names the labels, so the combos offer them before any scan.
    writeFile(ann + QStringLiteral("/label_colors.json"),
              "[{\"color\":\"#ff6464\",\"name\":\"car\"},{\"color\":\"#64dc64\",\"name\":\"person\"}]");
    std::printf("setup_10k_files_ms: %lld\n", setup.elapsed());
    // The writes are bound by the file system: say which one was measured.
    std::printf("filesystem: %s\n", QStorageInfo(dir.path()).fileSystemType().constData());

    MainWindow window;
    window.openDataset(dir.path());
    // No event has run yet: the background scan has not read a single file.
    const bool unread = window.scanIndex == 0 && window.images.size() == kImages
                        && window.images[1].boxes.isEmpty();

    prompts.from = QStringLiteral("car");
    prompts.to = QStringLiteral("automobile");
    QElapsedTimer rename;
    rename.start();
    QMetaObject::invokeMethod(&window, "onRenameLabel", Qt::DirectConnection);
    const qint64 renameMs = rename.elapsed();
    std::printf("rename_label_10k_unread_files_20_shapes_ms: %lld (target < 5000)\n", renameMs);
    std::printf("rename_notice: %s\n", qPrintable(QString(prompts.lastNotice).replace('\n', ' ')));
    const QString last = window.images.last().xmlPath;
    const bool renamed = countInFile(last, "<name>automobile</name>") == 4
                         && countInFile(last, "<name>car</name>") == 0;

    // Every record is in memory now; the removal rewrites every file once more.
    prompts.from = QStringLiteral("person");
    QElapsedTimer remove;
    remove.start();
    QMetaObject::invokeMethod(&window, "onRemoveLabel", Qt::DirectConnection);
    std::printf("remove_label_10k_files_in_memory_ms: %lld\n", remove.elapsed());
    std::printf("remove_notice: %s\n", qPrintable(QString(prompts.lastNotice).replace('\n', ' ')));
    const bool removed = countInFile(last, "<name>person</name>") == 0
                         && countInFile(last, "<object>") == kShapesPerFile - 4;
    std::printf("save_errors: %d\n", prompts.warnings);

    UserPrompts::install(nullptr);
    if (!unread || !renamed || !removed || prompts.warnings != 0) {
        std::fprintf(stderr, "bench_labelops: unexpected result (unread %d, renamed %d, removed %d)\n",
                     unread, renamed, removed);
        return 1;
    }
    return 0;
}
