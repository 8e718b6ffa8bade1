#include <QBuffer>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include "app/imagelistwidget.h"
#include "app/loaddatadialog.h"
#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "model/vocxml.h"
#include "support/scriptedprompts.h"

using namespace sessiontest;

namespace {

// A JPEG whose pixels are stored w x h, with an Exif APP1 segment carrying
// `orientation` (6 = the camera was turned 90 degrees clockwise).
QByteArray jpegWithOrientation(int w, int h, quint16 orientation)
{
    QImage image(w, h, QImage::Format_RGB32);
    image.fill(Qt::red);
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPG");

    QByteArray tiff = QByteArray::fromHex("4d4d002a00000008"); // big-endian, IFD0 at 8
    tiff += QByteArray::fromHex("0001");                         // one entry
    tiff += QByteArray::fromHex("0112000300000001");             // Orientation, SHORT, 1
    tiff += char(orientation >> 8);
    tiff += char(orientation & 0xff);
    tiff += QByteArray::fromHex("0000");     // padding of the value field
    tiff += QByteArray::fromHex("00000000"); // no next IFD
    const QByteArray payload = QByteArray("Exif\0\0", 6) + tiff;
    const int length = payload.size() + 2;
    QByteArray segment = QByteArray::fromHex("ffe1");
    segment += char(length >> 8);
    segment += char(length & 0xff);
    segment += payload;
    jpeg.insert(2, segment); // right after SOI
    return jpeg;
}

} // namespace

class TestSession : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void listing_data();
    void listing();
    void xmlPathsFollowCompleteBaseName();
    void loadThroughDialog();
    void loadDialogCancelledChangesNothing();
    void openDatasetDefaultsAnnotationsFolder();
    void missingImagesFolderGivesStatus_data();
    void missingImagesFolderGivesStatus();
    void emptyFolderEmptiesCanvas();
    void backgroundScanMarksRowsAndCollectsLabels();
    void scanStatusEvery150Images();
    void statusTexts();
    void reloadKeepsRow();
    void reloadWithoutDatasetOpensDialog();
    void exifOrientationApplied();
    void undecodableImageKeepsPrevious();
    void imageFileDeletedWhileRunning();
    void requireDataLoaded();
};

void TestSession::listing_data()
{
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("patterns and case")
        << QStringList{"b.png", "A.JPG", "a.tif", "c.jpeg", "d.TIFF", "e.gif", "f.bmp",
                       "notes.txt", "sub.png/", ".hidden.png", "noext"}
        << QStringList{"A.JPG", "b.png", "c.jpeg", "d.TIFF", "e.gif", "f.bmp"};
    QTest::newRow("character order, not natural")
        << QStringList{"img10.png", "img2.png", "Img3.png", "_x.png"}
        << QStringList{"Img3.png", "_x.png", "img10.png", "img2.png"};
    QTest::newRow("non-ASCII and blanks")
        << QStringList{QString::fromUtf8("café ñ.png"), "two  spaces.png", "Zebra.png"}
        << QStringList{"Zebra.png", QString::fromUtf8("café ñ.png"), "two  spaces.png"};
}

void TestSession::listing()
{
    QFETCH(QStringList, files);
    QFETCH(QStringList, expected);

    QTemporaryDir dir;
    for (const QString& name : files) {
        if (name.endsWith('/'))
            QVERIFY(QDir(dir.path()).mkdir(name.chopped(1)));
        else
            QVERIFY(makeImageFile(dir.filePath(name)));
    }
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));

    QCOMPARE(rowTexts(w), expected);
    QCOMPARE(w.images.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i) {
        QCOMPARE(w.images[i].imagePath, dir.filePath(expected[i]));
        QVERIFY(!w.images[i].dirty);
    }
    QCOMPARE(w.currentIndex, 0);
    QCOMPARE(w.imageList->currentRow(), 0);
    QVERIFY(prompts.callsOf("warning").isEmpty());
    QCOMPARE(status(w), QStringLiteral("Loaded %1 images  |  Scanning annotations in background...")
                            .arg(expected.size()));

    // Every listed image can be shown and annotated, whatever its name.
    for (int i = 0; i < expected.size(); ++i) {
        w.imageList->setCurrentRow(i);
        QCOMPARE(w.currentIndex, i);
        editShapes(w, {box("object", 0, 0, 1, 1)});
        const QString xml = dir.filePath("annotations/" + QFileInfo(expected[i]).completeBaseName()
                                         + ".xml");
        QCOMPARE(w.images[i].xmlPath, xml);
        QVERIFY(QFile::exists(xml));
        QCOMPARE(w.imageList->item(i)->text(), expected[i] + "  *");
    }
    QVERIFY(prompts.calls.isEmpty());
}

