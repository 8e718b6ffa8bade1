#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "canvas/imagecanvas.h"
#include "labels/annotationspanel.h"
#include "labels/labelrowdelegate.h"
#include "labels/labelsdialog.h"
#include "model/vocxml.h"
#include "support/scriptedprompts.h"

// Label changes through the real main window: one shape from the canvas or the panel,
// rename and removal across the dataset, the Manage Labels dialog, and the label list
// refreshed from the annotation files.

using namespace sessiontest;

namespace {

using Labels = QList<LabelDef>;
using Shapes = QList<BoxAnnotation>;

// Images a.png, b.png ... in `dir`, each with an annotation file holding shapes of the
// given labels (an empty list: no file).
void makeDataset(const QTemporaryDir& dir, const QList<QStringList>& labelsPerImage)
{
    QDir().mkpath(dir.filePath("annotations"));
    for (int i = 0; i < labelsPerImage.size(); ++i) {
        // a ... z, then z26, z27 ... so that the list order is the index order.
        const QString base = i < 26 ? QString(QChar('a' + i)) : QStringLiteral("z%1").arg(i);
        QVERIFY(makeImageFile(dir.filePath(base + ".png")));
        if (labelsPerImage[i].isEmpty())
            continue;
        ImageAnnotations record;
        record.xmlPath = dir.filePath("annotations/" + base + ".xml");
        record.width = 8;
        record.height = 6;
        int k = 0;
        for (const QString& label : labelsPerImage[i]) {
            record.boxes.append(box(label, k, k, k + 2, k + 3));
            ++k;
        }
        QVERIFY(VocXml::save(record, "images"));
    }
}

void writeLabelFile(const QTemporaryDir& dir, const Labels& labels)
{
    QJsonArray entries;
    for (const LabelDef& l : labels)
        entries.append(QJsonObject{{"name", l.name}, {"color", l.color.name()}});
    QVERIFY(writeBytes(dir.filePath("annotations/label_colors.json"), QJsonDocument(entries).toJson()));
}

Labels labelFile(const MainWindow& w)
{
    Labels labels;
    const QJsonArray entries =
        QJsonDocument::fromJson(readBytes(w.annotationsFolder + "/label_colors.json")).array();
    for (const QJsonValue& v : entries)
        labels.append({v["name"].toString(), QColor::fromString(v["color"].toString())});
    return labels;
}

QStringList labelsOf(const Shapes& shapes)
{
    QStringList out;
    for (const BoxAnnotation& b : shapes)
        out << b.label;
    return out;
}

QStringList labelsOnDisk(const QString& xmlPath)
{
    ImageAnnotations record;
    record.xmlPath = xmlPath;
    return VocXml::load(record) ? labelsOf(record.boxes) : QStringList{"<unreadable>"};
}

QStringList comboItems(const MainWindow& w)
{
    QStringList out;
    for (int i = 0; i < w.classCombo->count(); ++i)
        out << w.classCombo->itemText(i);
    return out;
}

QStringList panelRows(const MainWindow& w)
{
    QStringList out;
    for (int i = 0; i < w.annotationsPanel->rowCount(); ++i)
        out << w.annotationsPanel->rowText(i);
    return out;
}

// Answers the rename dialog: picks `from` in its combo, types `to` and presses Return
// in the name field (which clicks "Rename").
void answerRename(ScriptedPrompts& prompts, const QString& from, const QString& to)
{
    prompts.dialogHandler = [from, to](QDialog* dialog) {
        auto* combo = dialog->findChild<QComboBox*>("renameLabelCombo");
        auto* edit = dialog->findChild<QLineEdit*>("newLabelNameEdit");
        if (!combo || !edit || combo->findText(from) < 0)
            return int(QDialog::Rejected);
        combo->setCurrentIndex(combo->findText(from));
        edit->setText(to);
        QTest::keyClick(edit, Qt::Key_Return);
        return dialog->result();
    };
}

// Answers the remove dialog with `name` and the confirmation with `confirm`.
void answerRemove(ScriptedPrompts& prompts, const QString& name, bool confirm = true)
{
    prompts.dialogHandler = [name](QDialog* dialog) {
        auto* combo = dialog->findChild<QComboBox*>("removeLabelCombo");
        if (!combo || combo->findText(name) < 0)
            return int(QDialog::Rejected);
        combo->setCurrentIndex(combo->findText(name));
        dialog->findChild<QPushButton*>("removeButton")->click();
        return dialog->result();
    };
    prompts.chooseAnswers.enqueue(confirm ? 0 : 1);
}

bool run(MainWindow& w, const char* slot)
{
    return QMetaObject::invokeMethod(&w, slot, Qt::DirectConnection);
}

// Chooses `label` in the context menu of the panel's row `row`.
void changeInPanelMenu(MainWindow& w, int row, const QString& label)
{
    QListView* list = w.annotationsPanel->listView();
    QTimer::singleShot(0, list, [label] {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        if (!menu)
            return;
        for (QAction* action : menu->actions())
            if (!action->isSeparator() && action->text() == label) {
                QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(action).center());
                return;
            }
        menu->close();
    });
    w.annotationsPanel->onContextMenu(list->visualRect(list->model()->index(row, 0)).center());
}

