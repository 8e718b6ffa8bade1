#include <QFileInfo>
#include <QLineEdit>
#include <QPushButton>

#include "canvas/imagecanvas.h"
#include "support/exifjpeg.h"
#include "support/sessionfixture.h"

using namespace sessionfx;

class TestSession : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void listing_data()
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
        QTest::newRow("complete base name") << QStringList{"x.jpg", "x.png", "archive.tar.png"}
                                            << QStringList{"archive.tar.png", "x.jpg", "x.png"};
    }

    void listing()
    {
        QFETCH(QStringList, files);
        QFETCH(QStringList, expected);
        Session s;
        for (const QString& name : files)
            QVERIFY(name.endsWith('/') ? QDir(s.dir.path()).mkdir(name.chopped(1))
                                       : makeImageFile(s.path(name)));
        QVERIFY(s.w.openDataset(s.dir.path()));
        QCOMPARE(rowTexts(s.w), expected);
        QCOMPARE(s.w.currentIndex, 0);
        QCOMPARE(status(s.w), QStringLiteral("Loaded %1 images  |  Scanning annotations in background...")
                                  .arg(expected.size()));
        // Every listed image can be shown and annotated, whatever its name.
        for (int i = 0; i < expected.size(); ++i) {
            s.w.imageList->setCurrentRow(i);
            QCOMPARE(s.w.currentIndex, i);
            QCOMPARE(s.w.images[i].imagePath, s.path(expected[i]));
            editShapes(s.w, {box("object", 0, 0, 1, 1)});
            const QString xml = s.path("annotations/" + QFileInfo(expected[i]).completeBaseName() + ".xml");
            QCOMPARE(s.w.images[i].xmlPath, xml);
            QVERIFY(QFile::exists(xml));
            QCOMPARE(s.w.imageList->item(i)->text(), expected[i] + "  *");
        }
        QVERIFY(s.prompts.calls.isEmpty());
    }

    void loadThroughDialog()
    {
        Session s;
        const QString images = s.path("imgs");
        QVERIFY(QDir().mkpath(images) && makeImageFile(images + "/one.png") && makeImageFile(images + "/two.png"));
        s.prompts.directoryAnswers << images;
        s.prompts.dialogHandler = [&](QDialog* dialog) {
            dialog->findChild<QPushButton*>("browseImagesButton")->click();
            dialog->findChild<QPushButton*>("okButton")->click();
            return dialog->result();
        };
        QVERIFY(s.call("onLoadData"));
        QCOMPARE(s.prompts.callsOf("dialog").value(0).title, QStringLiteral("Load Data"));
        QVERIFY(QFileInfo(images + "/annotations").isDir());
        QCOMPARE(s.w.annotationsFolder, images + "/annotations");
        QCOMPARE(rowTexts(s.w), (QStringList{"one.png", "two.png"}));
        QVERIFY(s.w.canvas->hasImage());
        editShapes(s.w, {box("object", 1, 1, 4, 4)});

        // The next Load Data starts from the folders in use; cancelled, it changes nothing.
        QStringList fields;
        s.prompts.dialogHandler = [&](QDialog* dialog) {
            fields << dialog->findChild<QLineEdit*>("imagesEdit")->text()
                   << dialog->findChild<QLineEdit*>("annotationsEdit")->text();
            return int(QDialog::Rejected);
        };
        QVERIFY(s.call("onLoadData"));
        QCOMPARE(fields, (QStringList{images, images + "/annotations"}));
        QCOMPARE(s.w.imagesFolder, images);
        QCOMPARE(s.w.canvas->boxes().size(), 1);
        QCOMPARE(s.w.undoStack.size(), 1);
    }

    void annotationsFolder()
    {
        Session s;
        QVERIFY(makeImageFile(s.path("a.png")));
        // Defaulted, and a folder typed with a trailing slash is the same folder.
        QVERIFY(s.w.openDataset(s.dir.path() + "/"));
        QCOMPARE(s.w.imagesFolder, s.dir.path());
        QCOMPARE(s.xml(0), s.dir.path() + "/annotations/a.xml");
        QVERIFY(QFileInfo(s.path("annotations")).isDir());
        // One that cannot be made (a file stands in the way) is refused.
        QVERIFY(writeBytes(s.path("blocker"), "x"));
        QVERIFY(!s.w.openDataset(s.dir.path(), s.path("blocker/ann")));
        QCOMPARE(s.prompts.last().kind, QStringLiteral("warning"));
        QCOMPARE(s.prompts.last().title, QStringLiteral("Error"));
        QCOMPARE(s.prompts.last().text, "Could not create annotations folder:\n" + s.path("blocker/ann"));
        QCOMPARE(s.w.annotationsFolder, s.path("annotations"));
        QCOMPARE(s.w.currentIndex, 0);
    }

    void missingImagesFolder_data()
    {
        QTest::addColumn<QString>("annotations");
        QTest::addColumn<QString>("expected");
        QTest::newRow("named") << "ann" << "ann";
        QTest::newRow("defaulted") << "" << "none/annotations";
        QTest::newRow("deep") << "x/y/ann" << "x/y/ann";
    }

    void missingImagesFolder()
    {
        QFETCH(QString, annotations);
        QFETCH(QString, expected);
        Session s;
        QVERIFY(s.w.openDataset(s.path("none"), annotations.isEmpty() ? QString() : s.path(annotations)));
        QCOMPARE(status(s.w), "No images found in: " + s.path("none"));
        QCOMPARE(s.w.currentIndex, -1);
        QCOMPARE(s.w.annotationsFolder, s.path(expected));
        QVERIFY(s.prompts.calls.isEmpty());
        // Nothing is made on disk for a folder that is not there, not even later.
        QTest::qWait(50);
        QCOMPARE(QDir(s.dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
        QCOMPARE(status(s.w), "No images found in: " + s.path("none"));
    }

    void backgroundScan()
    {
        Session s;
        const QString ann = s.path("annotations");
        QVERIFY(QDir().mkpath(ann));
        QVERIFY(writeBytes(ann + "/e.xml", "<annotation><object><name>bus</name></object><oops>"));
        QVERIFY(s.open({{"car"}, {}, {}, {}, {}}, false));
        QCOMPARE(rowTexts(s.w), (QStringList{"a.png", "b.png", "c.png", "d.png", "e.png"}));
        QTRY_VERIFY_WITH_TIMEOUT(scanDone(s.w), 5000);
        QCOMPARE(rowTexts(s.w), (QStringList{"a.png  *", "b.png", "c.png", "d.png", "e.png  *"}));
        QCOMPARE(s.w.imageList->item(0)->toolTip(), s.path("a.png") + "\nAnnotations: " + ann + "/a.xml");
        s.w.updateImageListItem(1);
        QCOMPARE(s.w.imageList->item(1)->toolTip(), s.path("b.png") + "\nNo annotations yet");
        // Names in first-seen order, coloured from the palette by position.
        QCOMPARE(itemsOf(s.w.classCombo), (QStringList{"object", "car", "bus"}));
        QCOMPARE(s.w.labels[2].color, QColor(100, 220, 100));
        QVERIFY(QFile::exists(ann + "/label_colors.json"));
        QCOMPARE(status(s.w), imageStatus(1, 5, "a.png", 8, 6, 1));
    }

    void scanStatusEvery150Images()
    {
        Session s;
        const QByteArray png = tinyPng();
        for (int i = 0; i < 700; ++i)
            QVERIFY(writeBytes(s.path(QStringLiteral("img%1.png").arg(i, 3, 10, QLatin1Char('0'))), png));
        QVERIFY(s.w.openDataset(s.dir.path()));
        // Run the slices directly, without the event loop, to see the status after each.
        QStringList scanning;
        int slices = 0;
        while (s.w.scanIndex < 700 && slices < 200) {
            QVERIFY(s.call("scanNextBatch"));
            ++slices;
            if (status(s.w).startsWith("Scanning") && !scanning.contains(status(s.w))) {
                scanning << status(s.w);
                QCOMPARE(s.w.scanIndex, 600);
            }
        }
        QCOMPARE(slices, 88);
        QCOMPARE(scanning, QStringList{"Scanning annotations: 600 / 700..."});
        QCOMPARE(status(s.w), imageStatus(1, 700, "img000.png", 1, 1, 0));
    }

    void reload()
    {
        Session s;
        QVERIFY(s.call("onReloadData")); // without a dataset: the Load Data dialog
        QCOMPARE(s.prompts.callsOf("dialog").size(), 1);
        QVERIFY(s.open({{}, {}, {}, {}}));
        s.w.imageList->setCurrentRow(2);
        editShapes(s.w, {box("object", 1, 1, 3, 3)});
        QVERIFY(makeImageFile(s.path("e.png")));
        QVERIFY(s.call("onReloadData"));
        QCOMPARE(s.w.imageList->count(), 5);
        QCOMPARE(s.w.currentIndex, 2);
        QCOMPARE(s.w.imageList->currentRow(), 2);
        QCOMPARE(s.w.canvas->boxes().size(), 1); // read back from c's file
        QVERIFY(s.w.undoStack.isEmpty());
        QCOMPARE(s.prompts.callsOf("dialog").size(), 1);
        // A remembered row past the end of a shorter list is not selected.
        s.w.imageList->setCurrentRow(4);
        QVERIFY(QFile::remove(s.path("e.png")) && QFile::remove(s.path("d.png")));
        QVERIFY(s.call("onReloadData"));
        QCOMPARE(s.w.imageList->count(), 3);
        QCOMPARE(s.w.currentIndex, 0);
        // The whole images folder goes away: nothing is left to show or to draw on.
        QVERIFY(QDir(s.dir.path()).removeRecursively());
        QVERIFY(s.call("onReloadData"));
        QCOMPARE(s.w.currentIndex, -1);
        QVERIFY(!s.w.canvas->hasImage());
        QVERIFY(s.w.canvas->boxes().isEmpty());
        QCOMPARE(status(s.w), "No images found in: " + s.dir.path());
        QVERIFY(!QFileInfo::exists(s.dir.path()));
    }

    void exifOrientationApplied()
    {
        Session s;
        QImage stored(40, 20, QImage::Format_RGB32);
        stored.fill(Qt::red);
        QVERIFY(writeTurnedJpeg(s.path("turned.jpg"), stored));
        QVERIFY(writeImage(s.path("upright.jpg"), 40, 20, Qt::red, "JPG"));
        QVERIFY(s.w.openDataset(s.dir.path()));
        QCOMPARE(QSize(s.w.images[0].width, s.w.images[0].height), QSize(20, 40));
        QCOMPARE(s.w.canvas->pixmap().size(), QSize(20, 40));
        s.w.imageList->setCurrentRow(1);
        QCOMPARE(QSize(s.w.images[1].width, s.w.images[1].height), QSize(40, 20));
    }

    void unreadableImageKeepsPrevious_data()
    {
        QTest::addColumn<bool>("deleted"); // else a file that is not a picture
        QTest::newRow("not a picture") << false;
        QTest::newRow("deleted while running") << true;
    }

    void unreadableImageKeepsPrevious()
    {
        QFETCH(bool, deleted);
        Session s;
        QVERIFY(s.open({{}, {}, {}}, false));
        QVERIFY(deleted ? QFile::remove(s.path("b.png")) : writeBytes(s.path("b.png"), "not a picture"));
        editShapes(s.w, {box("object", 1, 1, 3, 3)});
        s.w.imageList->setCurrentRow(1);
        QCOMPARE(s.prompts.callsOf("warning").size(), 1);
        QCOMPARE(s.prompts.last().title, QStringLiteral("Load error"));
        QCOMPARE(s.prompts.last().text, "Could not load image:\n" + s.path("b.png") + (deleted ? "\nFile not found" : "\nUnsupported image format"));
        QCOMPARE(s.w.currentIndex, 0);
        QCOMPARE(s.w.canvas->boxes().size(), 1);
        QCOMPARE(s.w.canvas->pixmap().size(), QSize(8, 6));
        QVERIFY(s.w.undoStack.isEmpty());
        QCOMPARE(status(s.w), imageStatus(1, 3, "a.png", 8, 6, 1));
        // Editing goes on on the image still shown; the mark follows the file on disk.
        editShapes(s.w, {});
        QVERIFY(!QFile::exists(s.xml(0)));
        QCOMPARE(s.w.imageList->item(0)->text(), QStringLiteral("a.png"));
        s.w.imageList->setCurrentRow(2);
        QCOMPARE(s.w.currentIndex, 2);
        s.w.updateImageListItem(7); // outside the list: ignored
    }

};

QTEST_MAIN(TestSession)
#include "tst_session.moc"
