#include <QApplication>
#include <QDialogButtonBox>
#include <QMouseEvent>
#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTest>

#include "formats/yoloposeexportdialog.h"
#include "support/scriptedprompts.h"

// The keypoint order dialog of the YOLO pose export, driven through its widgets.

namespace {

BoxAnnotation shape(ShapeType type, const QString& label)
{
    BoxAnnotation b;
    b.type = type;
    b.label = label;
    b.points = {QPointF(1, 1), QPointF(5, 5)};
    return b;
}

// Two images: boxes person, car (twice), Bike; keypoints nose, eye, Ankle; a polygon and
// a line whose labels belong to neither list.
QList<ImageAnnotations> sampleImages()
{
    ImageAnnotations a;
    a.imagePath = QStringLiteral("/data/a.png");
    a.boxes = {shape(ShapeType::BoundingBox, "person"), shape(ShapeType::Keypoint, "nose"),
               shape(ShapeType::Keypoint, "eye"), shape(ShapeType::Polygon, "road"),
               shape(ShapeType::BoundingBox, "car")};
    ImageAnnotations b;
    b.imagePath = QStringLiteral("/data/b.png");
    b.boxes = {shape(ShapeType::BoundingBox, "car"), shape(ShapeType::BoundingBox, "Bike"),
               shape(ShapeType::Keypoint, "Ankle"), shape(ShapeType::Line, "lane"),
               shape(ShapeType::Keypoint, "nose")};
    return {a, b};
}

QStringList texts(const QListWidget* list)
{
    QStringList out;
    for (int i = 0; i < list->count(); ++i)
        out << list->item(i)->text();
    return out;
}

QPushButton* button(const QDialog& dialog, const char* name)
{
    return dialog.findChild<QPushButton*>(QLatin1String(name));
}

void selectRow(QListWidget* list, const QString& text)
{
    const QList<QListWidgetItem*> found = list->findItems(text, Qt::MatchExactly);
    QVERIFY2(found.size() == 1, qPrintable(text));
    list->setCurrentItem(found.first());
}

// Press, release, double click, release, delivered straight to the widget (the
// offscreen platform does not turn two synthetic clicks into a double click).
void doubleClick(QWidget* widget, QPoint pos)
{
    const QPointF local(pos);
    const QPointF global(widget->mapToGlobal(pos));
    const struct {
        QEvent::Type type;
        Qt::MouseButtons buttons;
    } steps[] = {{QEvent::MouseButtonPress, Qt::LeftButton},
                 {QEvent::MouseButtonRelease, Qt::NoButton},
                 {QEvent::MouseButtonDblClick, Qt::LeftButton},
                 {QEvent::MouseButtonRelease, Qt::NoButton}};
    for (const auto& step : steps) {
        QMouseEvent event(step.type, local, global, Qt::LeftButton, step.buttons, Qt::NoModifier);
        QApplication::sendEvent(widget, &event);
    }
}

const QStringList kAllKeypoints = {"Ankle", "eye", "nose"};

} // namespace

class TestYoloPoseDialog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void buildsFromShapes();
    void layoutTexts();
    void emptyDataset();
    void switchingClassKeepsEdits();
    void addAppendsOnce();
    void moveAndRemove_data();
    void moveAndRemove();
    void okWithoutClassesWarnsAndStaysOpen();
    void okSavesShownOrder();
    void cancelRejects();
};

void TestYoloPoseDialog::buildsFromShapes()
{
    YoloPoseExportDialog dialog(sampleImages(), {});

    QCOMPARE(dialog.windowTitle(), QStringLiteral("Export YOLO Pose \u2014 Configure Keypoint Order"));
    QCOMPARE(dialog.minimumSize(), QSize(700, 500));
    // Case-sensitive sort: upper-case letters first.
    QCOMPARE(dialog.classList, (QStringList{"Bike", "car", "person"}));
    QCOMPARE(dialog.kpOrder.keys(), dialog.classList);
    for (const QString& name : dialog.classList)
        QCOMPARE(dialog.kpOrder.value(name), kAllKeypoints);
    QCOMPARE(texts(dialog.classListWidget), dialog.classList);
    QCOMPARE(texts(dialog.availableListWidget), kAllKeypoints);

    QCOMPARE(dialog.classListWidget->currentRow(), 0);
    QCOMPARE(dialog.currentClass, QStringLiteral("Bike"));
    QCOMPARE(texts(dialog.orderListWidget), kAllKeypoints);
    QCOMPARE(dialog.orderListWidget->dragDropMode(), QAbstractItemView::InternalMove);
}

