#include <QApplication>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMouseEvent>
#include <QPushButton>
#include <QTest>

#include <memory>

#include "labels/labelrowdelegate.h"
#include "labels/labelsdialog.h"
#include "model/labelpalette.h"
#include "support/scriptedprompts.h"

// The Manage Labels dialog driven through its widgets: what the user clicks and types,
// and the list it hands back.

namespace {

QList<LabelDef> threeLabels()
{
    return {{"object", QColor(0, 220, 220)}, {"car", QColor(255, 100, 100)},
            {"person", QColor(10, 20, 30)}};
}

QStringList names(const QList<LabelDef>& labels)
{
    QStringList out;
    for (const LabelDef& l : labels)
        out << l.name;
    return out;
}

enum class Spot { Swatch, Name, Delete };

} // namespace

Q_DECLARE_METATYPE(Spot)
Q_DECLARE_METATYPE(LabelDef)

class TestLabelsDialog : public QObject {
    Q_OBJECT

private:
    // A shown dialog, so that rows have their on-screen geometry.
    std::unique_ptr<LabelsDialog> open(const QList<LabelDef>& labels)
    {
        auto dialog = std::make_unique<LabelsDialog>(labels);
        dialog->show();
        if (!QTest::qWaitForWindowExposed(dialog.get()))
            return nullptr;
        return dialog;
    }
    static QRect rowRect(LabelsDialog& d, int row) { return d.listWidget()->visualItemRect(d.listWidget()->item(row)); }
    static QPoint spotOf(LabelsDialog& d, int row, Spot spot)
    {
        QStyleOptionViewItem option;
        option.rect = rowRect(d, row);
        switch (spot) {
        case Spot::Swatch: return LabelRowDelegate::swatchRect(option).center();
        case Spot::Delete: return LabelRowDelegate::deleteRect(option).center();
        case Spot::Name: return LabelRowDelegate::nameRect(option).center();
        }
        return {};
    }
    static void sendDoubleClick(LabelsDialog& d, const QPoint& pos, Qt::MouseButton button = Qt::LeftButton)
    {
        QWidget* viewport = d.listWidget()->viewport();
        QMouseEvent event(QEvent::MouseButtonDblClick, pos, viewport->mapToGlobal(pos), button,
                          button, Qt::NoModifier);
        QApplication::sendEvent(viewport, &event);
    }
    static QLineEdit* openEditor(LabelsDialog& d)
    {
        for (QLineEdit* edit : d.listWidget()->viewport()->findChildren<QLineEdit*>())
            if (edit->isVisible())
                return edit;
        return nullptr;
    }
    static QColor rowColor(LabelsDialog& d, int row)
    {
        return d.listWidget()->item(row)->data(LabelRowDelegate::LabelColorRole).value<QColor>();
    }
    static QString rowName(LabelsDialog& d, int row)
    {
        return d.listWidget()->item(row)->data(LabelRowDelegate::LabelNameRole).toString();
    }

private Q_SLOTS:
    void rowsAndResult();
    void layoutAndTexts();
    void rowGeometry_data();
    void rowGeometry();
    void paintsRow();
    void addLabel_data();
    void addLabel();
    void returnAddsWithoutClosing();
    void colourRepeatsAfterDeletion();
    void swatchClickRecolours_data();
    void swatchClickRecolours();
    void deleteMarkRemovesRow();
    void otherClicks_data();
    void otherClicks();
    void renameInPlace_data();
    void renameInPlace();
    void reorderByDragging();
    void deleteAll_data();
    void deleteAll();
    void okAndCancel_data();
    void okAndCancel();
};

