#include <QApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPushButton>
#include <QSignalSpy>
#include <cmath>
#include <memory>

#include "canvas/imagecanvas.h"
#include "support/sessionfixture.h"

// The whole way of an edit through the real window: mouse and keys on the canvas, the
// undo snapshot, the file on disk, the image list row, the annotations panel and the
// status line; and the window's keys as they arrive from the focused widget.

using namespace sessionfx;

Q_DECLARE_METATYPE(ShapeType)

class TestEditRoad : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<Session> s;

    ImageCanvas* canvas() const { return s->w.canvas; }
    QPoint at(const QPointF& imagePos) const
    {
        const QPointF p = canvas()->imageToWidget(imagePos);
        return QPoint(int(std::lround(p.x())), int(std::lround(p.y())));
    }
    void press(const QPointF& pos) { QTest::mousePress(canvas(), Qt::LeftButton, {}, at(pos)); }
    void release(const QPointF& pos) { QTest::mouseRelease(canvas(), Qt::LeftButton, {}, at(pos)); }
    void moveTo(const QPoint& pos)
    {
        QMouseEvent ev(QEvent::MouseMove, QPointF(pos), canvas()->mapToGlobal(QPointF(pos)),
                       Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(canvas(), &ev);
    }
    void drag(const QPointF& from, const QPointF& to)
    {
        press(from);
        moveTo(at((from + to) / 2));
        moveTo(at(to));
        release(to);
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
    bool ctrl(int k) { return key(canvas(), k, Qt::ControlModifier); }
    QString statusFor(int row, int shapes) const
    {
        return imageStatus(row + 1, 3, QStringLiteral("%1.png").arg(QChar('a' + row)), 200, 100, shapes);
    }

private Q_SLOTS:
    void init()
    {
        s = std::make_unique<Session>();
        s->w.resize(1280, 800);
        // Image pixels land on whole widget pixels: scale 4, no offset.
        canvas()->setFixedSize(800, 400);
        s->w.show();
        QVERIFY(QTest::qWaitForWindowActive(&s->w));
        QVERIFY(s->open({{}, {}, {}}, true, QSize(200, 100)));
        QCOMPARE(canvas()->scale(), 4.0);
        QCOMPARE(canvas()->offset(), QPointF(0, 0));
    }

    void cleanup()
    {
        if (s)
            QVERIFY2(s->prompts.calls.isEmpty(), qPrintable(s->prompts.last().title));
        s.reset();
    }

    void drawnShapeReachesFile_data()
    {
        QTest::addColumn<int>("createRow"); // row of the Create combo
        QTest::addColumn<ShapeType>("kind");
        QTest::addColumn<QString>("liveStatus");
        const QString drawn = "Drawing: (20, 10) to (89, 59)  |  Size: 70 x 50 px";
        QTest::newRow("bounding box") << 0 << ShapeType::BoundingBox << drawn;
        // The second entry of an ellipse holds the semi-axes (35, 25).
        QTest::newRow("ellipse") << 6 << ShapeType::Ellipse << "Drawing: (35, 25) to (54, 34)  |  Size: 20 x 10 px";
    }

    void drawnShapeReachesFile()
    {
        QFETCH(int, createRow);
        QFETCH(ShapeType, kind);
        QFETCH(QString, liveStatus);
        const BoxAnnotation existing = box("object", 120, 60, 180, 90);
        editShapes(s->w, {existing});
        s->w.undoStack.clear();
        s->w.createCombo->setCurrentIndex(createRow);

        // Press: the shapes before the change are kept for undo, nothing is written yet.
        press(QPointF(20, 10));
        QCOMPARE(s->w.undoStack, QList<Shapes>{{existing}});
        moveTo(at(QPointF(50, 30)));
        moveTo(at(QPointF(90, 60)));
        QCOMPARE(status(s->w), liveStatus);
        QCOMPARE(saved(s->xml(0)), Shapes{existing});

        // Release: the new shape is in the record, the file, the panel and the status line.
        release(QPointF(90, 60));
        QCOMPARE(canvas()->boxes().size(), 2);
        QCOMPARE(canvas()->boxes().at(1).type, kind);
        QCOMPARE(canvas()->boxes().at(1).label, QStringLiteral("object"));
        QCOMPARE(s->w.images[0].boxes, canvas()->boxes());
        QCOMPARE(saved(s->xml(0)), canvas()->boxes());
        QCOMPARE(panelRows(s->w), (QStringList{"object", "object"}));
        QCOMPARE(s->w.annotationsPanel->currentRow(), 1);
        QCOMPARE(status(s->w), statusFor(0, 2));
        QCOMPARE(s->w.undoStack.size(), 1);
        QCOMPARE(rowTexts(s->w), (QStringList{"a.png  *", "b.png", "c.png"}));
    }

    void moveDeleteUndoByKeys()
    {
        // Drawn on an image without a file: the first release creates it.
        drag(QPointF(20, 20), QPointF(60, 50));
        const BoxAnnotation drawn = box("object", 20, 20, 60, 50), moved = box("object", 50, 30, 90, 60);
        QCOMPARE(saved(s->xml(0)), Shapes{drawn});
        QCOMPARE(status(s->w), statusFor(0, 1));
        // Press inside the selected box and drag it 30 right, 10 down.
        press(QPointF(40, 30));
        QCOMPARE(s->w.undoStack.last(), Shapes{drawn});
        moveTo(at(QPointF(70, 40)));
        release(QPointF(70, 40));
        QCOMPARE(saved(s->xml(0)), Shapes{moved});
        // Ctrl+Z and Ctrl+Y typed on the canvas reach the window and the file.
        QCOMPARE(QApplication::focusWidget(), static_cast<QWidget*>(canvas()));
        QVERIFY(ctrl(Qt::Key_Z));
        QCOMPARE(saved(s->xml(0)), Shapes{drawn});
        QVERIFY(ctrl(Qt::Key_Y));
        QCOMPARE(saved(s->xml(0)), Shapes{moved});
        // Shift+Right with the shape selected is the canvas's nudge, not the next image.
        canvas()->setSelectedIndex(0);
        QVERIFY(key(canvas(), Qt::Key_Right, Qt::ShiftModifier));
        QCOMPARE(s->w.currentIndex, 0);
        QCOMPARE(saved(s->xml(0)), Shapes{box("object", 60, 30, 100, 60)});
        // Delete empties the image: file, mark and panel row go; undo brings them back.
        QVERIFY(key(canvas(), Qt::Key_Delete));
        QVERIFY(s->w.images[0].boxes.isEmpty());
        QVERIFY(!QFile::exists(s->xml(0)));
        QCOMPARE(s->w.imageList->item(0)->text(), QStringLiteral("a.png"));
        QCOMPARE(panelRows(s->w), QStringList());
        QCOMPARE(status(s->w), statusFor(0, 0));
        QVERIFY(ctrl(Qt::Key_Z));
        QCOMPARE(saved(s->xml(0)).size(), 1);
        QCOMPARE(s->w.imageList->item(0)->text(), QStringLiteral("a.png  *"));
    }

    void escapedDragLeavesNoUndoStep()
    {
        drag(QPointF(20, 20), QPointF(60, 50));
        QVERIFY(key(canvas(), Qt::Key_Escape)); // deselects
        press(QPointF(100, 60));
        moveTo(at(QPointF(150, 90)));
        QVERIFY(key(canvas(), Qt::Key_Escape)); // calls the second box off
        release(QPointF(150, 90));
        QVERIFY(ctrl(Qt::Key_Z)); // takes back the first box
        QVERIFY(canvas()->boxes().isEmpty());
        QVERIFY(!QFile::exists(s->xml(0)));
    }

    void labelComboEndsSelection()
    {
        s->w.labels = {{"object", QColor(0, 220, 220)}, {"car", QColor(255, 100, 100)}};
        s->w.applyLabels();
        drag(QPointF(20, 20), QPointF(60, 50));
        QCOMPARE(canvas()->selectedIndex(), 0);
        s->w.applyLabels(); // refilling the combo leaves the selection alone
        QCOMPARE(canvas()->selectedIndex(), 0);

        // Picking another label drops the selection, silently, so the next drag draws a
        // new shape in the new label rather than moving the old one.
        QSignalSpy selection(canvas(), &ImageCanvas::selectionChanged);
        s->w.classCombo->setCurrentIndex(1);
        QCOMPARE(canvas()->currentLabel, QStringLiteral("car"));
        QCOMPARE(canvas()->selectedIndex(), -1);
        QVERIFY(s->w.annotationsPanel->listView()->selectionModel()->selectedIndexes().isEmpty());
        QCOMPARE(selection.count(), 0);
        drag(QPointF(100, 20), QPointF(140, 60));
        QCOMPARE(saved(s->xml(0)), (Shapes{box("object", 20, 20, 60, 50), box("car", 100, 20, 140, 60)}));

        // Select-all mode ends too; a drag then draws instead of moving everything.
        QVERIFY(ctrl(Qt::Key_A));
        QVERIFY(canvas()->allSelected());
        s->w.classCombo->setCurrentIndex(0);
        QVERIFY(!canvas()->allSelected());
        drag(QPointF(150, 10), QPointF(190, 40));
        QCOMPARE(saved(s->xml(0)).value(2), box("object", 150, 10, 190, 40));
    }

    void windowKeys_data()
    {
        QTest::addColumn<QString>("focus"); // canvas, list (images) or panel (annotations)
        QTest::addColumn<bool>("selected");
        QTest::addColumn<int>("start");
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<int>("index");
        QTest::addColumn<double>("zoom");
        const int ctrl = int(Qt::ControlModifier);
        QTest::newRow("Right") << "canvas" << false << 0 << int(Qt::Key_Right) << 0 << 1 << 1.0;
        QTest::newRow("Left at the first") << "canvas" << false << 0 << int(Qt::Key_Left) << 0 << 0 << 1.0;
        QTest::newRow("Right at the last") << "canvas" << false << 2 << int(Qt::Key_Right) << 0 << 2 << 1.0;
        QTest::newRow("PageDown, selected") << "canvas" << true << 0 << int(Qt::Key_PageDown) << 0 << 1 << 1.0;
        QTest::newRow("PageUp") << "canvas" << false << 2 << int(Qt::Key_PageUp) << 0 << 1 << 1.0;
        QTest::newRow("D, selected") << "canvas" << true << 0 << int(Qt::Key_D) << 0 << 1 << 1.0;
        QTest::newRow("Ctrl+D stays") << "canvas" << false << 0 << int(Qt::Key_D) << ctrl << 0 << 1.0;
        QTest::newRow("A, selected") << "canvas" << true << 1 << int(Qt::Key_A) << 0 << 0 << 1.0;
        QTest::newRow("plus") << "canvas" << false << 0 << int(Qt::Key_Plus) << 0 << 0 << 1.25;
        QTest::newRow("equals, selected") << "canvas" << true << 0 << int(Qt::Key_Equal) << 0 << 0 << 1.25;
        QTest::newRow("Ctrl+equals") << "canvas" << false << 0 << int(Qt::Key_Equal) << ctrl << 0 << 1.25;
        QTest::newRow("minus") << "canvas" << false << 0 << int(Qt::Key_Minus) << 0 << 0 << 0.8;
        QTest::newRow("F after zooming") << "canvas" << false << 0 << int(Qt::Key_F) << 0 << 0 << 1.0;
        QTest::newRow("plain letter") << "canvas" << false << 0 << int(Qt::Key_G) << 0 << 0 << 1.0;
        QTest::newRow("list: D") << "list" << false << 0 << int(Qt::Key_D) << 0 << 1 << 1.0;
        QTest::newRow("list: A") << "list" << false << 2 << int(Qt::Key_A) << 0 << 1 << 1.0;
        QTest::newRow("list: PageDown") << "list" << false << 0 << int(Qt::Key_PageDown) << 0 << 1 << 1.0;
        QTest::newRow("list: F after zooming") << "list" << false << 0 << int(Qt::Key_F) << 0 << 0 << 1.0;
        QTest::newRow("panel: PageUp") << "panel" << false << 2 << int(Qt::Key_PageUp) << 0 << 1 << 1.0;
        QTest::newRow("list: Left") << "list" << false << 1 << int(Qt::Key_Left) << 0 << 0 << 1.0;
        QTest::newRow("list: plus") << "list" << false << 1 << int(Qt::Key_Plus) << 0 << 1 << 1.25;
        QTest::newRow("panel: minus") << "panel" << false << 1 << int(Qt::Key_Minus) << 0 << 1 << 0.8;
        QTest::newRow("panel: D") << "panel" << false << 1 << int(Qt::Key_D) << 0 << 2 << 1.0;
    }

    void windowKeys()
    {
        QFETCH(QString, focus);
        QFETCH(bool, selected);
        QFETCH(int, start);
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(int, index);
        QFETCH(double, zoom);
        s->w.imageList->setCurrentRow(start);
        drag(QPointF(20, 20), QPointF(60, 50)); // selected, and the press focused the canvas
        if (!selected)
            QVERIFY(this->key(canvas(), Qt::Key_Escape));
        QCOMPARE(canvas()->selectedIndex(), selected ? 0 : -1);
        if (key == Qt::Key_F)
            canvas()->zoomIn();
        QWidget* target = focus == "list"    ? static_cast<QWidget*>(s->w.imageList)
                          : focus == "panel" ? static_cast<QWidget*>(s->w.annotationsPanel->listView())
                                             : canvas();
        target->setFocus();
        QCOMPARE(QApplication::focusWidget(), target);
        this->key(target, key, Qt::KeyboardModifiers(modifiers));
        QCOMPARE(s->w.currentIndex, index);
        QCOMPARE(s->w.imageList->currentRow(), index);
        QCOMPARE(canvas()->zoom(), zoom);
        // Leaving an image keeps its shape on disk; the new image starts empty.
        QCOMPARE(saved(s->xml(start)).size(), 1);
        QCOMPARE(canvas()->boxes().size(), index == start ? 1 : 0);
        QCOMPARE(status(s->w), statusFor(index, index == start ? 1 : 0));
    }

    void saveKeyOnEmptyImage_data()
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

    void saveKeyOnEmptyImage()
    {
        QFETCH(int, key);
        QFETCH(bool, listFocused);
        s->w.imageList->setCurrentRow(1);
        QWidget* focus = listFocused ? static_cast<QWidget*>(s->w.imageList) : canvas();
        focus->setFocus();
        this->key(focus, key); // without Ctrl nothing is written
        QVERIFY(!QFile::exists(s->xml(1)));
        QCOMPARE(s->w.currentIndex, 1);
        QVERIFY(this->key(focus, key, Qt::ControlModifier));
        const QByteArray xml = readBytes(s->xml(1));
        QVERIFY(xml.contains("<annotation"));
        QVERIFY(!xml.contains("<object>"));
        // The folder element carries the images folder's own name.
        QVERIFY(xml.contains("<folder>" + QDir(s->dir.path()).dirName().toUtf8() + "</folder>"));
        QVERIFY(!s->w.images[1].dirty);
        QCOMPARE(rowTexts(s->w), (QStringList{"a.png", "b.png  *", "c.png"}));
        QCOMPARE(status(s->w), statusFor(1, 0));
    }

    void spaceInOtherWidgets_data()
    {
        QTest::addColumn<QString>("widget");
        QTest::addColumn<bool>("pans"); // else the space is typed
        QTest::newRow("push button (pan mode, no click)") << "button" << true;
        QTest::newRow("line edit") << "edit" << false;
        QTest::newRow("editable combo") << "combo" << false;
    }

    // Space means pan mode from any widget of the program, except where it is typed.
    void spaceInOtherWidgets()
    {
        QFETCH(QString, widget);
        QFETCH(bool, pans);
        QDialog dialog(&s->w);
        QWidget* target = nullptr;
        auto* button = new QPushButton("Press me", &dialog);
        auto* combo = new QComboBox(&dialog);
        combo->setEditable(true);
        target = widget == "button" ? static_cast<QWidget*>(button)
                 : widget == "edit" ? new QLineEdit(&dialog)
                                    : combo->lineEdit();
        QSignalSpy clicked(button, &QPushButton::clicked);
        dialog.show();
        dialog.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        QWidget* focus = widget == "combo" ? combo : target;
        focus->setFocus();
        QTRY_VERIFY(focus->hasFocus());
        QTest::keyPress(target, Qt::Key_Space);
        QCOMPARE(canvas()->spaceHeld(), pans);
        QTest::keyRelease(target, Qt::Key_Space);
        QVERIFY(!canvas()->spaceHeld());
        QCOMPARE(clicked.count(), 0);
        if (auto* edit = qobject_cast<QLineEdit*>(target))
            QCOMPARE(edit->text(), QStringLiteral(" "));
    }
};

QTEST_MAIN(TestEditRoad)
#include "tst_editroad.moc"