void TestSession::xmlPathsFollowCompleteBaseName()
{
    QTemporaryDir dir;
    for (const char* name : {"x.jpg", "x.png", "archive.tar.png"})
        QVERIFY(makeImageFile(dir.filePath(name)));
    const QString ann = dir.filePath("labels");
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path(), ann));

    QCOMPARE(rowTexts(w), (QStringList{"archive.tar.png", "x.jpg", "x.png"}));
    QCOMPARE(w.images[0].xmlPath, ann + "/archive.tar.xml");
    QCOMPARE(w.images[1].xmlPath, ann + "/x.xml");
    QCOMPARE(w.images[2].xmlPath, ann + "/x.xml");
}

void TestSession::loadThroughDialog()
{
    QTemporaryDir dir;
    const QString images = dir.filePath("imgs");
    QVERIFY(QDir().mkpath(images));
    QVERIFY(makeImageFile(images + "/one.png"));
    QVERIFY(makeImageFile(images + "/two.png"));

    ScriptedPrompts prompts;
    prompts.directoryAnswers << images;
    QString annotationsShown;
    prompts.dialogHandler = [&](QDialog* dialog) {
        auto* browse = dialog->findChild<QPushButton*>("browseImagesButton");
        auto* ok = dialog->findChild<QPushButton*>("okButton");
        if (!browse || !ok)
            return int(QDialog::Rejected);
        browse->click();
        annotationsShown = dialog->findChild<QLineEdit*>("annotationsEdit")->text();
        ok->click();
        return dialog->result();
    };
    MainWindow w;
    QVERIFY(QMetaObject::invokeMethod(&w, "onLoadData"));

    QCOMPARE(prompts.callsOf("dialog").size(), 1);
    QCOMPARE(prompts.callsOf("dialog").first().title, QStringLiteral("Load Data"));
    QCOMPARE(annotationsShown, images + "/annotations");
    QVERIFY(QFileInfo(images + "/annotations").isDir());
    QCOMPARE(w.imagesFolder, images);
    QCOMPARE(w.annotationsFolder, images + "/annotations");
    QCOMPARE(rowTexts(w), (QStringList{"one.png", "two.png"}));
    QCOMPARE(w.currentIndex, 0);
    QVERIFY(w.canvas->hasImage());

    // The next Load Data starts from the folders in use.
    QString shownImages, shownAnnotations;
    prompts.dialogHandler = [&](QDialog* dialog) {
        shownImages = dialog->findChild<QLineEdit*>("imagesEdit")->text();
        shownAnnotations = dialog->findChild<QLineEdit*>("annotationsEdit")->text();
        return int(QDialog::Rejected);
    };
    QVERIFY(QMetaObject::invokeMethod(&w, "onLoadData"));
    QCOMPARE(shownImages, images);
    QCOMPARE(shownAnnotations, images + "/annotations");
}

void TestSession::loadDialogCancelledChangesNothing()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    editShapes(w, {box("object", 1, 1, 4, 4)});

    prompts.dialogHandler = [](QDialog*) { return int(QDialog::Rejected); };
    QVERIFY(QMetaObject::invokeMethod(&w, "onLoadData"));
    QCOMPARE(w.imagesFolder, dir.path());
    QCOMPARE(w.currentIndex, 0);
    QCOMPARE(w.canvas->boxes().size(), 1);
    QCOMPARE(w.undoStack.size(), 1);
}

void TestSession::openDatasetDefaultsAnnotationsFolder()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QCOMPARE(w.annotationsFolder, dir.path() + "/annotations");
    QVERIFY(QFileInfo(dir.path() + "/annotations").isDir());

    // A folder typed with a trailing slash is the same folder.
    QVERIFY(w.openDataset(dir.path() + "/"));
    QCOMPARE(w.imagesFolder, dir.path());
    QCOMPARE(w.annotationsFolder, dir.path() + "/annotations");
    QCOMPARE(w.images[0].xmlPath, dir.path() + "/annotations/a.xml");

    // An annotations folder that cannot be made (a file stands in the way) is refused.
    QVERIFY(writeBytes(dir.filePath("blocker"), "x"));
    const QString impossible = dir.filePath("blocker/ann");
    QVERIFY(!w.openDataset(dir.path(), impossible));
    QCOMPARE(prompts.last().kind, QStringLiteral("warning"));
    QCOMPARE(prompts.last().title, QStringLiteral("Error"));
    QCOMPARE(prompts.last().text, "Could not create annotations folder:\n" + impossible);
    QCOMPARE(w.annotationsFolder, dir.path() + "/annotations");
    QCOMPARE(w.currentIndex, 0);
}

