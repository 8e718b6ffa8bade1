#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include "ui/imagelistdelegate.h"
#include "labels/annotationspanel.h"

Q_DECLARE_METATYPE(BoxAnnotation)

namespace {

BoxAnnotation shape(const QString& label, ShapeType type, const QList<QPointF>& points)
{
    BoxAnnotation b;
    b.label = label;
    b.type = type;
    b.points = points;
    return b;
}

BoxAnnotation box(const QString& label, double x1, double y1, double x2, double y2)
{
    return shape(label, ShapeType::BoundingBox, {QPointF(x1, y1), QPointF(x2, y2)});
}

struct MenuSeen {
    bool shown = false;
    QString section;
    QStringList entries;
    QStringList checked;
    QStringList checkable;
};

} // namespace

class TestAnnotationsPanel : public QObject {
    Q_OBJECT

private:
    AnnotationsPanel* panel = nullptr;

    QListView* list() const { return panel->listView(); }
    QRect rowRect(int row) const { return list()->visualRect(list()->model()->index(row, 0)); }
    ImageListDelegate* delegate() const
    {
        return qobject_cast<ImageListDelegate*>(list()->itemDelegate());
    }

    // Opens the row's context menu; `choose` names the entry to click, or is empty to
    // close the menu without a choice.
    MenuSeen openMenuAt(const QPoint& pos, const QString& choose = QString())
    {
        MenuSeen seen;
        QTimer::singleShot(0, this, [&] {
            auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            if (!menu)
                return;
            seen.shown = true;
            QAction* pick = nullptr;
            for (QAction* a : menu->actions()) {
                if (a->isSeparator()) {
                    seen.section = a->text();
                    continue;
                }
                seen.entries << a->text();
                if (a->isCheckable())
                    seen.checkable << a->text();
                if (a->isChecked())
                    seen.checked << a->text();
                if (a->text() == choose)
                    pick = a;
            }
            if (pick)
                QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(pick).center());
            else
                menu->close();
        });
        panel->onContextMenu(pos);
        QCoreApplication::processEvents();
        return seen;
    }

