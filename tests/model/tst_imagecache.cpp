#include <QDir>
#include <QFile>
#include <QImage>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

#include "model/imagecache.h"
#include "support/coretable.h"
#include "model/imagefolder.h"

namespace {

QString writeImage(const QString& path, const QSize& size, const QColor& colour)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    return image.save(path) ? path : QString();
}

// The paths of the cache's decoded() signals, in order, once `count` have come.
QStringList decodedPaths(QSignalSpy& spy, int count)
{
    QStringList paths;
    while (spy.size() < count && spy.wait(5000)) {
    }
    for (const QList<QVariant>& call : std::as_const(spy))
        paths.append(QFileInfo(call.at(0).toString()).fileName());
    return paths;
}

} // namespace

class TestImageCache : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decodedForView_data()
    {
        // fullShown: 0 x 0 when only a reduced image comes
        // reducedShown: 0 x 0 when no reduced image comes
        columns<QString, QSize, bool, QSize, QSize>("file", "size", "full", "fullShown", "reducedShown");
        // A JPEG larger than the view comes reduced while decoding; a PNG cannot be reduced
        // by its decoder and comes whole, with a reduced copy.
        QTest::newRow("jpeg larger, for showing") << "a.jpg" << QSize(800, 400) << false << QSize(0, 0) << QSize(200, 100);
        QTest::newRow("jpeg larger, full") << "a.jpg" << QSize(800, 400) << true << QSize(800, 400) << QSize(200, 100);
        QTest::newRow("png larger") << "a.png" << QSize(800, 400) << false << QSize(800, 400) << QSize(200, 100);
        QTest::newRow("jpeg within the view") << "a.jpg" << QSize(160, 80) << false << QSize(160, 80) << QSize(0, 0);
    }

    void decodedForView()
    {
        auto [file, size, full, fullShown, reducedShown] = row<QString, QSize, bool, QSize, QSize>("file", "size", "full", "fullShown", "reducedShown");
        QTemporaryDir dir;
        const QString path = writeImage(dir.filePath(file), size, QColor(200, 40, 40));
        const DecodedImage image = ImageDecode::decode(path, QSize(200, 200), full);
        QCOMPARE(image.fullSize, size);
        QCOMPARE(image.full.size(), fullShown);
        QCOMPARE(image.reduced.size(), reducedShown);
        const QImage& shown = image.reduced.isNull() ? image.full : image.reduced;
        const QColor centre = shown.pixelColor(shown.width() / 2, shown.height() / 2);
        QVERIFY(qAbs(centre.red() - 200) < 8 && qAbs(centre.green() - 40) < 8);
    }

    void decodesInOrderWantedAndDropsTheUnwanted_data()
    {
        // then: wanted right after, before any decode ended
        columns<QStringList, QStringList, QStringList>("first", "then", "decoded");
        // c is shown: the next one (d) comes first, then c, then the others in order.
        QTest::newRow("next first") << QStringList{"c", "d", "b", "a"} << QStringList{}
                                    << QStringList{"d.png", "c.png", "b.png", "a.png"};
        // The user moved on: the decode already running ends, the rest are dropped.
        QTest::newRow("moved on") << QStringList{"a", "b", "c"} << QStringList{"d", "c"}
                                  << QStringList{"b.png", "c.png", "d.png"};
    }

    void decodesInOrderWantedAndDropsTheUnwanted()
    {
        auto [first, then, decoded] = row<QStringList, QStringList, QStringList>("first", "then", "decoded");
        QTemporaryDir dir;
        auto paths = [&dir](const QStringList& names) {
            QStringList result;
            for (const QString& name : names)
                result.append(dir.filePath(name + ".png"));
            return result;
        };
        for (const QString& path : paths({"a", "b", "c", "d"}))
            QVERIFY(!writeImage(path, QSize(600, 400), Qt::darkGreen).isEmpty());
        ImageCache cache;
        QSignalSpy spy(&cache, &ImageCache::decoded);
        cache.want(paths(first));
        if (!then.isEmpty())
            cache.want(paths(then));
        QCOMPARE(decodedPaths(spy, decoded.size()), decoded);
        cache.waitForRunning();
        QCOMPARE(spy.size(), decoded.size());
    }

    void changedFileIsNotHandedOut()
    {
        QTemporaryDir dir;
        const QString path = writeImage(dir.filePath("a.png"), QSize(64, 32), Qt::red);
        ImageCache cache;
        QSignalSpy spy(&cache, &ImageCache::decoded);
        cache.want({path});
        QVERIFY(spy.wait(5000));
        QCOMPARE(cache.find(path).full.pixelColor(0, 0), QColor(Qt::red));

        // Written again between the decode ahead and the showing.
        QVERIFY(!writeImage(path, QSize(64, 32), Qt::blue).isEmpty());
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(5), QFileDevice::FileModificationTime));
        file.close();
        QVERIFY(cache.find(path).isNull());
        QVERIFY(!cache.keptPaths().contains(path));
        cache.want({path});
        QVERIFY(spy.wait(5000));
        QCOMPARE(cache.find(path).full.pixelColor(0, 0), QColor(Qt::blue));
    }

    void keptBytesStayWithinBudget()
    {
        QTemporaryDir dir;
        QStringList paths;
        for (int i = 0; i < 5; ++i)
            paths.append(writeImage(dir.filePath(QString("%1.png").arg(i)), QSize(100, 100), Qt::gray));
        const qint64 one = 100 * 100 * 4;
        ImageCache cache;
        cache.setBudget(2 * one + one / 2);
        QSignalSpy spy(&cache, &ImageCache::decoded);
        cache.want(paths);
        while (spy.wait(1000)) {
        }
        QVERIFY(cache.bytesKept() <= cache.budget());
        // The first two wanted are kept; the rest were not decoded for lack of room.
        QStringList kept = cache.keptPaths();
        std::sort(kept.begin(), kept.end());
        QCOMPARE(kept, paths.mid(0, 2));
        // The image shown is kept whatever the budget.
        cache.setBudget(0);
        QCOMPARE(cache.keptPaths(), QStringList{paths.at(0)});
    }

    void listingKeepsImagesInNameOrder()
    {
        QTemporaryDir dir;
        for (const char* name : {"b.png", "A.JPG", "a.tif", ".hidden.jpg", "c.Tiff", "d.jpeg.txt", "e.gif"})
            QVERIFY(QFile(dir.filePath(name)).open(QIODevice::WriteOnly));
        QVERIFY(QDir(dir.path()).mkdir("folder.jpg"));
        QVERIFY(QFile::link(dir.filePath("b.png"), dir.filePath("link.bmp")));
        QVERIFY(QFile::link(dir.filePath("missing.png"), dir.filePath("broken.png")));
        QCOMPARE(ImageFolder::list(dir.path(), "/x/"),
                 (QStringList{"/x/A.JPG", "/x/b.png", "/x/c.Tiff", "/x/e.gif", "/x/link.bmp"}));
    }

    void sortMatchesStringOrder_data()
    {
        columns<QStringList>("names");
        QStringList counters;
        for (int i = 999; i >= 0; i -= 7)
            counters << QString("IMG_%1.jpg").arg(i, 6, 10, QLatin1Char('0')) << QString("IMG_%1.jpg").arg(i);
        QTest::newRow("counters sharing a long start") << counters;
        QTest::newRow("case, length and accents")
            << QStringList{"b.jpg", "B.jpg", "a.jpg", "ab.jpg", "a.jpeg", "é.png", "e.png", "Z.png",
                           "a", "aaaaaaaaaaaa1.png", "aaaaaaaaaaaa.png", "\u4e2d.png", "\U0001F600.png"};
    }

    void sortMatchesStringOrder()
    {
        auto [names] = row<QStringList>("names");
        QStringList expected = names;
        std::sort(expected.begin(), expected.end());
        QStringList prefixed;
        for (const QString& name : names)
            prefixed << "/data/" + name;
        ImageFolder::sortNames(names);
        QCOMPARE(names, expected);
        ImageFolder::sortNames(prefixed, 6);
        for (QString& name : prefixed)
            name.remove(0, 6);
        QCOMPARE(prefixed, expected);
    }
};

QTEST_GUILESS_MAIN(TestImageCache)
#include "tst_imagecache.moc"