void TestLabelsDialog::rowsAndResult()
{
    // A nameless entry gets a row but is left out of the result.
    QList<LabelDef> labels = threeLabels();
    labels.insert(1, {QString(), QColor(1, 2, 3)});
    LabelsDialog d(labels);
    QCOMPARE(d.listWidget()->count(), 4);
    for (int row = 0; row < 4; ++row) {
        QListWidgetItem* item = d.listWidget()->item(row);
        QVERIFY(item->text().isEmpty());
        QCOMPARE(item->data(Qt::UserRole + 2).toString(), labels[row].name);
        QCOMPARE(item->data(Qt::UserRole + 1).value<QColor>(), labels[row].color);
        QCOMPARE(item->flags(), Qt::ItemIsSelectable | Qt::ItemIsEditable | Qt::ItemIsDragEnabled
                                    | Qt::ItemIsEnabled);
    }
    const QList<LabelDef> result = d.result();
    QCOMPARE(names(result), (QStringList{"object", "car", "person"}));
    QCOMPARE(result[2].color, QColor(10, 20, 30));
}

void TestLabelsDialog::layoutAndTexts()
{
    LabelsDialog d(threeLabels());
    QCOMPARE(d.windowTitle(), QStringLiteral("Manage Labels"));
    QVERIFY(d.isModal());
    QCOMPARE(d.minimumSize(), QSize(460, 420));
    auto* header = d.findChild<QLabel*>("labelsHeader");
    QVERIFY(header);
    QCOMPARE(header->text(),
             QStringLiteral("<b>Labels</b>  (drag rows to reorder  |  double-click name to rename  |  "
                            "click color swatch to change color  |  click X to delete)"));
    QVERIFY(header->wordWrap());
    QCOMPARE(d.nameEdit()->placeholderText(), QStringLiteral("Enter label name..."));
    QListWidget* list = d.listWidget();
    QCOMPARE(list->dragDropMode(), QAbstractItemView::InternalMove);
    QCOMPARE(list->defaultDropAction(), Qt::MoveAction);
    QCOMPARE(list->selectionMode(), QAbstractItemView::SingleSelection);
    QVERIFY(qobject_cast<LabelRowDelegate*>(list->itemDelegate()));
    // None of the buttons may catch Return from the name field.
    const QStringList texts = {"Delete All", "+ Add", "Cancel", "OK"};
    const QList<QPushButton*> buttons = d.findChildren<QPushButton*>();
    QCOMPARE(buttons.size(), texts.size());
    for (QPushButton* b : buttons) {
        QVERIFY2(texts.contains(b->text()), qPrintable(b->text()));
        QVERIFY(!b->isDefault());
        QVERIFY(!b->autoDefault());
    }
}

void TestLabelsDialog::rowGeometry_data()
{
    QTest::addColumn<QRect>("row");
    QTest::addColumn<QRect>("swatch");
    QTest::addColumn<QRect>("mark");
    QTest::newRow("34 px row") << QRect(1, 36, 300, 34) << QRect(7, 42, 22, 22)
                               << QRect(272, 45, 20, 16);
    // Odd spare heights round toward zero.
    QTest::newRow("33 px row") << QRect(0, 0, 200, 33) << QRect(6, 5, 22, 22)
                               << QRect(171, 8, 20, 16);
    // A row lower than the swatch: the negative spare height also rounds toward zero.
    QTest::newRow("17 px row") << QRect(0, 10, 100, 17) << QRect(6, 8, 22, 22)
                               << QRect(71, 10, 20, 16);
}

void TestLabelsDialog::rowGeometry()
{
    QFETCH(QRect, row);
    QFETCH(QRect, swatch);
    QFETCH(QRect, mark);
    QStyleOptionViewItem option;
    option.rect = row;
    QCOMPARE(LabelRowDelegate::swatchRect(option), swatch);
    QCOMPARE(LabelRowDelegate::deleteRect(option), mark);
    const LabelRowDelegate delegate;
    QCOMPARE(delegate.sizeHint(option, QModelIndex()), QSize(300, 34));
}

