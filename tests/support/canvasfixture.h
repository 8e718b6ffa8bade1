#pragma once

// Drives an ImageCanvas the way a user does (mouse, keys, wheel) and records what it
// signals; shared by the canvas tests. Also answers context menus for the label panes.

#include <QAction>
#include <QApplication>
#include <QKeyEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QTest>
#include <QTimer>
#include <QWheelEvent>

#include <cmath>
#include <memory>

#include "canvas/imagecanvas.h"
#include "support/coretable.h"
#include "support/records.h"

Q_DECLARE_METATYPE(BoxAnnotation)
Q_DECLARE_METATYPE(ShapeType)

using Points = QList<QPointF>;
using Boxes = QList<BoxAnnotation>;

inline const QColor CanvasBackground(45, 45, 48);

inline QPixmap solid(const QSize& size, const QColor& colour = Qt::darkCyan)
{
    QPixmap p(size);
    p.fill(colour);
    return p;
}

inline BoxAnnotation ellipse(const QPointF& c, double rx, double ry, double angle = 0, const QString& label = "object")
{
    BoxAnnotation b = shape(label, ShapeType::Ellipse, {c, QPointF(rx, ry)});
    b.angle = angle;
    return b;
}

inline BoxAnnotation rotated(const QPointF& c, double w, double h, double angle, const QString& label = "object")
{
    BoxAnnotation b = shape(label, ShapeType::RotatedBox, ImageCanvas::rotatedBoxCorners(c, w, h, angle));
    b.angle = angle;
    return b;
}

inline bool nearPoints(const Points& a, const Points& b, double eps = 1e-6)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i)
        if (std::abs(a[i].x() - b[i].x()) > eps || std::abs(a[i].y() - b[i].y()) > eps)
            return false;
    return true;
}

inline QString describe(const Points& points)
{
    QStringList parts;
    for (const QPointF& p : points)
        parts << QStringLiteral("(%1, %2)").arg(p.x()).arg(p.y());
    return parts.join(' ');
}

#define COMPARE_POINTS(actual, expected)                                                   \
    QVERIFY2(nearPoints((actual), (expected)),                                             \
             qPrintable(describe(actual) + QStringLiteral("  expected  ") + describe(expected)))

struct CanvasDriver {
    std::unique_ptr<ImageCanvas> c = std::make_unique<ImageCanvas>();
    QStringList log; // every signal, in order

    CanvasDriver()
    {
        ImageCanvas* w = c.get();
        QObject::connect(w, &ImageCanvas::aboutToChange, w, [this] { log << "about"; });
        QObject::connect(w, &ImageCanvas::boxesChanged, w, [this] { log << "changed"; });
        QObject::connect(w, &ImageCanvas::selectionChanged, w,
                         [this](int i) { log << QStringLiteral("sel(%1)").arg(i); });
        QObject::connect(w, &ImageCanvas::drawingCoords, w, [this](int l, int t, int r, int b) {
            log << QStringLiteral("coords(%1,%2,%3,%4)").arg(l).arg(t).arg(r).arg(b);
        });
    }

    // Shows the canvas at exactly this size (the offscreen platform applies sizes late),
    // with a plain image when one is given; clears the log.
    bool show(const QSize& size, const QSize& image = QSize())
    {
        c->resize(size);
        c->show();
        if (!QTest::qWaitForWindowExposed(c.get()) || !QTest::qWaitFor([&] { return c->size() == size; }))
            return false;
        if (image.isValid())
            c->setImage(solid(image));
        log.clear();
        return true;
    }
    QPoint at(const QPointF& image) const
    {
        const QPointF w = c->imageToWidget(image);
        return QPoint(int(std::lround(w.x())), int(std::lround(w.y())));
    }
    void mouse(QEvent::Type type, const QPointF& pos, Qt::MouseButton button, Qt::MouseButtons buttons)
    {
        QMouseEvent ev(type, pos, c->mapToGlobal(pos), button, buttons, Qt::NoModifier);
        QApplication::sendEvent(c.get(), &ev);
    }
    void press(const QPointF& pos, Qt::MouseButton b = Qt::LeftButton) { mouse(QEvent::MouseButtonPress, pos, b, b); }
    void moveTo(const QPointF& pos, Qt::MouseButtons held = Qt::LeftButton) { mouse(QEvent::MouseMove, pos, Qt::NoButton, held); }
    void release(const QPointF& pos, Qt::MouseButton b = Qt::LeftButton) { mouse(QEvent::MouseButtonRelease, pos, b, {}); }
    // Press, two moves, release: the way a hand drags.
    void drag(const QPointF& from, const QPointF& to, Qt::MouseButton b = Qt::LeftButton)
    {
        press(from, b);
        moveTo((from + to) / 2, b);
        moveTo(to, b);
        release(to, b);
    }
    void click(const QPointF& image)
    {
        press(at(image));
        release(at(image));
    }
    // What the window system delivers for a second quick click.
    void doubleClick(const QPointF& image)
    {
        mouse(QEvent::MouseButtonDblClick, at(image), Qt::LeftButton, Qt::LeftButton);
        release(at(image));
    }
    bool key(int k, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QKeyEvent ev(QEvent::KeyPress, k, modifiers);
        QApplication::sendEvent(c.get(), &ev);
        return ev.isAccepted();
    }
    bool wheel(const QPointF& pos, const QPoint& angleDelta)
    {
        QWheelEvent ev(pos, c->mapToGlobal(pos), QPoint(), angleDelta, Qt::NoButton,
                       Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(c.get(), &ev);
        return ev.isAccepted();
    }
    void zoomSteps(int steps)
    {
        for (int i = 0; i < std::abs(steps); ++i)
            steps > 0 ? c->zoomIn() : c->zoomOut();
    }
    QImage shot() const { return c->grab().toImage(); }
    // The log without the live reports of a drag (drawingCoords other than -1).
    QStringList settled() const
    {
        QStringList out;
        for (const QString& s : log)
            if (!s.startsWith("coords(") || s == "coords(-1,-1,-1,-1)")
                out << s;
        return out;
    }
    int liveReports() const { return log.size() - settled().size(); }
};

// What a popup menu offered: entries (sections in brackets) and the checked ones.
struct MenuSeen {
    bool shown = false;
    QStringList entries;
    QStringList checked;
};

// Runs `open`, which pops up a menu, and picks the entry whose text is `choose` in it
// (or closes it when there is none).
template <typename Open>
MenuSeen answerMenu(Open open, const QString& choose = QString())
{
    MenuSeen seen;
    QTimer poll;
    poll.setInterval(5);
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        if (!menu)
            return;
        poll.stop();
        seen.shown = true;
        QAction* pick = nullptr;
        for (QAction* a : menu->actions()) {
            seen.entries << (a->isSeparator() ? "[" + a->text() + "]" : a->text());
            if (a->isChecked())
                seen.checked << a->text();
            if (!a->isSeparator() && a->text() == choose)
                pick = a;
        }
        if (pick)
            QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(pick).center());
        else
            menu->close();
    });
    poll.start();
    open();
    QCoreApplication::processEvents();
    return seen;
}
