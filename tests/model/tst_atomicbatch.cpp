#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include "model/atomicbatch.h"

#include <unistd.h>

class TestAtomicBatch : public QObject {
    Q_OBJECT

    static QByteArray readAll(const QString& path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
    }

private Q_SLOTS:
    void commitReplacesEveryTargetAndLeavesNoTemporaryFile()
    {
        QTemporaryDir dir;
        const QString a = dir.filePath("a.txt");
        const QString b = dir.filePath("b.txt");
        QFile old(a);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("old content that is longer than the new one");
        old.close();

        AtomicBatch batch;
        QVERIFY(batch.stage(a, "new a"));
        QVERIFY(batch.stage(b, "new b"));
        // Nothing reaches the targets before the commit.
        QCOMPARE(readAll(a), QByteArray("old content that is longer than the new one"));
        QVERIFY(!QFile::exists(b));

        QVERIFY(batch.commit());
        QCOMPARE(readAll(a), QByteArray("new a"));
        QCOMPARE(readAll(b), QByteArray("new b"));
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList({"a.txt", "b.txt"}));
    }

    void abandonedBatchChangesNothing()
    {
        QTemporaryDir dir;
        const QString a = dir.filePath("a.txt");
        {
            AtomicBatch batch;
            QVERIFY(batch.stage(a, "never committed"));
        }
        QVERIFY(!QFile::exists(a));
        QVERIFY(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).isEmpty());
    }

    void failedRenameIsReportedAndOthersStillLand()
    {
        QTemporaryDir dir;
        const QString blocked = dir.filePath("blocked.txt");
        const QString fine = dir.filePath("fine.txt");

        AtomicBatch batch;
        QVERIFY(batch.stage(blocked, "x"));
        QVERIFY(batch.stage(fine, "y"));
        // A non-empty folder made after staging cannot be replaced.
        QVERIFY(QDir(dir.path()).mkdir("blocked.txt"));
        QVERIFY(QDir(blocked).mkdir("inner"));
        QVERIFY(!batch.commit());
        QCOMPARE(batch.failedPaths(), QStringList{blocked});
        QVERIFY(!batch.failureReason(blocked).isEmpty());
        QCOMPARE(readAll(fine), QByteArray("y"));
        QVERIFY(QFileInfo(blocked).isDir());
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{"fine.txt"});
    }

    void stagingIntoMissingFolderFails()
    {
        QTemporaryDir dir;
        AtomicBatch batch;
        QVERIFY(!batch.stage(dir.filePath("no/such/folder/a.txt"), "x"));
        QCOMPARE(batch.stagedCount(), 0);
        QVERIFY(batch.commit());
    }

    // A file the user made read-only is not replaced behind their back.
    void readOnlyTargetIsNotStaged()
    {
        if (::geteuid() == 0)
            QSKIP("root may write any file");
        QTemporaryDir dir;
        const QString path = dir.filePath("locked.txt");
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("old\n");
        f.close();
        QVERIFY(QFile::setPermissions(path, QFileDevice::ReadOwner));
        AtomicBatch batch;
        QVERIFY(!batch.stage(path, "new\n"));
        QCOMPARE(batch.stagedCount(), 0);
        QVERIFY(batch.commit());
        QCOMPARE(readAll(path), QByteArray("old\n"));
    }

    void writeFileReplacesContent()
    {
        QTemporaryDir dir;
        const QString a = dir.filePath("ä b.txt");
        QVERIFY(AtomicBatch::writeFile(a, "one"));
        QVERIFY(AtomicBatch::writeFile(a, "two"));
        QCOMPARE(readAll(a), QByteArray("two"));
        QString error;
        QVERIFY(!AtomicBatch::writeFile(dir.filePath("missing/a.txt"), "x", &error));
        QVERIFY(!error.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestAtomicBatch)
#include "tst_atomicbatch.moc"
