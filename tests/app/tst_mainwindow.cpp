#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QSplitter>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QWidgetAction>
#include <memory>

#include "app/imagelistwidget.h"
#include "app/mainwindow.h"
#include "app/theme.h"
#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "support/scriptedprompts.h"

namespace {

const QString kNoData = QStringLiteral("No data loaded. Click 'Load Data' to begin.");
const QString kHelpTitle = QStringLiteral("Brindle (Beta) - Help & User Guide");

BoxAnnotation makeBox(const QString& label, double x1, double y1, double x2, double y2)
{
    BoxAnnotation b;
    b.label = label;
    b.points = {QPointF(x1, y1), QPointF(x2, y2)};
    return b;
}

QPixmap blankPixmap()
{
    QPixmap pixmap(100, 80);
    pixmap.fill(Qt::gray);
    return pixmap;
}

// Text of a toolbar entry: "|" for a separator, the visible text of a button, label or
// action, the object name of a combo box, and the zoom group's contents in brackets.
QString describe(QToolBar* toolbar, QAction* action)
{
    if (action->isSeparator())
        return QStringLiteral("|");
    if (!qobject_cast<QWidgetAction*>(action))
        return action->text();
    QWidget* w = toolbar->widgetForAction(action);
    if (auto* b = qobject_cast<QToolButton*>(w))
        return b->text();
    if (auto* l = qobject_cast<QLabel*>(w))
        return l->text();
    if (auto* c = qobject_cast<QComboBox*>(w))
        return QLatin1Char('<') + c->objectName() + QLatin1Char('>');
    QStringList parts;
    for (QObject* child : w->children()) {
        if (auto* l = qobject_cast<QLabel*>(child))
            parts << l->text();
        else if (auto* b = qobject_cast<QToolButton*>(child))
            parts << (b->text().isEmpty() ? b->objectName() : b->text());
    }
    return QLatin1Char('[') + parts.join(QLatin1Char(',')) + QLatin1Char(']');
}

// Menu entries in order: "-" for a plain separator, "# title" for a section.
QStringList menuEntries(QMenu* menu)
{
    QStringList out;
    for (QAction* a : menu->actions()) {
        if (a->isSeparator())
            out << (a->text().isEmpty() ? QStringLiteral("-") : QStringLiteral("# ") + a->text());
        else
            out << a->text();
    }
    return out;
}

// Unpremultiplied colour of the most opaque pixel of the lock icon.
QColor lockInk(QToolButton* lock)
{
    const QImage img = lock->icon().pixmap(QSize(12, 12)).toImage().convertToFormat(
        QImage::Format_ARGB32);
    QColor best(0, 0, 0, 0);
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x) {
            const QColor c = img.pixelColor(x, y);
            if (c.alpha() > best.alpha())
                best = c;
        }
    return best;
}

bool closeTo(const QColor& a, const QColor& b)
{
    return qAbs(a.red() - b.red()) <= 3 && qAbs(a.green() - b.green()) <= 3
           && qAbs(a.blue() - b.blue()) <= 3;
}

QList<QDialog*> helpWindows()
{
    QList<QDialog*> out;
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* d = qobject_cast<QDialog*>(w))
            if (d->windowTitle() == kHelpTitle && d->isVisible())
                out << d;
    return out;
}

// Records the key events that reach it.
class KeySink : public QWidget {
public:
    KeySink() { setFocusPolicy(Qt::StrongFocus); }
    QList<bool> pressRepeats;
    int releases = 0;

protected:
    void keyPressEvent(QKeyEvent* e) override { pressRepeats << e->isAutoRepeat(); }
    void keyReleaseEvent(QKeyEvent*) override { ++releases; }
};

} // namespace

class TestMainWindow : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<QTemporaryDir> tempDir;

    template <typename T>
    T* find(const QString& name) const
    {
        T* w = window->findChild<T*>(name);
        if (!w)
            qWarning("no child %s", qPrintable(name));
        return w;
    }

    // Three small images a.png, b.png, c.png opened as a dataset.
    void openThreeImages()
    {
        tempDir = std::make_unique<QTemporaryDir>();
        QVERIFY(tempDir->isValid());
        for (const char* name : {"a.png", "b.png", "c.png"}) {
            QImage img(20, 10, QImage::Format_RGB32);
            img.fill(Qt::darkGreen);
            QVERIFY(img.save(tempDir->filePath(QString::fromLatin1(name))));
        }
        QVERIFY(window->openDataset(tempDir->path()));
        QCOMPARE(window->images.size(), 3);
        QCOMPARE(window->currentIndex, 0);
    }

    QString xmlOf(const char* base) const
    {
        return tempDir->filePath(QStringLiteral("annotations/") + QLatin1String(base)
                                 + QStringLiteral(".xml"));
    }

