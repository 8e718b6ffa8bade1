#include <QDir>
#include <QFile>
#include <QPainter>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "app/imagelistwidget.h"
#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "model/vocxml.h"
#include "support/scriptedprompts.h"

using namespace sessiontest;

namespace {

QStringList names(int count)
{
    QStringList out;
    for (int i = 0; i < count; ++i)
        out << QStringLiteral("img%1.png").arg(i);
    return out;
}

// A list of `count` rows, shown, with room for them all.
struct ShownList {
    ImageListWidget list;
    explicit ShownList(int count)
    {
        list.resize(240, 400);
        list.addItems(names(count));
        list.show();
        QVERIFY(QTest::qWaitForWindowExposed(&list));
    }
    QPoint xCentre(int row)
    {
        const QRect rect = list.visualRect(list.model()->index(row, 0));
        return list.delegate->xButtonRect(rect).center();
    }
};

bool near(QColor a, QColor b, int tolerance = 12)
{
    return qAbs(a.red() - b.red()) <= tolerance && qAbs(a.green() - b.green()) <= tolerance
           && qAbs(a.blue() - b.blue()) <= tolerance;
}

} // namespace

class TestImageList : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void xButtonRect_data();
    void xButtonRect();
    void rowsAreAtLeast30High();
    void hoverTracking();
    void paintsPlainAndHoveredMark();
    void clickOnMarkRequestsRemovalWithoutSelecting();
    void clickElsewhereSelects();
    void removal_data();
    void removal();
    void removeOnlyImageEmptiesView();
    void removalQuestionAndCancel();
    void deleteFileKeepsXml();
    void dirtyCurrentSavedBeforeRemoval();
    void removalKeepsScanPosition();
};

void TestImageList::xButtonRect_data()
{
    QTest::addColumn<QRect>("row");
    QTest::addColumn<QRect>("expected");
    QTest::newRow("30 px row") << QRect(0, 0, 200, 30) << QRect(175, 6, 18, 18);
    QTest::newRow("offset row") << QRect(10, 60, 100, 30) << QRect(85, 66, 18, 18);
    QTest::newRow("odd height truncates") << QRect(0, 0, 200, 31) << QRect(175, 6, 18, 18);
    QTest::newRow("low row: negative offset truncates toward zero")
        << QRect(0, 0, 50, 15) << QRect(25, -1, 18, 18);
}

void TestImageList::xButtonRect()
{
    QFETCH(QRect, row);
    QFETCH(QRect, expected);
    ImageListDelegate delegate;
    const QRect r = delegate.xButtonRect(row);
    QCOMPARE(r, expected);
    QCOMPARE(row.right() - r.right(), 7);
}

void TestImageList::rowsAreAtLeast30High()
{
    ShownList shown(3);
    QVERIFY(shown.list.visualRect(shown.list.model()->index(0, 0)).height() >= 30);
    QStyleOptionViewItem option;
    option.font = shown.list.font();
    QVERIFY(shown.list.delegate->sizeHint(option, shown.list.model()->index(0, 0)).height() >= 30);
}

void TestImageList::hoverTracking()
{
    ShownList shown(3);
    ImageListDelegate* d = shown.list.delegate;
    QVERIFY(shown.list.hasMouseTracking());

    QTest::mouseMove(shown.list.viewport(), shown.xCentre(1));
    QCOMPARE(d->hoverRow, 1);
    QTest::mouseMove(shown.list.viewport(), shown.xCentre(1) - QPoint(60, 0));
    QCOMPARE(d->hoverRow, -1);
    QTest::mouseMove(shown.list.viewport(), shown.xCentre(2));
    QCOMPARE(d->hoverRow, 2);

    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(&shown.list, &leave);
    QCOMPARE(d->hoverRow, -1);

    // The delegate's own reports of change.
    const QModelIndex index = shown.list.model()->index(0, 0);
    const QRect rect = shown.list.visualRect(index);
    QVERIFY(d->handleMouseMove(d->xButtonRect(rect).center(), index, rect));
    QVERIFY(!d->handleMouseMove(d->xButtonRect(rect).center(), index, rect));
    QVERIFY(d->handleMouseMove(QPoint(-1, -1), QModelIndex(), QRect()));
    QVERIFY(!d->handleMouseMove(QPoint(-1, -1), QModelIndex(), QRect()));
}