const QColor kRed(255, 0, 0), kGreen(0, 255, 0), kBlue(0, 0, 255);

} // namespace

Q_DECLARE_METATYPE(LabelDef)

#define QCOMPARE_LABELS(actual, expected) QCOMPARE(describe(actual), describe(expected))

namespace {
// "name #rrggbb" per label, for comparisons that print well.
QStringList describe(const Labels& labels)
{
    QStringList out;
    for (const LabelDef& l : labels)
        out << l.name + ' ' + l.color.name();
    return out;
}
} // namespace

class TestLabelOps : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void renameAcrossDataset_data();
    void renameAcrossDataset();
    void renameReachesUnreadFiles();
    void renameSkipsUnreadableFiles_data();
    void renameSkipsUnreadableFiles();
    void renameRefusals_data();
    void renameRefusals();
    void nothingToWorkOn_data();
    void nothingToWorkOn();
    void removeLabel_data();
    void removeLabel();
    void removeOnlyLabelLeavesObject();
    void datasetChangeEndsHistory_data();
    void datasetChangeEndsHistory();
    void unwritableFileReportedPerFile_data();
    void unwritableFileReportedPerFile();
    void changeOneShape_data();
    void changeOneShape();
    void panelSelectAndDelete();
    void manageLabels_data();
    void manageLabels();
    void syncFromAnnotationFiles();
};

void TestLabelOps::renameAcrossDataset_data()
{
    QTest::addColumn<Labels>("before");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<Labels>("after");

    const LabelDef object{"object", QColor(0, 220, 220)};
    QTest::newRow("to a new name") << Labels{object, {"A", kRed}, {"B", kGreen}} << "A" << "C"
                                   << Labels{object, {"C", kRed}, {"B", kGreen}};
    QTest::newRow("onto B standing earlier")
        << Labels{object, {"B", kGreen}, {"A", kRed}} << "A" << "B" << Labels{object, {"B", kGreen}};
    QTest::newRow("onto B standing later")
        << Labels{object, {"A", kRed}, {"B", kGreen}} << "A" << "B" << Labels{object, {"B", kRed}};
    QTest::newRow("letter case only") << Labels{object, {"A", kRed}, {"B", kGreen}} << "A" << "a"
                                      << Labels{object, {"a", kRed}, {"B", kGreen}};
}

