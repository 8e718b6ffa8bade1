#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QFile>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QMouseEvent>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <memory>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "model/vocxml.h"
#include "support/scriptedprompts.h"

// The whole way of an edit through the real window: mouse and keys on the canvas, the
// undo snapshot, the file on disk, the image list row, the annotations panel and the
// status line; and the window's keys as they arrive from the focused widget.

using namespace sessiontest;

Q_DECLARE_METATYPE(ShapeType)

namespace {

const QSize ImageSize(200, 100);

QList<BoxAnnotation> onDisk(const QString& xmlPath)
{
    ImageAnnotations record;
    record.xmlPath = xmlPath;
    if (!VocXml::load(record))
        return {};
    return record.boxes;
}

QString panelRows(const MainWindow& w)
{
    QStringList rows;
    for (int i = 0; i < w.annotationsPanel->rowCount(); ++i)
        rows << w.annotationsPanel->rowText(i);
    return rows.join(',');
}

} // namespace

class TestEditRoad : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> dir;
    std::unique_ptr<MainWindow> w;
    std::unique_ptr<ScriptedPrompts> prompts;

    ImageCanvas* canvas() const { return w->canvas; }
    QString xmlOf(int row) const { return w->images.at(row).xmlPath; }
    QPoint at(const QPointF& imagePos) const
    {
        const QPointF p = canvas()->imageToWidget(imagePos);
        return QPoint(int(std::lround(p.x())), int(std::lround(p.y())));
    }
    void press(const QPoint& pos) { QTest::mousePress(canvas(), Qt::LeftButton, {}, pos); }
    void moveTo(const QPoint& pos, Qt::MouseButtons buttons = Qt::LeftButton)
    {
        QMouseEvent ev(QEvent::MouseMove, QPointF(pos), canvas()->mapToGlobal(QPointF(pos)),
                       Qt::NoButton, buttons, Qt::NoModifier);
        QApplication::sendEvent(canvas(), &ev);
    }
    void release(const QPoint& pos) { QTest::mouseRelease(canvas(), Qt::LeftButton, {}, pos); }
    void drag(const QPointF& from, const QPointF& to)
    {
        press(at(from));
        moveTo(at((from + to) / 2));
        moveTo(at(to));
        release(at(to));
    }
    // A key as the user types it: to the focused widget, from there up to the window.
    bool key(QWidget* target, int k, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QKeyEvent press(QEvent::KeyPress, k, modifiers);
        QApplication::sendEvent(target, &press);
        QKeyEvent release(QEvent::KeyRelease, k, modifiers);
        QApplication::sendEvent(target, &release);
        return press.isAccepted();
    }
    QString statusFor(int row, int shapes) const
    {
        return imageStatus(row + 1, w->images.size(),
                           QStringLiteral("%1.png").arg(QChar('a' + row)), ImageSize.width(),
                           ImageSize.height(), shapes);
    }

private Q_SLOTS:
    void init();
    void cleanup();

    void drawnShapeReachesFile_data();
    void drawnShapeReachesFile();
    void movedShapeUndoneByKey();
    void deleteKeyEmptiesFile();
    void escapedDragLeavesNoUndoStep();
    void labelComboEndsSelection();
    void windowKeysFromFocusedCanvas_data();
    void windowKeysFromFocusedCanvas();
    void saveKeyOnEmptyImage_data();
    void saveKeyOnEmptyImage();
    void arrowsWithImageListFocused();
    void spaceDragPansInsteadOfDrawing();
    void spaceTypedIntoLineEdit();
};

void TestEditRoad::init()
{
    dir = std::make_unique<QTemporaryDir>();
    QVERIFY(dir->isValid());
    for (const char* name : {"a.png", "b.png", "c.png"})
        QVERIFY(writeImage(dir->filePath(QLatin1String(name)), ImageSize.width(), ImageSize.height()));
    prompts = std::make_unique<ScriptedPrompts>();
    w = std::make_unique<MainWindow>();
    w->resize(1280, 800);
    // Image pixels land on whole widget pixels: scale 4, no offset.
    canvas()->setFixedSize(800, 400);
    w->show();
    QVERIFY(QTest::qWaitForWindowActive(w.get()));
    QVERIFY(w->openDataset(dir->path()));
    QTRY_VERIFY(scanDone(*w));
    QCOMPARE(w->currentIndex, 0);
    QCOMPARE(canvas()->scale(), 4.0);
    QCOMPARE(canvas()->offset(), QPointF(0, 0));
}

