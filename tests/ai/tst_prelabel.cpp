#include <QAction>
#include <QComboBox>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QPainter>
#include <QRadioButton>
#include <QTableWidget>
#include <QtMath>

#include "ai/aitest.h"
#include "ai/prelabeldialog.h"
#include "app/imagelistwidget.h"
#include "app/mainwindow.h"
#include "app/proposalreview.h"
#include "canvas/imagecanvas.h"
#include "model/vocxml.h"
#include "support/exifjpeg.h"
#include "support/records.h"
#include "support/scriptedprompts.h"

// Pre-labelling: the shipped helper with Debian's Python and the fake ultralytics, alone
// and through the real dialog and window; then the review of the proposals it leaves.

using namespace AiTest;

namespace {

// The fake model: red pixels are "person" (0.9), blue ones "car" (0.6), green makes it fail.
QByteArray modelJson(const QString& task, const QString& extra = {})
{
    return QString(R"({"task": "%1", "classes": [{"name": "person", "bgr": [0, 0, 255], "conf": 0.9},
        {"name": "car", "bgr": [255, 0, 0], "conf": 0.6}], "kconf": [0.9, 0.9, 0.1, 0.9],
        "fail_bgr": [0, 255, 0]%2})").arg(task, extra).toUtf8();
}

// 160 x 120 images made of: r, a red 40 x 30 box at (10, 20); q, a blue 70 x 70 square at
// (75, 35) with a 20 x 20 hole; p, blue squares of 60 and 20; s, a blue star of 100 spikes;
// o, a blue 60 x 20 box turned by 30 degrees round (80, 60); g, a green corner. "e" is a
// 48 x 32 JPEG with its left 16 columns red, stored turned: it shows 32 x 48, the band at the top.
void makeImage(const QString& path, const QString& what)
{
    QImage img(what == "e" ? QSize(48, 32) : QSize(160, 120), QImage::Format_RGB32);
    img.fill(Qt::black);
    QPainter p(&img);
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::blue);
    p.fillRect(0, 0, what == "e" ? 16 : 0, 32, Qt::red);
    if (what.contains('r'))
        p.fillRect(10, 20, 40, 30, Qt::red);
    if (what.contains('q')) {
        p.fillRect(75, 35, 70, 70, Qt::blue);
        p.fillRect(100, 60, 20, 20, Qt::black);
    }
    if (what.contains('p')) // two pieces
        p.drawRects(QList<QRect>{{20, 20, 60, 60}, {100, 90, 20, 20}});
    if (what.contains('g'))
        p.fillRect(0, 0, 10, 10, Qt::green);
    QPolygonF star;
    for (int i = 0; i < 200 && what.contains('s'); ++i)
        star << QPointF(80, 60) + (i % 2 ? 35 : 55) * QPointF(qCos(i * M_PI / 100), qSin(i * M_PI / 100));
    p.drawPolygon(star);
    p.translate(80, 60);
    p.rotate(30);
    if (what.contains('o'))
        p.fillRect(-30, -10, 60, 20, Qt::blue);
    p.end();
    QVERIFY(what == "e" ? writeTurnedJpeg(path, img) : img.save(path, "PNG"));
}

QString round5(double v)
{
    return QString::number(qRound(v / 5) * 5);
}

// A shape as the tests compare it: class, kind, bounds (rotated boxes: angle, size and
// centre to 5 units), and the vertex count of small polygons.
QString describe(const QJsonObject& s)
{
    QList<QPointF> pts;
    for (const QJsonValue& v : s["points"].toArray())
        pts << QPointF(v[0].toDouble(), v[1].toDouble());
    QString d = s["class"].toString() + ' ' + s["type"].toString() + ' ';
    if (s["type"] == "rotatedbox") {
        const QPointF c = (pts[0] + pts[2]) / 2;
        return d + QString("a%1 %2x%3 @%4,%5").arg(round5(s["angle"].toDouble()), round5(QLineF(pts[0], pts[1]).length()),
                                                  round5(QLineF(pts[1], pts[2]).length()), round5(c.x()), round5(c.y()));
    }
    if (pts.size() > 8) // an outline simplified down to the limit
        return d + (pts.size() <= 64 ? "9 to 64 vertices" : "too many vertices");
    const QRect r = pointsBoundingRect(pts);
    d += QString("%1,%2-%3,%4").arg(r.left()).arg(r.top()).arg(r.left() + r.width()).arg(r.top() + r.height());
    return s["type"] == "polygon" ? d + QString(" n%1").arg(pts.size()) : d;
}