void TestImageList::paintsPlainAndHoveredMark()
{
    ShownList shown(2);
    ImageListDelegate* d = shown.list.delegate;
    const QRect row = shown.list.visualRect(shown.list.model()->index(0, 0));
    const QRect mark = d->xButtonRect(row);
    // Inside the square, clear of the cross; and the cross's centre.
    const QPoint background = mark.topLeft() + QPoint(2, 15);
    const QPoint cross(row.right() - 16, mark.top() + 8);

    d->hoverRow = -1;
    QImage plain = shown.list.viewport()->grab().toImage();
    QVERIFY(!near(plain.pixelColor(background), QColor(200, 50, 50)));
    QVERIFY(near(plain.pixelColor(cross), QColor(160, 80, 80), 40));

    d->hoverRow = 0;
    QImage hovered = shown.list.viewport()->grab().toImage();
    QVERIFY(near(hovered.pixelColor(background), QColor(200, 50, 50)));
    QVERIFY(near(hovered.pixelColor(cross), Qt::white, 60));
    // The other row keeps its plain mark.
    const QRect row1 = shown.list.visualRect(shown.list.model()->index(1, 0));
    QVERIFY(!near(hovered.pixelColor(d->xButtonRect(row1).topLeft() + QPoint(2, 15)),
                  QColor(200, 50, 50)));
}

void TestImageList::clickOnMarkRequestsRemovalWithoutSelecting()
{
    ShownList shown(3);
    shown.list.setCurrentRow(0);
    QSignalSpy spy(shown.list.delegate, &ImageListDelegate::removeRequested);
    QTest::mouseClick(shown.list.viewport(), Qt::LeftButton, {}, shown.xCentre(2));
    QCOMPARE(spy.size(), 1);
    QCOMPARE(spy.first().first().toInt(), 2);
    QCOMPARE(shown.list.currentRow(), 0);

    QTest::mouseClick(shown.list.viewport(), Qt::RightButton, {}, shown.xCentre(1));
    QCOMPARE(spy.size(), 2);
    QCOMPARE(spy.last().first().toInt(), 1);
}

void TestImageList::clickElsewhereSelects()
{
    ShownList shown(3);
    shown.list.setCurrentRow(0);
    QSignalSpy spy(shown.list.delegate, &ImageListDelegate::removeRequested);
    QTest::mouseClick(shown.list.viewport(), Qt::LeftButton, {}, shown.xCentre(2) - QPoint(80, 0));
    QCOMPARE(shown.list.currentRow(), 2);
    QCOMPARE(spy.size(), 0);
}

void TestImageList::removal_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("shown");
    QTest::addColumn<int>("removed");
    QTest::addColumn<int>("expectedRow");
    QTest::addColumn<QString>("expectedImage");

    QTest::newRow("last row while row 1 shown") << 3 << 1 << 2 << 1 << "img1.png";
    QTest::newRow("the shown row 1") << 3 << 1 << 1 << 1 << "img2.png";
    QTest::newRow("the shown last row") << 3 << 2 << 2 << 1 << "img1.png";
    QTest::newRow("another row moves the view") << 10 << 0 << 5 << 5 << "img6.png";
    QTest::newRow("a row above the shown one") << 4 << 3 << 0 << 0 << "img1.png";
    QTest::newRow("the shown first row") << 3 << 0 << 0 << 0 << "img1.png";
}

