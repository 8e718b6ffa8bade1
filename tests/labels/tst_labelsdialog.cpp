#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>

#include "labels/labelrowdelegate.h"
#include "labels/labelsdialog.h"
#include "model/labelpalette.h"
#include "support/canvasfixture.h"
#include "support/scriptedprompts.h"

// The Manage Labels dialog driven through its widgets: what the user clicks and types,
// and the list it hands back.
enum class Spot { Swatch, Name, Delete };
Q_DECLARE_METATYPE(Spot)
static bool operator==(const LabelDef& a, const LabelDef& b) { return a.name == b.name && a.color == b.color; }

class TestLabelsDialog : public QObject {
    Q_OBJECT
    ScriptedPrompts* prompts = nullptr;
    std::unique_ptr<LabelsDialog> d;
    const QList<LabelDef> three{{"object", QColor(0, 220, 220)}, {"car", QColor(255, 100, 100)}, {"person", QColor(10, 20, 30)}};

    bool open(const QList<LabelDef>& labels)
    {
        d = std::make_unique<LabelsDialog>(labels);
        d->show();
        return QTest::qWaitForWindowExposed(d.get());
    }
    QWidget* viewport() const { return d->listWidget()->viewport(); }
    QRect spot(int row, Spot s) const
    {
        QStyleOptionViewItem o;
        o.rect = d->listWidget()->visualItemRect(d->listWidget()->item(row));
        return s == Spot::Swatch ? LabelRowDelegate::swatchRect(o) : s == Spot::Delete ? LabelRowDelegate::deleteRect(o) : LabelRowDelegate::nameRect(o);
    }
    void click(int row, Spot s, Qt::MouseButton b = Qt::LeftButton) { QTest::mouseClick(viewport(), b, {}, spot(row, s).center()); }
    void doubleClick(int row, Spot s, Qt::MouseButton b = Qt::LeftButton)
    {
        const QPoint pos = spot(row, s).center();
        QMouseEvent event(QEvent::MouseButtonDblClick, pos, viewport()->mapToGlobal(pos), b, b, Qt::NoModifier);
        QApplication::sendEvent(viewport(), &event);
    }
    QLineEdit* editor() const
    {
        for (QLineEdit* edit : viewport()->findChildren<QLineEdit*>())
            if (edit->isVisible())
                return edit;
        return nullptr;
    }
    QColor rowColor(int row) const { return d->listWidget()->item(row)->data(LabelRowDelegate::LabelColorRole).value<QColor>(); }
    void add(const QString& name)
    {
        d->nameEdit()->setText(name);
        QTest::mouseClick(d->findChild<QPushButton*>("addLabelButton"), Qt::LeftButton);
    }

private Q_SLOTS:
    void init() { prompts = new ScriptedPrompts; }
    void cleanup()
    {
        d.reset();
        delete prompts;
    }

    void rowsTextsAndPainting()
    {
        // A nameless entry gets a row but is left out of the result.
        QList<LabelDef> labels = three;
        labels.insert(1, {QString(), QColor(1, 2, 3)});
        QVERIFY(open(labels));
        QCOMPARE(d->listWidget()->count(), 4);
        QCOMPARE(labelNames(d->result()), (QStringList{"object", "car", "person"}));
        QCOMPARE(d->result()[2].color, QColor(10, 20, 30));
        QCOMPARE(d->windowTitle(), QStringLiteral("Manage Labels"));
        QCOMPARE(d->minimumSize(), QSize(460, 420));
        QCOMPARE(d->findChild<QLabel*>("labelsHeader")->text(),
                 QStringLiteral("<b>Labels</b>  (drag rows to reorder  |  double-click name to rename  |  "
                                "click color swatch to change color  |  click X to delete)"));
        QCOMPARE(d->nameEdit()->placeholderText(), QStringLiteral("Enter label name..."));
        // The swatch in the row's colour inside a grey frame, the name in dark text, a red X.
        d->listWidget()->clearSelection();
        const QImage image = viewport()->grab().toImage();
        const QRect swatch = spot(2, Spot::Swatch);
        QCOMPARE(QColor(image.pixel(swatch.center())), QColor(255, 100, 100));
        QCOMPARE(QColor(image.pixel(swatch.topLeft())), QColor(120, 120, 120));
        QVERIFY(QColor(image.pixel(swatch.bottomRight() + QPoint(1, 1))) != QColor(120, 120, 120));
        auto count = [&](const QRect& r, auto test) {
            int n = 0;
            for (int y = r.top(); y <= r.bottom(); ++y)
                for (int x = r.left(); x <= r.right(); ++x)
                    n += test(QColor(image.pixel(x, y)));
            return n;
        };
        QVERIFY(count(spot(2, Spot::Name), [](const QColor& c) { return qGray(c.rgb()) < 100; }) > 10);
        QVERIFY(count(spot(2, Spot::Delete), [](const QColor& c) { return c.red() > 120 && c.green() < 90 && c.blue() < 90; }) > 3);
    }