void TestSession::missingImagesFolderGivesStatus_data()
{
    QTest::addColumn<QString>("annotations"); // relative to the temporary folder
    QTest::addColumn<QString>("expectedAnnotations");
    QTest::newRow("annotations folder named") << "ann" << "ann";
    QTest::newRow("annotations folder defaulted") << "" << "none/annotations";
    QTest::newRow("deep annotations folder") << "x/y/ann" << "x/y/ann";
}

void TestSession::missingImagesFolderGivesStatus()
{
    QFETCH(QString, annotations);
    QFETCH(QString, expectedAnnotations);
    QTemporaryDir dir;
    ScriptedPrompts prompts;
    MainWindow w;
    const QString missing = dir.filePath("none");
    QVERIFY(w.openDataset(missing, annotations.isEmpty() ? QString() : dir.filePath(annotations)));
    QCOMPARE(status(w), "No images found in: " + missing);
    QCOMPARE(w.imageList->count(), 0);
    QCOMPARE(w.currentIndex, -1);
    QCOMPARE(w.annotationsFolder, dir.filePath(expectedAnnotations));
    QVERIFY(prompts.calls.isEmpty());
    // Nothing was made on disk for a folder that is not there.
    QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             QStringList());
    QTest::qWait(100);
    QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             QStringList());
    QCOMPARE(status(w), "No images found in: " + missing);
}

void TestSession::emptyFolderEmptiesCanvas()
{
    QTemporaryDir full, empty;
    QVERIFY(makeImageFile(full.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(full.path()));
    editShapes(w, {box("object", 1, 1, 3, 3)});
    QVERIFY(w.openDataset(empty.path()));
    QCOMPARE(w.imageList->count(), 0);
    // No image is left to show or to draw on.
    QVERIFY(!w.canvas->hasImage());
    QVERIFY(w.canvas->boxes().isEmpty());
    QCOMPARE(status(w), "No images found in: " + empty.path());
}

void TestSession::backgroundScanMarksRowsAndCollectsLabels()
{
    QTemporaryDir dir;
    for (const char* name : {"a.png", "b.png", "c.png", "d.png", "e.png"})
        QVERIFY(makeImageFile(dir.filePath(name)));
    const QString ann = dir.filePath("annotations");
    QVERIFY(QDir().mkpath(ann));

    ImageAnnotations a;
    a.xmlPath = ann + "/a.xml";
    a.boxes = {box("car", 1, 1, 5, 4)};
    QVERIFY(VocXml::save(a, "x"));
    QVERIFY(writeBytes(ann + "/c.xml",
                       "<annotation><object><name>  truck </name><bndbox><name>wheel</name>"
                       "<xmin>1</xmin></bndbox></object><object><n>bike</n></object>"
                       "</annotation>"));
    QVERIFY(writeBytes(ann + "/d.xml", "<annotation><name>scene</name></annotation>"));
    QVERIFY(writeBytes(ann + "/e.xml", "<annotation><object><name>bus</name></object><oops>"));

    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QCOMPARE(rowTexts(w), (QStringList{"a.png", "b.png", "c.png", "d.png", "e.png"}));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);

    QCOMPARE(rowTexts(w),
             (QStringList{"a.png  *", "b.png", "c.png  *", "d.png  *", "e.png  *"}));
    QCOMPARE(w.imageList->item(0)->toolTip(),
             dir.filePath("a.png") + "\nAnnotations: " + ann + "/a.xml");
    // Rows without a file are left as listed until something refreshes them.
    QVERIFY(w.imageList->item(1)->toolTip().isEmpty());
    w.updateImageListItem(1);
    QCOMPARE(w.imageList->item(1)->toolTip(), dir.filePath("b.png") + "\nNo annotations yet");

    QStringList names;
    for (const LabelDef& l : w.labels)
        names << l.name;
    QCOMPARE(names, (QStringList{"object", "car", "truck", "bike", "bus"}));
    QCOMPARE(w.labels[1].color, QColor(255, 100, 100));
    QCOMPARE(w.labels[2].color, QColor(100, 220, 100));
    QCOMPARE(w.labels[4].color, QColor(180, 100, 255));
    QCOMPARE(w.classCombo->count(), 5);
    QVERIFY(QFile::exists(ann + "/label_colors.json"));
    QCOMPARE(status(w), imageStatus(1, 5, "a.png", 8, 6, 1));
}