// Starts yolo_prelabel.py in `dir` on images i0, i1 ... made from `kinds` ("-" = not an
// image, "!" = no file).
QProcess* startHelper(const QString& dir, const QByteArray& modelText, const QStringList& kinds, const QStringList& extra,
                      bool withPackage)
{
    QStringList list;
    for (int i = 0; i < kinds.size(); ++i) {
        const QString path = dir + QString("/i%1.%2").arg(i).arg(kinds[i] == "e" ? "jpg" : "png");
        if (kinds[i] == "-")
            writeFile(path, "not an image");
        else if (kinds[i] != "!")
            makeImage(path, kinds[i]);
        list << path;
    }
    writeFile(dir + "/list.txt", list.join('\n').toUtf8());
    writeFile(dir + "/m.pt", modelText);
    return startScript("yolo_prelabel.py", QStringList{"--model", dir + "/m.pt", "--list", dir + "/list.txt"} + extra,
                       withPackage, dir);
}

// A dataset folder of images named by their content, an interpreter and the script in
// place, and the window on it.
struct Dataset : Sandbox {
    QString images = path("images"), annotations = path("images/annotations");
    Dataset(const QStringList& kinds, const QString& task = "detect")
    {
        link("python", "/usr/bin/python3");
        placeScript("yolo_prelabel.py");
        QDir().mkpath(annotations);
        for (const QString& s : kinds)
            makeImage(images + '/' + s.section(':', 0, 0) + ".png", s.section(':', 1));
        writeFile(path("m.pt"), modelJson(task));
    }
    void writeProposals(const QString& image, const QList<Proposal>& proposals) const
    {
        QDir().mkpath(annotations + "/.proposals");
        writeFile(annotations + "/.proposals/" + image + ".json", Proposals::toJson(image + ".png", proposals));
    }
    // image -> labels of its open proposals, as the sidecars on disk hold them
    QStringList sidecars() const
    {
        QStringList out;
        for (const QFileInfo& f : QDir(annotations + "/.proposals").entryInfoList({"*.json"}, QDir::Files, QDir::Name)) {
            QList<Proposal> list;
            Proposals::fromJson(readAll(f.filePath()), &list);
            QStringList labels;
            for (const Proposal& p : list)
                labels << p.shape.label;
            out << f.completeBaseName() + ": " + labels.join(' ');
        }
        return out;
    }
};

Proposal proposal(const QString& label, double conf, int x)
{
    return {box(label, x, 20, x + 39, 49), conf};
}

QMap<QString, QByteArray> contents(const QString& folder)
{
    QMap<QString, QByteArray> out;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString f = it.next();
        out.insert(QDir(folder).relativeFilePath(f), readAll(f));
    }
    return out;
}

struct RunRow {
    QString which;
    QStringList mapping, sidecars, labels; // mapping: class=label; sidecars: image: labels
    QString lastLog, deleted;
};

} // namespace

Q_DECLARE_METATYPE(RunRow)

class TestPrelabel : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;
    QMap<QString, QProcess*> m_helpers; // by row, all started by helper_data()
private Q_SLOTS:
    void cleanupTestCase() { qDeleteAll(m_helpers); }
    void helper_data();
    void helper();
    void mappingDefaults_data();
    void mappingDefaults();
    void run_data();
    void run();
    void review_data();
    void review();
};

