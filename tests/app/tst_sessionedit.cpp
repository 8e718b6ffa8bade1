#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "model/vocxml.h"
#include "support/scriptedprompts.h"

// Editing the image shown: auto-save, removal of emptied files, undo and redo, copy and
// paste, the annotations panel's delete, navigation and the auto-zoom lock.

using namespace sessiontest;

class TestSessionEdit : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void editWritesFileAndEmptyingDeletesIt();
    void undoKeepsTenSteps();
    void undoToEmptyDeletesAndRedoWrites();
    void historyClearedAndMemoryWinsOverFile();
    void copyPasteAcrossImages();
    void copyAllAndPasteOntoSameImage();
    void pasteWithEmptyClipboardDoesNothing();
    void panelDelete();
    void onSaveCurrentWritesEmptyFile();
    void partlyReadFileKeptBeforeFirstWrite_data();
    void partlyReadFileKeptBeforeFirstWrite();
    void saveFailureReported_data();
    void saveFailureReported();
    void prevNextDoNotWrap();
    void autoZoomLock();
};

void TestSessionEdit::editWritesFileAndEmptyingDeletesIt()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    QVERIFY(makeImageFile(dir.filePath("b.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    const QString xml = w.images[0].xmlPath;
    QVERIFY(!QFile::exists(xml));

    const BoxAnnotation b = box("object", 1, 2, 5, 4);
    editShapes(w, {b});
    QVERIFY(QFile::exists(xml));
    QCOMPARE(w.imageList->item(0)->text(), QStringLiteral("a.png  *"));
    QCOMPARE(w.images[0].boxes, QList<BoxAnnotation>{b});
    ImageAnnotations onDisk;
    onDisk.xmlPath = xml;
    QVERIFY(VocXml::load(onDisk));
    QCOMPARE(onDisk.boxes, QList<BoxAnnotation>{b});
    QCOMPARE(w.annotationsPanel->rowCount(), 1);

    editShapes(w, {});
    QVERIFY(!QFile::exists(xml));
    QCOMPARE(w.imageList->item(0)->text(), QStringLiteral("a.png"));
    QCOMPARE(w.annotationsPanel->rowCount(), 0);
    QVERIFY(prompts.calls.isEmpty());
}

void TestSessionEdit::undoKeepsTenSteps()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));

    QList<BoxAnnotation> shapes;
    for (int i = 0; i < 11; ++i) {
        shapes.append(box("object", i, i, i + 2, i + 2));
        editShapes(w, shapes);
    }
    QCOMPARE(w.undoStack.size(), 10);
    for (int i = 0; i < 10; ++i) {
        QVERIFY(QMetaObject::invokeMethod(&w, "onUndo"));
        QCOMPARE(w.canvas->boxes().size(), 10 - i);
    }
    QVERIFY(QMetaObject::invokeMethod(&w, "onUndo"));
    QCOMPARE(w.canvas->boxes().size(), 1);
    QCOMPARE(w.images[0].boxes.size(), 1);
    ImageAnnotations onDisk;
    onDisk.xmlPath = w.images[0].xmlPath;
    QVERIFY(VocXml::load(onDisk));
    QCOMPARE(onDisk.boxes, w.canvas->boxes());

    for (int i = 0; i < 10; ++i)
        QVERIFY(QMetaObject::invokeMethod(&w, "onRedo"));
    QCOMPARE(w.canvas->boxes(), shapes);
    QVERIFY(QMetaObject::invokeMethod(&w, "onRedo"));
    QCOMPARE(w.canvas->boxes(), shapes);
    QVERIFY(VocXml::load(onDisk));
    QCOMPARE(onDisk.boxes.size(), 11);
}

void TestSessionEdit::undoToEmptyDeletesAndRedoWrites()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    const QString xml = w.images[0].xmlPath;

    editShapes(w, {box("object", 1, 1, 4, 4)});
    QVERIFY(QFile::exists(xml));
    QVERIFY(QMetaObject::invokeMethod(&w, "onUndo"));
    QVERIFY(w.canvas->boxes().isEmpty());
    QVERIFY(!QFile::exists(xml));
    QCOMPARE(w.imageList->item(0)->text(), QStringLiteral("a.png"));
    QCOMPARE(status(w), imageStatus(1, 1, "a.png", 8, 6, 0));

    QVERIFY(QMetaObject::invokeMethod(&w, "onRedo"));
    QCOMPARE(w.canvas->boxes().size(), 1);
    QVERIFY(QFile::exists(xml));
    QCOMPARE(w.imageList->item(0)->text(), QStringLiteral("a.png  *"));
    QCOMPARE(w.annotationsPanel->rowCount(), 1);

    // A new edit after an undo drops what could have been redone.
    QVERIFY(QMetaObject::invokeMethod(&w, "onUndo"));
    QCOMPARE(w.redoStack.size(), 1);
    editShapes(w, {box("object", 2, 2, 5, 5)});
    QVERIFY(w.redoStack.isEmpty());
    QVERIFY(QMetaObject::invokeMethod(&w, "onRedo"));
    QCOMPARE(w.canvas->boxes(), (QList<BoxAnnotation>{box("object", 2, 2, 5, 5)}));
}

