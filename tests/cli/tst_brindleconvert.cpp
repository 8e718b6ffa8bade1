#include <QAction>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QListWidget>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include "app/mainwindow.h"
#include "formats/yoloposeexportdialog.h"
#include "support/appfiles.h"
#include "support/scriptedprompts.h"

// brindle-convert as a user runs it: exit codes and the one line on stderr, the Export /
// Import formats byte for byte as the window writes them, and N shards + merge byte for
// byte as one run.

using appfiles::contents;

namespace {

struct Run {
    int code = -1;
    QByteArray out;
    QByteArray err;
};

Run convert(const QStringList& args, const QString& program = QStringLiteral(BRINDLE_CONVERT))
{
    QProcess process;
    process.start(program, args);
    Run run;
    if (!process.waitForFinished(120000))
        return run;
    run.code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}


// A copy of the sample dataset, with a few more images for the split.
bool copySamples(const QString& target)
{
    const QDir samples(QStringLiteral(SAMPLES_DIR));
    if (!QDir().mkpath(target + "/images") || !QDir().mkpath(target + "/annotations"))
        return false;
    for (const QString& sub : {QStringLiteral("images"), QStringLiteral("annotations")}) {
        for (const QString& name : QDir(samples.filePath(sub)).entryList(QDir::Files))
            if (!QFile::copy(samples.filePath(sub + '/' + name), target + '/' + sub + '/' + name))
                return false;
    }
    for (int i = 0; i < 12; ++i) {
        const QString name = QStringLiteral("extra_%1").arg(i);
        if (!QFile::copy(samples.filePath("images/street_01.png"), target + "/images/" + name + ".png")
            || !QFile::copy(samples.filePath("annotations/street_01.xml"), target + "/annotations/" + name + ".xml"))
            return false;
    }
    return true;
}

} // namespace

