#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QSignalSpy>
#include <QToolBar>
#include <QToolButton>
#include <QWidgetAction>

#include "app/theme.h"
#include "canvas/imagecanvas.h"
#include "support/apppixels.h"
#include "support/sessionfixture.h"

// The window as it first shows: toolbar, menus, tool tips, the lock, the help windows,
// the label and shape combos; and the keys and buttons that act on the whole window.

using namespace sessionfx;

namespace {

// Text of a toolbar entry: "|" for a separator, the text of a button, label or action,
// "<name>" for a combo box, and the zoom group's contents in brackets.
QString describe(QToolBar* toolbar, QAction* action)
{
    QWidget* w = toolbar->widgetForAction(action);
    if (action->isSeparator() || !w)
        return action->isSeparator() ? QStringLiteral("|") : action->text();
    if (auto* b = qobject_cast<QToolButton*>(w))
        return b->text();
    if (auto* l = qobject_cast<QLabel*>(w))
        return l->text();
    if (auto* c = qobject_cast<QComboBox*>(w))
        return '<' + c->objectName() + '>';
    QStringList parts;
    for (QObject* child : w->children()) {
        if (auto* l = qobject_cast<QLabel*>(child))
            parts << l->text();
        else if (auto* b = qobject_cast<QToolButton*>(child))
            parts << (b->text().isEmpty() ? b->objectName() : b->text());
    }
    return '[' + parts.join(',') + ']';
}


// Colour of the most opaque pixel of the lock icon.
QColor lockInk(QToolButton* lock)
{
    const QImage img = lock->icon().pixmap(QSize(12, 12)).toImage().convertToFormat(QImage::Format_ARGB32);
    QColor best(0, 0, 0, 0);
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x)
            if (img.pixelColor(x, y).alpha() > best.alpha())
                best = img.pixelColor(x, y);
    return best;
}

QList<QDialog*> helpWindows()
{
    QList<QDialog*> out;
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* d = qobject_cast<QDialog*>(w); d && d->isVisible()
            && d->windowTitle() == QStringLiteral("Brindle (Beta) - Help & User Guide"))
            out << d;
    return out;
}

} // namespace

class TestMainWindow : public QObject {
    Q_OBJECT

private:
    template <typename T> T* find(const Session& s, const char* name) const
    {
        return s.w.findChild<T*>(QLatin1String(name));
    }

private Q_SLOTS:
    void initTestCase() { Theme::apply(*qApp); }
    void cleanup() { qDeleteAll(helpWindows()); }

    void firstLook()
    {
        Session s;
        QCOMPARE(s.w.windowTitle(), QStringLiteral("Brindle (Beta)"));
        QCOMPARE(status(s.w), QStringLiteral("No data loaded. Click 'Load Data' to begin."));
        QCOMPARE(labelNames(s.w.labels), QStringList{"object"});
        QCOMPARE(s.w.labels.value(0).color, QColor(0, 220, 220));
        QCOMPARE(itemsOf(s.w.classCombo), QStringList{"object"});
        QCOMPARE(s.w.canvas->currentLabel, QStringLiteral("object"));
        QCOMPARE(itemsOf(s.w.createCombo), (QStringList{"  Bounding Box", "  Polygon", "  Line", "  Keypoint",
                                                        "  Rotated Box", "  Cuboid", "  Ellipse"}));
        QCOMPARE(s.w.canvas->currentShape(), ShapeType::BoundingBox);
        QVERIFY(!s.w.autoZoom);
        auto* toolbar = find<QToolBar>(s, "mainToolBar");
        QStringList entries;
        for (QAction* a : toolbar->actions())
            entries << describe(toolbar, a);
        QCOMPARE(entries, (QStringList{"Load Data", QStringLiteral("\u21BA"), "|", "|", " Create: ", "<createCombo>",
                                       "|", " Label: ", "<classCombo>", "+/-", "|", "[Zoom: ,+,-,fit,autoZoomButton]",
                                       "|", "< Prev", "Next >", "|", "Edit", "|", "Export / Import", "|", "Help"}));
    }