void TestLabelsDialog::paintsRow()
{
    auto d = open(threeLabels());
    QVERIFY(d);
    QListWidget* list = d->listWidget();
    list->clearSelection();
    const QImage image = list->viewport()->grab().toImage();
    QStyleOptionViewItem option;
    option.rect = rowRect(*d, 1);
    const QRect swatch = LabelRowDelegate::swatchRect(option);
    QCOMPARE(QColor(image.pixel(swatch.center())), QColor(255, 100, 100));
    QCOMPARE(QColor(image.pixel(swatch.topLeft())), QColor(120, 120, 120));
    QCOMPARE(QColor(image.pixel(swatch.bottomRight())), QColor(120, 120, 120));
    QVERIFY(QColor(image.pixel(swatch.bottomRight() + QPoint(1, 1))) != QColor(120, 120, 120));

    // The name is written between the swatch and the mark.
    int dark = 0;
    const QRect name = LabelRowDelegate::nameRect(option);
    for (int y = name.top(); y <= name.bottom(); ++y)
        for (int x = name.left(); x <= name.right(); ++x)
            if (qGray(image.pixel(x, y)) < 100)
                ++dark;
    QVERIFY(dark > 10);

    // Some pixels of the mark are drawn in its dark red; none in the swatch outline grey.
    const QRect mark = LabelRowDelegate::deleteRect(option);
    int red = 0;
    for (int y = mark.top(); y <= mark.bottom(); ++y)
        for (int x = mark.left(); x <= mark.right(); ++x) {
            const QColor c(image.pixel(x, y));
            if (c.red() > 120 && c.green() < 90 && c.blue() < 90)
                ++red;
        }
    QVERIFY(red > 3);
}

void TestLabelsDialog::addLabel_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("viaReturn");
    QTest::addColumn<QString>("added");      // empty: nothing added
    QTest::addColumn<QString>("duplicate");  // text of the warning, empty: none

    QTest::newRow("plain, + Add") << "bus" << false << "bus" << "";
    QTest::newRow("plain, Return") << "bus" << true << "bus" << "";
    QTest::newRow("blanks trimmed") << "  traffic light \t" << false << "traffic light" << "";
    QTest::newRow("only blanks") << "   " << false << "" << "";
    QTest::newRow("empty") << "" << true << "" << "";
    QTest::newRow("duplicate by case") << "CAR" << false << ""
                                       << "Label 'CAR' already exists.";
    QTest::newRow("duplicate with blanks") << " person " << true << ""
                                           << "Label 'person' already exists.";
}

void TestLabelsDialog::addLabel()
{
    QFETCH(QString, typed);
    QFETCH(bool, viaReturn);
    QFETCH(QString, added);
    QFETCH(QString, duplicate);
    ScriptedPrompts prompts;
    auto d = open(threeLabels());
    QVERIFY(d);

    d->nameEdit()->setText(typed);
    if (viaReturn)
        QTest::keyClick(d->nameEdit(), Qt::Key_Return);
    else
        QTest::mouseClick(d->findChild<QPushButton*>("addLabelButton"), Qt::LeftButton);

    if (added.isEmpty()) {
        QCOMPARE(d->listWidget()->count(), 3);
        QCOMPARE(d->nameEdit()->text(), typed); // the field keeps what was typed
    } else {
        QCOMPARE(d->listWidget()->count(), 4);
        QCOMPARE(rowName(*d, 3), added);
        QCOMPARE(rowColor(*d, 3), QColor(255, 200, 0)); // palette entry 3
        QVERIFY(d->nameEdit()->text().isEmpty());
    }
    if (duplicate.isEmpty()) {
        QVERIFY(prompts.calls.isEmpty());
    } else {
        QCOMPARE(prompts.calls.size(), 1);
        QCOMPARE(prompts.last().kind, QStringLiteral("warning"));
        QCOMPARE(prompts.last().title, QStringLiteral("Duplicate"));
        QCOMPARE(prompts.last().text, duplicate);
    }
}