void TestLabelOps::renameAcrossDataset()
{
    QFETCH(Labels, before);
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(Labels, after);

    QTemporaryDir dir;
    makeDataset(dir, {{"A", "B", "A"}, {"B"}, {}, {"A"}});
    writeLabelFile(dir, before);
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    QCOMPARE_LABELS(w.labels, before);
    w.classCombo->setCurrentText("B");
    w.canvas->setSelectedIndex(1);

    answerRename(prompts, from, to);
    QVERIFY(run(w, "onRenameLabel"));

    QCOMPARE(prompts.callsOf("dialog").size(), 1);
    QCOMPARE(prompts.callsOf("dialog").first().title, QStringLiteral("Rename Label"));
    QCOMPARE(prompts.calls.size(), 2);
    QCOMPARE(prompts.last().kind, QStringLiteral("information"));
    QCOMPARE(prompts.last().title, QStringLiteral("Rename complete"));
    QCOMPARE(prompts.last().text, QStringLiteral("Renamed label \"%1\" to \"%2\".\n"
                                                 "3 bounding box(es) in 2 image(s) updated.")
                                      .arg(from, to));

    // Every shape keeps its place; only the label changed, in files, records and views.
    const QStringList first = {to, "B", to};
    QCOMPARE(labelsOnDisk(w.images[0].xmlPath), first);
    QCOMPARE(labelsOnDisk(w.images[1].xmlPath), QStringList{"B"});
    QVERIFY(!QFile::exists(w.images[2].xmlPath));
    QCOMPARE(labelsOnDisk(w.images[3].xmlPath), QStringList{to});
    QCOMPARE(labelsOf(w.images[3].boxes), QStringList{to});
    QCOMPARE(w.images[0].boxes[1], box("B", 1, 1, 3, 4));
    QCOMPARE(labelsOf(w.canvas->boxes()), first);
    QCOMPARE(panelRows(w), first);
    QVERIFY(!w.images[0].dirty && !w.images[3].dirty);
    QCOMPARE(rowTexts(w), (QStringList{"a.png  *", "b.png  *", "c.png", "d.png  *"}));

    QCOMPARE_LABELS(w.labels, after);
    QCOMPARE_LABELS(labelFile(w), after);
    QStringList names;
    for (const LabelDef& l : after)
        names << l.name;
    QCOMPARE(comboItems(w), names);
    QCOMPARE(w.classCombo->currentText(), QStringLiteral("B"));
    for (const LabelDef& l : after)
        QCOMPARE(w.canvas->m_labelColors.value(l.name), l.color);
}

void TestLabelOps::renameReachesUnreadFiles()
{
    constexpr int kImages = 40;
    QTemporaryDir dir;
    QList<QStringList> perImage;
    for (int i = 0; i < kImages; ++i)
        perImage.append(i % 2 ? QStringList{"cat", "dog"} : QStringList{"dog"});
    // Names past 'z' in makeDataset are other characters; only the count matters here.
    makeDataset(dir, perImage);
    writeLabelFile(dir, {{"dog", kRed}, {"cat", kGreen}});
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    // The background scan has not looked at a single file yet.
    QCOMPARE(w.scanIndex, 0);
    for (int i = 1; i < kImages; ++i)
        QVERIFY(w.images[i].boxes.isEmpty());

    answerRename(prompts, "dog", "hound");
    QVERIFY(run(w, "onRenameLabel"));
    QCOMPARE(prompts.last().text, QStringLiteral("Renamed label \"dog\" to \"hound\".\n"
                                                 "40 bounding box(es) in 40 image(s) updated."));
    for (int i = 0; i < kImages; ++i) {
        const QStringList expected = i % 2 ? QStringList{"cat", "hound"} : QStringList{"hound"};
        QCOMPARE(labelsOnDisk(w.images[i].xmlPath), expected);
        QCOMPARE(labelsOf(w.images[i].boxes), expected);
    }
    QCOMPARE(labelsOf(w.canvas->boxes()), QStringList{"hound"});

    // The scan then finds nothing under the old name.
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 10000);
    QCOMPARE_LABELS(w.labels, (Labels{{"object", QColor(0, 220, 220)}, {"hound", kRed}, {"cat", kGreen}}));
    QCOMPARE_LABELS(labelFile(w), w.labels);
}

void TestLabelOps::renameSkipsUnreadableFiles_data()
{
    QTest::addColumn<bool>("folder");
    QTest::newRow("malformed file") << false;
    QTest::newRow("folder in its place") << true;
}

void TestLabelOps::renameSkipsUnreadableFiles()
{
    QFETCH(bool, folder);
    QTemporaryDir dir;
    makeDataset(dir, {{"A"}, {}, {"A", "B"}});
    const QString broken = dir.filePath("annotations/b.xml");
    // The shape before the error must not be renamed into a rewritten file either.
    const QByteArray malformed =
        "<annotation><object><name>A</name><bndbox><xmin>1</xmin><ymin>1</ymin>"
        "<xmax>3</xmax><ymax>4</ymax></bndbox></object><object><name>A</name>";
    QVERIFY(folder ? QDir().mkdir(broken) : writeBytes(broken, malformed));
    writeLabelFile(dir, {{"A", kRed}, {"B", kGreen}});
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));

    answerRename(prompts, "A", "Z");
    QVERIFY(run(w, "onRenameLabel"));

    QVERIFY(prompts.callsOf("warning").isEmpty());
    QCOMPARE(prompts.last().title, QStringLiteral("Rename complete"));
    QCOMPARE(prompts.last().text, QStringLiteral("Renamed label \"A\" to \"Z\".\n"
                                                 "2 bounding box(es) in 2 image(s) updated."));
    QVERIFY(w.images[1].boxes.isEmpty());
    QVERIFY(!w.images[1].dirty);
    if (folder)
        QVERIFY(QFileInfo(broken).isDir());
    else
        QCOMPARE(readBytes(broken), malformed);
    QCOMPARE(labelsOnDisk(w.images[0].xmlPath), QStringList{"Z"});
    QCOMPARE(labelsOnDisk(w.images[2].xmlPath), (QStringList{"Z", "B"}));
}

