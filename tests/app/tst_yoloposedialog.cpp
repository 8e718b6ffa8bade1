#include <QApplication>
#include <QDialogButtonBox>
#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QMouseEvent>
#include <QPushButton>
#include <QTest>

#include "formats/yoloposeexportdialog.h"
#include "support/records.h"
#include "support/scriptedprompts.h"

// The keypoint order dialog of the YOLO pose export, driven through its widgets.

namespace {

// Boxes person, car (twice), Bike; keypoints nose (twice), eye, Ankle; a polygon and a line
// whose labels belong to neither list.
QList<ImageAnnotations> sampleImages()
{
    const auto s = [](const QString& label, ShapeType type) { return shape(label, type, {{1, 1}, {5, 5}}); };
    const ShapeType B = ShapeType::BoundingBox, K = ShapeType::Keypoint;
    return {image("/d/a.png", 8, 8, {s("person", B), s("nose", K), s("eye", K), s("road", ShapeType::Polygon), s("car", B)}),
            image("/d/b.png", 8, 8, {s("car", B), s("Bike", B), s("Ankle", K), s("lane", ShapeType::Line), s("nose", K)})};
}

QStringList texts(const QListWidget* list)
{
    QStringList out;
    for (int i = 0; i < list->count(); ++i)
        out << list->item(i)->text();
    return out;
}

// Press, release, double click, release, delivered straight to the widget (the offscreen
// platform does not turn two synthetic clicks into a double click).
void doubleClick(QWidget* widget, QPoint pos)
{
    for (auto [type, buttons] : {std::pair{QEvent::MouseButtonPress, Qt::LeftButton}, {QEvent::MouseButtonRelease, Qt::NoButton},
                                 {QEvent::MouseButtonDblClick, Qt::LeftButton}, {QEvent::MouseButtonRelease, Qt::NoButton}}) {
        QMouseEvent event(type, QPointF(pos), QPointF(widget->mapToGlobal(pos)), Qt::LeftButton, buttons, Qt::NoModifier);
        QApplication::sendEvent(widget, &event);
    }
}

} // namespace