void TestEditRoad::cleanup()
{
    if (prompts)
        QVERIFY2(prompts->calls.isEmpty(), qPrintable(prompts->last().title));
    w.reset();
    prompts.reset();
    dir.reset();
}

void TestEditRoad::drawnShapeReachesFile_data()
{
    QTest::addColumn<int>("createRow"); // row of the Create combo
    QTest::addColumn<ShapeType>("kind");
    QTest::addColumn<QString>("liveStatus");

    QTest::newRow("bounding box") << 0 << ShapeType::BoundingBox
                                  << "Drawing: (20, 10) to (89, 59)  |  Size: 70 x 50 px";
    QTest::newRow("line") << 2 << ShapeType::Line
                          << "Drawing: (20, 10) to (89, 59)  |  Size: 70 x 50 px";
    QTest::newRow("rotated box") << 4 << ShapeType::RotatedBox
                                 << "Drawing: (20, 10) to (89, 59)  |  Size: 70 x 50 px";
    // The second entry of an ellipse holds the semi-axes (35, 25).
    QTest::newRow("ellipse") << 6 << ShapeType::Ellipse
                             << "Drawing: (35, 25) to (54, 34)  |  Size: 20 x 10 px";
}

void TestEditRoad::drawnShapeReachesFile()
{
    QFETCH(int, createRow);
    QFETCH(ShapeType, kind);
    QFETCH(QString, liveStatus);

    const BoxAnnotation existing = box("object", 120, 60, 180, 90);
    editShapes(*w, {existing});
    w->undoStack.clear();
    QCOMPARE(w->imageList->item(0)->text(), QStringLiteral("a.png  *"));
    QCOMPARE(w->imageList->item(1)->text(), QStringLiteral("b.png"));

    w->createCombo->setCurrentIndex(createRow);
    QCOMPARE(canvas()->currentShape(), kind);

    // Press: the shapes before the change are kept for undo, nothing is written yet.
    press(at(QPointF(20, 10)));
    QCOMPARE(w->undoStack, (QList<QList<BoxAnnotation>>{{existing}}));
    QCOMPARE(onDisk(xmlOf(0)), QList<BoxAnnotation>{existing});

    moveTo(at(QPointF(50, 30)));
    moveTo(at(QPointF(90, 60)));
    QCOMPARE(status(*w), liveStatus);
    QCOMPARE(onDisk(xmlOf(0)), QList<BoxAnnotation>{existing});

    // Release: the new shape is in the record, the file, the panel and the status line.
    release(at(QPointF(90, 60)));
    QCOMPARE(canvas()->boxes().size(), 2);
    const BoxAnnotation made = canvas()->boxes().at(1);
    QCOMPARE(made.type, kind);
    QCOMPARE(made.label, QStringLiteral("object"));
    QCOMPARE(w->images[0].boxes, canvas()->boxes());
    QCOMPARE(onDisk(xmlOf(0)), canvas()->boxes());
    QCOMPARE(w->imageList->item(0)->text(), QStringLiteral("a.png  *"));
    QCOMPARE(panelRows(*w), QStringLiteral("object,object"));
    QCOMPARE(w->annotationsPanel->currentRow(), 1);
    QCOMPARE(status(*w), statusFor(0, 2));
    QCOMPARE(w->undoStack.size(), 1);
    QVERIFY(!QFile::exists(xmlOf(1)));
}