private Q_SLOTS:
    void init()
    {
        panel = new AnnotationsPanel;
        panel->resize(260, 400);
        panel->show();
        QVERIFY(QTest::qWaitForWindowExposed(panel));
    }

    void cleanup()
    {
        delete panel;
        panel = nullptr;
    }

    void construction()
    {
        auto* title = panel->findChild<QLabel*>();
        QVERIFY(title);
        QCOMPARE(title->text(), QStringLiteral("Annotations"));
        QCOMPARE(title->font().weight(), QFont::Bold);
        QCOMPARE(panel->minimumWidth(), 180);
        QVERIFY(list()->alternatingRowColors());
        QVERIFY(list()->hasMouseTracking());
        QVERIFY(list()->viewport()->hasMouseTracking());
        QCOMPARE(list()->contextMenuPolicy(), Qt::CustomContextMenu);
        QVERIFY(delegate());
    }

    void rows_data()
    {
        QTest::addColumn<BoxAnnotation>("shape");
        QTest::addColumn<QString>("tip");
        QTest::newRow("box") << box("car", 10.7, 20.2, 50.9, 80.5) << "x:10 y:20  w:40 h:60";
        QTest::newRow("box reversed") << box("car", 50, 80, 10, 20) << "x:10 y:20  w:40 h:60";
        QTest::newRow("polygon") << shape("p", ShapeType::Polygon,
                                          {{5, 9}, {25.9, 3.5}, {12, 30.2}})
                                 << "x:5 y:3  w:20 h:26";
        QTest::newRow("keypoint") << shape("k", ShapeType::Keypoint, {{7.8, 9.9}})
                                  << "x:7 y:9  w:0 h:0";
        QTest::newRow("ellipse shows its raw points")
            << shape("e", ShapeType::Ellipse, {{100, 50}, {30, 20}}) << "x:30 y:20  w:70 h:30";
        QTest::newRow("no points") << shape("n", ShapeType::Polygon, {}) << "x:0 y:0  w:0 h:0";
        QTest::newRow("negative truncates toward zero")
            << box("neg", -3.7, -2.2, 5.0, 5.0) << "x:-3 y:-2  w:8 h:7";
    }

    void rows()
    {
        QFETCH(BoxAnnotation, shape);
        QFETCH(QString, tip);
        panel->setBoxes({box("first", 0, 0, 1, 1), shape});
        QCOMPARE(panel->rowCount(), 2);
        QCOMPARE(panel->rowText(1), shape.label);
        QCOMPARE(panel->rowToolTip(1), tip);
    }

    void rebuildIsSilent()
    {
        QSignalSpy requested(panel, &AnnotationsPanel::selectionRequested);
        panel->setBoxes({box("a", 0, 0, 5, 5), box("b", 1, 1, 6, 6), box("c", 2, 2, 7, 7)});
        panel->setSelectedIndex(2);
        panel->setBoxes({box("x", 0, 0, 5, 5)});
        panel->setBoxes({});
        QCOMPARE(panel->rowCount(), 0);
        QCOMPARE(requested.count(), 0);
    }

    void setSelectedIndex_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<bool>("highlighted");
        QTest::newRow("valid") << 1 << true;
        QTest::newRow("first") << 0 << true;
        QTest::newRow("minus one") << -1 << false;
        QTest::newRow("past the end") << 3 << false;
    }

    void setSelectedIndex()
    {
        QFETCH(int, index);
        QFETCH(bool, highlighted);
        panel->setBoxes({box("a", 0, 0, 5, 5), box("b", 1, 1, 6, 6), box("c", 2, 2, 7, 7)});
        panel->setSelectedIndex(2);
        QSignalSpy requested(panel, &AnnotationsPanel::selectionRequested);
        panel->setSelectedIndex(index);
        QCOMPARE(requested.count(), 0);
        const QModelIndexList selected = list()->selectionModel()->selectedIndexes();
        if (highlighted) {
            QCOMPARE(selected.size(), 1);
            QCOMPARE(selected.first().row(), index);
        } else {
            QVERIFY(selected.isEmpty());
            QCOMPARE(panel->currentRow(), 2); // the current row itself stays
        }
    }

    void clickOnRowRequestsSelection()
    {
        panel->setBoxes({box("a", 0, 0, 5, 5), box("b", 1, 1, 6, 6)});
        QSignalSpy requested(panel, &AnnotationsPanel::selectionRequested);
        QSignalSpy deleted(panel, &AnnotationsPanel::deleteRequested);
        const QRect r = rowRect(1);
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, {}, QPoint(r.left() + 10, r.center().y()));
        QCOMPARE(requested.count(), 1);
        QCOMPARE(requested.first().first().toInt(), 1);
        QCOMPARE(deleted.count(), 0);
    }

    void xPressDeletesWithoutSelecting()
    {
        panel->setBoxes({box("a", 0, 0, 5, 5), box("b", 1, 1, 6, 6), box("c", 2, 2, 7, 7)});
        panel->setSelectedIndex(0);
        QSignalSpy requested(panel, &AnnotationsPanel::selectionRequested);
        QSignalSpy deleted(panel, &AnnotationsPanel::deleteRequested);
        const QPoint x = delegate()->xButtonRect(rowRect(2)).center();
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, {}, x);
        QCOMPARE(deleted.count(), 1);
        QCOMPARE(deleted.first().first().toInt(), 2);
        QCOMPARE(requested.count(), 0);
        QCOMPARE(panel->currentRow(), 0);

        // A right press on the X deletes too: the mark takes any button.
        QTest::mousePress(list()->viewport(), Qt::RightButton, {}, x);
        QTest::mouseRelease(list()->viewport(), Qt::RightButton, {}, x);
        QCOMPARE(deleted.count(), 2);
    }

    void hoverFollowsMouseAndLeaveClears()
    {
        panel->setBoxes({box("a", 0, 0, 5, 5), box("b", 1, 1, 6, 6)});
        const QPoint x = delegate()->xButtonRect(rowRect(1)).center();
        QTest::mouseMove(list()->viewport(), x);
        QTRY_COMPARE(delegate()->hoverRow, 1);
        QTest::mouseMove(list()->viewport(), QPoint(rowRect(1).left() + 5, rowRect(1).center().y()));
        QTRY_COMPARE(delegate()->hoverRow, -1);
        QTest::mouseMove(list()->viewport(), x);
        QTRY_COMPARE(delegate()->hoverRow, 1);
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(list()->viewport(), &leave);
        QCOMPARE(delegate()->hoverRow, -1);
    }

    void contextMenu_data()
    {
        QTest::addColumn<QString>("rowLabel");
        QTest::addColumn<QStringList>("checked");
        QTest::newRow("label in list") << "dog" << QStringList{"dog"};
        QTest::newRow("label not in list") << "zebra" << QStringList{};
        QTest::newRow("case differs") << "Dog" << QStringList{};
    }

    void contextMenu()
    {
        QFETCH(QString, rowLabel);
        QFETCH(QStringList, checked);
        panel->setLabelNames({"car", "dog", "cat"});
        panel->setBoxes({box("car", 0, 0, 5, 5), box(rowLabel, 1, 1, 6, 6)});
        const MenuSeen seen = openMenuAt(rowRect(1).center());
        QVERIFY(seen.shown);
        QCOMPARE(seen.section, QStringLiteral("Change label to:"));
        QCOMPARE(seen.entries, QStringList({"car", "dog", "cat"}));
        QCOMPARE(seen.checked, checked);
        QCOMPARE(seen.checkable, checked); // only the current label's entry is checkable
    }

    void contextMenuChoiceEmits_data()
    {
        QTest::addColumn<QString>("choice");
        QTest::newRow("other label") << "cat";
        QTest::newRow("same label") << "dog";
        QTest::newRow("ampersand") << "R&D";
    }

    void contextMenuChoiceEmits()
    {
        QFETCH(QString, choice);
        panel->setLabelNames({"car", "dog", "cat", "R&D"});
        panel->setBoxes({box("car", 0, 0, 5, 5), box("dog", 1, 1, 6, 6)});
        QSignalSpy changed(panel, &AnnotationsPanel::labelChangeRequested);
        QSignalSpy requested(panel, &AnnotationsPanel::selectionRequested);
        MenuSeen seen;
        // The entry for "R&D" is displayed with its ampersand escaped.
        const QString shown = QString(choice).replace(QLatin1Char('&'), QLatin1String("&&"));
        seen = openMenuAt(rowRect(1).center(), shown);
        QVERIFY(seen.shown);
        QTRY_COMPARE(changed.count(), 1);
        QCOMPARE(changed.first().at(0).toInt(), 1);
        QCOMPARE(changed.first().at(1).toString(), choice);
        QCOMPARE(requested.count(), 0);
    }

    void noMenuWhereNothingToOffer()
    {
        panel->setLabelNames({"car"});
        panel->setBoxes({box("car", 0, 0, 5, 5)});
        QSignalSpy changed(panel, &AnnotationsPanel::labelChangeRequested);
        // Below the last row.
        QVERIFY(!openMenuAt(QPoint(10, rowRect(0).bottom() + 40)).shown);
        // An empty label list.
        panel->setLabelNames({});
        QVERIFY(!openMenuAt(rowRect(0).center()).shown);
        QCOMPARE(changed.count(), 0);
    }

    void closingMenuWithoutChoiceEmitsNothing()
    {
        panel->setLabelNames({"car", "dog"});
        panel->setBoxes({box("car", 0, 0, 5, 5)});
        QSignalSpy changed(panel, &AnnotationsPanel::labelChangeRequested);
        QSignalSpy requested(panel, &AnnotationsPanel::selectionRequested);
        QVERIFY(openMenuAt(rowRect(0).center()).shown);
        QCoreApplication::processEvents();
        QCOMPARE(changed.count(), 0);
        // Focus coming back to the list after the menu must not pick a row by itself.
        QCOMPARE(requested.count(), 0);
        QCOMPARE(panel->currentRow(), -1);
    }
};

QTEST_MAIN(TestAnnotationsPanel)
#include "tst_annotationspanel.moc"