class TestYoloPoseDialog : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // Classes sorted case-sensitively, each starting with every keypoint label; the texts.
    void builds()
    {
        YoloPoseExportDialog dialog(sampleImages(), {});
        QCOMPARE(dialog.windowTitle(), "Export YOLO Pose \u2014 Configure Keypoint Order");
        QCOMPARE(dialog.classList, QStringList({"Bike", "car", "person"}));
        QCOMPARE(texts(dialog.classListWidget), dialog.classList);
        for (const QString& name : dialog.classList)
            QCOMPARE(dialog.kpOrder.value(name), QStringList({"Ankle", "eye", "nose"}));
        QCOMPARE(dialog.currentClass, "Bike");
        QCOMPARE(texts(dialog.orderListWidget), QStringList({"Ankle", "eye", "nose"}));
        QCOMPARE(texts(dialog.availableListWidget), QStringList({"Ankle", "eye", "nose"}));
        QStringList shown;
        for (const QGroupBox* group : dialog.findChildren<QGroupBox*>())
            shown << group->title();
        for (const QLabel* label : dialog.findChildren<QLabel*>())
            shown << label->text();
        for (const char* name : {"kpUpButton", "kpDownButton", "kpRemoveButton", "kpAddButton"})
            shown << dialog.findChild<QPushButton*>(name)->text();
        QCOMPARE(shown, QStringList({"Detection Classes (BBoxes)", "Keypoint Order for Selected Class", "Available Keypoint Labels",
            "Each detection class (bounding box label) needs an ordered list of its keypoints.\nThe order defines slot indices "
            "0,1,2,... in the YOLO pose label file.\nKeypoints not present in an image will be exported as 0 0 0 (invisible).",
            "Slot 0 is first, slot N-1 is last. Drag or use buttons to reorder.", "Double-click or Add\u2192 to append to order:",
            "\u25B2 Up", "\u25BC Down", "Remove", "\u2190 Add to Order"}));
    }

    // Steps: "@N" makes order row N current (-1: none), "up", "down", "remove", "add:X" adds
    // available X by the button ("add:" with none chosen), "dbl:X" by a double click, "class:X"
    // shows class X; then OK or Cancel. What the dialog keeps is read after it closes.
    void edit_data()
    {
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("shown");  // the order list, then its current row
        QTest::addColumn<QString>("orders"); // after OK: Bike; car; person ("-": cancelled)
        const QString all = "Ankle eye nose";
        QTest::newRow("up from middle") << "@1 up" << "eye Ankle nose @0" << "eye Ankle nose; " + all + "; " + all;
        QTest::newRow("up from top") << "@0 up" << all + " @0" << all + "; " + all + "; " + all;
        QTest::newRow("up, none current") << "@-1 up" << all + " @-1" << all + "; " + all + "; " + all;
        QTest::newRow("down from middle") << "@1 down" << "Ankle nose eye @2" << "Ankle nose eye; " + all + "; " + all;
        QTest::newRow("down from bottom") << "@2 down" << all + " @2" << all + "; " + all + "; " + all;
        QTest::newRow("down, none current") << "@-1 down" << all + " @-1" << all + "; " + all + "; " + all;
        QTest::newRow("remove last") << "@2 remove" << "Ankle eye @1" << "Ankle eye; " + all + "; " + all;
        QTest::newRow("remove, none current") << "@-1 remove" << all + " @-1" << all + "; " + all + "; " + all;
        QTest::newRow("add nothing, add present") << "@-1 add: add:eye" << all + " @-1" << all + "; " + all + "; " + all;
        QTest::newRow("remove, add twice") << "@0 remove add:Ankle add:Ankle" << "eye nose Ankle" << "eye nose Ankle; " + all + "; " + all;
        QTest::newRow("double-click twice") << "@0 remove dbl:Ankle dbl:Ankle" << "eye nose Ankle" << "eye nose Ankle; " + all + "; " + all;
        QTest::newRow("kept across classes") << "@1 remove class:person @0 remove @0 remove @0 remove class:Bike"
                                             << "Ankle nose" << "Ankle nose; " + all + "; ";
        QTest::newRow("car's order saved on OK") << "class:car @2 up up" << "nose Ankle eye" << all + "; nose Ankle eye; " + all;
        QTest::newRow("cancel") << "@0 remove cancel" << "eye nose @0" << "-";
    }

    void edit()
    {
        QFETCH(QString, steps);
        QFETCH(QString, orders);
        ScriptedPrompts prompts;
        YoloPoseExportDialog dialog(sampleImages(), {});
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        const auto pick = [](QListWidget* list, const QString& text) {
            list->setCurrentRow(text.isEmpty() ? -1 : texts(list).indexOf(text));
            return list->currentItem();
        };
        for (const QString& step : steps.split(' ')) {
            const QString arg = step.section(':', 1);
            if (step.startsWith('@'))
                dialog.orderListWidget->setCurrentRow(step.mid(1).toInt());
            else if (step.startsWith("class:"))
                pick(dialog.classListWidget, arg);
            else if (step.startsWith("dbl:"))
                doubleClick(dialog.availableListWidget->viewport(),
                            dialog.availableListWidget->visualItemRect(pick(dialog.availableListWidget, arg)).center());
            else if (step.startsWith("add:") && (pick(dialog.availableListWidget, arg), true))
                dialog.findChild<QPushButton*>("kpAddButton")->click();
            else if (step != "cancel")
                dialog.findChild<QPushButton*>("kp" + step.left(1).toUpper() + step.mid(1) + "Button")->click();
        }
        QFETCH(QString, shown);
        const QString current = QString(" @%1").arg(dialog.orderListWidget->currentRow());
        QCOMPARE(texts(dialog.orderListWidget).join(' ') + (shown.contains('@') ? current : QString()), shown);
        dialog.setResult(steps.endsWith("cancel") ? QDialog::Accepted : QDialog::Rejected);
        (steps.endsWith("cancel") ? dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Cancel)
                                  : dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok))->click();
        QVERIFY(!dialog.isVisible() && prompts.calls.isEmpty());
        QCOMPARE(dialog.result(), orders == "-" ? int(QDialog::Rejected) : int(QDialog::Accepted));
        QStringList kept;
        for (const QString& name : dialog.classList)
            kept << dialog.kpOrder.value(name).join(' ');
        if (orders != "-")
            QCOMPARE(kept.join("; "), orders);
    }

    // OK with no class to export warns and stays open; keypoints added then are kept nowhere.
    void okWithoutClasses()
    {
        ScriptedPrompts prompts;
        YoloPoseExportDialog dialog({image("/d/a.png", 8, 8, {shape("nose", ShapeType::Keypoint, {{1, 1}})})}, {});
        dialog.show();
        QCOMPARE(texts(dialog.availableListWidget), QStringList{"nose"});
        dialog.availableListWidget->setCurrentRow(0);
        dialog.findChild<QPushButton*>("kpAddButton")->click();
        dialog.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
        QVERIFY(dialog.kpOrder.isEmpty() && dialog.classList.isEmpty());
        QCOMPARE(QStringList({prompts.last().kind, prompts.last().title, prompts.last().text}),
                 QStringList({"warning", "No Classes", "No bounding box annotations found.\nLoad images with bbox annotations first."}));
        QCOMPARE(prompts.calls.size(), 1);
        QVERIFY(dialog.isVisible());
        QCOMPARE(dialog.result(), int(QDialog::Rejected));
    }
};

QTEST_MAIN(TestYoloPoseDialog)
#include "tst_yoloposedialog.moc"