void TestImageList::removal()
{
    QFETCH(int, count);
    QFETCH(int, shown);
    QFETCH(int, removed);
    QFETCH(int, expectedRow);
    QFETCH(QString, expectedImage);

    QTemporaryDir dir;
    const QStringList all = names(count);
    for (const QString& name : all)
        QVERIFY(writeImage(dir.filePath(name)));
    ScriptedPrompts prompts;
    prompts.chooseAnswers << 1; // "No, keep file"
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    w.imageList->setCurrentRow(shown);
    editShapes(w, {box("object", 1, 1, 3, 3)});
    w.resize(900, 600);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));

    const QRect rect = w.imageList->visualRect(w.imageList->model()->index(removed, 0));
    QTest::mouseClick(w.imageList->viewport(), Qt::LeftButton, {},
                      w.imageList->delegate->xButtonRect(rect).center());

    QStringList rest = all;
    rest.removeAt(removed);
    QCOMPARE(w.images.size(), count - 1);
    QCOMPARE(w.imageList->count(), count - 1);
    for (int i = 0; i < rest.size(); ++i) {
        QCOMPARE(w.images[i].imagePath, dir.filePath(rest[i]));
        QCOMPARE(w.imageList->item(i)->text().section(' ', 0, 0), rest[i]);
    }
    QCOMPARE(w.currentIndex, expectedRow);
    QCOMPARE(w.imageList->currentRow(), expectedRow);
    QCOMPARE(w.images[w.currentIndex].imagePath, dir.filePath(expectedImage));
    QVERIFY(w.undoStack.isEmpty());
    QVERIFY(QFile::exists(dir.filePath(all[removed])));
    // Only the edited image has a file, and its shapes went nowhere else.
    const QString edited = QString(all[shown]).replace(".png", ".xml");
    QCOMPARE(QDir(w.annotationsFolder).entryList({"*.xml"}), QStringList{edited});
    QCOMPARE(w.canvas->boxes().size(), expectedImage == all[shown] ? 1 : 0);
    QCOMPARE(status(w).section("   |   ", 0, 1),
             QStringLiteral("Image %1 / %2   |   %3").arg(expectedRow + 1).arg(count - 1).arg(expectedImage));
}

void TestImageList::removeOnlyImageEmptiesView()
{
    QTemporaryDir dir;
    QVERIFY(writeImage(dir.filePath("only.png")));
    ScriptedPrompts prompts;
    prompts.chooseAnswers << 1;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    editShapes(w, {box("object", 1, 1, 3, 3)});
    Q_EMIT w.imageList->delegate->removeRequested(0);

    QVERIFY(w.images.isEmpty());
    QCOMPARE(w.imageList->count(), 0);
    QCOMPARE(w.currentIndex, -1);
    QVERIFY(!w.canvas->hasImage());
    QVERIFY(w.canvas->boxes().isEmpty());
    QCOMPARE(w.annotationsPanel->rowCount(), 0);
    QCOMPARE(status(w), QStringLiteral("No data loaded. Click 'Load Data' to begin."));
    // The dataset is still loaded, only empty.
    QVERIFY(w.requireDataLoaded());
}

void TestImageList::removalQuestionAndCancel()
{
    QTemporaryDir dir;
    for (const char* name : {"a.png", "b <i>R&D.png"})
        QVERIFY(writeImage(dir.filePath(name)));
    ScriptedPrompts prompts;
    prompts.chooseAnswers << 2 << -1; // "Cancel", then Escape
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));

    Q_EMIT w.imageList->delegate->removeRequested(1);
    const ScriptedPrompts::Call call = prompts.last();
    QCOMPARE(call.kind, QStringLiteral("choose"));
    QCOMPARE(call.title, QStringLiteral("Remove Image"));
    // The name reads as it is, in bold.
    QCOMPARE(call.shown(), QStringLiteral("Remove b <i>R&D.png from this session?"));
    QVERIFY(call.text.contains(QStringLiteral("<b>b &lt;i&gt;R&amp;D.png</b>")));
    QCOMPARE(call.informativeText,
             QStringLiteral("Would you also like to delete the image file from disk?"));
    QCOMPARE(call.buttons, (QStringList{"Yes, delete file", "No, keep file", "Cancel"}));
    QCOMPARE(w.images.size(), 2);

    Q_EMIT w.imageList->delegate->removeRequested(1);
    QCOMPARE(w.images.size(), 2);
    QCOMPARE(w.imageList->count(), 2);
    QCOMPARE(w.currentIndex, 0);

    // Rows outside the list ask nothing.
    Q_EMIT w.imageList->delegate->removeRequested(2);
    QCOMPARE(prompts.callsOf("choose").size(), 2);
}