void TestLabelsDialog::returnAddsWithoutClosing()
{
    ScriptedPrompts prompts;
    auto d = open({});
    QVERIFY(d);
    d->nameEdit()->setFocus();
    for (const char* name : {"a", "b", "c", "d", "e", "f", "g", "h", "i"}) {
        QTest::keyClicks(d->nameEdit(), name);
        QTest::keyClick(d->nameEdit(), Qt::Key_Return);
        QVERIFY(d->isVisible());
    }
    QCOMPARE(d->QDialog::result(), 0);
    const QList<LabelDef> result = d->result();
    QCOMPARE(names(result), (QStringList{"a", "b", "c", "d", "e", "f", "g", "h", "i"}));
    for (int i = 0; i < result.size(); ++i)
        QCOMPARE(result[i].color, LabelPalette::colors().at(i % 8));
    QCOMPARE(result[8].color, QColor(0, 220, 220)); // the ninth wraps round
}

void TestLabelsDialog::colourRepeatsAfterDeletion()
{
    ScriptedPrompts prompts;
    auto d = open(threeLabels());
    QVERIFY(d);
    QTest::mouseClick(d->listWidget()->viewport(), Qt::LeftButton, {}, spotOf(*d, 0, Spot::Delete));
    QCOMPARE(d->listWidget()->count(), 2);
    d->nameEdit()->setText("bus");
    d->onAddLabel();
    // Two rows before the add: palette entry 2, whatever colours the rows have.
    QCOMPARE(rowColor(*d, 2), QColor(100, 220, 100));
    d->nameEdit()->setText("van");
    d->onAddLabel();
    QCOMPARE(rowColor(*d, 3), QColor(255, 200, 0));
}

void TestLabelsDialog::swatchClickRecolours_data()
{
    QTest::addColumn<QColor>("answer");
    QTest::addColumn<QColor>("expected");
    QTest::newRow("colour chosen") << QColor(1, 2, 250) << QColor(1, 2, 250);
    QTest::newRow("dialog cancelled") << QColor() << QColor(255, 100, 100);
}

void TestLabelsDialog::swatchClickRecolours()
{
    QFETCH(QColor, answer);
    QFETCH(QColor, expected);
    ScriptedPrompts prompts;
    prompts.colorAnswers.enqueue(answer);
    auto d = open(threeLabels());
    QVERIFY(d);

    QTest::mouseClick(d->listWidget()->viewport(), Qt::LeftButton, {}, spotOf(*d, 1, Spot::Swatch));
    QCOMPARE(prompts.calls.size(), 1);
    QCOMPARE(prompts.last().kind, QStringLiteral("color"));
    QCOMPARE(prompts.last().title, QStringLiteral("Choose color for 'car'"));
    QCOMPARE(prompts.last().text, QStringLiteral("#ff6464"));
    QCOMPARE(rowColor(*d, 1), expected);
    QCOMPARE(d->result()[1].color, expected);
    QCOMPARE(d->listWidget()->count(), 3);
    // The press was consumed: the row did not become current.
    QVERIFY(d->listWidget()->currentRow() != 1);
}

void TestLabelsDialog::deleteMarkRemovesRow()
{
    ScriptedPrompts prompts;
    auto d = open(threeLabels());
    QVERIFY(d);
    QTest::mouseClick(d->listWidget()->viewport(), Qt::LeftButton, {}, spotOf(*d, 1, Spot::Delete));
    QCOMPARE(names(d->result()), (QStringList{"object", "person"}));
    QVERIFY(prompts.calls.isEmpty()); // no confirmation
    QTest::mouseClick(d->listWidget()->viewport(), Qt::LeftButton, {}, spotOf(*d, 1, Spot::Delete));
    QTest::mouseClick(d->listWidget()->viewport(), Qt::LeftButton, {}, spotOf(*d, 0, Spot::Delete));
    QCOMPARE(d->listWidget()->count(), 0);
    QVERIFY(d->result().isEmpty());
}