void TestEditRoad::movedShapeUndoneByKey()
{
    // Drawn on an image without a file: the first release creates it.
    QVERIFY(!QFile::exists(xmlOf(0)));
    drag(QPointF(20, 20), QPointF(60, 50));
    const BoxAnnotation drawn = box("object", 20, 20, 60, 50);
    QCOMPARE(onDisk(xmlOf(0)), QList<BoxAnnotation>{drawn});
    QCOMPARE(w->imageList->item(0)->text(), QStringLiteral("a.png  *"));
    QCOMPARE(status(*w), statusFor(0, 1));

    // Press inside the selected box and drag it 30 right, 10 down.
    press(at(QPointF(40, 30)));
    QCOMPARE(w->undoStack.size(), 2);
    QCOMPARE(w->undoStack.last(), QList<BoxAnnotation>{drawn});
    moveTo(at(QPointF(70, 40)));
    release(at(QPointF(70, 40)));
    const BoxAnnotation moved = box("object", 50, 30, 90, 60);
    QCOMPARE(canvas()->boxes(), QList<BoxAnnotation>{moved});
    QCOMPARE(onDisk(xmlOf(0)), QList<BoxAnnotation>{moved});

    // Ctrl+Z typed on the canvas reaches the window and restores the file.
    QCOMPARE(QApplication::focusWidget(), static_cast<QWidget*>(canvas()));
    QVERIFY(key(canvas(), Qt::Key_Z, Qt::ControlModifier));
    QCOMPARE(canvas()->boxes(), QList<BoxAnnotation>{drawn});
    QCOMPARE(onDisk(xmlOf(0)), QList<BoxAnnotation>{drawn});
    QVERIFY(key(canvas(), Qt::Key_Y, Qt::ControlModifier));
    QCOMPARE(onDisk(xmlOf(0)), QList<BoxAnnotation>{moved});

    // Shift+Right with the shape selected is the canvas's nudge, not the next image.
    canvas()->setSelectedIndex(0);
    QVERIFY(key(canvas(), Qt::Key_Right, Qt::ShiftModifier));
    QCOMPARE(w->currentIndex, 0);
    QCOMPARE(onDisk(xmlOf(0)), QList<BoxAnnotation>{box("object", 60, 30, 100, 60)});
    QCOMPARE(panelRows(*w), QStringLiteral("object"));
}

void TestEditRoad::deleteKeyEmptiesFile()
{
    drag(QPointF(20, 20), QPointF(60, 50));
    QVERIFY(QFile::exists(xmlOf(0)));
    QCOMPARE(canvas()->selectedIndex(), 0);

    QVERIFY(key(canvas(), Qt::Key_Delete));
    QVERIFY(canvas()->boxes().isEmpty());
    QVERIFY(w->images[0].boxes.isEmpty());
    QVERIFY(!QFile::exists(xmlOf(0)));
    QCOMPARE(w->imageList->item(0)->text(), QStringLiteral("a.png"));
    QCOMPARE(w->annotationsPanel->rowCount(), 0);
    QCOMPARE(status(*w), statusFor(0, 0));

    QVERIFY(key(canvas(), Qt::Key_Z, Qt::ControlModifier));
    QCOMPARE(onDisk(xmlOf(0)), QList<BoxAnnotation>{box("object", 20, 20, 60, 50)});
    QCOMPARE(w->imageList->item(0)->text(), QStringLiteral("a.png  *"));
}

void TestEditRoad::escapedDragLeavesNoUndoStep()
{
    drag(QPointF(20, 20), QPointF(60, 50));
    QVERIFY(key(canvas(), Qt::Key_Escape)); // deselects
    // A second box is dragged out, then called off.
    press(at(QPointF(100, 60)));
    moveTo(at(QPointF(150, 90)));
    QVERIFY(key(canvas(), Qt::Key_Escape));
    release(at(QPointF(150, 90)));
    // The next undo takes back the first box.
    QVERIFY(key(canvas(), Qt::Key_Z, Qt::ControlModifier));
    QVERIFY(canvas()->boxes().isEmpty());
    QVERIFY(!QFile::exists(xmlOf(0)));
}

void TestEditRoad::labelComboEndsSelection()
{
    w->labels = {{"object", QColor(0, 220, 220)}, {"car", QColor(255, 100, 100)}};
    w->applyLabels();
    QCOMPARE(w->classCombo->count(), 2);

    drag(QPointF(20, 20), QPointF(60, 50));
    QCOMPARE(canvas()->selectedIndex(), 0);
    QCOMPARE(w->annotationsPanel->currentRow(), 0);

    // Picking another label drops the selection, so the next drag draws a new shape in
    // the new label rather than moving the old one.
    w->classCombo->setCurrentIndex(1);
    QCOMPARE(canvas()->currentLabel, QStringLiteral("car"));
    QCOMPARE(canvas()->selectedIndex(), -1);
    QVERIFY(w->annotationsPanel->listView()->selectionModel()->selectedIndexes().isEmpty());
    drag(QPointF(100, 20), QPointF(140, 60));
    QCOMPARE(onDisk(xmlOf(0)),
             (QList<BoxAnnotation>{box("object", 20, 20, 60, 50), box("car", 100, 20, 140, 60)}));
    QCOMPARE(panelRows(*w), QStringLiteral("object,car"));

    // Select-all mode ends too; a drag then draws instead of moving everything.
    QVERIFY(key(canvas(), Qt::Key_A, Qt::ControlModifier));
    QVERIFY(canvas()->allSelected());
    w->classCombo->setCurrentIndex(0);
    QVERIFY(!canvas()->allSelected());
    QCOMPARE(canvas()->selectedIndex(), -1);
    drag(QPointF(150, 10), QPointF(190, 40));
    QCOMPARE(onDisk(xmlOf(0)).size(), 3);
    QCOMPARE(onDisk(xmlOf(0)).at(2), box("object", 150, 10, 190, 40));
}