void TestLabelOps::renameRefusals_data()
{
    QTest::addColumn<QString>("to");
    QTest::newRow("same name") << "A";
    QTest::newRow("same name with blanks") << "  A ";
    QTest::newRow("empty") << "";
    QTest::newRow("blanks") << "   ";
}

void TestLabelOps::renameRefusals()
{
    QFETCH(QString, to);
    QTemporaryDir dir;
    makeDataset(dir, {{"A"}, {"A", "B"}});
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    const QByteArray fileBefore = readBytes(w.images[1].xmlPath);
    const QByteArray colorsBefore = readBytes(w.annotationsFolder + "/label_colors.json");
    const Labels labelsBefore = w.labels;

    bool stayedOpen = false;
    prompts.dialogHandler = [&](QDialog* dialog) {
        auto* edit = dialog->findChild<QLineEdit*>("newLabelNameEdit");
        auto* rename = dialog->findChild<QPushButton*>("renameButton");
        dialog->findChild<QComboBox*>("renameLabelCombo")->setCurrentText("A");
        edit->setText(to);
        rename->click();
        if (dialog->result() == QDialog::Accepted)
            return int(QDialog::Accepted);
        // An empty name keeps the dialog open; the user then cancels.
        stayedOpen = true;
        dialog->findChild<QPushButton*>("cancelButton")->click();
        return dialog->result();
    };
    QVERIFY(run(w, "onRenameLabel"));

    const bool empty = to.trimmed().isEmpty();
    QCOMPARE(stayedOpen, empty);
    if (empty) {
        QCOMPARE(prompts.callsOf("warning").size(), 1);
        QCOMPARE(prompts.callsOf("warning").first().title, QStringLiteral("Invalid name"));
        QCOMPARE(prompts.callsOf("warning").first().text, QStringLiteral("Please enter a new label name."));
    }
    // Nothing renamed and nothing said.
    QVERIFY(prompts.callsOf("information").isEmpty());
    QCOMPARE(readBytes(w.images[1].xmlPath), fileBefore);
    QCOMPARE(readBytes(w.annotationsFolder + "/label_colors.json"), colorsBefore);
    QCOMPARE_LABELS(w.labels, labelsBefore);
}

void TestLabelOps::nothingToWorkOn_data()
{
    QTest::addColumn<QByteArray>("slot");
    QTest::addColumn<bool>("loaded");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");
    QTest::newRow("rename, no dataset") << QByteArray("onRenameLabel") << false << "No Data Loaded" << "";
    QTest::newRow("remove, no dataset") << QByteArray("onRemoveLabel") << false << "No Data Loaded" << "";
    QTest::newRow("rename, no labels") << QByteArray("onRenameLabel") << true << "Rename Label"
                                       << "No labels defined yet.";
    QTest::newRow("remove, no labels") << QByteArray("onRemoveLabel") << true << "Remove Label"
                                       << "No labels defined yet.";
}

void TestLabelOps::nothingToWorkOn()
{
    QFETCH(QByteArray, slot);
    QFETCH(bool, loaded);
    QFETCH(QString, title);
    QFETCH(QString, text);
    QTemporaryDir dir;
    makeDataset(dir, {{"A"}});
    ScriptedPrompts prompts;
    MainWindow w;
    if (loaded) {
        QVERIFY(w.openDataset(dir.path()));
        w.labels.clear();
    }
    QVERIFY(run(w, slot.constData()));
    QCOMPARE(prompts.calls.size(), 1);
    QCOMPARE(prompts.last().kind, QStringLiteral("information"));
    QCOMPARE(prompts.last().title, title);
    if (!text.isEmpty())
        QCOMPARE(prompts.last().text, text);
    QCOMPARE(labelsOnDisk(dir.filePath("annotations/a.xml")), QStringList{"A"});
}