void TestSession::scanStatusEvery150Images()
{
    QTemporaryDir dir;
    const QByteArray png = tinyPng();
    for (int i = 0; i < 700; ++i)
        QVERIFY(writeBytes(dir.filePath(QStringLiteral("img%1.png").arg(i, 3, 10, QLatin1Char('0'))), png));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));

    // Run the slices directly, without the event loop, to see the status after each.
    QStringList scanningTexts;
    int slices = 0;
    while (w.scanIndex < 700 && slices < 200) {
        QVERIFY(QMetaObject::invokeMethod(&w, "scanNextBatch", Qt::DirectConnection));
        ++slices;
        if (status(w).startsWith("Scanning") && !scanningTexts.contains(status(w))) {
            scanningTexts << status(w);
            QCOMPARE(w.scanIndex, 600);
        }
    }
    QCOMPARE(slices, 88);
    QCOMPARE(scanningTexts, QStringList{"Scanning annotations: 600 / 700..."});
    QCOMPARE(status(w), imageStatus(1, 700, "img000.png", 1, 1, 0));
}

void TestSession::statusTexts()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    QVERIFY(makeImageFile(dir.filePath("b.png")));
    QVERIFY(writeImage(dir.filePath("c.png"), 640, 480));
    QVERIFY(makeImageFile(dir.filePath("d.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QCOMPARE(status(w), QStringLiteral("No data loaded. Click 'Load Data' to begin."));
    QVERIFY(w.openDataset(dir.path()));
    w.imageList->setCurrentRow(2);
    QCOMPARE(w.currentIndex, 2);
    QCOMPARE(w.images[2].width, 640);
    QCOMPARE(w.images[2].height, 480);
    QCOMPARE(status(w), imageStatus(3, 4, "c.png", 640, 480, 0));
    QCOMPARE(status(w), QStringLiteral("Image 3 / 4   |   c.png   |   640 x 480 px   |   No annotations"));

    editShapes(w, {box("object", 1, 1, 9, 9), box("object", 20, 20, 30, 30)});
    QCOMPARE(status(w),
             QStringLiteral("Image 3 / 4   |   c.png   |   640 x 480 px   |   2 annotation(s) - saved"));

    Q_EMIT w.canvas->drawingCoords(10, 20, 29, 59);
    QCOMPARE(status(w), QStringLiteral("Drawing: (10, 20) to (29, 59)  |  Size: 20 x 40 px"));
    Q_EMIT w.canvas->drawingCoords(-1, -1, -1, -1);
    QCOMPARE(status(w), imageStatus(3, 4, "c.png", 640, 480, 2));
}

void TestSession::reloadKeepsRow()
{
    QTemporaryDir dir;
    for (const char* name : {"a.png", "b.png", "c.png", "d.png"})
        QVERIFY(makeImageFile(dir.filePath(name)));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    w.imageList->setCurrentRow(2);
    editShapes(w, {box("object", 1, 1, 3, 3)});
    QVERIFY(makeImageFile(dir.filePath("e.png")));

    QVERIFY(QMetaObject::invokeMethod(&w, "onReloadData"));
    QCOMPARE(w.imageList->count(), 5);
    QCOMPARE(w.currentIndex, 2);
    QCOMPARE(w.imageList->currentRow(), 2);
    QCOMPARE(w.canvas->boxes().size(), 1); // read back from c's file
    QVERIFY(w.undoStack.isEmpty());
    QVERIFY(prompts.callsOf("dialog").isEmpty());

    // A remembered row past the end of a shorter list is not selected.
    w.imageList->setCurrentRow(4);
    QVERIFY(QFile::remove(dir.filePath("e.png")));
    QVERIFY(QFile::remove(dir.filePath("d.png")));
    QVERIFY(QMetaObject::invokeMethod(&w, "onReloadData"));
    QCOMPARE(w.imageList->count(), 3);
    QCOMPARE(w.currentIndex, 0);
}

void TestSession::reloadWithoutDatasetOpensDialog()
{
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(QMetaObject::invokeMethod(&w, "onReloadData"));
    QCOMPARE(prompts.callsOf("dialog").size(), 1);
    QVERIFY(w.imagesFolder.isEmpty());
}

void TestSession::exifOrientationApplied()
{
    QTemporaryDir dir;
    QVERIFY(writeBytes(dir.filePath("turned.jpg"), jpegWithOrientation(40, 20, 6)));
    QVERIFY(writeBytes(dir.filePath("upright.jpg"), jpegWithOrientation(40, 20, 1)));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QCOMPARE(w.images[0].width, 20);
    QCOMPARE(w.images[0].height, 40);
    QCOMPARE(w.canvas->pixmap().size(), QSize(20, 40));
    w.imageList->setCurrentRow(1);
    QCOMPARE(w.images[1].width, 40);
    QCOMPARE(w.images[1].height, 20);
}

void TestSession::undecodableImageKeepsPrevious()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    QVERIFY(writeBytes(dir.filePath("b.png"), "this is not a picture"));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    editShapes(w, {box("object", 1, 1, 3, 3)});

    w.imageList->setCurrentRow(1);
    QCOMPARE(prompts.callsOf("warning").size(), 1);
    QCOMPARE(prompts.last().title, QStringLiteral("Load error"));
    QCOMPARE(prompts.last().text, "Could not load image:\n" + dir.filePath("b.png") + "\nUnsupported image format");
    QCOMPARE(w.currentIndex, 0);
    QCOMPARE(w.imageList->currentRow(), 1);
    QCOMPARE(w.canvas->boxes().size(), 1);
    QCOMPARE(w.canvas->pixmap().size(), QSize(8, 6));
    QVERIFY(w.undoStack.isEmpty());
    QVERIFY(QFile::exists(w.images[0].xmlPath));
    QCOMPARE(status(w), imageStatus(1, 2, "a.png", 8, 6, 1));

    // Editing goes on on the image still shown.
    editShapes(w, {});
    QVERIFY(!QFile::exists(w.images[0].xmlPath));
}

void TestSession::imageFileDeletedWhileRunning()
{
    QTemporaryDir dir;
    for (const char* name : {"a.png", "b.png", "c.png"})
        QVERIFY(makeImageFile(dir.filePath(name)));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    editShapes(w, {box("object", 1, 1, 3, 3)});
    QVERIFY(QFile::remove(dir.filePath("b.png")));

    w.imageList->setCurrentRow(1);
    QCOMPARE(prompts.last().title, QStringLiteral("Load error"));
    QCOMPARE(w.currentIndex, 0);
    w.imageList->setCurrentRow(2);
    QCOMPARE(w.currentIndex, 2);

    // The mark follows the file on disk.
    QVERIFY(QFile::remove(w.images[0].xmlPath));
    w.updateImageListItem(0);
    QCOMPARE(w.imageList->item(0)->text(), QStringLiteral("a.png"));
    w.updateImageListItem(7); // outside the list: ignored

    // The whole images folder goes away: a reload finds nothing and empties the canvas.
    const QString images = w.imagesFolder;
    QVERIFY(QDir(dir.path()).removeRecursively());
    QVERIFY(QMetaObject::invokeMethod(&w, "onReloadData"));
    QCOMPARE(w.imageList->count(), 0);
    QCOMPARE(w.currentIndex, -1);
    QVERIFY(!w.canvas->hasImage());
    QCOMPARE(status(w), "No images found in: " + images);
    QVERIFY(!QFileInfo::exists(images));
}

void TestSession::requireDataLoaded()
{
    QTemporaryDir empty;
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(!w.requireDataLoaded());
    QCOMPARE(prompts.calls.size(), 1);
    QCOMPARE(prompts.last().kind, QStringLiteral("information"));
    QCOMPARE(prompts.last().title, QStringLiteral("No Data Loaded"));
    QCOMPARE(prompts.last().text,
             UserPrompts::richText(
                 QStringLiteral("Please click <b>Load Data</b> first and point Brindle to your\n"
                                "images directory and annotations directory\n"
                                "(they can be empty folders if you are starting fresh).")));
    QVERIFY(w.openDataset(empty.path()));
    QVERIFY(w.requireDataLoaded());
    QCOMPARE(prompts.calls.size(), 1);
}

QTEST_MAIN(TestSession)
#include "tst_session.moc"
