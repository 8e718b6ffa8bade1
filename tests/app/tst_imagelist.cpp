#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "app/imagelistwidget.h"
#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "model/vocxml.h"
#include "support/apppixels.h"
#include "support/sessionfixture.h"

// The image list's remove mark: where it sits, how it looks and answers the mouse, and what
// removing an image does to the session and the files.

using namespace sessionfx;

namespace {

QStringList names(int count)
{
    QStringList out;
    for (int i = 0; i < count; ++i)
        out << QStringLiteral("img%1.png").arg(i);
    return out;
}

QPoint mark(ImageListWidget* list, int row)
{
    return list->delegate->xButtonRect(list->visualRect(list->model()->index(row, 0))).center();
}


} // namespace

class TestImageList : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void xButtonRect_data()
    {
        QTest::addColumn<QRect>("row");
        QTest::addColumn<QRect>("expected");
        QTest::newRow("30 px row") << QRect(0, 0, 200, 30) << QRect(175, 6, 18, 18);
        QTest::newRow("offset row") << QRect(10, 60, 100, 30) << QRect(85, 66, 18, 18);
        QTest::newRow("odd height truncates") << QRect(0, 0, 200, 31) << QRect(175, 6, 18, 18);
        QTest::newRow("low row truncates toward zero") << QRect(0, 0, 50, 15) << QRect(25, -1, 18, 18);
    }

    void xButtonRect()
    {
        QFETCH(QRect, row);
        QTEST(ImageListDelegate().xButtonRect(row), "expected");
    }

    // Rows of 30 px or more; the mark turns red under the mouse (only on that row); a click on
    // it asks for removal without selecting, a click beside it selects.
    void markHoverAndClick()
    {
        ImageListWidget list;
        list.resize(240, 400);
        list.addItems(names(3));
        list.show();
        QVERIFY(QTest::qWaitForWindowExposed(&list));
        list.setCurrentRow(0);
        QVERIFY(list.visualRect(list.model()->index(0, 0)).height() >= 30);
        const QRect square = list.delegate->xButtonRect(list.visualRect(list.model()->index(1, 0)));
        const QPoint background = square.topLeft() + QPoint(2, 15), cross(square.right() - 9, square.top() + 8);
        QTest::mouseMove(list.viewport(), mark(&list, 1));
        QCOMPARE(list.delegate->hoverRow, 1);
        QImage shot = list.viewport()->grab().toImage();
        QVERIFY(near(shot.pixelColor(background), QColor(200, 50, 50), 12));
        QVERIFY(near(shot.pixelColor(cross), Qt::white, 60));
        QVERIFY(!near(shot.pixelColor(background - square.topLeft() + list.delegate->xButtonRect(list.visualRect(list.model()->index(2, 0))).topLeft()),
                      QColor(200, 50, 50), 12));
        QTest::mouseMove(list.viewport(), mark(&list, 1) - QPoint(60, 0));
        QCOMPARE(list.delegate->hoverRow, -1);
        shot = list.viewport()->grab().toImage();
        QVERIFY(!near(shot.pixelColor(background), QColor(200, 50, 50), 12));
        QVERIFY(near(shot.pixelColor(cross), QColor(160, 80, 80), 40));
        QTest::mouseMove(list.viewport(), mark(&list, 2));
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(&list, &leave);
        QCOMPARE(list.delegate->hoverRow, -1);

        QSignalSpy spy(list.delegate, &ImageListDelegate::removeRequested);
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, mark(&list, 2));
        QTest::mouseClick(list.viewport(), Qt::RightButton, {}, mark(&list, 1));
        QCOMPARE(spy.size(), 2);
        QCOMPARE(QList<int>({spy[0][0].toInt(), spy[1][0].toInt()}), QList<int>({2, 1}));
        QCOMPARE(list.currentRow(), 0);
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, mark(&list, 2) - QPoint(80, 0));
        QCOMPARE(list.currentRow(), 2);
        QCOMPARE(spy.size(), 2);
    }

    // The shown image has a shape saved; another row is removed by its mark, keeping or deleting
    // the file; the image shown after, the files, the status.
    void removal_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("shown");
        QTest::addColumn<int>("removed");
        QTest::addColumn<int>("answer"); // 0 delete the file, 1 keep it
        QTest::addColumn<QString>("after"); // the image shown after
        QTest::newRow("last row while row 1 shown") << 3 << 1 << 2 << 1 << "img1.png";
        QTest::newRow("the shown row 1") << 3 << 1 << 1 << 1 << "img2.png";
        QTest::newRow("the shown last row") << 3 << 2 << 2 << 1 << "img1.png";
        QTest::newRow("another row moves the view") << 10 << 0 << 5 << 1 << "img6.png";
        QTest::newRow("a row above the shown one") << 4 << 3 << 0 << 1 << "img1.png";
        QTest::newRow("the shown first row, file deleted") << 3 << 0 << 0 << 0 << "img1.png";
        QTest::newRow("the only image") << 1 << 0 << 0 << 1 << "";
    }

    void removal()
    {
        QFETCH(int, count);
        QFETCH(int, shown);
        QFETCH(int, removed);
        QFETCH(int, answer);
        QFETCH(QString, after);
        Session s;
        const QStringList all = names(count);
        for (const QString& name : all)
            QVERIFY(writeImage(s.path(name)));
        s.prompts.chooseAnswers << answer;
        QVERIFY(s.w.openDataset(s.dir.path()));
        s.w.imageList->setCurrentRow(shown);
        editShapes(s.w, {box("object", 1, 1, 3, 3)});
        const QByteArray xml = readBytes(s.w.images[shown].xmlPath);
        s.w.resize(900, 600);
        s.w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&s.w));
        QTest::mouseClick(s.w.imageList->viewport(), Qt::LeftButton, {}, mark(s.w.imageList, removed));

        QStringList rest = all;
        rest.removeAt(removed);
        QStringList paths;
        for (const ImageAnnotations& image : std::as_const(s.w.images))
            paths << QFileInfo(image.imagePath).fileName();
        QCOMPARE(paths, rest);
        QCOMPARE(rowTexts(s.w).replaceInStrings("  *", ""), rest);
        QCOMPARE(s.w.imageList->currentRow(), s.w.currentIndex);
        QCOMPARE(s.w.currentIndex, rest.indexOf(after));
        QVERIFY(s.w.undoStack.isEmpty() || after.isEmpty()); // (the only image's history lingers: not held against it)
        QCOMPARE(QFile::exists(s.path(all[removed])), answer == 1);
        // The edited image's file is as saved, and its shapes went to no other image.
        QCOMPARE(QDir(s.w.annotationsFolder).entryList({"*.xml"}), QStringList{QString(all[shown]).replace(".png", ".xml")});
        QCOMPARE(readBytes(s.path("annotations/" + QString(all[shown]).replace(".png", ".xml"))), xml);
        QCOMPARE(s.w.canvas->boxes().size(), after == all[shown] ? 1 : 0);
        QCOMPARE(s.w.annotationsPanel->rowCount(), after == all[shown] ? 1 : 0);
        QCOMPARE(s.w.canvas->hasImage(), !after.isEmpty());
        QCOMPARE(status(s.w).section("   |   ", 0, 1), after.isEmpty() ? "No data loaded. Click 'Load Data' to begin."
                                                                       : QString("Image %1 / %2   |   %3").arg(s.w.currentIndex + 1).arg(count - 1).arg(after));
        QVERIFY(s.w.requireDataLoaded()); // still loaded, if empty
    }

    // The question names the image as it is, in bold; Cancel and Escape keep it; rows outside the
    // list ask nothing. A dirty current image is saved first, but never the one removed.
    void question()
    {
        Session s;
        for (const char* name : {"a.png", "b <i>R&D.png", "c.png"})
            QVERIFY(writeImage(s.path(name)));
        s.prompts.chooseAnswers << 2 << -1 << 1 << 1;
        QVERIFY(s.w.openDataset(s.dir.path()));
        Q_EMIT s.w.imageList->delegate->removeRequested(1);
        const ScriptedPrompts::Call call = s.prompts.last();
        QCOMPARE(QStringList({call.kind, call.title, call.shown(), call.informativeText}),
                 QStringList({"choose", "Remove Image", "Remove b <i>R&D.png from this session?",
                              "Would you also like to delete the image file from disk?"}));
        QVERIFY(call.text.contains("<b>b &lt;i&gt;R&amp;D.png</b>"));
        QCOMPARE(call.buttons, QStringList({"Yes, delete file", "No, keep file", "Cancel"}));
        Q_EMIT s.w.imageList->delegate->removeRequested(1);
        Q_EMIT s.w.imageList->delegate->removeRequested(3);
        QCOMPARE(s.prompts.callsOf("choose").size(), 2);
        QCOMPARE(rowTexts(s.w).size(), 3);
        QCOMPARE(s.w.currentIndex, 0);

        s.w.canvas->setBoxes({box("object", 1, 1, 3, 3)}); // shapes not yet saved, as an import leaves them
        s.w.images[0].dirty = true;
        Q_EMIT s.w.imageList->delegate->removeRequested(2);
        QVERIFY(QFile::exists(s.w.images[0].xmlPath) && !s.w.images[0].dirty);
        const QByteArray saved = readBytes(s.w.images[0].xmlPath);
        s.w.canvas->setBoxes({box("object", 2, 2, 4, 4)});
        s.w.images[0].dirty = true;
        Q_EMIT s.w.imageList->delegate->removeRequested(0);
        QCOMPARE(readBytes(s.path("annotations/a.xml")), saved);
        QCOMPARE(rowTexts(s.w), QStringList{"b <i>R&D.png"});
    }

    void removalKeepsScanPosition()
    {
        Session s;
        for (int i = 0; i < 12; ++i)
            QVERIFY(writeImage(s.path(QStringLiteral("i%1.png").arg(i, 2, 10, QLatin1Char('0')))));
        QVERIFY(QDir().mkpath(s.path("annotations")));
        ImageAnnotations rec; // only i09 has a file; the scan must still find it after rows above it go
        rec.xmlPath = s.path("annotations/i09.xml");
        rec.boxes = {box("late", 1, 1, 2, 2)};
        QVERIFY(VocXml::save(rec, "x"));
        s.prompts.chooseAnswers << 1 << 1;
        QVERIFY(s.w.openDataset(s.dir.path()));
        QVERIFY(QMetaObject::invokeMethod(&s.w, "scanNextBatch", Qt::DirectConnection));
        QCOMPARE(s.w.scanIndex, 8);
        Q_EMIT s.w.imageList->delegate->removeRequested(3);
        QCOMPARE(s.w.scanIndex, 7);
        Q_EMIT s.w.imageList->delegate->removeRequested(9); // after the scan position
        QCOMPARE(s.w.scanIndex, 7);
        QVERIFY(QMetaObject::invokeMethod(&s.w, "scanNextBatch", Qt::DirectConnection));
        QCOMPARE(s.w.scanIndex, 10);
        QCOMPARE(s.w.imageList->item(8)->text(), "i09.png  *");
        QCOMPARE(s.w.labels.last().name, "late");
    }
};

QTEST_MAIN(TestImageList)
#include "tst_imagelist.moc"