void TestLabelOps::removeLabel_data()
{
    QTest::addColumn<int>("current");
    QTest::addColumn<bool>("confirm");
    QTest::newRow("current image keeps shapes") << 0 << true;
    QTest::newRow("current image emptied") << 1 << true;
    QTest::newRow("not confirmed") << 1 << false;
}

void TestLabelOps::removeLabel()
{
    QFETCH(int, current);
    QFETCH(bool, confirm);
    QTemporaryDir dir;
    // d.png's file is never read, so its shapes stay.
    makeDataset(dir, {{"A", "B", "A"}, {"A"}, {"B"}, {"A"}});
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    for (int row : {2, 1, 0, current})
        w.imageList->setCurrentRow(row);
    QCOMPARE(w.currentIndex, current);
    const QStringList labelsBefore = comboItems(w);
    QCOMPARE(labelsBefore, (QStringList{"object", "A", "B"}));

    answerRemove(prompts, "A", confirm);
    QVERIFY(run(w, "onRemoveLabel"));

    QCOMPARE(prompts.callsOf("dialog").first().title, QStringLiteral("Remove Label"));
    const ScriptedPrompts::Call ask = prompts.callsOf("choose").first();
    QCOMPARE(ask.title, QStringLiteral("Confirm Removal"));
    QCOMPARE(ask.shown(), QStringLiteral("Are you sure you want to globally delete all annotations\n"
                                         "for the selected label: A?"));
    QVERIFY(ask.text.contains(QStringLiteral("<b>A</b>")));
    QCOMPARE(ask.informativeText,
             QStringLiteral("This will remove the label and all its bounding boxes from every "
                            "image. This cannot be undone."));
    QCOMPARE(ask.buttons, (QStringList{"Yes, delete all", "No"}));
    if (!confirm) {
        QCOMPARE(prompts.calls.size(), 2);
        QCOMPARE(labelsOnDisk(w.images[1].xmlPath), QStringList{"A"});
        QCOMPARE(comboItems(w), labelsBefore);
        return;
    }
    QCOMPARE(prompts.last().title, QStringLiteral("Removal complete"));
    QCOMPARE(prompts.last().text, QStringLiteral("Label \"A\" removed.\n"
                                                 "3 bounding box(es) deleted across 2 image(s)."));

    QCOMPARE(labelsOnDisk(w.images[0].xmlPath), QStringList{"B"});
    QCOMPARE(w.images[0].boxes, Shapes{box("B", 1, 1, 3, 4)});
    QVERIFY(!QFile::exists(w.images[1].xmlPath));
    QVERIFY(w.images[1].boxes.isEmpty());
    QCOMPARE(labelsOnDisk(w.images[2].xmlPath), QStringList{"B"});
    QCOMPARE(labelsOnDisk(w.images[3].xmlPath), QStringList{"A"});
    QCOMPARE(rowTexts(w), (QStringList{"a.png  *", "b.png", "c.png  *", "d.png  *"}));

    const QStringList shown = current == 0 ? QStringList{"B"} : QStringList{};
    QCOMPARE(labelsOf(w.canvas->boxes()), shown);
    QCOMPARE(panelRows(w), shown);
    QCOMPARE(comboItems(w), (QStringList{"object", "B"}));
    QCOMPARE_LABELS(labelFile(w), w.labels);
    QCOMPARE(w.labels.size(), 2);
}

void TestLabelOps::datasetChangeEndsHistory_data()
{
    QTest::addColumn<bool>("rename");
    QTest::newRow("rename") << true;
    QTest::newRow("remove") << false;
}

// Undo after a dataset-wide change must not bring the old label back into one image.
void TestLabelOps::datasetChangeEndsHistory()
{
    QFETCH(bool, rename);
    QTemporaryDir dir;
    makeDataset(dir, {{"A", "B"}, {"A"}});
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    w.pushUndo();
    QCOMPARE(w.undoStack.size(), 1);

    if (rename)
        answerRename(prompts, "A", "C");
    else
        answerRemove(prompts, "A", true);
    QVERIFY(run(w, rename ? "onRenameLabel" : "onRemoveLabel"));

    QVERIFY(w.undoStack.isEmpty());
    QVERIFY(w.redoStack.isEmpty());
    QVERIFY(run(w, "onUndo"));
    const QStringList expected = rename ? QStringList{"C", "B"} : QStringList{"B"};
    QCOMPARE(labelsOf(w.canvas->boxes()), expected);
    QCOMPARE(labelsOnDisk(w.images[0].xmlPath), expected);
}