void TestLabelsDialog::otherClicks_data()
{
    QTest::addColumn<Spot>("spot");
    QTest::addColumn<bool>("doubleClick");
    QTest::addColumn<Qt::MouseButton>("button");
    QTest::addColumn<bool>("editorOpens");
    QTest::addColumn<int>("currentRow"); // -1: the press did not select the row

    QTest::newRow("double-click name") << Spot::Name << true << Qt::LeftButton << true << -1;
    QTest::newRow("double-click swatch") << Spot::Swatch << true << Qt::LeftButton << false << -1;
    QTest::newRow("double-click X") << Spot::Delete << true << Qt::LeftButton << false << -1;
    QTest::newRow("press name selects") << Spot::Name << false << Qt::LeftButton << false << 2;
    QTest::newRow("right-press swatch") << Spot::Swatch << false << Qt::RightButton << false << 2;
    QTest::newRow("right-press X") << Spot::Delete << false << Qt::RightButton << false << 2;
    // Not consumed: the list treats it as a press.
    QTest::newRow("right double-click name") << Spot::Name << true << Qt::RightButton << false << 2;
}

void TestLabelsDialog::otherClicks()
{
    QFETCH(Spot, spot);
    QFETCH(bool, doubleClick);
    QFETCH(Qt::MouseButton, button);
    QFETCH(bool, editorOpens);
    QFETCH(int, currentRow);
    ScriptedPrompts prompts;
    auto d = open(threeLabels());
    QVERIFY(d);
    d->listWidget()->setCurrentRow(-1);

    const QPoint pos = spotOf(*d, 2, spot);
    if (doubleClick)
        sendDoubleClick(*d, pos, button);
    else
        QTest::mouseClick(d->listWidget()->viewport(), button, {}, pos);

    QCOMPARE(openEditor(*d) != nullptr, editorOpens);
    QCOMPARE(d->listWidget()->count(), 3);
    QCOMPARE(d->listWidget()->currentRow(), currentRow);
    QVERIFY(prompts.calls.isEmpty()); // no colour dialog, no confirmation
    QCOMPARE(names(d->result()), names(threeLabels()));
}

void TestLabelsDialog::renameInPlace_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("expected");
    QTest::newRow("new name") << "truck" << "truck";
    QTest::newRow("trimmed") << "  big truck  " << "big truck";
    QTest::newRow("empty keeps the name") << "" << "car";
    QTest::newRow("blanks keep the name") << "   " << "car";
    // No duplicate check on rename.
    QTest::newRow("onto an existing name") << "person" << "person";
}

void TestLabelsDialog::renameInPlace()
{
    QFETCH(QString, typed);
    QFETCH(QString, expected);
    ScriptedPrompts prompts;
    auto d = open(threeLabels());
    QVERIFY(d);

    sendDoubleClick(*d, spotOf(*d, 1, Spot::Name));
    QLineEdit* editor = openEditor(*d);
    QVERIFY(editor);
    QCOMPARE(editor->text(), QStringLiteral("car"));
    // The editor sits between the swatch and the mark, 2 px inside the row.
    QStyleOptionViewItem option;
    option.rect = rowRect(*d, 1);
    QCOMPARE(editor->geometry(), QRect(QPoint(option.rect.left() + 35, option.rect.top() + 2),
                                       QPoint(option.rect.right() - 36, option.rect.bottom() - 2)));
    QVERIFY(!editor->geometry().intersects(LabelRowDelegate::swatchRect(option)));
    QVERIFY(!editor->geometry().intersects(LabelRowDelegate::deleteRect(option)));

    editor->selectAll();
    QTest::keyClicks(editor, typed);
    if (typed.isEmpty())
        QTest::keyClick(editor, Qt::Key_Backspace);
    QTest::keyClick(editor, Qt::Key_Return);
    // The delegate commits from a queued call.
    QTRY_VERIFY(!openEditor(*d));
    QCOMPARE(rowName(*d, 1), expected);
    QCOMPARE(rowColor(*d, 1), QColor(255, 100, 100));
    QCOMPARE(d->result()[1].name, expected);
    QCOMPARE(d->result().size(), 3);
    QVERIFY(prompts.calls.isEmpty());
}