void TestYoloPoseDialog::layoutTexts()
{
    YoloPoseExportDialog dialog(sampleImages(), {});

    QStringList groups;
    for (const QGroupBox* group : dialog.findChildren<QGroupBox*>())
        groups << group->title();
    QCOMPARE(groups, (QStringList{"Detection Classes (BBoxes)", "Keypoint Order for Selected Class",
                                  "Available Keypoint Labels"}));

    QStringList labels;
    for (const QLabel* label : dialog.findChildren<QLabel*>())
        labels << label->text();
    QCOMPARE(labels,
             (QStringList{
                 "Each detection class (bounding box label) needs an ordered list of its keypoints.\n"
                 "The order defines slot indices 0,1,2,... in the YOLO pose label file.\n"
                 "Keypoints not present in an image will be exported as 0 0 0 (invisible).",
                 "Slot 0 is first, slot N-1 is last. Drag or use buttons to reorder.",
                 "Double-click or Add\u2192 to append to order:"}));
    const auto* explanation = dialog.findChild<QLabel*>("explanationLabel");
    QVERIFY(explanation->wordWrap());
    QCOMPARE(explanation->styleSheet(), QStringLiteral("color:#888;font-size:12px;"));

    QCOMPARE(button(dialog, "kpUpButton")->text(), QStringLiteral("\u25B2 Up"));
    QCOMPARE(button(dialog, "kpDownButton")->text(), QStringLiteral("\u25BC Down"));
    QCOMPARE(button(dialog, "kpRemoveButton")->text(), QStringLiteral("Remove"));
    QCOMPARE(button(dialog, "kpAddButton")->text(), QStringLiteral("\u2190 Add to Order"));
    auto* box = dialog.findChild<QDialogButtonBox*>("buttonBox");
    QCOMPARE(box->standardButtons(), QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
}

void TestYoloPoseDialog::emptyDataset()
{
    ImageAnnotations onlyKeypoints;
    onlyKeypoints.boxes = {shape(ShapeType::Keypoint, "nose")};
    YoloPoseExportDialog dialog({onlyKeypoints}, {});

    QVERIFY(dialog.classList.isEmpty());
    QVERIFY(dialog.kpOrder.isEmpty());
    QVERIFY(dialog.currentClass.isEmpty());
    QCOMPARE(dialog.orderListWidget->count(), 0);
    QCOMPARE(texts(dialog.availableListWidget), QStringList{"nose"});
    // Adding with no class shown fills the list but is never saved anywhere.
    dialog.availableListWidget->setCurrentRow(0);
    button(dialog, "kpAddButton")->click();
    QVERIFY(dialog.kpOrder.isEmpty());
}

void TestYoloPoseDialog::switchingClassKeepsEdits()
{
    YoloPoseExportDialog dialog(sampleImages(), {});

    // Bike: remove eye.
    selectRow(dialog.orderListWidget, "eye");
    button(dialog, "kpRemoveButton")->click();
    QCOMPARE(texts(dialog.orderListWidget), (QStringList{"Ankle", "nose"}));
    QCOMPARE(dialog.kpOrder.value("Bike"), kAllKeypoints); // saved only on leaving

    selectRow(dialog.classListWidget, "person");
    QCOMPARE(dialog.currentClass, QStringLiteral("person"));
    QCOMPARE(dialog.kpOrder.value("Bike"), (QStringList{"Ankle", "nose"}));
    QCOMPARE(texts(dialog.orderListWidget), kAllKeypoints);

    // person: empty the order completely.
    while (dialog.orderListWidget->count() > 0) {
        dialog.orderListWidget->setCurrentRow(0);
        button(dialog, "kpRemoveButton")->click();
    }
    selectRow(dialog.classListWidget, "Bike");
    QCOMPARE(dialog.kpOrder.value("person"), QStringList());
    QVERIFY(dialog.kpOrder.contains("person"));
    QCOMPARE(texts(dialog.orderListWidget), (QStringList{"Ankle", "nose"}));
    QCOMPARE(dialog.kpOrder.value("car"), kAllKeypoints);
}

void TestYoloPoseDialog::addAppendsOnce()
{
    YoloPoseExportDialog dialog(sampleImages(), {});
    QPushButton* add = button(dialog, "kpAddButton");

    // Nothing chosen in the available list: nothing happens.
    dialog.availableListWidget->setCurrentRow(-1);
    add->click();
    QCOMPARE(texts(dialog.orderListWidget), kAllKeypoints);

    // Already in the order: nothing happens.
    selectRow(dialog.availableListWidget, "eye");
    add->click();
    QCOMPARE(texts(dialog.orderListWidget), kAllKeypoints);

    dialog.orderListWidget->setCurrentRow(0);
    button(dialog, "kpRemoveButton")->click();
    QCOMPARE(texts(dialog.orderListWidget), (QStringList{"eye", "nose"}));

    // A double click adds at the end.
    selectRow(dialog.availableListWidget, "Ankle");
    QListWidgetItem* ankle = dialog.availableListWidget->currentItem();
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    const QRect rect = dialog.availableListWidget->visualItemRect(ankle);
    QVERIFY(rect.isValid());
    doubleClick(dialog.availableListWidget->viewport(), rect.center());
    QCOMPARE(texts(dialog.orderListWidget), (QStringList{"eye", "nose", "Ankle"}));
    doubleClick(dialog.availableListWidget->viewport(), rect.center());
    QCOMPARE(texts(dialog.orderListWidget), (QStringList{"eye", "nose", "Ankle"}));
}

void TestYoloPoseDialog::moveAndRemove_data()
{
    QTest::addColumn<QString>("buttonName");
    QTest::addColumn<int>("row");
    QTest::addColumn<QStringList>("order");
    QTest::addColumn<int>("currentAfter");

    QTest::newRow("up from middle") << "kpUpButton" << 1 << QStringList{"eye", "Ankle", "nose"} << 0;
    QTest::newRow("up from top") << "kpUpButton" << 0 << kAllKeypoints << 0;
    QTest::newRow("up without current") << "kpUpButton" << -1 << kAllKeypoints << -1;
    QTest::newRow("down from middle") << "kpDownButton" << 1 << QStringList{"Ankle", "nose", "eye"} << 2;
    QTest::newRow("down from bottom") << "kpDownButton" << 2 << kAllKeypoints << 2;
    QTest::newRow("down without current") << "kpDownButton" << -1 << kAllKeypoints << -1;
    QTest::newRow("remove last") << "kpRemoveButton" << 2 << QStringList{"Ankle", "eye"} << 1;
    QTest::newRow("remove without current") << "kpRemoveButton" << -1 << kAllKeypoints << -1;
}

void TestYoloPoseDialog::moveAndRemove()
{
    QFETCH(QString, buttonName);
    QFETCH(int, row);
    QFETCH(QStringList, order);
    QFETCH(int, currentAfter);

    YoloPoseExportDialog dialog(sampleImages(), {});
    dialog.orderListWidget->setCurrentRow(row);
    button(dialog, qPrintable(buttonName))->click();
    QCOMPARE(texts(dialog.orderListWidget), order);
    QCOMPARE(dialog.orderListWidget->currentRow(), currentAfter);
}

void TestYoloPoseDialog::okWithoutClassesWarnsAndStaysOpen()
{
    ScriptedPrompts prompts;
    YoloPoseExportDialog dialog({}, {});
    dialog.show();
    dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok)->click();

    QCOMPARE(prompts.calls.size(), 1);
    QCOMPARE(prompts.last().kind, QStringLiteral("warning"));
    QCOMPARE(prompts.last().title, QStringLiteral("No Classes"));
    QCOMPARE(prompts.last().text, QStringLiteral("No bounding box annotations found.\n"
                                                 "Load images with bbox annotations first."));
    QVERIFY(dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
}

void TestYoloPoseDialog::okSavesShownOrder()
{
    ScriptedPrompts prompts;
    YoloPoseExportDialog dialog(sampleImages(), {});
    selectRow(dialog.classListWidget, "car");
    dialog.orderListWidget->setCurrentRow(2);
    button(dialog, "kpUpButton")->click();
    button(dialog, "kpUpButton")->click();
    dialog.show();
    dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok)->click();

    QVERIFY(prompts.calls.isEmpty());
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.kpOrder.value("car"), (QStringList{"nose", "Ankle", "eye"}));
    QCOMPARE(dialog.kpOrder.value("Bike"), kAllKeypoints);
}

void TestYoloPoseDialog::cancelRejects()
{
    ScriptedPrompts prompts;
    YoloPoseExportDialog dialog({}, {});
    dialog.show();
    dialog.setResult(QDialog::Accepted);
    dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Cancel)->click();
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QVERIFY(!dialog.isVisible());
    QVERIFY(prompts.calls.isEmpty());
}

QTEST_MAIN(TestYoloPoseDialog)
#include "tst_yoloposedialog.moc"