void TestImageList::deleteFileKeepsXml()
{
    QTemporaryDir dir;
    for (const char* name : {"a.png", "b.png"})
        QVERIFY(writeImage(dir.filePath(name)));
    ScriptedPrompts prompts;
    prompts.chooseAnswers << 0; // "Yes, delete file"
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    editShapes(w, {box("object", 1, 1, 3, 3)});
    const QString xml = w.images[0].xmlPath;
    const QByteArray before = readBytes(xml);
    QVERIFY(!before.isEmpty());

    Q_EMIT w.imageList->delegate->removeRequested(0);
    QVERIFY(!QFile::exists(dir.filePath("a.png")));
    QCOMPARE(readBytes(xml), before);
    QCOMPARE(rowTexts(w), QStringList{"b.png"});
    QCOMPARE(w.currentIndex, 0);
    QVERIFY(w.canvas->boxes().isEmpty());
}

void TestImageList::dirtyCurrentSavedBeforeRemoval()
{
    QTemporaryDir dir;
    for (const char* name : {"a.png", "b.png", "c.png"})
        QVERIFY(writeImage(dir.filePath(name)));
    ScriptedPrompts prompts;
    prompts.chooseAnswers << 1 << 1;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    // Shapes that reached the record without a save, as an import leaves them.
    w.canvas->setBoxes({box("object", 1, 1, 3, 3)});
    w.images[0].dirty = true;
    Q_EMIT w.imageList->delegate->removeRequested(2);
    QVERIFY(QFile::exists(w.images[0].xmlPath));
    QVERIFY(!w.images[0].dirty);

    // The removed image itself is never written, whatever the canvas holds.
    w.canvas->setBoxes({box("object", 2, 2, 4, 4)});
    w.images[0].dirty = true;
    const QByteArray before = readBytes(w.images[0].xmlPath);
    Q_EMIT w.imageList->delegate->removeRequested(0);
    QCOMPARE(readBytes(dir.filePath("annotations/a.xml")), before);
    QCOMPARE(rowTexts(w), QStringList{"b.png"});
}

void TestImageList::removalKeepsScanPosition()
{
    QTemporaryDir dir;
    for (int i = 0; i < 12; ++i)
        QVERIFY(writeImage(dir.filePath(QStringLiteral("i%1.png").arg(i, 2, 10, QLatin1Char('0')))));
    const QString ann = dir.filePath("annotations");
    QVERIFY(QDir().mkpath(ann));
    // Only i09 has a file; the scan must still find it after rows above it go.
    ImageAnnotations rec;
    rec.xmlPath = ann + "/i09.xml";
    rec.boxes = {box("late", 1, 1, 2, 2)};
    QVERIFY(VocXml::save(rec, "x"));

    ScriptedPrompts prompts;
    prompts.chooseAnswers << 1 << 1;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QVERIFY(QMetaObject::invokeMethod(&w, "scanNextBatch", Qt::DirectConnection));
    QCOMPARE(w.scanIndex, 8);
    Q_EMIT w.imageList->delegate->removeRequested(3);
    QCOMPARE(w.scanIndex, 7);
    Q_EMIT w.imageList->delegate->removeRequested(9); // after the scan position
    QCOMPARE(w.scanIndex, 7);
    QVERIFY(QMetaObject::invokeMethod(&w, "scanNextBatch", Qt::DirectConnection));
    QCOMPARE(w.scanIndex, 10);
    QCOMPARE(w.imageList->item(8)->text(), QStringLiteral("i09.png  *"));
    QCOMPARE(w.labels.last().name, QStringLiteral("late"));
}

QTEST_MAIN(TestImageList)
#include "tst_imagelist.moc"