void TestLabelOps::removeOnlyLabelLeavesObject()
{
    QTemporaryDir dir;
    makeDataset(dir, {{"car", "car"}});
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    w.labels = {{"car", kBlue}};
    w.applyLabels();

    answerRemove(prompts, "car");
    QVERIFY(run(w, "onRemoveLabel"));
    QCOMPARE_LABELS(w.labels, (Labels{{"object", QColor(0, 220, 220)}}));
    QCOMPARE_LABELS(labelFile(w), w.labels);
    QCOMPARE(comboItems(w), QStringList{"object"});
    QVERIFY(!QFile::exists(w.images[0].xmlPath));
    QVERIFY(w.canvas->boxes().isEmpty());
    QCOMPARE(status(w), imageStatus(1, 1, "a.png", 8, 6, 0));
}

void TestLabelOps::unwritableFileReportedPerFile_data()
{
    QTest::addColumn<bool>("rename");
    QTest::newRow("rename") << true;
    QTest::newRow("remove") << false;
}

void TestLabelOps::unwritableFileReportedPerFile()
{
    QFETCH(bool, rename);
    QTemporaryDir dir;
    makeDataset(dir, {{"A", "B"}, {"A", "B"}, {"A", "B"}});
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    for (int row : {2, 0, 1})
        w.imageList->setCurrentRow(row);
    // A folder where a file should be: the write cannot replace it (even as root).
    for (int i : {0, 2}) {
        QVERIFY(QFile::remove(w.images[i].xmlPath));
        QVERIFY(QDir().mkdir(w.images[i].xmlPath));
    }

    if (rename)
        answerRename(prompts, "A", "Z");
    else
        answerRemove(prompts, "A");
    QVERIFY(run(w, rename ? "onRenameLabel" : "onRemoveLabel"));

    const QList<ScriptedPrompts::Call> warnings = prompts.callsOf("warning");
    QCOMPARE(warnings.size(), 2);
    QCOMPARE(warnings[0].title, QStringLiteral("Save error"));
    QVERIFY(warnings[0].text.startsWith("Could not write:\n" + w.images[0].xmlPath + "\n"));
    QVERIFY(warnings[1].text.startsWith("Could not write:\n" + w.images[2].xmlPath + "\n"));
    // The loop went on, and the counts include the images that failed.
    QCOMPARE(labelsOnDisk(w.images[1].xmlPath), rename ? (QStringList{"Z", "B"}) : QStringList{"B"});
    QCOMPARE(prompts.last().kind, QStringLiteral("information"));
    QVERIFY2(prompts.last().text.endsWith(rename ? "3 bounding box(es) in 3 image(s) updated."
                                                 : "3 bounding box(es) deleted across 3 image(s)."),
             qPrintable(prompts.last().text));
    QVERIFY(w.images[0].dirty);
    QVERIFY(!w.images[1].dirty);
    QCOMPARE(labelsOf(w.images[2].boxes), rename ? (QStringList{"Z", "B"}) : QStringList{"B"});
}

void TestLabelOps::changeOneShape_data()
{
    QTest::addColumn<bool>("fromPanel");
    QTest::addColumn<int>("index");
    QTest::newRow("canvas menu") << false << 2;
    QTest::newRow("panel menu") << true << 2;
    QTest::newRow("panel menu, same label") << true << 1;
    QTest::newRow("stale index") << false << 3;
}

void TestLabelOps::changeOneShape()
{
    QFETCH(bool, fromPanel);
    QFETCH(int, index);
    QTemporaryDir dir;
    makeDataset(dir, {{"A", "B", "A"}, {"A"}});
    ScriptedPrompts prompts;
    MainWindow w;
    w.resize(900, 600);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    const Shapes before = w.canvas->boxes();

    if (fromPanel)
        changeInPanelMenu(w, index, "B");
    else
        Q_EMIT w.canvas->labelChangeRequested(index, "B");

    // A snapshot is pushed whether or not the index is valid.
    QCOMPARE(w.undoStack, QList<Shapes>{before});
    if (index >= before.size()) {
        QCOMPARE(w.canvas->boxes(), before);
        QCOMPARE(labelsOnDisk(w.images[0].xmlPath), labelsOf(before));
        return;
    }
    QStringList expected = labelsOf(before);
    expected[index] = "B";
    QCOMPARE(labelsOf(w.canvas->boxes()), expected);
    QCOMPARE(labelsOf(w.images[0].boxes), expected);
    QCOMPARE(labelsOnDisk(w.images[0].xmlPath), expected);
    QCOMPARE(w.canvas->boxes()[index].points, before[index].points);
    QCOMPARE(w.canvas->selectedIndex(), index);
    QCOMPARE(panelRows(w), expected);
    QCOMPARE(w.annotationsPanel->currentRow(), index);
    QCOMPARE(status(w), imageStatus(1, 2, "a.png", 8, 6, 3));
    QVERIFY(prompts.calls.isEmpty());

    QVERIFY(run(w, "onUndo"));
    QCOMPARE(labelsOnDisk(w.images[0].xmlPath), labelsOf(before));
}