    void addLabel_data()
    {
        // added: empty: nothing added
        // duplicate: text of the warning, empty: none
        columns<QString, bool, QString, QString>("typed", "viaReturn", "added", "duplicate");
        QTest::newRow("plain, + Add") << "bus" << false << "bus" << "";
        QTest::newRow("plain, Return") << "bus" << true << "bus" << "";
        QTest::newRow("blanks trimmed") << "  traffic light \t" << false << "traffic light" << "";
        QTest::newRow("only blanks") << "   " << false << "" << "";
        QTest::newRow("empty") << "" << true << "" << "";
        QTest::newRow("duplicate by case") << "CAR" << false << "" << "Label 'CAR' already exists.";
        QTest::newRow("duplicate with blanks") << " person " << true << "" << "Label 'person' already exists.";
    }
    void addLabel()
    {
        auto [typed, viaReturn, added, duplicate] = row<QString, bool, QString, QString>("typed", "viaReturn", "added", "duplicate");
        QVERIFY(open(three));
        d->nameEdit()->setText(typed);
        if (viaReturn)
            QTest::keyClick(d->nameEdit(), Qt::Key_Return);
        else
            QTest::mouseClick(d->findChild<QPushButton*>("addLabelButton"), Qt::LeftButton);
        QCOMPARE(labelNames(d->result()), labelNames(three) + (added.isEmpty() ? QStringList() : QStringList{added}));
        if (!added.isEmpty())
            QCOMPARE(rowColor(3), QColor(255, 200, 0)); // palette entry 3
        QCOMPARE(d->nameEdit()->text(), added.isEmpty() ? typed : QString()); // kept when refused
        QCOMPARE(prompts->calls.size(), duplicate.isEmpty() ? 0 : 1);
        if (!duplicate.isEmpty())
            QCOMPARE(QStringList({prompts->last().kind, prompts->last().title, prompts->last().text}), (QStringList{"warning", "Duplicate", duplicate}));
    }

    void newColoursFollowThePalette()
    {
        QVERIFY(open({}));
        d->nameEdit()->setFocus();
        for (const char* name : {"a", "b", "c", "d", "e", "f", "g", "h", "i"}) {
            QTest::keyClicks(d->nameEdit(), name);
            QTest::keyClick(d->nameEdit(), Qt::Key_Return);
        }
        QVERIFY(d->isVisible()); // Return in the field never closes the dialog
        for (int i = 0; i < 9; ++i)
            QCOMPARE(d->result()[i].color, LabelPalette::colors().at(i % 8)); // the ninth wraps round
        // The palette entry is the row count before the add, whatever the rows' colours.
        QVERIFY(open(three));
        click(0, Spot::Delete);
        add("bus");
        add("van");
        QCOMPARE(rowColor(2), QColor(100, 220, 100));
        QCOMPARE(rowColor(3), QColor(255, 200, 0));
    }

    void swatchClickRecolours_data()
    {
        columns<QColor, QColor>("answer", "expected");
        QTest::newRow("colour chosen") << QColor(1, 2, 250) << QColor(1, 2, 250);
        QTest::newRow("dialog cancelled") << QColor() << QColor(255, 100, 100);
    }
    void swatchClickRecolours()
    {
        auto [answer, expected] = row<QColor, QColor>("answer", "expected");
        prompts->colorAnswers.enqueue(answer);
        QVERIFY(open(three));
        click(1, Spot::Swatch);
        QCOMPARE(prompts->calls.size(), 1);
        QCOMPARE(QStringList({prompts->last().kind, prompts->last().title, prompts->last().text}), (QStringList{"color", "Choose color for 'car'", "#ff6464"}));
        QCOMPARE(d->result()[1].color, expected);
        QVERIFY(d->listWidget()->currentRow() != 1); // the press was consumed
    }