// The helper alone, every row's run started at once: shapes per task, then its errors.
void TestPrelabel::helper_data()
{
    QTest::addColumn<QString>("task");
    QTest::addColumn<QString>("extra");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("kinds");
    QTest::addColumn<QStringList>("expected"); // the results, or the starts of the errors ("$D" = the row's folder)
    const auto row = [this](const char* tag, const QString& task, const QString& extra, const QStringList& images, int exitCode,
                            const QString& kinds, const QStringList& expected) {
        QTest::newRow(tag) << task << extra << exitCode << kinds << expected;
        const QString dir = m_dir.filePath(QString::number(m_helpers.size()));
        QDir().mkpath(dir);
        const QString fault = QString(tag).section(' ', 0, 1);
        m_helpers.insert(tag, startHelper(dir, modelJson(task, extra), images,
                                          fault == "no model" ? QStringList{"--model", dir + "/none.pt"} : QStringList{},
                                          fault != "no package"));
    };
    const QString shapes = "CLASSES TOTAL %1 PROGRESS DONE";
    row("detect, EXIF applied, bad images, a failing one", "detect", "", {"rq", "e", "-", "!", "rg"}, 1,
        "CLASSES TOTAL ERROR ERROR RESULT RESULT ERROR PROGRESS DONE", {"ERROR:Cannot read image: $D/i2.png",
        "ERROR:Cannot read image: $D/i3.png", "i0.png 160x120: person bndbox 10,20-49,49; car bndbox 75,35-144,104",
        "i1.jpg 32x48: person bndbox 0,0-31,15", "ERROR:Inference failed on $D/i4.png (RuntimeError: CUDA error"});
    row("segment, hole dropped", "segment", "", {"rq", "s", "p"}, 0, shapes.arg("RESULT RESULT RESULT"), {
        "i0.png 160x120: person polygon 10,20-49,49 n4; car polygon 75,35-144,104 n4", "i1.png 160x120: car polygon 9 to 64 vertices",
        "i2.png 160x120: car polygon 20,20-79,79 n4"});
    row("pose, two of four named", "pose", R"(, "kpt_names": ["tl", "tr"])", {"r"}, 0, shapes.arg("RESULT"), {
        "i0.png 160x120: person bndbox 10,20-49,49; tl keypoint 10,20-10,20; tr keypoint 50,20-50,20; kp3 keypoint 10,50-10,50"});
    row("obb", "obb", "", {"o", "r"}, 0, shapes.arg("RESULT RESULT"), {
        "i0.png 160x120: car rotatedbox a30 60x20 @80,60", "i1.png 160x120: person rotatedbox a0 40x30 @30,35"});
    row("no model", "detect", "", {"r"}, 2, "ERROR", {"ERROR:Model file not found: $D/none.pt"});
    row("no package", "detect", "", {"r"}, 3, "ERROR", {"ERROR:Missing Python package: ultralytics. Click"});
    row("classifier", "classify", "", {"r"}, 2, "ERROR", {"ERROR:A classify model proposes no shapes"});
}

