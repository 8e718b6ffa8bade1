#include <QLabel>
#include <QListView>
#include <QSignalSpy>

#include "labels/annotationspanel.h"
#include "support/canvasfixture.h"
#include "ui/imagelistdelegate.h"

// The shape list beside the canvas: rows, their tips, and what clicks on them ask for.
class TestAnnotationsPanel : public QObject {
    Q_OBJECT
    std::unique_ptr<AnnotationsPanel> panel;
    QListView* list() const { return panel->listView(); }
    QRect rowRect(int row) const { return list()->visualRect(list()->model()->index(row, 0)); }
    ImageListDelegate* delegate() const { return qobject_cast<ImageListDelegate*>(list()->itemDelegate()); }
    const Boxes three{box("a", 0, 0, 5, 5), box("b", 1, 1, 6, 6), box("c", 2, 2, 7, 7)};

private Q_SLOTS:
    void init()
    {
        panel = std::make_unique<AnnotationsPanel>();
        panel->resize(260, 400);
        panel->show();
        QVERIFY(QTest::qWaitForWindowExposed(panel.get()));
    }
    void cleanup() { panel.reset(); }

    void rows_data()
    {
        columns<BoxAnnotation, QString>("shape", "tip");
        QTest::newRow("box") << box("car", 10.7, 20.2, 50.9, 80.5) << "x:10 y:20  w:40 h:60";
        QTest::newRow("box reversed") << box("car", 50, 80, 10, 20) << "x:10 y:20  w:40 h:60";
        QTest::newRow("polygon") << shape("p", ShapeType::Polygon, {{5, 9}, {25.9, 3.5}, {12, 30.2}}) << "x:5 y:3  w:20 h:26";
        QTest::newRow("keypoint") << shape("k", ShapeType::Keypoint, {{7.8, 9.9}}) << "x:7 y:9  w:0 h:0";
        QTest::newRow("ellipse shows its raw points") << shape("e", ShapeType::Ellipse, {{100, 50}, {30, 20}}) << "x:30 y:20  w:70 h:30";
        QTest::newRow("no points") << shape("n", ShapeType::Polygon, {}) << "x:0 y:0  w:0 h:0";
        QTest::newRow("negative truncates toward zero") << box("neg", -3.7, -2.2, 5.0, 5.0) << "x:-3 y:-2  w:8 h:7";
    }
    void rows()
    {
        auto [shape, tip] = row<BoxAnnotation, QString>("shape", "tip");
        QCOMPARE(panel->findChild<QLabel*>()->text(), QStringLiteral("Annotations"));
        QCOMPARE(panel->minimumWidth(), 180);
        panel->setBoxes({box("first", 0, 0, 1, 1), shape});
        QCOMPARE(panel->rowCount(), 2);
        QCOMPARE(panel->rowText(1), shape.label);
        QCOMPARE(panel->rowToolTip(1), tip);
    }

    void setSelectedIndexIsSilent_data()
    {
        columns<int, bool>("index", "highlighted");
        QTest::newRow("valid") << 1 << true;
        QTest::newRow("first") << 0 << true;
        QTest::newRow("minus one") << -1 << false;
        QTest::newRow("past the end") << 3 << false;
    }
    void setSelectedIndexIsSilent()
    {
        auto [index, highlighted] = row<int, bool>("index", "highlighted");
        QSignalSpy requested(panel.get(), &AnnotationsPanel::selectionRequested);
        panel->setBoxes(three);
        panel->setSelectedIndex(2);
        panel->setSelectedIndex(index);
        const QModelIndexList selected = list()->selectionModel()->selectedIndexes();
        QCOMPARE(selected.size(), highlighted ? 1 : 0);
        QCOMPARE(panel->currentRow(), highlighted ? index : 2);
        panel->setBoxes({three[0]});
        panel->setBoxes({});
        QCOMPARE(requested.count(), 0);
    }