void TestEditRoad::windowKeysFromFocusedCanvas_data()
{
    QTest::addColumn<int>("start");
    QTest::addColumn<bool>("selected");
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<int>("index");
    QTest::addColumn<double>("zoom");
    QTest::addColumn<bool>("accepted");

    const int ctrl = int(Qt::ControlModifier);
    QTest::newRow("Right, nothing selected") << 0 << false << int(Qt::Key_Right) << 0 << 1 << 1.0 << true;
    QTest::newRow("Left") << 1 << false << int(Qt::Key_Left) << 0 << 0 << 1.0 << true;
    QTest::newRow("Left at the first image") << 0 << false << int(Qt::Key_Left) << 0 << 0 << 1.0 << true;
    QTest::newRow("Right at the last image") << 2 << false << int(Qt::Key_Right) << 0 << 2 << 1.0 << true;
    QTest::newRow("PageDown with a selection") << 0 << true << int(Qt::Key_PageDown) << 0 << 1 << 1.0 << true;
    QTest::newRow("PageUp") << 2 << false << int(Qt::Key_PageUp) << 0 << 1 << 1.0 << true;
    QTest::newRow("D") << 0 << true << int(Qt::Key_D) << 0 << 1 << 1.0 << true;
    QTest::newRow("Ctrl+D stays") << 0 << false << int(Qt::Key_D) << ctrl << 0 << 1.0 << false;
    QTest::newRow("A steps back") << 1 << true << int(Qt::Key_A) << 0 << 0 << 1.0 << true;
    QTest::newRow("plus") << 0 << false << int(Qt::Key_Plus) << 0 << 0 << 1.25 << true;
    QTest::newRow("equals") << 0 << true << int(Qt::Key_Equal) << 0 << 0 << 1.25 << true;
    QTest::newRow("minus") << 0 << false << int(Qt::Key_Minus) << 0 << 0 << 0.8 << true;
    QTest::newRow("F after zooming") << 0 << false << int(Qt::Key_F) << 0 << 0 << 1.0 << true;
}

void TestEditRoad::windowKeysFromFocusedCanvas()
{
    QFETCH(int, start);
    QFETCH(bool, selected);
    QFETCH(int, key);
    QFETCH(int, modifiers);
    QFETCH(int, index);
    QFETCH(double, zoom);
    QFETCH(bool, accepted);

    w->imageList->setCurrentRow(start);
    QCOMPARE(w->currentIndex, start);
    // The drawn shape is selected, and the press gave the canvas the focus.
    drag(QPointF(20, 20), QPointF(60, 50));
    if (!selected)
        QVERIFY(this->key(canvas(), Qt::Key_Escape));
    QCOMPARE(canvas()->selectedIndex(), selected ? 0 : -1);
    QCOMPARE(QApplication::focusWidget(), static_cast<QWidget*>(canvas()));
    if (key == Qt::Key_F)
        canvas()->zoomIn();

    QCOMPARE(this->key(canvas(), key, Qt::KeyboardModifiers(modifiers)), accepted);
    QCOMPARE(w->currentIndex, index);
    QCOMPARE(w->imageList->currentRow(), index);
    QCOMPARE(canvas()->zoom(), zoom);
    // Leaving an image keeps its shape on disk; the new image starts empty.
    QCOMPARE(onDisk(xmlOf(start)).size(), 1);
    QCOMPARE(canvas()->boxes().size(), index == start ? 1 : 0);
}

void TestEditRoad::saveKeyOnEmptyImage_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<bool>("listFocused"); // else the canvas has the focus

    QTest::newRow("Ctrl+S on the canvas") << int(Qt::Key_S) << false;
    QTest::newRow("Ctrl+M on the canvas") << int(Qt::Key_M) << false;
    QTest::newRow("Ctrl+S in the image list") << int(Qt::Key_S) << true;
    QTest::newRow("Ctrl+M in the image list") << int(Qt::Key_M) << true;
    // The canvas keeps Escape for itself; from the list it reaches the window.
    QTest::newRow("Ctrl+Escape in the image list") << int(Qt::Key_Escape) << true;
}