void TestPrelabel::helper()
{
    QFETCH(QString, task);
    QFETCH(QString, extra);
    QFETCH(int, exitCode);
    QFETCH(QStringList, expected);
    QProcess* process = m_helpers.value(QTest::currentDataTag());
    QVERIFY(process->waitForFinished(60000));
    QCOMPARE(process->exitCode(), exitCode);
    QVERIFY(!process->readAllStandardError().contains("Traceback"));
    const QStringList out = QString::fromUtf8(process->readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    QStringList kinds, found;
    for (const QString& line : out) {
        kinds << line.section(':', 0, 0);
        const QJsonObject o = QJsonDocument::fromJson(line.section(':', 1).toUtf8()).object();
        QStringList shapes;
        for (const QJsonValue& s : o["shapes"].toArray())
            shapes << describe(s.toObject());
        if (kinds.last() == "ERROR")
            found << line;
        else if (kinds.last() == "RESULT")
            found << QString("%1 %2x%3: %4").arg(o["image"].toString()).arg(o["width"].toInt()).arg(o["height"].toInt())
                         .arg(shapes.join("; "));
    }
    QTEST(kinds.join(' '), "kinds");
    QCOMPARE(found.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i)
        QVERIFY2(found[i].startsWith(expected[i].replace("$D", process->workingDirectory()))
                     && (found[i].startsWith("ERROR:") || found[i] == expected[i]), qPrintable(found[i]));
    if (exitCode > 1)
        return;
    QCOMPARE(out[0], QString(R"(CLASSES:{"task":"%1","names":["person","car"],"keypoints":[%2]})")
                         .arg(task, extra.isEmpty() ? "" : R"("tl","tr")"));
    QVERIFY2(out.last().startsWith(QString("DONE:%1:").arg(expected.filter(QRegularExpression("^i")).size())),
             qPrintable(out.last()));
}

// Through the window: which images, the mapping, labels, sidecars, marks, the log.
void TestPrelabel::mappingDefaults_data()
{
    QTest::addColumn<QStringList>("labels");
    QTest::addColumn<QString>("defaults"); // class -> label for person, car, the keypoint nose
    QTest::addColumn<QString>("skipUnmatched");
    QTest::addColumn<QString>("ownNames");
    QTest::newRow("no class has a label") << QStringList{"object"} << "person car nose" << "(skip) (skip) (skip)"
                                          << "person car nose";
    QTest::newRow("one has, in other case") << QStringList{"object", "Car"} << "(skip) Car nose" << "(skip) Car (skip)"
                                            << "person Car nose";
    QTest::newRow("a keypoint has") << QStringList{"NOSE"} << "person car NOSE" << "(skip) (skip) NOSE"
                                    << "person car NOSE";
}

// The table's first choice for each class, and its two buttons.
void TestPrelabel::mappingDefaults()
{
    QFETCH(QStringList, labels);
    Sandbox box;
    box.link("python", "/usr/bin/python3");
    placeScript("yolo_prelabel.py", R"(print('CLASSES:{"task":"pose","names":["person","car"],"keypoints":["nose"]}'))");
    writeFile(box.path("m.pt"), "{}");
    PrelabelDialog dialog(labels, {}, {});
    dialog.modelEdit->setText(box.path("m.pt"));
    dialog.onReadClasses();
    QVERIFY(waitIdle(&dialog));
    const auto chosen = [&dialog] {
        QStringList texts;
        for (int row = 0; row < dialog.mappingTable->rowCount(); ++row)
            texts << static_cast<QComboBox*>(dialog.mappingTable->cellWidget(row, 1))->currentText();
        return texts.join(' ');
    };
    QTEST(chosen(), "defaults");
    dialog.onSkipUnmatched();
    QTEST(chosen(), "skipUnmatched");
    QCOMPARE(dialog.labelFor("person", false), QString()); // skipped
    dialog.onOwnNames();
    QTEST(chosen(), "ownNames");
    QCOMPARE(dialog.labelFor("nose", true), chosen().section(' ', 2));
    QCOMPARE(dialog.labelFor("nose", false), QString()); // a keypoint, not a class
}

// c.png's file has a car where the fake model finds a person, so the dataset has the label
// car. Two runs through the window: all images with b deleted while the model works (and d
// failing), and the current image alone under a new label.
void TestPrelabel::run_data()
{
    QTest::addColumn<RunRow>("row");
    QTest::newRow("unlabelled, by name") << RunRow{"unlabelledRadio", {}, {"b: car"}, {"object", "car"}, "Process exited with code 1.", ""};
    QTest::newRow("all, person as car: c's repeat left out, b deleted") << RunRow{"allRadio", {"person=car"}, {"a: car"},
        {"object", "car"}, "Process exited with code 1.", "b"};
    QTest::newRow("current, new label") << RunRow{"currentRadio", {"person=human"}, {"a: human"}, {"object", "car", "human"},
        "Done — 1 proposals on 1 images. Review them on the canvas: Enter accepts, Delete rejects, N goes to the next "
        "image with proposals.", ""};
}

void TestPrelabel::run()
{
    QFETCH(RunRow, row);
    Dataset data({"a:r", "b:q", "c:r", "d:rg"});
    if (!row.deleted.isEmpty())
        writeFile(data.path("m.pt"), modelJson("detect", R"(, "delay": 0.3)"));
    ImageAnnotations c = image(data.images + "/c.png", 160, 120, {box("car", 10, 20, 49, 49)});
    c.xmlPath = data.annotations + "/c.xml";
    QVERIFY(VocXml::save(c, "images"));
    QMap<QString, QByteArray> before = contents(data.images);
    before.remove("annotations/label_colors.json");
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(data.images));
    QTRY_VERIFY(w.scanIndex >= w.images.size()); // car is a label
    QStringList log;
    QString unlabelled;
    prompts.dialogHandler = [&](QDialog* dialog) {
        dialog->show();
        auto* edit = dialog->findChild<QLineEdit*>("modelEdit");
        edit->setText(data.path("m.pt"));
        if (!row.mapping.isEmpty()) {
            QTest::keyClick(edit, Qt::Key_Return); // lists the classes
            waitIdle(dialog);
        }
        auto* table = dialog->findChild<QTableWidget*>();
        for (const QString& m : row.mapping)
            for (int r = 0; r < table->rowCount(); ++r)
                if (table->item(r, 0)->text() == m.section('=', 0, 0))
                    static_cast<QComboBox*>(table->cellWidget(r, 1))->setCurrentText(m.section('=', 1));
        unlabelled = dialog->findChild<QRadioButton*>("unlabelledRadio")->text();
        dialog->findChild<QRadioButton*>(row.which)->setChecked(true);
        button(dialog, "runButton")->click();
        if (!row.deleted.isEmpty()) { // once the helper is reading, before the model answers
            (void)QTest::qWaitFor([&] { return logLines(dialog, false).join(' ').contains("Model: m.pt"); });
            QFile::remove(data.images + '/' + row.deleted + ".png");
        }
        waitIdle(dialog);
        log = logLines(dialog, false);
        return int(QDialog::Accepted);
    };
    w.findChild<QAction*>("prelabelAction")->trigger();
    w.proposalReview->store().flush();

    QCOMPARE(data.sidecars(), row.sidecars);
    QCOMPARE(unlabelled, "Unlabelled images only (3)");
    const int chosen = row.which == "allRadio" ? 4 : row.which == "currentRadio" ? 1 : 3;
    QVERIFY(log.contains(QString("Starting pre-labelling of %1 image(s)...").arg(chosen)));
    if (!row.deleted.isEmpty()) { // read before or after it went: either way it is left out
        before.remove(row.deleted + ".png");
        QVERIFY(log.contains("b.png: not in the dataset any more, skipped")
                || log.contains("ERROR: Cannot read image: " + data.images + "/b.png"));
    }
    QMap<QString, QByteArray> after = contents(data.images);
    after.remove("annotations/label_colors.json");
    QCOMPARE(after, before); // no annotation file written or changed
    QCOMPARE(labelNames(w.labels), row.labels);
    QCOMPARE(log.last(), row.lastLog);
    QCOMPARE(log.contains(QString("ERROR: Inference failed on %1/d.png (RuntimeError: CUDA error: an illegal memory "
                                  "access was encountered)").arg(data.images)), row.lastLog == "Process exited with code 1.");
    for (int i = 0; i < 4; ++i)
        QCOMPARE(w.imageList->delegate->rowMarked(i), row.sidecars.join(' ').contains(QString("abcd")[i] + QString(":")));
    QCOMPARE(w.canvas->proposals().size(), row.sidecars.join(' ').startsWith("a:") ? 1 : 0);
    QVERIFY(w.images[0].boxes.isEmpty()); // proposals are not shapes
}