    void otherClicks_data()
    {
        // currentRow: -1: the press did not select the row
        columns<Spot, bool, int, bool, int>("spot", "doubleClick", "button", "editorOpens", "currentRow");
        QTest::newRow("double-click name") << Spot::Name << true << int(Qt::LeftButton) << true << -1;
        QTest::newRow("double-click swatch") << Spot::Swatch << true << int(Qt::LeftButton) << false << -1;
        QTest::newRow("double-click X") << Spot::Delete << true << int(Qt::LeftButton) << false << -1;
        QTest::newRow("press name selects") << Spot::Name << false << int(Qt::LeftButton) << false << 2;
        QTest::newRow("right-press swatch") << Spot::Swatch << false << int(Qt::RightButton) << false << 2;
        QTest::newRow("right-press X") << Spot::Delete << false << int(Qt::RightButton) << false << 2;
        // Not consumed: the list treats it as a press.
        QTest::newRow("right double-click name") << Spot::Name << true << int(Qt::RightButton) << false << 2;
    }
    void otherClicks()
    {
        auto [spot, doubleClick, button, editorOpens, currentRow] = row<Spot, bool, int, bool, int>("spot", "doubleClick", "button", "editorOpens", "currentRow");
        QVERIFY(open(three));
        d->listWidget()->setCurrentRow(-1);
        doubleClick ? this->doubleClick(2, spot, Qt::MouseButton(button)) : click(2, spot, Qt::MouseButton(button));
        QCOMPARE(editor() != nullptr, editorOpens);
        QCOMPARE(d->listWidget()->currentRow(), currentRow);
        QVERIFY(prompts->calls.isEmpty()); // no colour dialog, no confirmation
        QCOMPARE(d->result(), three);
    }

    void renameInPlace_data()
    {
        columns<QString, QString>("typed", "expected");
        QTest::newRow("new name") << "truck" << "truck";
        QTest::newRow("trimmed") << "  big truck  " << "big truck";
        QTest::newRow("empty keeps the name") << "" << "car";
        QTest::newRow("blanks keep the name") << "   " << "car";
        QTest::newRow("onto an existing name, unchecked") << "person" << "person";
    }
    void renameInPlace()
    {
        auto [typed, expected] = row<QString, QString>("typed", "expected");
        QVERIFY(open(three));
        doubleClick(1, Spot::Name);
        QLineEdit* edit = editor();
        QVERIFY(edit);
        QCOMPARE(edit->text(), QStringLiteral("car"));
        // Between the swatch and the mark, 2 px inside the row.
        const QRect row = d->listWidget()->visualItemRect(d->listWidget()->item(1));
        QCOMPARE(edit->geometry(), QRect(QPoint(row.left() + 35, row.top() + 2), QPoint(row.right() - 36, row.bottom() - 2)));
        edit->selectAll();
        QTest::keyClicks(edit, typed);
        if (typed.isEmpty())
            QTest::keyClick(edit, Qt::Key_Backspace);
        QTest::keyClick(edit, Qt::Key_Return);
        QTRY_VERIFY(!editor()); // the delegate commits from a queued call
        QCOMPARE(d->result(), (QList<LabelDef>{three[0], {expected, three[1].color}, three[2]}));
        QVERIFY(prompts->calls.isEmpty());
    }

    void reorderAndDelete()
    {
        QVERIFY(open(three));
        QAbstractItemModel* model = d->listWidget()->model();
        // The list's internal move of a dragged row: row 0 dropped below the last row.
        QVERIFY(model->moveRow(QModelIndex(), 0, QModelIndex(), 3));
        QVERIFY(model->moveRow(QModelIndex(), 2, QModelIndex(), 1));
        QCOMPARE(d->result(), (QList<LabelDef>{three[1], three[0], three[2]}));
        // Clicks follow the new order; the X deletes without asking.
        click(1, Spot::Delete);
        QCOMPARE(d->result(), (QList<LabelDef>{three[1], three[2]}));
        click(1, Spot::Delete);
        click(0, Spot::Delete);
        QVERIFY(d->result().isEmpty());
        QVERIFY(prompts->calls.isEmpty());
    }

    void deleteAll_data()
    {
        columns<bool, int, int>("empty", "answer", "rowsLeft");
        QTest::newRow("confirmed") << false << 0 << 0;
        QTest::newRow("cancelled") << false << 1 << 3;
        QTest::newRow("box closed") << false << -1 << 3;
        QTest::newRow("empty list asks nothing") << true << 0 << 0;
    }
    void deleteAll()
    {
        auto [empty, answer, rowsLeft] = row<bool, int, int>("empty", "answer", "rowsLeft");
        prompts->chooseAnswers.enqueue(answer);
        QVERIFY(open(empty ? QList<LabelDef>() : three));
        QTest::mouseClick(d->findChild<QPushButton*>("deleteAllButton"), Qt::LeftButton);
        QCOMPARE(d->listWidget()->count(), rowsLeft);
        QCOMPARE(prompts->callsOf("choose").size(), empty ? 0 : 1);
        if (!empty)
            QCOMPARE(QStringList({prompts->last().title, prompts->last().text}) + prompts->last().buttons,
                     (QStringList{"Delete All Labels", "Delete all labels from the list?\nExisting annotation files will NOT be modified.", "Delete All", "Cancel"}));
        QVERIFY(d->isVisible());
    }
};

QTEST_MAIN(TestLabelsDialog)
#include "tst_labelsdialog.moc"