void TestEditRoad::saveKeyOnEmptyImage()
{
    QFETCH(int, key);
    QFETCH(bool, listFocused);

    w->imageList->setCurrentRow(1);
    QWidget* focus = listFocused ? static_cast<QWidget*>(w->imageList) : canvas();
    focus->setFocus();
    QCOMPARE(QApplication::focusWidget(), focus);
    QVERIFY(!QFile::exists(xmlOf(1)));

    // Without Ctrl nothing is written.
    this->key(focus, key);
    QVERIFY(!QFile::exists(xmlOf(1)));
    QCOMPARE(w->currentIndex, 1);

    QVERIFY(this->key(focus, key, Qt::ControlModifier));
    QVERIFY(QFile::exists(xmlOf(1)));
    const QByteArray xml = readBytes(xmlOf(1));
    QVERIFY(xml.contains("<annotation"));
    QVERIFY(!xml.contains("<object>"));
    QCOMPARE(w->imageList->item(1)->text(), QStringLiteral("b.png  *"));
    QCOMPARE(w->imageList->item(0)->text(), QStringLiteral("a.png"));
    QCOMPARE(status(*w), statusFor(1, 0));
    QVERIFY(!QFile::exists(xmlOf(0)));
}

void TestEditRoad::arrowsWithImageListFocused()
{
    w->imageList->setFocus();
    QCOMPARE(QApplication::focusWidget(), static_cast<QWidget*>(w->imageList));

    key(w->imageList, Qt::Key_Right);
    QCOMPARE(w->currentIndex, 1);
    key(w->imageList, Qt::Key_Down);
    QCOMPARE(w->currentIndex, 2);
    key(w->imageList, Qt::Key_Right);
    QCOMPARE(w->currentIndex, 2);
    key(w->imageList, Qt::Key_Up);
    QCOMPARE(w->currentIndex, 1);
    key(w->imageList, Qt::Key_Left);
    QCOMPARE(w->currentIndex, 0);
    QCOMPARE(w->imageList->currentRow(), 0);
    QCOMPARE(status(*w), statusFor(0, 0));
}

void TestEditRoad::spaceDragPansInsteadOfDrawing()
{
    canvas()->setFocus();
    const QPointF panBefore = canvas()->pan();

    // Space goes through the window's filter, whichever widget has the focus.
    QTest::keyPress(canvas(), Qt::Key_Space);
    QVERIFY(canvas()->spaceHeld());
    QCOMPARE(canvas()->hintText(), QStringLiteral("Pan mode"));
    QTest::mousePress(canvas(), Qt::LeftButton, {}, QPoint(300, 300));
    QCOMPARE(canvas()->dragMode(), ImageCanvas::Pan);
    moveTo(QPoint(340, 320));
    QTest::mouseRelease(canvas(), Qt::LeftButton, {}, QPoint(340, 320));
    QTest::keyRelease(canvas(), Qt::Key_Space);
    QVERIFY(!canvas()->spaceHeld());

    QCOMPARE(canvas()->pan(), panBefore + QPointF(40, 20));
    QVERIFY(canvas()->boxes().isEmpty());
    QVERIFY(w->undoStack.isEmpty());
    QVERIFY(!QFile::exists(xmlOf(0)));

    // Without Space the same drag draws.
    drag(canvas()->widgetToImage(QPointF(300, 300)), canvas()->widgetToImage(QPointF(340, 340)));
    QCOMPARE(canvas()->boxes().size(), 1);
    QVERIFY(QFile::exists(xmlOf(0)));
}

void TestEditRoad::spaceTypedIntoLineEdit()
{
    QDialog dialog(w.get());
    auto* edit = new QLineEdit(&dialog);
    dialog.show();
    dialog.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&dialog));
    edit->setFocus();
    QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(edit));

    QTest::keyClicks(edit, QStringLiteral("a b"));
    QCOMPARE(edit->text(), QStringLiteral("a b"));
    QVERIFY(!canvas()->spaceHeld());

    // A press in the line edit and the release elsewhere leave pan mode off too.
    QTest::keyPress(edit, Qt::Key_Space);
    QVERIFY(!canvas()->spaceHeld());
    QTest::keyRelease(edit, Qt::Key_Space);
    QCOMPARE(edit->text(), QStringLiteral("a b "));
    dialog.close();
}

QTEST_MAIN(TestEditRoad)
#include "tst_editroad.moc"