void TestLabelsDialog::reorderByDragging()
{
    ScriptedPrompts prompts;
    auto d = open(threeLabels());
    QVERIFY(d);
    QListWidget* list = d->listWidget();
    // The list's internal move of a dragged row: row 0 dropped below the last row.
    QVERIFY(list->model()->moveRow(QModelIndex(), 0, QModelIndex(), 3));
    QCOMPARE(names(d->result()), (QStringList{"car", "person", "object"}));
    QCOMPARE(d->result()[2].color, QColor(0, 220, 220));
    QVERIFY(list->model()->moveRow(QModelIndex(), 2, QModelIndex(), 1));
    QCOMPARE(names(d->result()), (QStringList{"car", "object", "person"}));
    // Colours travel with their rows, and clicks follow the new order.
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, spotOf(*d, 1, Spot::Delete));
    QCOMPARE(names(d->result()), (QStringList{"car", "person"}));
    QCOMPARE(d->result()[1].color, QColor(10, 20, 30));
}

void TestLabelsDialog::deleteAll_data()
{
    QTest::addColumn<QList<LabelDef>>("labels");
    QTest::addColumn<int>("answer");
    QTest::addColumn<bool>("asked");
    QTest::addColumn<int>("rowsLeft");
    QTest::newRow("confirmed") << threeLabels() << 0 << true << 0;
    QTest::newRow("cancelled") << threeLabels() << 1 << true << 3;
    QTest::newRow("box closed") << threeLabels() << -1 << true << 3;
    QTest::newRow("empty list asks nothing") << QList<LabelDef>() << 0 << false << 0;
}

void TestLabelsDialog::deleteAll()
{
    QFETCH(QList<LabelDef>, labels);
    QFETCH(int, answer);
    QFETCH(bool, asked);
    QFETCH(int, rowsLeft);
    ScriptedPrompts prompts;
    prompts.chooseAnswers.enqueue(answer);
    auto d = open(labels);
    QVERIFY(d);
    QTest::mouseClick(d->findChild<QPushButton*>("deleteAllButton"), Qt::LeftButton);
    QCOMPARE(d->listWidget()->count(), rowsLeft);
    QCOMPARE(prompts.callsOf("choose").size(), asked ? 1 : 0);
    if (asked) {
        const ScriptedPrompts::Call call = prompts.last();
        QCOMPARE(call.title, QStringLiteral("Delete All Labels"));
        QCOMPARE(call.text, QStringLiteral("Delete all labels from the list?\n"
                                           "Existing annotation files will NOT be modified."));
        QCOMPARE(call.buttons, (QStringList{"Delete All", "Cancel"}));
    }
    QVERIFY(d->isVisible());
}

void TestLabelsDialog::okAndCancel_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<int>("code");
    QTest::newRow("OK") << "okButton" << int(QDialog::Accepted);
    QTest::newRow("Cancel") << "cancelButton" << int(QDialog::Rejected);
}

void TestLabelsDialog::okAndCancel()
{
    QFETCH(QString, button);
    QFETCH(int, code);
    ScriptedPrompts prompts;
    prompts.colorAnswers.enqueue(QColor(9, 9, 9));
    auto d = open(threeLabels());
    QVERIFY(d);
    d->nameEdit()->setText("bus");
    d->onAddLabel();
    QTest::mouseClick(d->listWidget()->viewport(), Qt::LeftButton, {}, spotOf(*d, 0, Spot::Delete));
    QTest::mouseClick(d->listWidget()->viewport(), Qt::LeftButton, {}, spotOf(*d, 0, Spot::Swatch));

    QTest::mouseClick(d->findChild<QPushButton*>(button), Qt::LeftButton);
    QVERIFY(!d->isVisible());
    QCOMPARE(d->QDialog::result(), code);
    // The dialog only reports; the caller decides by the result code.
    const QList<LabelDef> result = d->result();
    QCOMPARE(names(result), (QStringList{"car", "person", "bus"}));
    QCOMPARE(result[0].color, QColor(9, 9, 9));
}

QTEST_MAIN(TestLabelsDialog)
#include "tst_labelsdialog.moc"
