#include <QDir>
#include <QFile>
#include <QImage>
#include <QLineEdit>
#include <QListWidget>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

#include "app/mainwindow.h"
#include "labels/labelsdialog.h"
#include "model/proposals.h"
#include "model/vocxml.h"
#include "support/fulldisk.h"
#include "support/sessionfixture.h"

// The window against hostile files and failing disks: a failed write is never shown as
// saved, nothing outside the dataset is touched, special files neither hang nor fill the
// memory, other programs' versions are kept, broken files are walked past.

using namespace sessionfx;

namespace {

QString note(const MainWindow& w)
{
    const auto* label = w.findChild<QLabel*>("statusNote");
    return label ? label->text() : QString();
}

// The images folder holds the named images; a.xml (one box "ours") when withFile is set.
QByteArray makeDataset(const QTemporaryDir& dir, const QStringList& images, bool withFile = true)
{
    for (const QString& name : images)
        makeImageFile(dir.filePath(name));
    QDir().mkpath(dir.filePath("annotations"));
    ImageAnnotations record;
    record.xmlPath = dir.filePath("annotations/a.xml");
    record.boxes = {box("ours", 1, 1, 4, 4)};
    const QByteArray bytes = VocXml::toXml(record, "x");
    if (withFile)
        writeBytes(record.xmlPath, bytes);
    return bytes;
}

} // namespace

class TestHostileFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Before: the file was emptied, the status read "- saved", quitting lost the edit.
    void failedWriteIsNotSaved()
    {
        Session s;
        const QByteArray old = makeDataset(s.dir, {"a.png"});
        s.prompts.chooseAnswers << -1 << 0; // first Cancel, then "Quit without saving"
        QVERIFY(s.w.openDataset(s.dir.path()));
        QTRY_VERIFY_WITH_TIMEOUT(scanDone(s.w), 5000);
        const QString colours = s.path("annotations/label_colors.json");
        const QByteArray oldColours = readBytes(colours);
        const QStringList seen = QString::fromUtf8(inChildWithFullDisk([&] {
            editShapes(s.w, {box("ours", 1, 1, 4, 4), box("new", 2, 2, 6, 5)});
            QStringList out{s.prompts.last().text, status(s.w), s.w.images[0].dirty ? "dirty" : "clean"};
            editShapes(s.w, {box("ours", 1, 1, 4, 4)}); // each attempt is told again
            out << QString::number(s.prompts.callsOf("warning").size());
            out << (s.w.close() ? "closed" : "open") << s.prompts.last().text;
            out << (s.w.close() ? "closed" : "open");
            s.w.saveLabelConfig();
            out << note(s.w);
            return out.join("\n--\n").toUtf8();
        }, 16)).split("\n--\n");
        QCOMPARE(seen.size(), 8);
        QVERIFY2(seen[7].contains("Could not write label_colors.json: File too large"), qPrintable(seen[7]));
        QCOMPARE(readBytes(colours), oldColours);
        QVERIFY(oldColours.contains("\"ours\""));
        QCOMPARE(seen[0], "Could not write:\n" + s.w.images[0].xmlPath + "\nFile too large");
        QCOMPARE(seen[1], imageStatus(1, 1, "a.png", 8, 6, 2).replace("- saved", "- NOT saved"));
        QCOMPARE(seen[2], QStringLiteral("dirty"));
        QCOMPARE(seen[3], QStringLiteral("2"));
        QCOMPARE(seen[4], QStringLiteral("open"));
        QVERIFY2(seen[5].startsWith("The annotation files of 1 image(s) could not be written"), qPrintable(seen[5]));
        QCOMPARE(seen[6], QStringLiteral("closed"));
        QCOMPARE(readBytes(s.w.images[0].xmlPath), old);
    }

    void linksLeadingOutsideAreNotWritten_data()
    {
        QTest::addColumn<bool>("outside");
        QTest::addColumn<bool>("edit");
        QTest::newRow("link into another dataset, edited") << true << true;
        QTest::newRow("link into another dataset, only viewed") << true << false;
        QTest::newRow("link within the annotations folder") << false << true;
    }

    // Before: the file the link pointed to was overwritten with our XML.
    void linksLeadingOutsideAreNotWritten()
    {
        QFETCH(bool, outside);
        QFETCH(bool, edit);
        Session s;
        const QByteArray theirs = makeDataset(s.dir, {"a.png", "b.png"}, false);
        const QString target = s.path(outside ? "other/a.xml" : "annotations/kept/a.xml");
        QVERIFY(QDir().mkpath(QFileInfo(target).absolutePath()) && writeBytes(target, theirs));
        QVERIFY(QFile::link(target, s.path("annotations/a.xml")));
        QVERIFY(s.w.openDataset(s.dir.path()));
        QCOMPARE(s.w.canvas->boxes().size(), 1);
        if (edit)
            editShapes(s.w, {box("new", 2, 2, 6, 5)});
        else
            s.w.imageList->setCurrentRow(1);

        QVERIFY(QFileInfo(s.path("annotations/a.xml")).isSymLink());
        QCOMPARE(readBytes(target) == theirs, outside);
        QCOMPARE(s.prompts.callsOf("warning").size(), outside ? 1 : 0);
        if (outside)
            QVERIFY2(s.prompts.last().text.contains("which lies outside " + s.w.annotationsFolder),
                     qPrintable(s.prompts.last().text));
    }

    void proposalSidecarWritesAreChecked_data()
    {
        QTest::addColumn<QString>("sidecar");
        QTest::addColumn<QString>("reason");
        QTest::newRow("full disk") << "file" << "File too large";
        QTest::newRow("link leading outside") << "link" << "which lies outside";
        QTest::newRow("FIFO") << "fifo" << "It is not a regular file.";
    }

    // Proposals kept beside the annotations follow the same rules as the annotations.
    void proposalSidecarWritesAreChecked()
    {
        QFETCH(QString, sidecar);
        QFETCH(QString, reason);
        QTemporaryDir dir;
        const QString annotations = dir.filePath("annotations");
        const QString xml = annotations + "/a.xml";
        const QString path = Proposals::sidecarPath(xml);
        const QString outside = dir.filePath("other.json");
        Proposal old;
        old.shape = box("old", 1, 1, 4, 4);
        const QByteArray oldBytes = Proposals::toJson("a.png", {old});
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        if (sidecar == "fifo")
            QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        else
            QVERIFY(writeBytes(sidecar == "link" ? outside : path, oldBytes));
        if (sidecar == "link")
            QVERIFY(QFile::link(outside, path));

        const auto body = [&] {
            ProposalStore store;
            store.open(annotations);
            const QByteArray read = QByteArray::number(store.proposalsFor(xml).size());
            Proposal p;
            p.shape = box("new", 2, 2, 6, 5);
            store.set(xml, "a.png", {p});
            store.flush();
            return read + "\n" + store.takeFailures().join("|").toUtf8();
        };
        const QString seen = QString::fromUtf8(sidecar == "file" ? inChildWithFullDisk(body) : body());
        QCOMPARE(seen.section('\n', 0, 0), sidecar == "fifo" ? "0" : "1");
        QVERIFY2(seen.section('\n', 1).startsWith(path + "\n") && seen.contains(reason), qPrintable(seen));
        if (sidecar != "fifo")
            QCOMPARE(readBytes(sidecar == "link" ? outside : path), oldBytes);
        QCOMPARE(QFileInfo(path).isSymLink(), sidecar == "link");
        QCOMPARE(QDir(QFileInfo(path).path()).entryList(QDir::Files | QDir::System).size(), 1);
    }

    void specialFilesAreRefused_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("said");
        const QString special = QStringLiteral("%1 was not read: it is not a regular file");
        const QString large = QStringLiteral("%1 was not read: it is larger than %2 MB");
        QTest::newRow("FIFO as annotation file") << "a.xml" << "fifo" << special.arg("a.xml");
        QTest::newRow("annotation file linked to /dev/zero") << "a.xml" << "zero" << special.arg("a.xml");
        QTest::newRow("annotation file of 300 MB") << "a.xml" << "300" << large.arg("a.xml").arg(256);
        QTest::newRow("FIFO as colour file") << "label_colors.json" << "fifo" << special.arg("label_colors.json");
        QTest::newRow("colour file of 17 MB") << "label_colors.json" << "17" << large.arg("label_colors.json").arg(16);
    }

    // Before: the window stayed black (blocked opening a FIFO) or ate gigabytes.
    void specialFilesAreRefused()
    {
        QFETCH(QString, name);
        QFETCH(QString, kind);
        QFETCH(QString, said);
        Session s;
        makeDataset(s.dir, {"a.png"}, false);
        const QByteArray path = QFile::encodeName(s.path("annotations/" + name));
        if (kind == "fifo")
            QCOMPARE(::mkfifo(path.constData(), 0644), 0);
        else if (kind == "zero")
            QVERIFY(QFile::link("/dev/zero", path));
        else if (writeBytes(QFile::decodeName(path), "[")) // then grown sparse: no disk used
            QCOMPARE(::truncate(path.constData(), kind.toLongLong() << 20), 0);
        QVERIFY(s.w.openDataset(s.dir.path()));
        QTRY_VERIFY_WITH_TIMEOUT(scanDone(s.w), 5000);
        QCOMPARE(s.w.currentIndex, 0);
        QVERIFY2(note(s.w).contains(said), qPrintable(note(s.w)));
    }

    void changedFilesAreKeptAsTheirs_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<bool>("changed");
        QTest::newRow("drawing a box") << "draw" << true;
        QTest::newRow("pressing Right") << "next" << true;
        QTest::newRow("deleting the last shape") << "empty" << true;
        QTest::newRow("file nobody changed") << "draw" << false;
    }

    // Before: a teammate's sync of a.xml was overwritten without a word.
    void changedFilesAreKeptAsTheirs()
    {
        QFETCH(QString, action);
        QFETCH(bool, changed);
        Session s;
        makeDataset(s.dir, {"a.png", "b.png"});
        QVERIFY(s.w.openDataset(s.dir.path()));
        const QString xml = s.w.images[0].xmlPath;
        ImageAnnotations other;
        other.boxes = {box("theirs", 1, 1, 3, 3), box("theirs too", 2, 2, 5, 5)};
        const QByteArray theirs = VocXml::toXml(other, "x");
        if (changed)
            QVERIFY(writeBytes(xml, theirs));

        const auto act = [&](const QString& what) {
            if (what == "draw")
                editShapes(s.w, {box("ours", 1, 1, 4, 4), box("mine", 3, 3, 7, 5)});
            else if (what == "next")
                s.w.imageList->setCurrentRow(1);
            else
                editShapes(s.w, {});
        };
        act(action);
        QCOMPARE(readBytes(xml + ".theirs"), changed ? theirs : QByteArray());
        QCOMPARE(note(s.w).contains("a.xml was changed by another program: that version is kept as a.xml.theirs"),
                 changed);
        QCOMPARE(QFile::exists(xml), action != "empty");
        QVERIFY(s.prompts.calls.isEmpty());
        if (action == "draw" && changed) {
            // A later conflict replaces the kept version; without one it stays.
            other.boxes.removeLast();
            QVERIFY(writeBytes(xml, VocXml::toXml(other, "x")));
            act("draw");
            QCOMPARE(readBytes(xml + ".theirs"), VocXml::toXml(other, "x"));
            act("draw");
            QCOMPARE(readBytes(xml + ".theirs"), VocXml::toXml(other, "x"));
        }
    }

    void typedNamesAreOneLine_data()
    {
        QTest::addColumn<bool>("inPlace");
        QTest::newRow("added") << false;
        QTest::newRow("renamed in place") << true;
    }

    // Pasting text with a line break into a name gave a label that split classes.txt.
    void typedNamesAreOneLine()
    {
        QFETCH(bool, inPlace);
        LabelsDialog d({{"object", Qt::cyan}});
        QLineEdit* edit = inPlace ? new QLineEdit(&d) : d.nameEdit();
        edit->setText(QString("a\nb\tc") + QChar(0x2028) + "d");
        if (inPlace) {
            QAbstractItemModel* model = d.listWidget()->model();
            d.listWidget()->itemDelegate()->setModelData(edit, model, model->index(0, 0));
        } else {
            d.onAddLabel();
        }
        QCOMPARE(d.result().last().name, QStringLiteral("a b c d"));
    }

    void largePhotosOpenBombsDoNot_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("said");
        QTest::newRow("7000 x 5000 photo") << "photo.jpg" << QString();
        QTest::newRow("PNG declaring 60000 x 60000") << "bomb.png"
                                                     << "60000 \u00D7 60000 pixels is larger than";
    }

    // Before: the photo gave "Load error" (Qt's 128 MB allocation limit).
    void largePhotosOpenBombsDoNot()
    {
        QFETCH(QString, file);
        QFETCH(QString, said);
        Session s;
        QVERIFY(makeImageFile(s.path("a.png")));
        if (said.isEmpty()) {
            QImage photo(7000, 5000, QImage::Format_RGB32);
            photo.fill(Qt::darkGreen);
            QVERIFY(photo.save(s.path(file), "JPEG", 50));
        } else {
            QVERIFY(QFile::copy(QStringLiteral(TEST_DATA_DIR "/bomb.png"), s.path(file)));
        }
        QVERIFY(s.w.openDataset(s.dir.path()));
        s.w.imageList->setCurrentRow(1);
        QCOMPARE(s.w.currentIndex, said.isEmpty() ? 1 : 0);
        if (said.isEmpty()) {
            QCOMPARE(QSize(s.w.images[1].width, s.w.images[1].height), QSize(7000, 5000));
            QVERIFY(s.prompts.calls.isEmpty());
        } else {
            QCOMPARE(s.prompts.last().title, QStringLiteral("Load error"));
            QVERIFY2(s.prompts.last().text.contains(said), qPrintable(s.prompts.last().text));
        }
    }

    // Before: Next after a "Load error" tried the broken image again, for good.
    void nextAndPreviousWalkPastBrokenImage()
    {
        Session s;
        for (const char* name : {"a.png", "c.png"})
            QVERIFY(makeImageFile(s.path(name)));
        QVERIFY(writeBytes(s.path("b.png"), "not an image"));
        QVERIFY(s.w.openDataset(s.dir.path()));
        const QList<std::pair<const char*, int>> steps = {
            {"onNextImage", 0}, {"onNextImage", 2}, {"onPrevImage", 2}, {"onPrevImage", 0}};
        for (const auto& [slot, shown] : steps) {
            QVERIFY(QMetaObject::invokeMethod(&s.w, slot));
            QCOMPARE(s.w.currentIndex, shown);
        }
        QCOMPARE(s.prompts.callsOf("warning").size(), 2);
    }

    void damagedColourFileIsKept_data()
    {
        QTest::addColumn<QByteArray>("damaged");
        QTest::newRow("truncated") << QByteArray("[\n    {\n        \"color\": \"#123456\",\n        \"na");
        QTest::newRow("not a list") << QByteArray("{\"object\": \"#ff0000\"}");
    }

    // Before: the user's colours were replaced by default ones without a copy.
    void damagedColourFileIsKept()
    {
        QFETCH(QByteArray, damaged);
        Session s;
        makeDataset(s.dir, {"a.png"});
        const QString path = s.path("annotations/label_colors.json");
        QVERIFY(writeBytes(path, damaged));
        QVERIFY(s.w.openDataset(s.dir.path()));
        QTRY_VERIFY_WITH_TIMEOUT(scanDone(s.w), 5000);
        QCOMPARE(readBytes(path + ".orig"), damaged);
        QVERIFY(readBytes(path).startsWith("[\n    {\n        \"color\": \"#00dcdc\""));
        QVERIFY2(note(s.w).contains("label_colors.json.orig"), qPrintable(note(s.w)));
        s.w.saveLabelConfig();
        QCOMPARE(QDir(s.path("annotations")).entryList({"label_colors*"}).size(), 2);
    }
};

QTEST_MAIN(TestHostileFiles)
#include "tst_hostilefiles.moc"
