#include <QToolButton>

#include "canvas/imagecanvas.h"
#include "support/sessionfixture.h"

// Editing the image shown: auto-save, removal of emptied files, undo and redo, copy and
// paste, files read only in part and the auto-zoom lock.

using namespace sessionfx;

class TestSessionEdit : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void undoRedoFollowFile()
    {
        Session s;
        QVERIFY(s.open({{}}));
        const BoxAnnotation b = box("object", 1, 2, 5, 4);
        editShapes(s.w, {b});
        QCOMPARE(saved(s.xml(0)), Shapes{b});
        QCOMPARE(s.w.imageList->item(0)->text(), QStringLiteral("a.png  *"));
        QVERIFY(s.call("onUndo"));
        QVERIFY(!QFile::exists(s.xml(0)));
        QCOMPARE(s.w.imageList->item(0)->text(), QStringLiteral("a.png"));
        QCOMPARE(panelRows(s.w), QStringList());
        QCOMPARE(status(s.w), imageStatus(1, 1, "a.png", 8, 6, 0));
        QVERIFY(s.call("onRedo"));
        QCOMPARE(saved(s.xml(0)), Shapes{b});
        QCOMPARE(s.w.imageList->item(0)->text(), QStringLiteral("a.png  *"));
        QCOMPARE(panelRows(s.w), QStringList{"object"});
        // A new edit after an undo drops what could have been redone.
        QVERIFY(s.call("onUndo"));
        editShapes(s.w, {box("object", 2, 2, 5, 5)});
        QVERIFY(s.call("onRedo"));
        QCOMPARE(s.w.canvas->boxes(), Shapes{box("object", 2, 2, 5, 5)});
        QVERIFY(s.prompts.calls.isEmpty());
    }

    void undoKeepsTenSteps()
    {
        Session s;
        QVERIFY(s.open({{}}));
        Shapes shapes;
        for (int i = 0; i < 11; ++i) {
            shapes.append(box("object", i, i, i + 2, i + 2));
            editShapes(s.w, shapes);
        }
        for (int i = 0; i < 11; ++i) // the eleventh does nothing
            QVERIFY(s.call("onUndo"));
        QCOMPARE(s.w.canvas->boxes(), shapes.mid(0, 1));
        QCOMPARE(saved(s.xml(0)), shapes.mid(0, 1));
        for (int i = 0; i < 11; ++i)
            QVERIFY(s.call("onRedo"));
        QCOMPARE(s.w.canvas->boxes(), shapes);
        QCOMPARE(saved(s.xml(0)), shapes);
    }

    void memoryWinsOverFile()
    {
        Session s;
        QVERIFY(s.open({{}, {}}));
        const Shapes mine = {box("object", 1, 1, 3, 3), box("object", 4, 1, 6, 3)};
        editShapes(s.w, mine);
        // b's file appears while a is shown: b is read when it is shown.
        ImageAnnotations b = s.w.images[1];
        b.boxes = {box("dog", 2, 2, 7, 5)};
        QVERIFY(VocXml::save(b, "x"));
        s.w.imageList->setCurrentRow(1);
        QCOMPARE(s.w.canvas->boxes(), b.boxes);
        // a's file changes behind the session's back: the shapes in memory win, and the
        // history of another image is gone.
        ImageAnnotations a = s.w.images[0];
        a.boxes = {box("cat", 0, 0, 2, 2)};
        QVERIFY(VocXml::save(a, "x"));
        s.w.imageList->setCurrentRow(0);
        QCOMPARE(s.w.canvas->boxes(), mine);
        QVERIFY(s.call("onUndo"));
        QCOMPARE(s.w.canvas->boxes(), mine);
    }

    void copyPaste()
    {
        Session s;
        QVERIFY(s.open({{}, {}}));
        s.w.paste(); // nothing copied yet
        QVERIFY(s.w.undoStack.isEmpty());
        QVERIFY(!QFile::exists(s.xml(0)));
        const BoxAnnotation first = box("object", 1, 1, 3, 3), second = box("car", 2.5, 1.5, 6.25, 4);
        editShapes(s.w, {first, second});
        s.w.canvas->setSelectedIndex(-1);
        s.w.copySelection();
        QVERIFY(s.w.clipboard.isEmpty());
        s.w.canvas->setSelectedIndex(1);
        s.w.copySelection();

        s.w.imageList->setCurrentRow(1);
        s.w.paste();
        QCOMPARE(s.w.canvas->boxes(), Shapes{second});
        QCOMPARE(s.w.canvas->selectedIndex(), 0);
        QCOMPARE(savedLabels(s.xml(1)), QStringList{"car"});
        QCOMPARE(s.w.imageList->item(1)->text(), QStringLiteral("b.png  *"));
        QVERIFY(s.call("onUndo"));
        QVERIFY(!QFile::exists(s.xml(1)));

        // Everything selected, pasted onto the same image: added after, the first selected.
        s.w.imageList->setCurrentRow(0);
        s.w.canvas->selectAll();
        s.w.copySelection();
        s.w.paste();
        QCOMPARE(s.w.canvas->boxes(), (Shapes{first, second, first, second}));
        QCOMPARE(s.w.canvas->selectedIndex(), 2);
        QCOMPARE(status(s.w), imageStatus(1, 2, "a.png", 8, 6, 4));
    }

    void partlyReadFileKeptBeforeFirstWrite_data()
    {
        QTest::addColumn<QString>("broken"); // the name given a bare "&"
        QTest::addColumn<bool>("emptied"); // the last shape deleted, else the image left
        QTest::newRow("leaving the image") << "R" << false;
        QTest::newRow("deleting its only shape") << "R" << true;
        QTest::newRow("error before any shape") << "car" << false;
    }

    // A bare "&" stops the reading: only the objects before it are shown, and writing them
    // alone over the file would lose the rest. The user is told once, in the status note.
    void partlyReadFileKeptBeforeFirstWrite()
    {
        QFETCH(QString, broken);
        QFETCH(bool, emptied);
        Session s;
        ImageAnnotations record;
        record.xmlPath = s.path("annotations/a.xml");
        record.boxes = {box("car", 1, 1, 6, 5), box("R", 2, 2, 7, 6), box("dog", 3, 3, 8, 5)};
        const QByteArray bad = VocXml::toXml(record, "x").replace("<name>" + broken.toUtf8() + "<", "<name>R&D<");
        QVERIFY(QDir().mkpath(s.path("annotations")) && writeBytes(record.xmlPath, bad));
        QVERIFY(s.open({{}, {}}, false));
        const int read = broken == "R" ? 1 : 0;
        QCOMPARE(s.w.canvas->boxes().size(), read);
        const auto note = [&] { return s.w.findChild<QLabel*>("statusNote")->text(); };
        const QString told = QStringLiteral("a.xml has an XML error at line %1: only the %2 shape(s) before it were read")
                                 .arg(bad.left(bad.indexOf("R&D")).count('\n') + 1).arg(read);
        QVERIFY2(note().contains(told), qPrintable(note()));
        if (emptied)
            editShapes(s.w, {});
        else
            s.w.imageList->setCurrentRow(1);
        QCOMPARE(QFile::exists(record.xmlPath), !emptied);
        // Once: later writes leave the copy alone.
        s.w.imageList->setCurrentRow(0);
        editShapes(s.w, {box("car", 1, 1, 4, 4)});
        QCOMPARE(QDir(s.path("annotations")).entryList({"a.xml*"}), (QStringList{"a.xml", "a.xml.orig"}));
        QCOMPARE(readBytes(record.xmlPath + ".orig"), bad);
        QCOMPARE(note().count("a.xml has"), 1);
        QVERIFY(s.prompts.calls.isEmpty());
    }

    void autoZoomLock()
    {
        Session s;
        QVERIFY(s.show(QSize(1000, 700)));
        QVERIFY(s.open({{}, {"object"}}, true, QSize(400, 300)));
        s.w.autoZoomButton->click();
        QCOMPARE(s.w.canvas->zoom(), 1.0); // nothing to frame on a
        s.w.imageList->setCurrentRow(1);
        QVERIFY(s.w.canvas->zoom() > 1.5);
        s.w.imageList->setCurrentRow(0);
        QCOMPARE(s.w.canvas->zoom(), 1.0);
        s.w.imageList->setCurrentRow(1);
        s.w.autoZoomButton->click();
        QCOMPARE(s.w.canvas->zoom(), 1.0);
        s.w.autoZoomButton->click(); // turning it on frames the shapes shown
        QVERIFY(s.w.canvas->zoom() > 1.5);
    }
};

QTEST_MAIN(TestSessionEdit)
#include "tst_sessionedit.moc"