class TestBrindleConvert : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(copySamples(m_dir.filePath("data")));
        m_images = m_dir.filePath("data/images");
        m_annotations = m_dir.filePath("data/annotations");
    }

    void exitCodes_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("stderrStart"); // the whole of stderr starts with it

        QTest::newRow("no verb") << QStringList{} << 2 << "brindle-convert: ";
        QTest::newRow("unknown layout") << QStringList{"export", "yolo11", "I", "A", "O"} << 2
                                        << "brindle-convert: unknown layout \"yolo11\"";
        QTest::newRow("missing folder") << QStringList{"check", "/nonexistent/images", "A"} << 2
                                        << "brindle-convert: /nonexistent/images: no such folder";
        QTest::newRow("bad percentage") << QStringList{"export", "ultralytics-detect", "I", "A", "O", "--val", "120"}
                                        << 2 << "brindle-convert: --val takes a percentage";
        QTest::newRow("shard of a menu format") << QStringList{"export", "yolo", "@I", "@A", "@O", "--shard", "x"}
                                                << 2 << "brindle-convert: --shard does not apply to yolo";
        QTest::newRow("nothing to merge") << QStringList{"merge", "@O"} << 2 << "brindle-convert: merge: no shards";
        QTest::newRow("clean check") << QStringList{"check", "@I", "@A"} << 0 << "";
        QTest::newRow("check finds an error") << QStringList{"check", "@I", "@A", "--broken"} << 1 << "";
    }

    void exitCodes()
    {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QString, stderrStart);

        QTemporaryDir out;
        const bool broken = args.removeAll("--broken") > 0;
        if (broken) {
            QFile xml(m_annotations + "/extra_3.xml");
            QVERIFY(xml.open(QIODevice::WriteOnly) && xml.write("<annotation><object>") > 0);
        }
        args.replaceInStrings("@I", m_images).replaceInStrings("@A", m_annotations).replaceInStrings("@O", out.path());
        const Run run = convert(args);
        if (broken)
            QVERIFY(QFile::remove(m_annotations + "/extra_3.xml")
                    && QFile::copy(QStringLiteral(SAMPLES_DIR "/annotations/street_01.xml"), m_annotations + "/extra_3.xml"));
        QCOMPARE(run.code, code);
        QVERIFY2(run.err.startsWith(stderrStart.toUtf8()), run.err.constData());
        if (code == 2)
            QCOMPARE(run.err.count('\n'), 1);
        if (args.value(0) == "check" && code != 2)
            QVERIFY(run.out.contains(broken ? "extra_3.png: error: unreadable-xml: " : "0 errors, "));
    }

    void sameFilesAsTheWindow_data()
    {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("action");
        QTest::addColumn<bool>("toFolder");
        // Pose: the order set in the pose dialog for one class and given by --kp-order
        // ("" accepts the dialog as it opens).
        QTest::addColumn<QString>("kpOrder");
        QTest::newRow("yolo") << "yolo" << "exportYoloAction" << true << "";
        QTest::newRow("coco") << "coco" << "exportCocoAction" << false << "";
        QTest::newRow("dota") << "dota" << "exportDotaAction" << true << "";
        QTest::newRow("csv") << "csv" << "exportCsvAction" << false << "";
        QTest::newRow("classes") << "classes" << "exportObjectNamesAction" << false << "";
        QTest::newRow("yolo-pose as proposed") << "yolo-pose" << "exportYoloPoseAction" << true << "";
        QTest::newRow("yolo-pose, order of one class")
            << "yolo-pose" << "exportYoloPoseAction" << true << "person=right_hand,left_foot,head";
    }

    // The window opened on the dataset, its label scan done, exports through the menu; the
    // command line writes the same bytes from the folders alone.
    void sameFilesAsTheWindow()
    {
        QFETCH(QString, format);
        QFETCH(QString, action);
        QFETCH(bool, toFolder);
        QFETCH(QString, kpOrder);

        QTemporaryDir work;
        const QString data = work.filePath("data");
        QVERIFY(copySamples(data));
        // Both write to the same place in turn, as data.yaml holds the output folder's path.
        const QString byWindow = work.filePath("window"), byCli = work.filePath("out");
        QVERIFY(QDir().mkpath(byCli));
        const QString fileName = "/export.out";
        {
            ScriptedPrompts prompts;
            MainWindow w;
            QVERIFY(w.openDataset(data + "/images", data + "/annotations"));
            QTRY_VERIFY_WITH_TIMEOUT(w.scanIndex >= w.images.size(), 10000);
            (toFolder ? prompts.directoryAnswers : prompts.saveFileAnswers) << byCli + (toFolder ? "" : fileName);
            QString chosen; // what the dialog ended with for the class
            prompts.dialogHandler = [&](QDialog* dialog) {
                auto* pose = qobject_cast<YoloPoseExportDialog*>(dialog);
                if (!kpOrder.isEmpty()) {
                    // Select the class, empty its order, add the keypoints one by one.
                    const QString name = kpOrder.section('=', 0, 0);
                    pose->classListWidget->setCurrentItem(pose->classListWidget->findItems(name, Qt::MatchExactly).value(0));
                    while (pose->orderListWidget->count() > 0) {
                        pose->orderListWidget->setCurrentRow(0);
                        pose->onKpRemove();
                    }
                    for (const QString& keypoint : kpOrder.section('=', 1).split(',')) {
                        pose->availableListWidget->setCurrentItem(
                            pose->availableListWidget->findItems(keypoint, Qt::MatchExactly).value(0));
                        pose->onKpAdd();
                    }
                }
                pose->accept();
                if (!kpOrder.isEmpty())
                    chosen = pose->kpOrder.value(kpOrder.section('=', 0, 0)).join(',');
                return pose->result();
            };
            w.findChild<QAction*>(action)->trigger();
            QCOMPARE(prompts.last().title.toLower(), QStringLiteral("export complete"));
            QCOMPARE(chosen, kpOrder.section('=', 1));
        }
        QVERIFY(QDir().rename(byCli, byWindow) && QDir().mkpath(byCli));
        QStringList args = {"export", format, data + "/images", data + "/annotations", byCli + (toFolder ? "" : fileName)};
        if (!kpOrder.isEmpty())
            args << "--kp-order" << kpOrder;
        const Run run = convert(args);
        QVERIFY2(run.code == 0, run.err.constData());
        const QMap<QString, QByteArray> expected = contents(byWindow);
        QVERIFY(!expected.isEmpty());
        QCOMPARE(contents(byCli), expected);
    }

    void shardsMergeToOneRun_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("shards");
        QTest::newRow("segment, 3 shards, test subset")
            << QStringList{"ultralytics-segment", "--val", "25", "--test", "20", "--seed", "7"} << 3;
        QTest::newRow("coco instances, 4 shards") << QStringList{"coco-instances", "--val", "30", "--images", "link"} << 4;
        QTest::newRow("pose, 2 shards") << QStringList{"ultralytics-pose", "--kp-order", "person=head,left_hand,right_hand"} << 2;
    }

    // scripts/convert-sharded.sh runs N processes, one shard each, then merge: the output
    // folder holds the bytes of one run into the same folder.
    void shardsMergeToOneRun()
    {
        QFETCH(QStringList, args);
        QFETCH(int, shards);

        QTemporaryDir work;
        const QString out = work.filePath("out");
        const QString layout = args.takeFirst();
        const Run single = convert(QStringList{"export", layout, m_images, m_annotations, out} + args);
        QVERIFY2(single.code == 0, single.err.constData());
        const QMap<QString, QByteArray> expected = contents(out);
        QVERIFY(expected.size() > 10);
        QVERIFY(QDir(out).removeRecursively());

        QProcess script;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("BRINDLE_CONVERT", BRINDLE_CONVERT);
        script.setProcessEnvironment(env);
        script.start("bash", QStringList{SCRIPTS_DIR "/convert-sharded.sh", QString::number(shards), layout,
                                         m_images, m_annotations, out} + args);
        QVERIFY(script.waitForFinished(120000));
        QVERIFY2(script.exitCode() == 0, script.readAllStandardError().constData());
        QCOMPARE(contents(out), expected);
    }


private:
    QTemporaryDir m_dir;
    QString m_images, m_annotations;
};

QTEST_MAIN(TestBrindleConvert)
#include "tst_brindleconvert.moc"