// Accepting and rejecting on an image with two proposals (person at x 10, car at x 60);
// another image has one. What the annotation file and the sidecar hold afterwards is
// checked in a new window on the same folders.
void TestPrelabel::review_data()
{
    QTest::addColumn<QString>("actions");
    QTest::addColumn<QStringList>("shapes");    // of image a, from its file
    QTest::addColumn<QStringList>("proposals"); // of image a
    QTest::newRow("enter") << "enter" << QStringList{"person"} << QStringList{"car"};
    QTest::newRow("enter, undo") << "enter undo" << QStringList{} << QStringList{"car", "person"};
    QTest::newRow("enter, undo, redo") << "enter undo redo" << QStringList{"person"} << QStringList{"car"};
    QTest::newRow("enter twice") << "enter enter" << QStringList{"person", "car"} << QStringList{};
    QTest::newRow("delete") << "delete" << QStringList{} << QStringList{"car"};
    QTest::newRow("delete, undo") << "delete undo" << QStringList{} << QStringList{"car", "person"};
    QTest::newRow("shift+enter") << "all" << QStringList{"car", "person"} << QStringList{};
    QTest::newRow("shift+delete") << "none" << QStringList{} << QStringList{};
    QTest::newRow("drag") << "drag" << QStringList{"person"} << QStringList{"car"};
    QTest::newRow("drag, undo") << "drag undo" << QStringList{} << QStringList{"car", "person"};
    QTest::newRow("double-click car") << "dclick" << QStringList{"car"} << QStringList{"person"};
}

