#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QtTest>

#include "formats/exportimport.h"
#include "model/atomicbatch.h"
#include "model/labelcolorfile.h"
#include "model/vocxml.h"
#include "support/corefiles.h"
#include "support/fulldisk.h"

// Files from elsewhere and disks that fail: a write that fails leaves the old file as it
// was and says why; a name read from any file is one line.

namespace {

const QString kLongName = QStringLiteral("a label long enough that one line is past the limit");

} // namespace

class TestHostileInput : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void failedWriteKeepsOldFile_data()
    {
        // target: relative to the output folder
        columns<QString, QString>("writer", "target");
        for (const char* writer : {"annotation file", "batch", "COCO", "CSV", "class names", "collage"})
            QTest::newRow(writer) << writer << "out.file";
        QTest::newRow("YOLO") << "YOLO" << "classes.txt";
        QTest::newRow("YOLO pose") << "YOLO pose" << "labels/img.txt";
        QTest::newRow("DOTA") << "DOTA" << "img.txt";
    }

    // Before: the file was cut to what fitted and the write reported success.
    void failedWriteKeepsOldFile()
    {
        auto [writer, target] = row<QString, QString>("writer", "target");
        QTemporaryDir dir;
        const QString path = dir.filePath(target);
        QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
        QVERIFY(writeFile(path, "old\n"));
        QVERIFY(saveImage(dir.filePath("img.png"), 64, 48));
        const QList<ImageAnnotations> images{image(dir.filePath("img.png"), 64, 48, {box(kLongName, 1, 2, 30, 40)})};
        const QList<LabelDef> labels{{kLongName, Qt::red}};

        const QByteArray said = inChildWithFullDisk([&]() -> QByteArray {
            QString error;
            if (writer == "annotation file") {
                ImageAnnotations record = images.first();
                record.xmlPath = path;
                return VocXml::save(record, "images", &error) ? "saved" : error.toUtf8();
            }
            if (writer == "batch") {
                AtomicBatch batch;
                return batch.stage(path, kLongName.toUtf8(), &error) && batch.commit() ? "saved" : error.toUtf8();
            }
            ExportImportResult r;
            if (writer == "COCO")
                r = ExportImport::exportCoco(images, labels, path);
            else if (writer == "CSV")
                r = ExportImport::exportCsv(images, path);
            else if (writer == "class names")
                r = ExportImport::exportObjectNames(labels, path);
            else if (writer == "collage")
                r = ExportImport::exportCollage(images, {}, 1, false, path, {});
            else if (writer == "DOTA")
                r = ExportImport::exportDota(images, dir.path());
            else if (writer == "YOLO")
                r = ExportImport::exportYolo(images, labels, dir.path());
            else
                r = ExportImport::exportYoloPose(images, {}, {kLongName}, dir.path());
            return r.message.toUtf8();
        });
        QVERIFY2(said.contains("File too large"), said.constData());
        QCOMPARE(readAll(path), QByteArray("old\n"));
        // No temporary file is left behind.
        QCOMPARE(QDir(QFileInfo(path).absolutePath()).entryList({"*.file", "*.txt", "*.tmp*"}, QDir::Files),
                 QStringList{QFileInfo(path).fileName()});
    }

    void namesAreOneLine_data()
    {
        columns<QString, QByteArray>("source", "bytes");
        QTest::newRow("annotation file") << "xml" << QByteArray("<annotation><object><name>a&#10;b</name>"
                                                                "<bndbox><xmin>1</xmin></bndbox></object></annotation>");
        QTest::newRow("label colour file") << "colours" << QByteArray("[{\"name\": \"a\\nb\", \"color\": \"#ff0000\"}]");
        QTest::newRow("COCO") << "coco" << QByteArray("{\"categories\": [{\"id\": 1, \"name\": \"a\\r\\nb\"}]}");
        QTest::newRow("CSV") << "csv" << QByteArray("header\nimg.png,1,1,a\tb,1,1,2,2\n");
        QTest::newRow("class names") << "names" << QByteArray("a\x0b" "b\n");
        QTest::newRow("YOLO classes") << "yolo" << QByteArray("a\x1f" "b\n");
    }

    // Before: a line break in a name split classes.txt and shifted every class after it.
    void namesAreOneLine()
    {
        auto [source, bytes] = row<QString, QByteArray>("source", "bytes");
        QTemporaryDir dir;
        const QString file = dir.filePath(source == "yolo" ? "classes.txt" : "input");
        QVERIFY(writeFile(file, bytes));
        QList<ImageAnnotations> images{image(dir.filePath("img.png"), 10, 10)};
        QList<LabelDef> labels;
        if (source == "xml") {
            images[0].xmlPath = file;
            VocXml::load(images[0]);
            for (const BoxAnnotation& b : std::as_const(images[0].boxes))
                labels.append({b.label, Qt::red});
        } else if (source == "colours") {
            LabelColorFile::merge(file, labels);
        } else if (source == "coco") {
            ExportImport::importCoco(images, labels, file);
        } else if (source == "csv") {
            ExportImport::importCsv(images, labels, file);
        } else if (source == "names") {
            ExportImport::importObjectNames(labels, file);
        } else {
            QVERIFY(writeFile(dir.filePath("img.txt"), "0 0.5 0.5 0.2 0.2\n"));
            ExportImport::importYolo(images, labels, dir.path());
        }
        QCOMPARE(labelNames(labels), QStringList{source == "coco" ? "a  b" : "a b"});
        QVERIFY(ExportImport::exportObjectNames(labels, dir.filePath("out.txt")).ok);
        QCOMPARE(readAll(dir.filePath("out.txt")).count('\n'), 1);
    }

    void dataYamlNames_data()
    {
        columns<QStringList, QString>("names", "written");
        QTest::newRow("names YAML would misread")
            << QStringList{"no", "On", "null", "#1", "sign: stop", " lead", "trail ", "3d", "say \"hi\\"}
            << QStringLiteral("  - \"no\"\n  - \"On\"\n  - \"null\"\n  - \"#1\"\n  - \"sign: stop\"\n"
                              "  - \" lead\"\n  - \"trail \"\n  - \"3d\"\n  - \"say \\\"hi\\\\\"\n");
        QTest::newRow("plain names") << QStringList{"traffic light", "car_2", "Straße", "x-ray (old)"}
                                     << QStringLiteral("  - traffic light\n  - car_2\n  - Straße\n  - x-ray (old)\n");
    }

    // Before: a name such as "download: ..." became a key of its own, one the trainer runs.
    void dataYamlNames()
    {
        auto [names, written] = row<QStringList, QString>("names", "written");
        QTemporaryDir dir;
        QVERIFY(ExportImport::exportYoloPose({}, {}, names, dir.path()).ok);
        const QString yaml = dir.filePath("data.yaml");
        QVERIFY(QString::fromUtf8(readAll(yaml)).endsWith("\nnames:\n" + written));
        // The trainer's YAML reader gets the names back as written.
        QProcess python;
        python.start("/usr/bin/python3", {"-c", "import json, sys, yaml; "
                                                "print(json.dumps(yaml.safe_load(open(sys.argv[1], encoding='utf-8'))['names']))",
                                          yaml});
        QVERIFY(python.waitForFinished(20000));
        if (python.exitCode() != 0)
            QSKIP("no Python with the yaml module");
        QCOMPARE(QJsonDocument::fromJson(python.readAllStandardOutput()).array().toVariantList(), QVariant(names).toList());
    }
};

QTEST_MAIN(TestHostileInput)
#include "tst_hostileinput.moc"
