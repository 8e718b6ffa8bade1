#include <QFile>
#include <QImage>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

#include "app/imagelistwidget.h"
#include "app/mainwindow.h"
#include "canvas/imagecanvas.h"
#include "model/imagecache.h"
#include "support/apppixels.h"
#include "support/sessionfixture.h"

using namespace sessionfx;

namespace {

void writeImage(const QString& path, const QSize& size, const QColor& colour)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    QVERIFY(image.save(path, nullptr, 95));
}

// Colour at the middle of what the canvas holds.
QColor shownColour(const ImageCanvas* canvas)
{
    const QImage image = canvas->pixmap().toImage();
    return image.pixelColor(image.width() / 2, image.height() / 2);
}


} // namespace

class TestInstant : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void neighboursDecodedAheadInTravelDirection_data()
    {
        QTest::addColumn<QList<int>>("rowsShown");
        QTest::addColumn<QStringList>("wanted");
        QTest::newRow("forward") << QList<int>{0, 1, 2} << QStringList{"2", "3", "4", "1"};
        QTest::newRow("backward") << QList<int>{0, 5, 4} << QStringList{"4", "3", "2", "5"};
        QTest::newRow("last row") << QList<int>{0, 5} << QStringList{"5", "4"};
    }

    void neighboursDecodedAheadInTravelDirection()
    {
        QFETCH(QList<int>, rowsShown);
        QFETCH(QStringList, wanted);
        Session s;
        for (int i = 0; i < 6; ++i)
            writeImage(s.path(QString("%1.png").arg(i)), QSize(40, 30), Qt::gray);
        QVERIFY(s.w.openDataset(s.dir.path()));
        for (int row : rowsShown)
            s.w.imageList->setCurrentRow(row);
        QStringList names;
        for (const QString& path : s.w.imageCache->wanted())
            names.append(QFileInfo(path).baseName());
        QCOMPARE(names, wanted);
    }

    void staleDecodeNeverShows()
    {
        Session s;
        // Larger than the view, so that the full resolution of each comes from the worker.
        writeImage(s.path("a.jpg"), QSize(3000, 2000), Qt::red);
        writeImage(s.path("b.jpg"), QSize(3000, 2000), Qt::blue);
        s.w.resize(800, 600);
        QSignalSpy decoded(s.w.imageCache, &ImageCache::decoded);
        QVERIFY(s.w.openDataset(s.dir.path()));
        s.w.imageList->setCurrentRow(1); // before a's full resolution arrived
        QTRY_VERIFY_WITH_TIMEOUT(s.w.canvas->hasFullResolution(), 10000);
        s.w.imageCache->waitForRunning();
        QCoreApplication::processEvents();
        QCOMPARE(s.w.canvas->pixmap().size(), QSize(3000, 2000));
        QVERIFY(near(shownColour(s.w.canvas), Qt::blue, 9));
        QCOMPARE(s.w.currentIndex, 1);
    }

    void fileChangedAfterDecodeAheadIsShownAnew()
    {
        Session s;
        writeImage(s.path("a.png"), QSize(64, 48), Qt::red);
        writeImage(s.path("b.png"), QSize(64, 48), Qt::green);
        QVERIFY(s.w.openDataset(s.dir.path()));
        const QString b = s.w.images[1].imagePath;
        QTRY_VERIFY_WITH_TIMEOUT(s.w.imageCache->keptPaths().contains(b), 5000);

        writeImage(b, QSize(48, 64), Qt::blue);
        QFile file(b);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(5), QFileDevice::FileModificationTime));
        file.close();
        s.w.imageList->setCurrentRow(1);
        QCOMPARE(s.w.canvas->imageSize(), QSize(48, 64));
        QCOMPARE(s.w.images[1].width, 48);
        QVERIFY(near(shownColour(s.w.canvas), Qt::blue, 9));
    }

    void largePhotoShownReducedThenFullWithShapesInFullPixels()
    {
        Session s;
        writeImage(s.path("big.jpg"), QSize(4000, 3000), QColor(30, 160, 90));
        s.w.resize(900, 700);
        s.w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&s.w));
        QVERIFY(s.w.openDataset(s.dir.path()));
        ImageCanvas* canvas = s.w.canvas;
        QCOMPARE(canvas->imageSize(), QSize(4000, 3000));
        QCOMPARE(s.w.images[0].width, 4000);
        QVERIFY(canvas->pixmap().width() <= canvas->width() * canvas->devicePixelRatioF());
        const double scaleBefore = canvas->scale();

        // A box dragged while the reduced image is shown is stored in full-resolution
        // pixels (one widget pixel is several image pixels here).
        const QPoint from = canvas->imageToWidget(QPointF(1000, 1000)).toPoint();
        const QPoint to = canvas->imageToWidget(QPointF(3000, 2000)).toPoint();
        QTest::mousePress(canvas, Qt::LeftButton, {}, from);
        QTest::mouseMove(canvas, to);
        QTest::mouseRelease(canvas, Qt::LeftButton, {}, to);
        QCOMPARE(canvas->boxes().size(), 1);
        const QRect stored = canvas->boxes().first().boundingRect();
        const int slack = int(std::ceil(1 / canvas->scale()));
        QVERIFY2(qAbs(stored.left() - 1000) <= slack && qAbs(stored.top() - 1000) <= slack
                     && qAbs(stored.right() - 3000) <= slack && qAbs(stored.bottom() - 2000) <= slack,
                 qPrintable(QString("stored %1,%2 to %3,%4").arg(stored.left()).arg(stored.top())
                                .arg(stored.right()).arg(stored.bottom())));
        const QPointF offsetBefore = canvas->offset();

        QTRY_VERIFY_WITH_TIMEOUT(canvas->hasFullResolution(), 10000);
        QCOMPARE(canvas->pixmap().size(), QSize(4000, 3000));
        QCOMPARE(canvas->scale(), scaleBefore); // no jump
        QCOMPARE(canvas->offset(), offsetBefore);
        QCOMPARE(canvas->boxes().size(), 1);
        QVERIFY(near(shownColour(canvas), QColor(30, 160, 90), 9));
    }
};

QTEST_MAIN(TestInstant)
#include "tst_instant.moc"