private Q_SLOTS:
    void initTestCase() { Theme::apply(*qApp); }

    void init() { window = std::make_unique<MainWindow>(); }

    void cleanup()
    {
        window.reset();
        tempDir.reset();
        for (QDialog* d : helpWindows())
            delete d;
    }

    void initialState()
    {
        QCOMPARE(window->windowTitle(), QStringLiteral("Brindle (Beta)"));
        QCOMPARE(window->size(), QSize(1280, 800));
        QCOMPARE(window->statusLabel->text(), kNoData);
        QCOMPARE(window->currentIndex, -1);
        QVERIFY(window->images.isEmpty());
        QVERIFY(window->imagesFolder.isEmpty());
        QCOMPARE(window->imageList->count(), 0);
        QVERIFY(!window->canvas->hasImage());
        QCOMPARE(window->annotationsPanel->listWidget()->count(), 0);
        QVERIFY(!window->autoZoomButton->isChecked());
        QVERIFY(!window->autoZoom);

        QCOMPARE(window->labels.size(), 1);
        QCOMPARE(window->labels.first().name, QStringLiteral("object"));
        QCOMPARE(window->labels.first().color, QColor(0, 220, 220));
        QCOMPARE(window->classCombo->count(), 1);
        QCOMPARE(window->classCombo->currentText(), QStringLiteral("object"));
        QCOMPARE(window->canvas->currentLabel, QStringLiteral("object"));

        QStringList kinds;
        for (int i = 0; i < window->createCombo->count(); ++i)
            kinds << window->createCombo->itemText(i);
        QCOMPARE(kinds, QStringList({"  Bounding Box", "  Polygon", "  Line", "  Keypoint",
                                     "  Rotated Box", "  Cuboid", "  Ellipse"}));
        QCOMPARE(window->createCombo->currentIndex(), 0);
        QCOMPARE(window->canvas->currentShape(), ShapeType::BoundingBox);

        QCOMPARE(window->createCombo->minimumWidth(), 130);
        QCOMPARE(window->classCombo->minimumWidth(), 160);
        QCOMPARE(window->imageList->minimumWidth(), 220);
        QVERIFY(window->imageList->alternatingRowColors());
    }

    void toolbarLayout()
    {
        auto* toolbar = find<QToolBar>(QStringLiteral("mainToolBar"));
        QVERIFY(toolbar);
        QCOMPARE(toolbar->windowTitle(), QStringLiteral("Main"));
        QVERIFY(!toolbar->isMovable());
        QCOMPARE(toolbar->contextMenuPolicy(), Qt::PreventContextMenu);
        QCOMPARE(toolbar->minimumHeight(), 34);
        QCOMPARE(toolbar->maximumHeight(), 34);
        QCOMPARE(toolbar->iconSize(), QSize(16, 16));

        QStringList entries;
        for (QAction* a : toolbar->actions())
            entries << describe(toolbar, a);
        const QStringList expected = {
            "Load Data", QStringLiteral("\u21BA"), "|", "|", " Create: ", "<createCombo>", "|",
            " Label: ", "<classCombo>", "+/-", "|", "[Zoom: ,+,-,fit,autoZoomButton]", "|",
            "< Prev", "Next >", "|", "Edit", "|", "Export / Import", "|", "Help"};
        QCOMPARE(entries, expected);
    }

    void toolTips_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("tip");
        QTest::newRow("load") << "loadDataButton" << "Select images folder and annotations folder";
        QTest::newRow("reload") << "reloadButton"
                                << "Reload current folders (re-scan images and annotations)";
        QTest::newRow("create") << "createCombo" << "Select annotation type to draw";
        QTest::newRow("label") << "classCombo" << "Label for new bounding boxes";
        QTest::newRow("manage") << "manageLabelsButton" << "Add / remove labels and assign colors";
        QTest::newRow("zoom in") << "zoomInButton" << "Zoom in  (+)";
        QTest::newRow("zoom out") << "zoomOutButton" << "Zoom out  (-)";
        QTest::newRow("fit") << "zoomFitButton" << "Fit image to window  (F)";
        QTest::newRow("lock") << "autoZoomButton"
                              << "Auto-zoom lock: when enabled, switching images automatically\n"
                                 "zooms in to show all annotations with a 50px border.";
        QTest::newRow("prev") << "prevAction" << "Previous image  (Left / A)";
        QTest::newRow("next") << "nextAction" << "Next image  (Right / D)";
        QTest::newRow("edit") << "editButton" << "Edit labels across the whole dataset";
        QTest::newRow("export") << "exportImportButton"
                                << "Export or import annotations in various formats";
        QTest::newRow("help") << "helpButton" << "Open Brindle tutorial and keyboard shortcuts";
    }

    void toolTips()
    {
        QFETCH(QString, name);
        QFETCH(QString, tip);
        QObject* o = window->findChild<QObject*>(name);
        QVERIFY2(o, qPrintable(name));
        if (auto* a = qobject_cast<QAction*>(o))
            QCOMPARE(a->toolTip(), tip);
        else
            QCOMPARE(qobject_cast<QWidget*>(o)->toolTip(), tip);
    }

    void buttonStyles_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("style");
        QTest::newRow("load") << "loadDataButton" << Theme::menuButtonStyle();
        QTest::newRow("reload") << "reloadButton" << Theme::reloadButtonStyle();
        QTest::newRow("manage") << "manageLabelsButton" << Theme::smallButtonStyle();
        QTest::newRow("zoom in") << "zoomInButton" << Theme::smallButtonStyle();
        QTest::newRow("zoom out") << "zoomOutButton" << Theme::smallButtonStyle();
        QTest::newRow("fit") << "zoomFitButton" << Theme::smallButtonStyle();
        QTest::newRow("lock") << "autoZoomButton" << Theme::lockButtonStyle();
        QTest::newRow("edit") << "editButton" << Theme::menuButtonStyle();
        QTest::newRow("export") << "exportImportButton" << Theme::menuButtonStyle();
        QTest::newRow("help") << "helpButton" << Theme::helpButtonStyle();
    }

    void buttonStyles()
    {
        QFETCH(QString, name);
        QFETCH(QString, style);
        auto* button = find<QToolButton>(name);
        QVERIFY(button);
        QCOMPARE(button->styleSheet(), style);
    }

    void menus_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QStringList>("entries");
        QTest::newRow("edit") << "editButton"
                              << QStringList{"Rename Label...",
                                             "Remove Label...",
                                             "-",
                                             "Extract Video Frames...",
                                             "AI Video Frame Extraction (YOLO)...",
                                             "Annotate Video with YOLO...",
                                             "Pre-label with YOLO...",
                                             "-",
                                             "Check Dataset...",
                                             "Split Dataset into Train/Test subsets...",
                                             "-",
                                             "Convert BBoxes to Key Points",
                                             "Convert Key Points to BBoxes"};
        QTest::newRow("export") << "exportImportButton"
                                << QStringList{"# YOLO",
                                               "Export YOLO labels text files",
                                               "Export YOLO Pose labels...",
                                               "Import YOLO labels text files",
                                               "# COCO",
                                               "Export COCO JSON file",
                                               "Import COCO JSON file",
                                               "# DOTA",
                                               "Export DOTA text files",
                                               "Import DOTA text files",
                                               "# CSV",
                                               "Export CSV file",
                                               "Import CSV file",
                                               "# Other",
                                               "Export Classes/Labels text file",
                                               "Import Classes/Labels text file",
                                               "# Training",
                                               "Export for Training...",
                                               "# Collage",
                                               "Export Collage..."};
    }

    void menus()
    {
        QFETCH(QString, button);
        QFETCH(QStringList, entries);
        auto* b = find<QToolButton>(button);
        QVERIFY(b && b->menu());
        QCOMPARE(b->popupMode(), QToolButton::InstantPopup);
        QCOMPARE(menuEntries(b->menu()), entries);
        for (QAction* a : b->menu()->actions())
            QVERIFY2(a->isSeparator() || !a->objectName().isEmpty(), qPrintable(a->text()));
    }

    void instantPopupOpensOnFirstClick()
    {
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        auto* edit = find<QToolButton>(QStringLiteral("editButton"));
        QMenu* seen = nullptr;
        QTimer::singleShot(0, this, [&] {
            seen = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            if (seen)
                seen->close();
        });
        QTest::mouseClick(edit, Qt::LeftButton);
        QCOMPARE(seen, edit->menu());
    }

    void toolbarFitsTheWindow()
    {
        // At the initial 1280 px every control sits on the toolbar itself, none in its
        // overflow menu, and the style-sheet buttons still show their whole text inside
        // their padding and border.
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        auto* toolbar = find<QToolBar>(QStringLiteral("mainToolBar"));
        QVERIFY(toolbar);
        QCOMPARE(window->width(), 1280);
        QVERIFY2(toolbar->sizeHint().width() <= window->width(),
                 qPrintable(QString::number(toolbar->sizeHint().width())));
        auto* overflow = toolbar->findChild<QToolButton*>(QStringLiteral("qt_toolbar_ext_button"));
        QVERIFY(!overflow || !overflow->isVisible());
        for (QAction* a : toolbar->actions()) {
            QWidget* w = toolbar->widgetForAction(a);
            QVERIFY2(w && w->isVisible(), qPrintable(describe(toolbar, a)));
            QVERIFY2(w->geometry().right() < toolbar->width(), qPrintable(describe(toolbar, a)));
        }
        QVERIFY(window->createCombo->width() >= 130);
        QVERIFY(window->classCombo->width() >= 160);

        const QList<QPair<QString, int>> padded = {
            {"loadDataButton", 8}, {"reloadButton", 6},  {"manageLabelsButton", 6},
            {"zoomInButton", 6},   {"zoomOutButton", 6}, {"zoomFitButton", 6},
            {"editButton", 8},     {"exportImportButton", 8}, {"helpButton", 8}};
        for (const auto& [name, padding] : padded) {
            auto* b = find<QToolButton>(name);
            QVERIFY(b);
            const int needed = b->fontMetrics().horizontalAdvance(b->text()) + 2 * padding + 2;
            QVERIFY2(b->width() >= needed,
                     qPrintable(QStringLiteral("%1: %2 < %3").arg(name).arg(b->width()).arg(needed)));
        }
    }

    void menuSectionTitlesAreDrawn_data()
    {
        QTest::addColumn<QString>("menu");
        QTest::addColumn<int>("sections");
        QTest::newRow("export / import") << "toolbar" << 7;
        QTest::newRow("canvas") << "canvas" << 1;
    }

    void menuSectionTitlesAreDrawn()
    {
        QFETCH(QString, menu);
        QFETCH(int, sections);
        openThreeImages();
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        if (menu == QLatin1String("toolbar")) {
            QMenu* m = find<QToolButton>(QStringLiteral("exportImportButton"))->menu();
            m->popup(window->mapToGlobal(QPoint(20, 40)));
            QTRY_VERIFY(m->isVisible());
            checkSectionTitles(m, sections);
            m->close();
            return;
        }
        // The canvas runs its menu in an event loop of its own until it is closed.
        window->canvas->setBoxes({makeBox("object", 0, 0, 19, 9)}); // the whole image
        QTimer poll;
        connect(&poll, &QTimer::timeout, this, [&] {
            if (auto* m = qobject_cast<QMenu*>(QApplication::activePopupWidget())) {
                poll.stop();
                checkSectionTitles(m, sections);
                m->close(); // also after a failed check, or the menu would never return
                sections = -1;
            }
        });
        poll.start(10);
        QTest::mousePress(window->canvas, Qt::RightButton, {}, window->canvas->rect().center());
        QCOMPARE(sections, -1);
    }