    void toolTips_data()
    {
        QTest::addColumn<QString>("tip");
        QTest::newRow("loadDataButton") << "Select images folder and annotations folder";
        QTest::newRow("reloadButton") << "Reload current folders (re-scan images and annotations)";
        QTest::newRow("createCombo") << "Select annotation type to draw";
        QTest::newRow("classCombo") << "Label for new bounding boxes";
        QTest::newRow("manageLabelsButton") << "Add / remove labels and assign colors";
        QTest::newRow("zoomInButton") << "Zoom in  (+)";
        QTest::newRow("zoomOutButton") << "Zoom out  (-)";
        QTest::newRow("zoomFitButton") << "Fit image to window  (F)";
        QTest::newRow("autoZoomButton") << "Auto-zoom lock: when enabled, switching images automatically\n"
                                           "zooms in to show all annotations with a 50px border.";
        QTest::newRow("prevAction") << "Previous image  (Left / A)";
        QTest::newRow("nextAction") << "Next image  (Right / D)";
        QTest::newRow("editButton") << "Edit labels across the whole dataset";
        QTest::newRow("exportImportButton") << "Export or import annotations in various formats";
        QTest::newRow("helpButton") << "Open Brindle tutorial and keyboard shortcuts";
    }

    void toolTips()
    {
        QFETCH(QString, tip);
        Session s;
        QObject* o = find<QObject>(s, QTest::currentDataTag());
        QCOMPARE(o ? o->property("toolTip").toString() : QString(), tip);
    }

    void menus_data()
    {
        QTest::addColumn<QStringList>("entries"); // "-" a separator, "# " a section title
        QTest::newRow("editButton")
            << QStringList{"Rename Label...", "Remove Label...", "-", "Extract Video Frames...",
                           "AI Video Frame Extraction (YOLO)...", "Annotate Video with YOLO...", "Pre-label with YOLO...",
                           "-", "Check Dataset...", "Split Dataset into Train/Test subsets...", "-",
                           "Convert BBoxes to Key Points",
                           "Convert Key Points to BBoxes"};
        QTest::newRow("exportImportButton")
            << QStringList{"# YOLO", "Export YOLO labels text files", "Export YOLO Pose labels...",
                           "Import YOLO labels text files", "# COCO", "Export COCO JSON file", "Import COCO JSON file",
                           "# DOTA", "Export DOTA text files", "Import DOTA text files", "# CSV", "Export CSV file",
                           "Import CSV file", "# Other", "Export Classes/Labels text file",
                           "Import Classes/Labels text file", "# Training", "Export for Training...", "# Collage",
                           "Export Collage..."};
    }

    void menus()
    {
        QFETCH(QStringList, entries);
        Session s;
        QVERIFY(s.show(QSize(1280, 800)));
        auto* button = find<QToolButton>(s, QTest::currentDataTag());
        QCOMPARE(button->popupMode(), QToolButton::InstantPopup);
        QStringList seen;
        for (QAction* a : button->menu()->actions())
            seen << (!a->isSeparator() ? a->text() : a->text().isEmpty() ? "-" : "# " + a->text());
        QCOMPARE(seen, entries);
        // Section titles are drawn: grey ink at the left end of their row.
        QMenu* menu = button->menu();
        menu->popup(s.w.mapToGlobal(QPoint(20, 40)));
        QTRY_VERIFY(menu->isVisible());
        const QImage shot = menu->grab().toImage();
        for (QAction* a : menu->actions()) {
            if (!a->isSeparator() || a->text().isEmpty())
                continue;
            const QRect row = menu->actionGeometry(a);
            int ink = 0;
            for (int y = row.top(); y <= row.bottom(); ++y)
                for (int x = row.left(); x < row.left() + 8 + menu->fontMetrics().horizontalAdvance(a->text()); ++x)
                    ink += near(shot.pixelColor(x, y), QColor(0xaa, 0xaa, 0xaa), 3);
            QVERIFY2(ink >= 5, qPrintable(a->text()));
        }
        menu->close();
    }

    void toolbarWidth_data()
    {
        QTest::addColumn<int>("width");
        QTest::newRow("1280 px: all on the bar") << 1280;
        QTest::newRow("900 px: the rest behind the overflow button") << 900;
    }