void TestSessionEdit::historyClearedAndMemoryWinsOverFile()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    QVERIFY(makeImageFile(dir.filePath("b.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    const QList<BoxAnnotation> mine = {box("object", 1, 1, 3, 3), box("object", 4, 1, 6, 3)};
    editShapes(w, mine);

    // b's file appears on disk while a is shown: b is read when it is shown.
    ImageAnnotations b = w.images[1];
    b.boxes = {box("dog", 2, 2, 7, 5)};
    QVERIFY(VocXml::save(b, "x"));
    w.imageList->setCurrentRow(1);
    QVERIFY(w.undoStack.isEmpty());
    QCOMPARE(w.canvas->boxes(), b.boxes);

    // a's file changes behind the session's back: the shapes in memory win.
    ImageAnnotations a = w.images[0];
    a.boxes = {box("cat", 0, 0, 2, 2)};
    QVERIFY(VocXml::save(a, "x"));
    w.imageList->setCurrentRow(0);
    QCOMPARE(w.canvas->boxes(), mine);
    QVERIFY(w.undoStack.isEmpty());
    QVERIFY(QMetaObject::invokeMethod(&w, "onUndo"));
    QCOMPARE(w.canvas->boxes(), mine);
}

void TestSessionEdit::copyPasteAcrossImages()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    QVERIFY(makeImageFile(dir.filePath("b.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    const BoxAnnotation first = box("object", 1, 1, 3, 3);
    const BoxAnnotation second = box("car", 2.5, 1.5, 6.25, 4);
    editShapes(w, {first, second});

    // Nothing selected: the clipboard stays empty.
    w.canvas->setSelectedIndex(-1);
    w.copySelection();
    QVERIFY(w.clipboard.isEmpty());

    w.canvas->setSelectedIndex(1);
    w.copySelection();
    QCOMPARE(w.clipboard, QList<BoxAnnotation>{second});

    w.imageList->setCurrentRow(1);
    QVERIFY(w.canvas->boxes().isEmpty());
    w.paste();
    QCOMPARE(w.canvas->boxes(), QList<BoxAnnotation>{second});
    QCOMPARE(w.canvas->m_selectedIndex, 0);
    QCOMPARE(w.images[1].boxes, QList<BoxAnnotation>{second});
    ImageAnnotations onDisk;
    onDisk.xmlPath = w.images[1].xmlPath;
    QVERIFY(VocXml::load(onDisk));
    QCOMPARE(onDisk.boxes.size(), 1);
    QCOMPARE(onDisk.boxes[0].label, QStringLiteral("car"));
    QCOMPARE(w.imageList->item(1)->text(), QStringLiteral("b.png  *"));

    QVERIFY(QMetaObject::invokeMethod(&w, "onUndo"));
    QVERIFY(w.canvas->boxes().isEmpty());
    QVERIFY(!QFile::exists(w.images[1].xmlPath));
    QCOMPARE(w.clipboard, QList<BoxAnnotation>{second});
}

void TestSessionEdit::copyAllAndPasteOntoSameImage()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    const QList<BoxAnnotation> two = {box("object", 1, 1, 3, 3), box("car", 4, 4, 6, 5)};
    editShapes(w, two);
    w.canvas->selectAll();
    QVERIFY(w.canvas->m_allSelected);
    w.copySelection();
    QCOMPARE(w.clipboard, two);

    w.paste();
    QCOMPARE(w.canvas->boxes(), two + two);
    QCOMPARE(w.canvas->m_selectedIndex, 2);
    QCOMPARE(w.undoStack.size(), 2);
    QCOMPARE(status(w), imageStatus(1, 1, "a.png", 8, 6, 4));
}

void TestSessionEdit::pasteWithEmptyClipboardDoesNothing()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    // Before any image is shown.
    w.clipboard = {box("object", 1, 1, 2, 2)};
    w.paste();
    QVERIFY(w.undoStack.isEmpty());
    QVERIFY(w.canvas->boxes().isEmpty());

    w.clipboard.clear();
    QVERIFY(w.openDataset(dir.path()));
    w.paste();
    QVERIFY(w.undoStack.isEmpty());
    QVERIFY(!QFile::exists(w.images[0].xmlPath));
}

void TestSessionEdit::panelDelete()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    const BoxAnnotation first = box("object", 1, 1, 3, 3);
    const BoxAnnotation second = box("car", 4, 4, 6, 5);
    editShapes(w, {first, second});
    QCOMPARE(w.undoStack.size(), 1);

    // A stale index still leaves a snapshot behind and changes nothing else.
    Q_EMIT w.annotationsPanel->deleteRequested(5);
    QCOMPARE(w.undoStack.size(), 2);
    QCOMPARE(w.undoStack.last(), (QList<BoxAnnotation>{first, second}));
    QCOMPARE(w.canvas->boxes().size(), 2);

    Q_EMIT w.annotationsPanel->deleteRequested(0);
    QCOMPARE(w.canvas->boxes(), QList<BoxAnnotation>{second});
    QCOMPARE(w.images[0].boxes, QList<BoxAnnotation>{second});
    ImageAnnotations onDisk;
    onDisk.xmlPath = w.images[0].xmlPath;
    QVERIFY(VocXml::load(onDisk));
    QCOMPARE(onDisk.boxes, QList<BoxAnnotation>{second});

    Q_EMIT w.annotationsPanel->deleteRequested(0);
    QVERIFY(!QFile::exists(w.images[0].xmlPath));
    QCOMPARE(w.imageList->item(0)->text(), QStringLiteral("a.png"));
    QVERIFY(QMetaObject::invokeMethod(&w, "onUndo"));
    QCOMPARE(w.canvas->boxes(), QList<BoxAnnotation>{second});
}

void TestSessionEdit::onSaveCurrentWritesEmptyFile()
{
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    w.images[0].dirty = true;
    QVERIFY(QMetaObject::invokeMethod(&w, "onSaveCurrent"));
    QVERIFY(QFile::exists(w.images[0].xmlPath));
    QVERIFY(!w.images[0].dirty);
    QCOMPARE(w.imageList->item(0)->text(), QStringLiteral("a.png  *"));
    // The folder element carries the images folder's own name.
    QVERIFY(readBytes(w.images[0].xmlPath).contains(QDir(dir.path()).dirName().toUtf8()));
}

void TestSessionEdit::partlyReadFileKeptBeforeFirstWrite_data()
{
    QTest::addColumn<bool>("emptied"); // the last shape deleted, else the image left
    QTest::newRow("leaving the image") << false;
    QTest::newRow("deleting its only shape") << true;
}

// A bare "&" in object 2 stops the reading: only object 1 is shown, and writing that
// alone over the file would lose objects 2 and 3.
void TestSessionEdit::partlyReadFileKeptBeforeFirstWrite()
{
    QFETCH(bool, emptied);
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")) && makeImageFile(dir.filePath("b.png")));
    ImageAnnotations record;
    record.xmlPath = dir.filePath("annotations/a.xml");
    record.boxes = {box("car", 1, 1, 6, 5), box("R", 2, 2, 7, 6), box("dog", 3, 3, 8, 5)};
    const QByteArray broken = VocXml::toXml(record, "x").replace("<name>R<", "<name>R&D<");
    QVERIFY(QDir().mkpath(dir.filePath("annotations")) && writeBytes(record.xmlPath, broken));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QCOMPARE(w.canvas->boxes().size(), 1);

    if (emptied)
        editShapes(w, {});
    else
        w.imageList->setCurrentRow(1);
    QCOMPARE(QFile::exists(record.xmlPath), !emptied);
    // Once: later writes leave the copy alone.
    w.imageList->setCurrentRow(0);
    editShapes(w, {box("car", 1, 1, 4, 4)});
    QCOMPARE(QDir(dir.filePath("annotations")).entryList({"a.xml*"}),
             (QStringList{"a.xml", "a.xml.orig"}));
    QCOMPARE(readBytes(record.xmlPath + ".orig"), broken);
    QVERIFY(prompts.calls.isEmpty());
}

void TestSessionEdit::saveFailureReported_data()
{
    QTest::addColumn<bool>("readOnlyFolder");
    QTest::newRow("a folder where the file goes") << false;
    QTest::newRow("read-only annotations folder") << true;
}

void TestSessionEdit::saveFailureReported()
{
    QFETCH(bool, readOnlyFolder);
    QTemporaryDir dir;
    QVERIFY(makeImageFile(dir.filePath("a.png")));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    const QString ann = w.annotationsFolder;
    const QString xml = w.images[0].xmlPath;

    struct RestoreMode {
        QString path;
        ~RestoreMode()
        {
            if (!path.isEmpty())
                QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        }
    } restore;
    if (readOnlyFolder) {
        QVERIFY(QFile::setPermissions(ann, QFile::ReadOwner | QFile::ExeOwner | QFile::ReadGroup
                                               | QFile::ExeGroup));
        restore.path = ann;
        QFile probe(ann + "/probe");
        if (probe.open(QIODevice::WriteOnly)) {
            probe.close();
            probe.remove();
            QSKIP("this user can write into read-only folders");
        }
    } else {
        QVERIFY(QDir(ann).mkdir("a.xml"));
    }

    const BoxAnnotation b = box("object", 1, 1, 3, 3);
    editShapes(w, {b});
    QCOMPARE(prompts.callsOf("warning").size(), 1);
    QCOMPARE(prompts.last().title, QStringLiteral("Save error"));
    QVERIFY(prompts.last().text.startsWith("Could not write:\n" + xml + "\n"));
    QCOMPARE(w.canvas->boxes(), QList<BoxAnnotation>{b});
    QCOMPARE(w.images[0].boxes, QList<BoxAnnotation>{b});
    if (readOnlyFolder)
        QCOMPARE(w.imageList->item(0)->text(), QStringLiteral("a.png"));

    // Each further attempt reports again; nothing else breaks.
    editShapes(w, {b, b});
    QCOMPARE(prompts.callsOf("warning").size(), 2);
    QCOMPARE(w.canvas->boxes().size(), 2);
}

void TestSessionEdit::prevNextDoNotWrap()
{
    QTemporaryDir dir;
    for (const char* name : {"a.png", "b.png"})
        QVERIFY(makeImageFile(dir.filePath(name)));
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QVERIFY(QMetaObject::invokeMethod(&w, "onPrevImage"));
    QCOMPARE(w.currentIndex, 0);
    editShapes(w, {box("object", 1, 1, 3, 3)});
    QVERIFY(QMetaObject::invokeMethod(&w, "onNextImage"));
    QCOMPARE(w.currentIndex, 1);
    QCOMPARE(w.imageList->currentRow(), 1);
    QVERIFY(QMetaObject::invokeMethod(&w, "onNextImage"));
    QCOMPARE(w.currentIndex, 1);
    QVERIFY(QMetaObject::invokeMethod(&w, "onPrevImage"));
    QCOMPARE(w.currentIndex, 0);
    QCOMPARE(w.canvas->boxes().size(), 1);
}

void TestSessionEdit::autoZoomLock()
{
    QTemporaryDir dir;
    QVERIFY(writeImage(dir.filePath("a.png"), 400, 300));
    QVERIFY(writeImage(dir.filePath("b.png"), 400, 300));
    QVERIFY(QDir().mkpath(dir.filePath("annotations")));
    ImageAnnotations b;
    b.xmlPath = dir.filePath("annotations/b.xml");
    b.boxes = {box("object", 10, 10, 30, 30)};
    QVERIFY(VocXml::save(b, "x"));

    ScriptedPrompts prompts;
    MainWindow w;
    w.resize(1000, 700);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QVERIFY(w.openDataset(dir.path()));

    w.autoZoomButton->click();
    QVERIFY(w.autoZoom);
    QCOMPARE(w.canvas->zoom(), 1.0); // nothing to frame on a
    w.imageList->setCurrentRow(1);
    QVERIFY(w.canvas->zoom() > 1.5);
    w.imageList->setCurrentRow(0);
    QCOMPARE(w.canvas->zoom(), 1.0);
    w.imageList->setCurrentRow(1);
    w.autoZoomButton->click();
    QVERIFY(!w.autoZoom);
    QCOMPARE(w.canvas->zoom(), 1.0);
    w.autoZoomButton->click(); // turning it on frames the shapes shown
    QVERIFY(w.canvas->zoom() > 1.5);
}

QTEST_MAIN(TestSessionEdit)
#include "tst_sessionedit.moc"