private:
    void checkSectionTitles(QMenu* menu, int expected)
    {
        const QImage shot = menu->grab().toImage().convertToFormat(QImage::Format_RGB32);
        QFont bold = menu->font();
        bold.setBold(true);
        const QFontMetrics metrics(bold);
        int sections = 0;
        for (QAction* a : menu->actions()) {
            if (!a->isSeparator())
                continue;
            ++sections;
            const QRect row = menu->actionGeometry(a);
            QVERIFY2(row.height() >= metrics.height(), qPrintable(a->text()));
            // The title is written in grey at the left end of its row, which holds it whole.
            int ink = 0;
            const QRect title(row.left(), row.top(), 8 + metrics.horizontalAdvance(a->text()),
                              row.height());
            QVERIFY2(row.contains(title), qPrintable(a->text()));
            for (int y = title.top(); y <= title.bottom(); ++y)
                for (int x = title.left(); x <= title.right(); ++x)
                    if (closeTo(shot.pixelColor(x, y), QColor(0xaa, 0xaa, 0xaa)))
                        ++ink;
            QVERIFY2(ink >= 5, qPrintable(a->text()));
        }
        QCOMPARE(sections, expected);
    }

private Q_SLOTS:

    void lockRecolours()
    {
        QToolButton* lock = window->autoZoomButton;
        QCOMPARE(lock->iconSize(), QSize(12, 12));
        QVERIFY(lock->isCheckable());
        QVERIFY(closeTo(lockInk(lock), QColor(0xaa, 0xaa, 0xaa)));
        lock->setChecked(true);
        QVERIFY(closeTo(lockInk(lock), QColor(0xff, 0x44, 0x44)));
        lock->setChecked(false);
        QVERIFY(closeTo(lockInk(lock), QColor(0xaa, 0xaa, 0xaa)));
    }

    void lockClickReachesSession()
    {
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QTest::mouseClick(window->autoZoomButton, Qt::LeftButton);
        QVERIFY(window->autoZoomButton->isChecked());
        QVERIFY(window->autoZoom);
        QVERIFY(closeTo(lockInk(window->autoZoomButton), QColor(0xff, 0x44, 0x44)));
        QTest::mouseClick(window->autoZoomButton, Qt::LeftButton);
        QVERIFY(!window->autoZoom);
    }

    void lockHeightMatchesFit()
    {
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        auto* fit = find<QToolButton>(QStringLiteral("zoomFitButton"));
        const int h = fit->sizeHint().height();
        QCOMPARE(window->autoZoomButton->minimumHeight(), h);
        QCOMPARE(window->autoZoomButton->maximumHeight(), h);
        QCOMPARE(window->autoZoomButton->height(), fit->height());
    }

    void onlyCanvasGrows()
    {
        auto* splitter = qobject_cast<QSplitter*>(window->centralWidget());
        QVERIFY(splitter);
        QCOMPARE(splitter->orientation(), Qt::Horizontal);
        QCOMPARE(splitter->count(), 3);
        QCOMPARE(splitter->widget(1), static_cast<QWidget*>(window->canvas));
        QCOMPARE(splitter->widget(2), static_cast<QWidget*>(window->annotationsPanel));
        QVERIFY(splitter->widget(0)->isAncestorOf(window->imageList));

        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        const int left = splitter->widget(0)->width();
        const int panel = window->annotationsPanel->width();
        const int canvas = window->canvas->width();
        window->resize(1280 + 300, 800);
        QTRY_COMPARE(window->canvas->width(), canvas + 300);
        QCOMPARE(splitter->widget(0)->width(), left);
        QCOMPARE(window->annotationsPanel->width(), panel);
    }

    void zoomKeys_data()
    {
        QTest::addColumn<QList<int>>("keys");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<double>("zoom");
        QTest::newRow("plus") << QList<int>{Qt::Key_Plus} << 0 << 1.25;
        QTest::newRow("equals") << QList<int>{Qt::Key_Equal} << 0 << 1.25;
        QTest::newRow("ctrl equals") << QList<int>{Qt::Key_Equal} << int(Qt::ControlModifier) << 1.25;
        QTest::newRow("twice") << QList<int>{Qt::Key_Plus, Qt::Key_Plus} << 0 << 1.5625;
        QTest::newRow("minus") << QList<int>{Qt::Key_Minus} << 0 << 0.8;
        QTest::newRow("in then fit") << QList<int>{Qt::Key_Plus, Qt::Key_F} << 0 << 1.0;
        QTest::newRow("plain letter") << QList<int>{Qt::Key_G} << 0 << 1.0;
    }

    void zoomKeys()
    {
        QFETCH(QList<int>, keys);
        QFETCH(int, modifiers);
        QFETCH(double, zoom);
        window->canvas->setImage(blankPixmap());
        for (int key : keys)
            QTest::keyClick(window.get(), Qt::Key(key), Qt::KeyboardModifiers(modifiers));
        QCOMPARE(window->canvas->m_zoom, zoom);
    }

    void zoomButtons()
    {
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        window->canvas->setImage(blankPixmap());
        QTest::mouseClick(find<QToolButton>(QStringLiteral("zoomInButton")), Qt::LeftButton);
        QCOMPARE(window->canvas->m_zoom, 1.25);
        QTest::mouseClick(find<QToolButton>(QStringLiteral("zoomOutButton")), Qt::LeftButton);
        QTest::mouseClick(find<QToolButton>(QStringLiteral("zoomOutButton")), Qt::LeftButton);
        QCOMPARE(window->canvas->m_zoom, 0.8);
        QTest::mouseClick(find<QToolButton>(QStringLiteral("zoomFitButton")), Qt::LeftButton);
        QCOMPARE(window->canvas->m_zoom, 1.0);
    }

    void navigationKeys_data()
    {
        QTest::addColumn<int>("start");
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<int>("expected");
        QTest::newRow("right") << 0 << int(Qt::Key_Right) << 0 << 1;
        QTest::newRow("page down") << 1 << int(Qt::Key_PageDown) << 0 << 2;
        QTest::newRow("d") << 0 << int(Qt::Key_D) << 0 << 1;
        QTest::newRow("ctrl d stays") << 0 << int(Qt::Key_D) << int(Qt::ControlModifier) << 0;
        QTest::newRow("right at last") << 2 << int(Qt::Key_Right) << 0 << 2;
        QTest::newRow("left") << 2 << int(Qt::Key_Left) << 0 << 1;
        QTest::newRow("page up") << 1 << int(Qt::Key_PageUp) << 0 << 0;
        QTest::newRow("a") << 2 << int(Qt::Key_A) << 0 << 1;
        QTest::newRow("left at first") << 0 << int(Qt::Key_Left) << 0 << 0;
    }

    void navigationKeys()
    {
        QFETCH(int, start);
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(int, expected);
        openThreeImages();
        window->imageList->setCurrentRow(start);
        QCOMPARE(window->currentIndex, start);
        QTest::keyClick(window.get(), Qt::Key(key), Qt::KeyboardModifiers(modifiers));
        QCOMPARE(window->currentIndex, expected);
        QCOMPARE(window->imageList->currentRow(), expected);
    }

    void windowKeysFromLists_data()
    {
        QTest::addColumn<bool>("panel"); // the annotations list has the focus, else the image list
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("start"); // image shown before the key
        QTest::addColumn<int>("expected");
        QTest::addColumn<double>("zoom");
        QTest::newRow("d") << false << int(Qt::Key_D) << 0 << 1 << 1.0;
        QTest::newRow("a") << false << int(Qt::Key_A) << 2 << 1 << 1.0;
        QTest::newRow("page down") << false << int(Qt::Key_PageDown) << 0 << 1 << 1.0;
        QTest::newRow("plus") << false << int(Qt::Key_Plus) << 1 << 1 << 1.25;
        QTest::newRow("panel: minus") << true << int(Qt::Key_Minus) << 1 << 1 << 0.8;
    }

    void windowKeysFromLists()
    {
        QFETCH(bool, panel);
        QFETCH(int, key);
        QFETCH(int, start);
        QFETCH(int, expected);
        QFETCH(double, zoom);
        openThreeImages();
        window->imageList->setCurrentRow(start);
        QTest::keyClick(panel ? static_cast<QWidget*>(window->annotationsPanel->listWidget())
                              : window->imageList, Qt::Key(key));
        QCOMPARE(window->currentIndex, expected);
        QCOMPARE(window->canvas->m_zoom, zoom);
    }

    void toolbarOverflowOpens()
    {
        // At 900 px the last controls go behind the overflow button, which opens them.
        window->resize(900, 700);
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        auto* help = find<QToolButton>(QStringLiteral("helpButton"));
        QTRY_VERIFY(!help->isVisible());
        QTest::mouseClick(find<QToolButton>(QStringLiteral("qt_toolbar_ext_button")), Qt::LeftButton);
        QTRY_VERIFY(help->isVisible());
        // Laid out in a row of its own that the bar grows to show, not cut off below it.
        QVERIFY(help->parentWidget()->rect().contains(help->geometry()));
        QTest::mouseClick(help, Qt::LeftButton);
        QCOMPARE(helpWindows().size(), 1);
    }

    void prevNextActions()
    {
        openThreeImages();
        auto* next = find<QAction>(QStringLiteral("nextAction"));
        auto* prev = find<QAction>(QStringLiteral("prevAction"));
        next->trigger();
        next->trigger();
        next->trigger();
        QCOMPARE(window->currentIndex, 2);
        prev->trigger();
        QCOMPARE(window->currentIndex, 1);
    }

    void saveKeys_data()
    {
        QTest::addColumn<int>("key");
        QTest::newRow("ctrl s") << int(Qt::Key_S);
        QTest::newRow("ctrl m") << int(Qt::Key_M);
        QTest::newRow("ctrl escape") << int(Qt::Key_Escape);
    }

    void saveKeys()
    {
        QFETCH(int, key);
        openThreeImages();
        QVERIFY(!QFile::exists(xmlOf("a")));
        QTest::keyClick(window.get(), Qt::Key(key));
        QVERIFY2(!QFile::exists(xmlOf("a")), "the key without Ctrl must not save");
        QTest::keyClick(window.get(), Qt::Key(key), Qt::ControlModifier);
        QVERIFY(QFile::exists(xmlOf("a")));
        QCOMPARE(window->imageList->item(0)->text(), QStringLiteral("a.png  *"));
    }

    void editingKeys()
    {
        ScriptedPrompts prompts;
        openThreeImages();
        window->canvas->setBoxes({makeBox("object", 1, 1, 9, 8), makeBox("object", 10, 2, 18, 9)});

        QTest::keyClick(window.get(), Qt::Key_A, Qt::ControlModifier);
        QVERIFY(window->canvas->allSelected());
        QTest::keyClick(window.get(), Qt::Key_C, Qt::ControlModifier);
        QCOMPARE(window->clipboard.size(), 2);

        window->canvas->setSelectedIndex(0);
        QVERIFY(!window->canvas->allSelected());
        QTest::keyClick(window.get(), Qt::Key_Delete);
        QCOMPARE(window->canvas->boxes().size(), 1);
        QVERIFY(QFile::exists(xmlOf("a")));

        QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
        QCOMPARE(window->canvas->boxes().size(), 2);
        QTest::keyClick(window.get(), Qt::Key_Y, Qt::ControlModifier);
        QCOMPARE(window->canvas->boxes().size(), 1);

        QTest::keyClick(window.get(), Qt::Key_V, Qt::ControlModifier);
        QCOMPARE(window->canvas->boxes().size(), 3);
        // Plain V, C, Z do nothing.
        QTest::keyClick(window.get(), Qt::Key_V);
        QTest::keyClick(window.get(), Qt::Key_Z);
        QCOMPARE(window->canvas->boxes().size(), 3);

        window->canvas->setSelectedIndex(0);
        QTest::keyClick(window.get(), Qt::Key_Backspace);
        QCOMPARE(window->canvas->boxes().size(), 2);
        QVERIFY(prompts.calls.isEmpty());
    }

    void unhandledKeysTravelOn()
    {
        // A key the window does not use is left ignored for the parent to see.
        QKeyEvent plainC(QEvent::KeyPress, Qt::Key_C, Qt::NoModifier, QStringLiteral("c"));
        QApplication::sendEvent(window.get(), &plainC);
        QVERIFY(!plainC.isAccepted());
        QKeyEvent ctrlC(QEvent::KeyPress, Qt::Key_C, Qt::ControlModifier);
        QApplication::sendEvent(window.get(), &ctrlC);
        QVERIFY(ctrlC.isAccepted());
    }

    void closeSavesEveryDirtyRecord()
    {
        openThreeImages();
        window->canvas->setBoxes({makeBox("object", 2, 2, 9, 8)});
        window->images[0].dirty = true;
        // As an import leaves an image never shown.
        window->images[1].boxes = {makeBox("object", 1, 1, 5, 5)};
        window->images[1].dirty = true;
        QVERIFY(window->close());
        QVERIFY(QFile::exists(xmlOf("a")));
        QVERIFY(QFile::exists(xmlOf("b")));
        QVERIFY(!QFile::exists(xmlOf("c")));
        QFile f(xmlOf("a"));
        QVERIFY(f.open(QIODevice::ReadOnly));
        QVERIFY(f.readAll().contains("<xmin>2</xmin>"));
    }

    void closeWithCleanRecordWritesNothing()
    {
        openThreeImages();
        QVERIFY(window->close());
        QVERIFY(!QFile::exists(xmlOf("a")));
    }

    void spaceFilter()
    {
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));

        QDialog dialog(window.get());
        auto* button = new QPushButton(QStringLiteral("Press me"), &dialog);
        auto* edit = new QLineEdit(&dialog);
        auto* combo = new QComboBox(&dialog);
        combo->setEditable(true);
        auto* sink = new KeySink;
        sink->setParent(&dialog);
        sink->move(0, 100);
        dialog.show();
        dialog.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        QSignalSpy clicked(button, &QPushButton::clicked);

        button->setFocus();
        QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(button));
        QTest::keyPress(button, Qt::Key_Space);
        QVERIFY(window->canvas->spaceHeld());
        QVERIFY(!button->isDown());
        QTest::keyRelease(button, Qt::Key_Space);
        QVERIFY(!window->canvas->spaceHeld());
        QCOMPARE(clicked.count(), 0);

        // Auto-repeated presses pass through while pan mode stays on.
        sink->setFocus();
        QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(sink));
        QKeyEvent first(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "));
        QApplication::sendEvent(sink, &first);
        QKeyEvent repeat(QEvent::KeyPress, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "), true);
        QApplication::sendEvent(sink, &repeat);
        QCOMPARE(sink->pressRepeats, QList<bool>{true});
        QVERIFY(window->canvas->spaceHeld());
        QKeyEvent release(QEvent::KeyRelease, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "));
        QApplication::sendEvent(sink, &release);
        QCOMPARE(sink->releases, 0);
        QVERIFY(!window->canvas->spaceHeld());

        edit->setFocus();
        QTRY_COMPARE(QApplication::focusWidget(), static_cast<QWidget*>(edit));
        QTest::keyClick(edit, Qt::Key_Space);
        QCOMPARE(edit->text(), QStringLiteral(" "));
        QVERIFY(!window->canvas->spaceHeld());

        combo->setFocus();
        QTRY_VERIFY(qobject_cast<QComboBox*>(QApplication::focusWidget())
                    || qobject_cast<QLineEdit*>(QApplication::focusWidget()));
        QTest::keyClick(combo->lineEdit(), Qt::Key_Space);
        QCOMPARE(combo->currentText(), QStringLiteral(" "));
        QVERIFY(!window->canvas->spaceHeld());
    }

    void helpOpensIndependentWindows()
    {
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        auto* help = find<QToolButton>(QStringLiteral("helpButton"));
        QTest::mouseClick(help, Qt::LeftButton);
        QTest::mouseClick(help, Qt::LeftButton);
        QList<QDialog*> open = helpWindows();
        QCOMPARE(open.size(), 2);
        for (QDialog* d : open) {
            QVERIFY(!d->isModal());
            QCOMPARE(d->parentWidget(), static_cast<QWidget*>(window.get()));
            QVERIFY(d->testAttribute(Qt::WA_DeleteOnClose));
            QCOMPARE(d->size(), QSize(740, 680));
        }

        QPointer<QDialog> first = open.at(0);
        QDialog* second = open.at(1);
        auto* close = first->findChild<QPushButton*>(QStringLiteral("closeButton"));
        QVERIFY(close && close->isDefault());
        QTest::mouseClick(close, Qt::LeftButton);
        QTRY_VERIFY(first.isNull());
        QVERIFY(second->isVisible());
        QVERIFY(window->isVisible());
        QCOMPARE(helpWindows().size(), 1);
    }

    void labelComboKeepsCurrentLabel_data()
    {
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QStringList>("after");
        QTest::addColumn<QString>("expected");
        QTest::newRow("kept") << QStringList{"object", "car", "dog"} << "car"
                              << QStringList{"dog", "car"} << "car";
        QTest::newRow("gone") << QStringList{"object", "car"} << "car"
                              << QStringList{"dog", "cat"} << "dog";
        QTest::newRow("case differs") << QStringList{"object", "Car"} << "Car"
                                      << QStringList{"object", "car"} << "object";
    }

    void labelComboKeepsCurrentLabel()
    {
        QFETCH(QStringList, before);
        QFETCH(QString, chosen);
        QFETCH(QStringList, after);
        QFETCH(QString, expected);
        auto toLabels = [](const QStringList& names) {
            QList<LabelDef> out;
            for (const QString& n : names)
                out.append({n, QColor(10 * out.size(), 100, 200)});
            return out;
        };
        window->labels = toLabels(before);
        window->applyLabels();
        window->classCombo->setCurrentText(chosen);
        QCOMPARE(window->canvas->currentLabel, chosen);

        QSignalSpy changed(window->classCombo, &QComboBox::currentTextChanged);
        window->labels = toLabels(after);
        window->applyLabels();
        QCOMPARE(changed.count(), 0);
        QStringList items;
        for (int i = 0; i < window->classCombo->count(); ++i)
            items << window->classCombo->itemText(i);
        QCOMPARE(items, after);
        QCOMPARE(window->classCombo->currentText(), expected);
        QCOMPARE(window->canvas->currentLabel, expected);
        QCOMPARE(window->canvas->m_labelNames, QList<QString>(after));
    }

    void applyLabelsPushesColours()
    {
        window->labels = {{"car", QColor(255, 0, 0)}, {"dog", QColor(0, 255, 0)},
                          {"car", QColor(0, 0, 255)}};
        window->applyLabels();
        QCOMPARE(window->canvas->m_labelColors.value("car"), QColor(0, 0, 255));
        QCOMPARE(window->canvas->m_labelColors.value("dog"), QColor(0, 255, 0));
        const QImage swatch = window->classCombo->itemIcon(1).pixmap(16, 16).toImage();
        QCOMPARE(swatch.pixelColor(8, 8), QColor(0, 255, 0));

        // The panel offers the same names in its context menu.
        window->annotationsPanel->setBoxes({makeBox("dog", 0, 0, 5, 5)});
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        QListWidget* list = window->annotationsPanel->listWidget();
        QStringList offered;
        QTimer::singleShot(0, this, [&] {
            if (auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget())) {
                for (QAction* a : menu->actions())
                    if (!a->isSeparator())
                        offered << a->text();
                menu->close();
            }
        });
        window->annotationsPanel->onContextMenu(list->visualRect(list->model()->index(0, 0)).center());
        QCOMPARE(offered, QStringList({"car", "dog", "car"}));
    }

    void labelComboDeselects()
    {
        window->canvas->setBoxes({makeBox("object", 1, 1, 9, 9), makeBox("object", 2, 2, 8, 8)});
        window->annotationsPanel->setBoxes(window->canvas->boxes());
        window->labels = {{"object", QColor(0, 220, 220)}, {"car", Qt::red}, {"dog", Qt::green}};
        window->applyLabels();

        // Refilling the combo leaves the selection alone.
        window->canvas->setSelectedIndex(1);
        window->annotationsPanel->setSelectedIndex(1);
        window->applyLabels();
        QCOMPARE(window->canvas->selectedIndex(), 1);

        QSignalSpy selection(window->canvas, &ImageCanvas::selectionChanged);
        window->classCombo->setCurrentText(QStringLiteral("car"));
        QCOMPARE(window->canvas->currentLabel, QStringLiteral("car"));
        QCOMPARE(window->canvas->selectedIndex(), -1);
        QVERIFY(window->annotationsPanel->listWidget()->selectedItems().isEmpty());
        QCOMPARE(selection.count(), 0);

        window->canvas->selectAll();
        QVERIFY(window->canvas->allSelected());
        window->classCombo->setCurrentText(QStringLiteral("dog"));
        QVERIFY(!window->canvas->allSelected());
        QCOMPARE(window->canvas->currentLabel, QStringLiteral("dog"));
    }

    void createComboPicksShape_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("shape");
        QTest::newRow("box") << "  Bounding Box" << int(ShapeType::BoundingBox);
        QTest::newRow("polygon") << "  Polygon" << int(ShapeType::Polygon);
        QTest::newRow("line") << "  Line" << int(ShapeType::Line);
        QTest::newRow("keypoint") << "  Keypoint" << int(ShapeType::Keypoint);
        QTest::newRow("rotated") << "  Rotated Box" << int(ShapeType::RotatedBox);
        QTest::newRow("cuboid") << "  Cuboid" << int(ShapeType::Cuboid);
        QTest::newRow("ellipse") << "  Ellipse" << int(ShapeType::Ellipse);
        QTest::newRow("unknown") << "  Star" << int(ShapeType::BoundingBox);
        QTest::newRow("case sensitive") << "polygon" << int(ShapeType::BoundingBox);
        QTest::newRow("polygon before line") << "Line Polygon" << int(ShapeType::Polygon);
    }

    void createComboPicksShape()
    {
        QFETCH(QString, text);
        QFETCH(int, shape);
        // Start from a kind the row does not expect, so that a missed call shows.
        const ShapeType start =
            shape == int(ShapeType::Polygon) ? ShapeType::Line : ShapeType::Polygon;
        const int row = window->createCombo->findText(text);
        if (row >= 0) {
            QCOMPARE(row, shape); // the item index is the kind's value
            {
                const QSignalBlocker blocker(window->createCombo);
                window->createCombo->setCurrentIndex(row == 0 ? 1 : 0);
            }
            window->canvas->setCurrentShape(start);
            window->createCombo->setCurrentIndex(row);
        } else {
            window->canvas->setCurrentShape(start);
            QVERIFY(QMetaObject::invokeMethod(window.get(), "onCreateComboChanged",
                                              Q_ARG(QString, text)));
        }
        QCOMPARE(int(window->canvas->currentShape()), shape);
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