    void toolbarWidth()
    {
        QFETCH(int, width);
        Session s;
        QVERIFY(s.show(QSize(width, 700)));
        auto* toolbar = find<QToolBar>(s, "mainToolBar");
        auto* help = find<QToolButton>(s, "helpButton");
        auto* overflow = toolbar->findChild<QToolButton*>("qt_toolbar_ext_button");
        QTRY_COMPARE(help->isVisible(), width == 1280);
        QCOMPARE(overflow && overflow->isVisible(), width != 1280);
        if (width != 1280) {
            QTest::mouseClick(overflow, Qt::LeftButton);
            QTRY_VERIFY(help->isVisible());
            // In a row of its own that the bar grows to show, not cut off below it.
            QVERIFY(help->parentWidget()->rect().contains(help->geometry()));
        }
        QTest::mouseClick(help, Qt::LeftButton);
        QCOMPARE(helpWindows().size(), 1);
    }

    void lockRecolours()
    {
        Session s;
        QVERIFY(s.show(QSize(1280, 800)));
        QToolButton* lock = s.w.autoZoomButton;
        QVERIFY(near(lockInk(lock), QColor(0xaa, 0xaa, 0xaa), 3));
        QTest::mouseClick(lock, Qt::LeftButton);
        QVERIFY(s.w.autoZoom);
        QVERIFY(near(lockInk(lock), QColor(0xff, 0x44, 0x44), 3));
        QTest::mouseClick(lock, Qt::LeftButton);
        QVERIFY(!s.w.autoZoom);
        QVERIFY(near(lockInk(lock), QColor(0xaa, 0xaa, 0xaa), 3));
    }

    void toolbarButtons_data()
    {
        QTest::addColumn<QStringList>("clicks");
        QTest::addColumn<int>("index");
        QTest::addColumn<double>("zoom");
        QTest::newRow("in") << QStringList{"zoomInButton"} << 0 << 1.25;
        QTest::newRow("in, out, out") << QStringList{"zoomInButton", "zoomOutButton", "zoomOutButton"} << 0 << 0.8;
        QTest::newRow("in, fit") << QStringList{"zoomInButton", "zoomFitButton"} << 0 << 1.0;
        QTest::newRow("next past the end") << QStringList{"nextAction", "nextAction", "nextAction"} << 2 << 1.0;
        QTest::newRow("next, next, prev") << QStringList{"nextAction", "nextAction", "prevAction"} << 1 << 1.0;
    }

    void toolbarButtons()
    {
        QFETCH(QStringList, clicks);
        QFETCH(int, index);
        QFETCH(double, zoom);
        Session s;
        QVERIFY(s.show());
        QVERIFY(s.open({{}, {}, {}}));
        for (const QString& name : clicks) {
            if (auto* b = s.w.findChild<QToolButton*>(name))
                QTest::mouseClick(b, Qt::LeftButton);
            else
                s.w.findChild<QAction*>(name)->trigger();
        }
        QCOMPARE(s.w.currentIndex, index);
        QCOMPARE(s.w.canvas->zoom(), zoom);
    }

    void editingKeys()
    {
        Session s;
        QVERIFY(s.open({{"object", "object"}, {}}));
        QTest::keyClick(&s.w, Qt::Key_A, Qt::ControlModifier);
        QVERIFY(s.w.canvas->allSelected());
        QTest::keyClick(&s.w, Qt::Key_C, Qt::ControlModifier);
        QCOMPARE(s.w.clipboard, s.w.canvas->boxes());
        s.w.canvas->setSelectedIndex(0);
        QTest::keyClick(&s.w, Qt::Key_Backspace);
        QCOMPARE(saved(s.xml(0)).size(), 1);
        QTest::keyClick(&s.w, Qt::Key_Z, Qt::ControlModifier);
        QCOMPARE(saved(s.xml(0)).size(), 2);
        QTest::keyClick(&s.w, Qt::Key_V, Qt::ControlModifier);
        QCOMPARE(saved(s.xml(0)).size(), 4);
        // Plain V and Z do nothing, and a key the window does not use travels on.
        QTest::keyClick(&s.w, Qt::Key_V);
        QTest::keyClick(&s.w, Qt::Key_Z);
        QCOMPARE(s.w.canvas->boxes().size(), 4);
        QKeyEvent plainC(QEvent::KeyPress, Qt::Key_C, Qt::NoModifier, QStringLiteral("c"));
        QApplication::sendEvent(&s.w, &plainC);
        QVERIFY(!plainC.isAccepted());
        QVERIFY(s.prompts.calls.isEmpty());
    }