    void clicks()
    {
        panel->setBoxes(three);
        panel->setSelectedIndex(0);
        QSignalSpy requested(panel.get(), &AnnotationsPanel::selectionRequested);
        QSignalSpy deleted(panel.get(), &AnnotationsPanel::deleteRequested);
        // A press on the X deletes without selecting, with either button.
        const QPoint x = delegate()->xButtonRect(rowRect(2)).center();
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, {}, x);
        QTest::mouseClick(list()->viewport(), Qt::RightButton, {}, x);
        QCOMPARE(deleted.count(), 2);
        QCOMPARE(deleted.first().first().toInt(), 2);
        QCOMPARE(requested.count(), 0);
        // Elsewhere on a row it asks for that shape.
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, {}, QPoint(10, rowRect(1).center().y()));
        QCOMPARE(requested.count(), 1);
        QCOMPARE(requested.first().first().toInt(), 1);
        QCOMPARE(deleted.count(), 2);
        // The X lights up under the mouse only, and not after the mouse left.
        QTest::mouseMove(list()->viewport(), x);
        QTRY_COMPARE(delegate()->hoverRow, 2);
        QTest::mouseMove(list()->viewport(), QPoint(10, rowRect(2).center().y()));
        QTRY_COMPARE(delegate()->hoverRow, -1);
        QTest::mouseMove(list()->viewport(), x);
        QTRY_COMPARE(delegate()->hoverRow, 2);
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(list()->viewport(), &leave);
        QCOMPARE(delegate()->hoverRow, -1);
    }

    void contextMenu_data()
    {
        // choose: as the menu shows it
        // requested: empty: nothing
        columns<QStringList, QString, bool, QString, QStringList, QString>("names", "rowLabel", "onRow", "choose", "checked", "requested");
        const QStringList names{"car", "dog", "cat", "R&D"};
        QTest::newRow("other label") << names << "dog" << true << "cat" << QStringList{"dog"} << "cat";
        QTest::newRow("same label") << names << "dog" << true << "dog" << QStringList{"dog"} << "dog";
        QTest::newRow("ampersand shown doubled") << names << "dog" << true << "R&&D" << QStringList{"dog"} << "R&D";
        QTest::newRow("label not in the list") << names << "zebra" << true << "car" << QStringList() << "car";
        QTest::newRow("case differs") << names << "Dog" << true << "" << QStringList() << "";
        QTest::newRow("closed without a choice") << names << "car" << true << "" << QStringList{"car"} << "";
        QTest::newRow("below the last row: no menu") << names << "car" << false << "car" << QStringList() << "";
        QTest::newRow("no label names: no menu") << QStringList() << "car" << true << "car" << QStringList() << "";
    }
    void contextMenu()
    {
        auto [names, rowLabel, onRow, choose, checked, requested] = row<QStringList, QString, bool, QString, QStringList, QString>("names", "rowLabel", "onRow", "choose", "checked", "requested");
        panel->setLabelNames(names);
        panel->setBoxes({box("car", 0, 0, 5, 5), box(rowLabel, 1, 1, 6, 6)});
        QSignalSpy changed(panel.get(), &AnnotationsPanel::labelChangeRequested);
        QSignalSpy selected(panel.get(), &AnnotationsPanel::selectionRequested);
        const QPoint pos = onRow ? rowRect(1).center() : QPoint(10, rowRect(1).bottom() + 40);
        const MenuSeen menu = answerMenu([&] { panel->onContextMenu(pos); }, choose);
        QCOMPARE(menu.shown, onRow && !names.isEmpty());
        if (menu.shown) {
            QStringList shown{"[Change label to:]"};
            for (const QString& n : names)
                shown << QString(n).replace("&", "&&");
            QCOMPARE(menu.entries, shown);
            QCOMPARE(menu.checked, checked);
        }
        QTRY_COMPARE(changed.count(), requested.isEmpty() ? 0 : 1);
        if (!requested.isEmpty())
            QCOMPARE(changed.first(), (QList<QVariant>{1, requested}));
        // Focus coming back to the list after the menu must not pick a row by itself.
        QCOMPARE(selected.count(), 0);
        QCOMPARE(panel->currentRow(), -1);
    }
};

QTEST_MAIN(TestAnnotationsPanel)
#include "tst_annotationspanel.moc"