void TestLabelOps::panelSelectAndDelete()
{
    QTemporaryDir dir;
    makeDataset(dir, {{"A", "B", "C"}});
    ScriptedPrompts prompts;
    MainWindow w;
    w.resize(900, 600);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    QListView* list = w.annotationsPanel->listView();
    QSignalSpy picks(w.annotationsPanel, &AnnotationsPanel::selectionRequested);
    QSignalSpy deletes(w.annotationsPanel, &AnnotationsPanel::deleteRequested);
    auto rowRect = [list](int row) { return list->visualRect(list->model()->index(row, 0)); };

    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rowRect(1).center());
    QCOMPARE(picks.count(), 1);
    QCOMPARE(w.canvas->selectedIndex(), 1);
    QCOMPARE(w.annotationsPanel->currentRow(), 1);

    // The X of row 0: the shape goes without being selected, and the rebuilt rows do
    // not report a selection of their own.
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rowRect(0).topRight() + QPoint(-15, rowRect(0).height() / 2));
    QCOMPARE(deletes.count(), 1);
    QCOMPARE(picks.count(), 1);
    QCOMPARE(labelsOf(w.canvas->boxes()), (QStringList{"B", "C"}));
    QCOMPARE(panelRows(w), (QStringList{"B", "C"}));
    QCOMPARE(labelsOnDisk(w.images[0].xmlPath), (QStringList{"B", "C"}));
    QCOMPARE(w.canvas->selectedIndex(), -1);

    // A label change from the rebuilt panel reaches the right shape.
    changeInPanelMenu(w, 1, "A");
    QCOMPARE(labelsOnDisk(w.images[0].xmlPath), (QStringList{"B", "A"}));
    QCOMPARE(picks.count(), 1);
    QCOMPARE(w.canvas->selectedIndex(), 1);

    // Deleting the rest empties the image: file and mark go.
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rowRect(1).topRight() + QPoint(-15, rowRect(1).height() / 2));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rowRect(0).topRight() + QPoint(-15, rowRect(0).height() / 2));
    QCOMPARE(deletes.count(), 3);
    QCOMPARE(picks.count(), 1);
    QVERIFY(!QFile::exists(w.images[0].xmlPath));
    QCOMPARE(rowTexts(w), QStringList{"a.png"});
    QVERIFY(prompts.calls.isEmpty());
}

void TestLabelOps::manageLabels_data()
{
    QTest::addColumn<bool>("accept");
    QTest::addColumn<bool>("deleteAll");
    QTest::addColumn<Labels>("after");
    QTest::addColumn<QString>("comboText");

    QTest::newRow("OK") << true << false
                        << Labels{{"object", kBlue}, {"car", QColor(255, 100, 100)}, {"bus", QColor(100, 220, 100)}}
                        << "car";
    QTest::newRow("Cancel") << false << false << Labels() << "car";
    QTest::newRow("OK with every row deleted") << true << true
                                               << Labels{{"object", QColor(0, 220, 220)}} << "object";
}