    void closeSavesEveryDirtyRecord()
    {
        Session s;
        QVERIFY(s.open({{}, {}, {}}));
        s.w.canvas->setBoxes({box("object", 2, 2, 7, 5)});
        s.w.images[0].dirty = true;
        s.w.images[1].boxes = {box("object", 1, 1, 5, 5)}; // as an import leaves an image never shown
        s.w.images[1].dirty = true;
        QVERIFY(s.w.close());
        QCOMPARE(saved(s.xml(0)), Shapes{box("object", 2, 2, 7, 5)});
        QCOMPARE(saved(s.xml(1)).size(), 1);
        QVERIFY(!QFile::exists(s.xml(2)));
    }

    void labelComboKeepsCurrentLabel_data()
    {
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QStringList>("after");
        QTest::addColumn<QString>("expected");
        QTest::newRow("kept") << QStringList{"object", "car", "dog"} << "car" << QStringList{"dog", "car"} << "car";
        QTest::newRow("gone") << QStringList{"object", "car"} << "car" << QStringList{"dog", "cat"} << "dog";
        QTest::newRow("case differs") << QStringList{"object", "Car"} << "Car" << QStringList{"object", "car"} << "object";
    }

    void labelComboKeepsCurrentLabel()
    {
        QFETCH(QStringList, before);
        QFETCH(QString, chosen);
        QFETCH(QStringList, after);
        QFETCH(QString, expected);
        Session s;
        s.w.labels.clear();
        for (const QString& n : before)
            s.w.labels.append({n, Qt::red});
        s.w.applyLabels();
        s.w.classCombo->setCurrentText(chosen);
        QSignalSpy changed(s.w.classCombo, &QComboBox::currentTextChanged);
        s.w.labels.clear();
        for (const QString& n : after)
            s.w.labels.append({n, Qt::red});
        s.w.applyLabels();
        QCOMPARE(changed.count(), 0);
        QCOMPARE(itemsOf(s.w.classCombo), after);
        QCOMPARE(s.w.classCombo->currentText(), expected);
        QCOMPARE(s.w.canvas->currentLabel, expected);
        QCOMPARE(s.w.canvas->m_labelNames, QList<QString>(after));
    }

    void applyLabelsPushesColours()
    {
        Session s;
        s.w.labels = {{"car", QColor(255, 0, 0)}, {"dog", QColor(0, 255, 0)}, {"car", QColor(0, 0, 255)}};
        s.w.applyLabels();
        QCOMPARE(s.w.canvas->m_labelColors.value("car"), QColor(0, 0, 255));
        QCOMPARE(s.w.canvas->m_labelColors.value("dog"), QColor(0, 255, 0));
        QCOMPARE(s.w.classCombo->itemIcon(1).pixmap(16, 16).toImage().pixelColor(8, 8), QColor(0, 255, 0));
    }

    // Each entry of the Create combo (its index is the kind's value) sets its kind; texts
    // that name no kind exactly fall back to the box, and "Polygon" wins over "Line".
    void createComboPicksShape()
    {
        Session s;
        for (int row = s.w.createCombo->count() - 1; row >= 0; --row) {
            s.w.createCombo->setCurrentIndex(row);
            QCOMPARE(int(s.w.canvas->currentShape()), row);
        }
        const struct {
            const char* text;
            ShapeType shape;
        } odd[] = {{"  Star", ShapeType::BoundingBox}, {"polygon", ShapeType::BoundingBox},
                   {"Line Polygon", ShapeType::Polygon}};
        for (const auto& r : odd) {
            s.w.canvas->setCurrentShape(ShapeType::Ellipse);
            QVERIFY(QMetaObject::invokeMethod(&s.w, "onCreateComboChanged", Q_ARG(QString, r.text)));
            QCOMPARE(s.w.canvas->currentShape(), r.shape);
        }
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