void TestPrelabel::review()
{
    QFETCH(QString, actions);
    QFETCH(QStringList, shapes);
    QFETCH(QStringList, proposals);
    Dataset data({"a:", "b:", "c:"});
    data.writeProposals("a", {proposal("car", 0.6, 60), proposal("person", 0.9, 10)});
    data.writeProposals("c", {proposal("car", 0.5, 60)});
    ScriptedPrompts prompts;
    {
        MainWindow w;
        w.resize(900, 600);
        w.show();
        QVERIFY(w.openDataset(data.images));
        ImageCanvas* canvas = w.canvas;
        QCOMPARE(canvas->selectedProposal(), 1); // the most confident: person
        const QPointF person = canvas->imageToWidget(QPointF(30, 35));
        for (const QString& a : actions.split(' ')) {
            if (a == "drag") {
                QTest::mousePress(canvas, Qt::LeftButton, {}, person.toPoint());
                QTest::mouseMove(canvas, (person + QPointF(20, 10)).toPoint());
                QTest::mouseRelease(canvas, Qt::LeftButton, {}, (person + QPointF(20, 10)).toPoint());
            } else if (a == "dclick") {
                QTest::mouseDClick(canvas, Qt::LeftButton, {}, canvas->imageToWidget(QPointF(80, 35)).toPoint());
            } else {
                const QMap<QString, QPair<int, Qt::KeyboardModifiers>> keys{
                    {"enter", {Qt::Key_Return, {}}}, {"all", {Qt::Key_Return, Qt::ShiftModifier}},
                    {"delete", {Qt::Key_Delete, {}}}, {"none", {Qt::Key_Delete, Qt::ShiftModifier}},
                    {"undo", {Qt::Key_Z, Qt::ControlModifier}}, {"redo", {Qt::Key_Y, Qt::ControlModifier}}};
                QTest::keyClick(canvas, Qt::Key(keys[a].first), keys[a].second);
            }
        }
        QCOMPARE(w.imageList->delegate->rowMarked(0), !proposals.isEmpty());
        if (actions.startsWith("drag") && !shapes.isEmpty())
            QVERIFY(w.canvas->boxes()[0].rect().left() > 10); // moved as it was taken over
        QTRY_VERIFY(w.proposalReview->store().listingDone());
        QTest::keyClick(w.imageList, Qt::Key_N); // on to the next image with proposals: c
        QCOMPARE(w.currentIndex, 2);
        QCOMPARE(canvas->proposals().size(), 1);
    }
    MainWindow w;
    QVERIFY(w.openDataset(data.images));
    QStringList found;
    for (const BoxAnnotation& b : std::as_const(w.images[0].boxes))
        found << b.label;
    QCOMPARE(found, shapes);
    found.clear();
    for (const Proposal& p : w.canvas->proposals())
        found << p.shape.label;
    QCOMPARE(found, proposals);
    QTRY_VERIFY(w.proposalReview->store().listingDone());
    QCOMPARE(w.imageList->delegate->rowMarked(0), !proposals.isEmpty());
    QVERIFY(!w.imageList->delegate->rowMarked(1));
    QVERIFY(w.imageList->delegate->rowMarked(2));
}

QTEST_MAIN(TestPrelabel)
#include "tst_prelabel.moc"