void TestLabelOps::manageLabels()
{
    QFETCH(bool, accept);
    QFETCH(bool, deleteAll);
    QFETCH(Labels, after);
    QFETCH(QString, comboText);
    QTemporaryDir dir;
    makeDataset(dir, {{"car", "person"}});
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    const Labels before = w.labels;
    QCOMPARE(comboItems(w), (QStringList{"object", "car", "person"}));
    w.classCombo->setCurrentText("car");
    const QByteArray colorsBefore = readBytes(w.annotationsFolder + "/label_colors.json");
    const QByteArray xmlBefore = readBytes(w.images[0].xmlPath);

    prompts.colorAnswers.enqueue(kBlue);
    prompts.chooseAnswers.enqueue(0);
    prompts.dialogHandler = [&](QDialog* dialog) {
        auto* labels = qobject_cast<LabelsDialog*>(dialog);
        if (!labels)
            return int(QDialog::Rejected);
        labels->show();
        if (!QTest::qWaitForWindowExposed(labels))
            return int(QDialog::Rejected);
        QListWidget* list = labels->listWidget();
        QStyleOptionViewItem row;
        // Recolour "object", delete "person", add "bus".
        row.rect = list->visualItemRect(list->item(0));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, LabelRowDelegate::swatchRect(row).center());
        row.rect = list->visualItemRect(list->item(2));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, LabelRowDelegate::deleteRect(row).center());
        labels->nameEdit()->setText("bus");
        labels->onAddLabel();
        if (deleteAll)
            labels->findChild<QPushButton*>("deleteAllButton")->click();
        labels->findChild<QPushButton*>(accept ? "okButton" : "cancelButton")->click();
        return labels->QDialog::result();
    };
    QVERIFY(run(w, "onManageLabels"));
    QCOMPARE(prompts.callsOf("dialog").first().title, QStringLiteral("Manage Labels"));

    if (!accept) {
        QCOMPARE_LABELS(w.labels, before);
        QCOMPARE(comboItems(w), (QStringList{"object", "car", "person"}));
        QCOMPARE(readBytes(w.annotationsFolder + "/label_colors.json"), colorsBefore);
    } else {
        QCOMPARE_LABELS(w.labels, after);
        QCOMPARE_LABELS(labelFile(w), after);
        QStringList names;
        for (const LabelDef& l : after)
            names << l.name;
        QCOMPARE(comboItems(w), names);
        QCOMPARE(w.canvas->m_labelNames, names);
        QCOMPARE(w.canvas->m_labelColors.value(after[0].name), after[0].color);
    }
    QCOMPARE(w.classCombo->currentText(), comboText);
    QCOMPARE(w.canvas->currentLabel, comboText);
    // Annotation files are never touched, even for labels taken off the list.
    QCOMPARE(readBytes(w.images[0].xmlPath), xmlBefore);
}

void TestLabelOps::syncFromAnnotationFiles()
{
    QTemporaryDir dir;
    makeDataset(dir, {{"dog", "object"}, {"cat"}});
    // Only files directly in the folder and named *.xml count.
    QDir().mkpath(dir.filePath("annotations/sub"));
    QVERIFY(writeBytes(dir.filePath("annotations/notes.txt"),
                       "<annotation><object><name>txt</name></object></annotation>"));
    {
        const QByteArray bytes = readBytes(dir.filePath("annotations/b.xml")).replace("cat", "eel");
        QVERIFY(writeBytes(dir.filePath("annotations/sub/c.xml"), bytes));
    }
    ScriptedPrompts prompts;
    MainWindow w;
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY_WITH_TIMEOUT(scanDone(w), 5000);
    const QString colorFile = w.annotationsFolder + "/label_colors.json";

    // Nothing new: duplicates go, but neither the views nor the file are refreshed.
    w.labels = {{"object", kRed}, {"dog", kGreen}, {"object", kBlue}, {"cat", kBlue}};
    QVERIFY(QFile::remove(colorFile));
    w.syncClassComboFromAnnotations();
    QCOMPARE_LABELS(w.labels, (Labels{{"object", kRed}, {"dog", kGreen}, {"cat", kBlue}}));
    QVERIFY(!QFile::exists(colorFile));

    // A label the list lacks is appended with the palette colour of its position.
    w.labels = {{"dog", kGreen}, {"dog", kRed}};
    w.syncClassComboFromAnnotations();
    QStringList names;
    for (const LabelDef& l : w.labels)
        names << l.name;
    QCOMPARE(names.size(), 3);
    QCOMPARE(names.first(), QStringLiteral("dog"));
    QVERIFY(names.contains("object") && names.contains("cat"));
    QCOMPARE(w.labels[1].color, QColor(255, 100, 100));
    QCOMPARE(w.labels[2].color, QColor(100, 220, 100));
    QCOMPARE_LABELS(labelFile(w), w.labels);
    QCOMPARE(comboItems(w), names);
    QVERIFY(prompts.calls.isEmpty());
}

QTEST_MAIN(TestLabelOps)
#include "tst_labelops.moc"
