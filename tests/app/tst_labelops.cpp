#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QPushButton>

#include "canvas/imagecanvas.h"
#include "labels/labelrowdelegate.h"
#include "labels/labelsdialog.h"
#include "support/sessionfixture.h"

// Label changes through the real main window: one shape from the canvas or the panel,
// rename and removal across the dataset, the Manage Labels dialog, and the label list
// refreshed from the annotation files.

using namespace sessionfx;

namespace {

using Labels = QList<LabelDef>;
const QColor kRed(255, 0, 0), kGreen(0, 255, 0), kBlue(0, 0, 255), kObject(0, 220, 220);

// "name #rrggbb" per label, for comparisons that print well.
QStringList describe(const Labels& labels)
{
    QStringList out;
    for (const LabelDef& l : labels)
        out << l.name + ' ' + l.color.name();
    return out;
}

void writeLabelFile(Session& s, const Labels& labels)
{
    QDir().mkpath(s.path("annotations"));
    QJsonArray entries;
    for (const LabelDef& l : labels)
        entries.append(QJsonObject{{"name", l.name}, {"color", l.color.name()}});
    QVERIFY(writeBytes(s.path("annotations/label_colors.json"), QJsonDocument(entries).toJson()));
}

QStringList labelFile(const Session& s)
{
    Labels labels;
    for (const QJsonValue& v : QJsonDocument::fromJson(readBytes(s.path("annotations/label_colors.json"))).array())
        labels.append({v["name"].toString(), QColor::fromString(v["color"].toString())});
    return describe(labels);
}

// Answers the rename dialog: picks `from`, types `to` and presses Return in the name field.
void answerRename(ScriptedPrompts& prompts, const QString& from, const QString& to)
{
    prompts.dialogHandler = [from, to](QDialog* dialog) {
        auto* combo = dialog->findChild<QComboBox*>("renameLabelCombo");
        auto* edit = dialog->findChild<QLineEdit*>("newLabelNameEdit");
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
        combo->setCurrentIndex(combo->findText(name));
        dialog->findChild<QPushButton*>("removeButton")->click();
        return dialog->result();
    };
    prompts.chooseAnswers.enqueue(confirm ? 0 : 1);
}

} // namespace

Q_DECLARE_METATYPE(LabelDef)

class TestLabelOps : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void rename_data()
    {
        QTest::addColumn<Labels>("before");
        QTest::addColumn<QString>("to");
        QTest::addColumn<Labels>("after");
        const LabelDef object{"object", kObject};
        QTest::newRow("to a new name") << Labels{object, {"A", kRed}, {"B", kGreen}} << "C"
                                       << Labels{object, {"C", kRed}, {"B", kGreen}};
        QTest::newRow("onto B standing earlier") << Labels{object, {"B", kGreen}, {"A", kRed}} << "B"
                                                 << Labels{object, {"B", kGreen}};
        QTest::newRow("onto B standing later") << Labels{object, {"A", kRed}, {"B", kGreen}} << "B"
                                               << Labels{object, {"B", kRed}};
        QTest::newRow("letter case only") << Labels{object, {"A", kRed}, {"B", kGreen}} << "a"
                                          << Labels{object, {"a", kRed}, {"B", kGreen}};
    }

    void rename()
    {
        QFETCH(Labels, before);
        QFETCH(QString, to);
        QFETCH(Labels, after);
        Session s;
        writeLabelFile(s, before);
        QVERIFY(s.open({{"A", "B", "A"}, {"B"}, {}, {"A"}}));
        QCOMPARE(describe(s.w.labels), describe(before));
        s.w.classCombo->setCurrentText("B");
        s.w.pushUndo();

        answerRename(s.prompts, "A", to);
        QVERIFY(s.call("onRenameLabel"));
        QCOMPARE(s.prompts.calls.size(), 2);
        QCOMPARE(s.prompts.calls[0].title, QStringLiteral("Rename Label"));
        QCOMPARE(s.prompts.last().kind + ": " + s.prompts.last().title, QStringLiteral("information: Rename complete"));
        QCOMPARE(s.prompts.last().text, QStringLiteral("Renamed label \"A\" to \"%1\".\n"
                                                       "3 bounding box(es) in 2 image(s) updated.").arg(to));
        // Every shape keeps its place; only the label changed, in files, records and views.
        const QStringList first = {to, "B", to};
        QCOMPARE(savedLabels(s.xml(0)), first);
        QCOMPARE(saved(s.xml(0)).value(1), box("B", 1, 1, 3, 4));
        QCOMPARE(savedLabels(s.xml(1)), QStringList{"B"});
        QVERIFY(!QFile::exists(s.xml(2)));
        QCOMPARE(savedLabels(s.xml(3)), QStringList{to});
        QCOMPARE(labelsOf(s.w.canvas->boxes()), first);
        QCOMPARE(panelRows(s.w), first);
        QCOMPARE(rowTexts(s.w), (QStringList{"a.png  *", "b.png  *", "c.png", "d.png  *"}));
        QCOMPARE(describe(s.w.labels), describe(after));
        QCOMPARE(labelFile(s), describe(after));
        QCOMPARE(itemsOf(s.w.classCombo), labelNames(after));
        QCOMPARE(s.w.classCombo->currentText(), QStringLiteral("B"));
        QCOMPARE(s.w.canvas->m_labelColors.value(after[1].name), after[1].color);
        // Undo must not bring the old label back into one image.
        QVERIFY(s.call("onUndo"));
        QCOMPARE(savedLabels(s.xml(0)), first);
    }

    void renameReachesUnreadFiles()
    {
        QList<QStringList> perImage;
        for (int i = 0; i < 40; ++i)
            perImage.append(i % 2 ? QStringList{"cat", "dog"} : QStringList{"dog"});
        Session s;
        writeLabelFile(s, {{"dog", kRed}, {"cat", kGreen}});
        QVERIFY(s.open(perImage, false));
        QCOMPARE(s.w.scanIndex, 0); // the background scan has not read a single file yet
        answerRename(s.prompts, "dog", "hound");
        QVERIFY(s.call("onRenameLabel"));
        QCOMPARE(s.prompts.last().text, QStringLiteral("Renamed label \"dog\" to \"hound\".\n"
                                                       "40 bounding box(es) in 40 image(s) updated."));
        for (int i = 0; i < 40; ++i) {
            const QStringList expected = i % 2 ? QStringList{"cat", "hound"} : QStringList{"hound"};
            QCOMPARE(savedLabels(s.xml(i)), expected);
            }
        // The scan then finds nothing under the old name.
        QTRY_VERIFY_WITH_TIMEOUT(scanDone(s.w), 10000);
        QCOMPARE(itemsOf(s.w.classCombo), (QStringList{"object", "hound", "cat"}));
    }

    void troubledFiles_data()
    {
        QTest::addColumn<bool>("rename"); // else remove
        QTest::addColumn<int>("trouble"); // 0: malformed unread file, 1: folder in its place, 2: the same after reading
        QTest::newRow("rename, malformed file") << true << 0;
        QTest::newRow("rename, folder") << true << 1;
        QTest::newRow("rename, unwritable") << true << 2;
        QTest::newRow("remove, unwritable") << false << 2;
    }

    // Files that cannot be read are left alone in silence; files read but not written are
    // named one warning each, and the work goes on.
    void troubledFiles()
    {
        QFETCH(bool, rename);
        QFETCH(int, trouble);
        Session s;
        QVERIFY(s.open({{"A", "B"}, {"A", "B"}, {"A", "B"}}));
        for (int row : {2, 1, 0})
            if (trouble == 2 || row < 2)
                s.w.imageList->setCurrentRow(row);
        // The shape before the error must not be renamed into a rewritten file either.
        const QByteArray malformed = "<annotation><object><name>A</name><bndbox><xmin>1</xmin><ymin>1</ymin>"
                                     "<xmax>3</xmax><ymax>4</ymax></bndbox></object><object><name>A</name>";
        const QString broken = s.xml(trouble == 2 ? 1 : 2);
        QVERIFY(QFile::remove(broken));
        QVERIFY(trouble == 0 ? writeBytes(broken, malformed) : QDir().mkdir(broken));
        if (rename)
            answerRename(s.prompts, "A", "Z");
        else
            answerRemove(s.prompts, "A");
        QVERIFY(s.call(rename ? "onRenameLabel" : "onRemoveLabel"));

        const QList<ScriptedPrompts::Call> warnings = s.prompts.callsOf("warning");
        QCOMPARE(warnings.size(), trouble == 2 ? 1 : 0);
        if (trouble == 2) {
            QCOMPARE(warnings[0].title, QStringLiteral("Save error"));
            QVERIFY(warnings[0].text.startsWith("Could not write:\n" + broken + "\n"));
            QVERIFY(s.w.images[1].dirty);
        }
        QCOMPARE(s.prompts.last().text.section('\n', 1), QString(rename ? "%1 bounding box(es) in %1 image(s) updated."
                                                                         : "%1 bounding box(es) deleted across %1 image(s).")
                                                              .arg(trouble == 2 ? 3 : 2));
        if (trouble == 0)
            QCOMPARE(readBytes(broken), malformed);
        else
            QVERIFY(QFileInfo(broken).isDir());
        const QStringList done = rename ? QStringList{"Z", "B"} : QStringList{"B"};
        QCOMPARE(savedLabels(s.xml(0)), done);
        QCOMPARE(labelsOf(s.w.images[trouble == 2 ? 1 : 2].boxes), trouble == 2 ? done : QStringList{});
    }

    void renameRefusals_data()
    {
        QTest::addColumn<QString>("to");
        QTest::newRow("same name with blanks") << "  A ";
        QTest::newRow("blanks") << "   ";
    }

    void renameRefusals()
    {
        QFETCH(QString, to);
        Session s;
        QVERIFY(s.open({{"A"}, {"A", "B"}}));
        const QByteArray fileBefore = readBytes(s.xml(1));
        const QStringList labelsBefore = labelFile(s);
        bool stayedOpen = false;
        s.prompts.dialogHandler = [&](QDialog* dialog) {
            dialog->findChild<QComboBox*>("renameLabelCombo")->setCurrentText("A");
            dialog->findChild<QLineEdit*>("newLabelNameEdit")->setText(to);
            dialog->findChild<QPushButton*>("renameButton")->click();
            if (dialog->result() == QDialog::Accepted)
                return int(QDialog::Accepted);
            // An empty name keeps the dialog open; the user then cancels.
            stayedOpen = true;
            dialog->findChild<QPushButton*>("cancelButton")->click();
            return dialog->result();
        };
        QVERIFY(s.call("onRenameLabel"));
        const bool empty = to.trimmed().isEmpty();
        QCOMPARE(stayedOpen, empty);
        QCOMPARE(s.prompts.callsOf("warning").size(), empty ? 1 : 0);
        if (empty) {
            QCOMPARE(s.prompts.last().title, QStringLiteral("Invalid name"));
            QCOMPARE(s.prompts.last().text, QStringLiteral("Please enter a new label name."));
        }
        QVERIFY(s.prompts.callsOf("information").isEmpty());
        QCOMPARE(readBytes(s.xml(1)), fileBefore);
        QCOMPARE(labelFile(s), labelsBefore);
        QCOMPARE(itemsOf(s.w.classCombo), (QStringList{"object", "A", "B"}));
    }

    void nothingToWorkOn_data()
    {
        QTest::addColumn<QByteArray>("slot");
        QTest::addColumn<bool>("loaded");
        QTest::addColumn<QString>("title");
        QTest::newRow("rename, no dataset") << QByteArray("onRenameLabel") << false << "No Data Loaded";
        QTest::newRow("remove, no dataset") << QByteArray("onRemoveLabel") << false << "No Data Loaded";
        QTest::newRow("rename, no labels") << QByteArray("onRenameLabel") << true << "Rename Label";
        QTest::newRow("remove, no labels") << QByteArray("onRemoveLabel") << true << "Remove Label";
    }

    void nothingToWorkOn()
    {
        QFETCH(QByteArray, slot);
        QFETCH(bool, loaded);
        QFETCH(QString, title);
        Session s;
        if (loaded) {
            QVERIFY(s.open({{"A"}}));
            s.w.labels.clear();
        }
        QVERIFY(s.call(slot.constData()));
        QCOMPARE(s.prompts.calls.size(), 1);
        QCOMPARE(s.prompts.last().kind + ": " + s.prompts.last().title, "information: " + title);
        if (loaded) {
            QCOMPARE(s.prompts.last().text, QStringLiteral("No labels defined yet."));
            QCOMPARE(savedLabels(s.xml(0)), QStringList{"A"});
        }
    }

    void removeLabel_data()
    {
        QTest::addColumn<int>("current");
        QTest::addColumn<bool>("confirm");
        QTest::newRow("current image keeps shapes") << 0 << true;
        QTest::newRow("current image emptied") << 1 << true;
        QTest::newRow("not confirmed") << 1 << false;
    }

    void removeLabel()
    {
        QFETCH(int, current);
        QFETCH(bool, confirm);
        Session s;
        QVERIFY(s.open({{"A", "B", "A"}, {"A"}, {"B"}}));
        for (int row : {2, 1, 0, current}) // read into memory: removal leaves unread files alone
            s.w.imageList->setCurrentRow(row);
        s.w.pushUndo();
        answerRemove(s.prompts, "A", confirm);
        QVERIFY(s.call("onRemoveLabel"));
        QCOMPARE(s.prompts.callsOf("dialog").first().title, QStringLiteral("Remove Label"));
        const ScriptedPrompts::Call ask = s.prompts.callsOf("choose").first();
        QCOMPARE(ask.title, QStringLiteral("Confirm Removal"));
        QCOMPARE(ask.shown(), QStringLiteral("Are you sure you want to globally delete all annotations\n"
                                             "for the selected label: A?"));
        QVERIFY(ask.text.contains(QStringLiteral("<b>A</b>")));
        QCOMPARE(ask.informativeText, QStringLiteral("This will remove the label and all its bounding boxes "
                                                     "from every image. This cannot be undone."));
        QCOMPARE(ask.buttons, (QStringList{"Yes, delete all", "No"}));
        if (!confirm) {
            QCOMPARE(s.prompts.calls.size(), 2);
            QCOMPARE(savedLabels(s.xml(1)), QStringList{"A"});
            QCOMPARE(itemsOf(s.w.classCombo), (QStringList{"object", "A", "B"}));
            return;
        }
        QCOMPARE(s.prompts.last().title + ": " + s.prompts.last().text,
                 QStringLiteral("Removal complete: Label \"A\" removed.\n3 bounding box(es) deleted across 2 image(s)."));
        QCOMPARE(saved(s.xml(0)), Shapes{box("B", 1, 1, 3, 4)});
        QVERIFY(!QFile::exists(s.xml(1)));
        QVERIFY(s.w.images[1].boxes.isEmpty());
        QCOMPARE(rowTexts(s.w), (QStringList{"a.png  *", "b.png", "c.png  *"}));
        const QStringList shown = current == 0 ? QStringList{"B"} : QStringList{};
        QCOMPARE(labelsOf(s.w.canvas->boxes()), shown);
        QCOMPARE(panelRows(s.w), shown);
        QCOMPARE(itemsOf(s.w.classCombo), (QStringList{"object", "B"}));
        QCOMPARE(labelFile(s), describe(s.w.labels));
        QVERIFY(s.call("onUndo")); // the history ended with the removal
        QCOMPARE(labelsOf(s.w.canvas->boxes()), shown);
    }

    void removeOnlyLabelLeavesObject()
    {
        Session s;
        QVERIFY(s.open({{"car", "car"}}));
        s.w.labels = {{"car", kBlue}};
        s.w.applyLabels();
        answerRemove(s.prompts, "car");
        QVERIFY(s.call("onRemoveLabel"));
        QCOMPARE(describe(s.w.labels), describe({{"object", kObject}}));
        QCOMPARE(labelFile(s), describe(s.w.labels));
        QCOMPARE(itemsOf(s.w.classCombo), QStringList{"object"});
        QVERIFY(!QFile::exists(s.xml(0)));
        QCOMPARE(status(s.w), imageStatus(1, 1, "a.png", 8, 6, 0));
    }

    void changeOneShape_data()
    {
        QTest::addColumn<bool>("fromPanel");
        QTest::addColumn<int>("index");
        QTest::newRow("canvas menu") << false << 2;
        QTest::newRow("panel menu") << true << 2;
        QTest::newRow("panel menu, same label") << true << 1;
        QTest::newRow("stale index") << false << 3;
    }

    void changeOneShape()
    {
        QFETCH(bool, fromPanel);
        QFETCH(int, index);
        Session s;
        QVERIFY(s.open({{"A", "B", "A"}, {"A"}}));
        const Shapes before = s.w.canvas->boxes();
        if (fromPanel) // the panel's own test drives its menu
            Q_EMIT s.w.annotationsPanel->labelChangeRequested(index, "B");
        else
            Q_EMIT s.w.canvas->labelChangeRequested(index, "B");
        // A snapshot is pushed whether or not the index is valid.
        QCOMPARE(s.w.undoStack, QList<Shapes>{before});
        QStringList expected = labelsOf(before);
        if (index < before.size())
            expected[index] = "B";
        QCOMPARE(savedLabels(s.xml(0)), expected);
        QCOMPARE(labelsOf(s.w.images[0].boxes), expected);
        QCOMPARE(saved(s.xml(0)).value(index).points, before.value(index).points);
        if (index < before.size()) {
            QCOMPARE(s.w.canvas->selectedIndex(), index);
            QCOMPARE(panelRows(s.w), expected);
            QCOMPARE(s.w.annotationsPanel->currentRow(), index);
        }
        QVERIFY(s.prompts.calls.isEmpty());
        QVERIFY(s.call("onUndo"));
        QCOMPARE(savedLabels(s.xml(0)), labelsOf(before));
    }

    void manageLabels_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<bool>("deleteAll");
        QTest::addColumn<Labels>("after");
        QTest::addColumn<QString>("current");
        const LabelDef car{"car", QColor(255, 100, 100)}, person{"person", QColor(100, 220, 100)};
        QTest::newRow("OK") << "okButton" << false
                            << Labels{{"object", kBlue}, car, {"bus", QColor(100, 220, 100)}} << "car";
        QTest::newRow("Cancel") << "cancelButton" << false << Labels{{"object", kObject}, car, person} << "car";
        QTest::newRow("OK, every row deleted") << "okButton" << true << Labels{{"object", kObject}} << "object";
    }

    void manageLabels()
    {
        QFETCH(QString, button);
        QFETCH(bool, deleteAll);
        QFETCH(Labels, after);
        QFETCH(QString, current);
        Session s;
        QVERIFY(s.open({{"car", "person"}}));
        s.w.classCombo->setCurrentText("car");
        const QByteArray xmlBefore = readBytes(s.xml(0));
        s.prompts.colorAnswers.enqueue(kBlue);
        s.prompts.chooseAnswers.enqueue(0);
        s.prompts.dialogHandler = [&](QDialog* dialog) {
            auto* labels = qobject_cast<LabelsDialog*>(dialog);
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
            labels->findChild<QPushButton*>(button)->click();
            return labels->QDialog::result();
        };
        QVERIFY(s.call("onManageLabels"));
        QCOMPARE(s.prompts.callsOf("dialog").first().title, QStringLiteral("Manage Labels"));
        QCOMPARE(describe(s.w.labels), describe(after));
        QCOMPARE(labelFile(s), describe(after));
        QCOMPARE(itemsOf(s.w.classCombo), labelNames(after));
        QCOMPARE(s.w.canvas->m_labelColors.value("object"), after[0].color);
        QCOMPARE(s.w.classCombo->currentText(), current);
        QCOMPARE(s.w.canvas->currentLabel, current);
        // Annotation files are never touched, even for labels taken off the list.
        QCOMPARE(readBytes(s.xml(0)), xmlBefore);
    }

    void syncFromAnnotationFiles()
    {
        Session s;
        // Only files directly in the folder and named *.xml count.
        QVERIFY(QDir().mkpath(s.path("annotations/sub")));
        QVERIFY(writeBytes(s.path("annotations/notes.txt"), "<annotation><object><name>txt</name></object></annotation>"));
        QVERIFY(writeBytes(s.path("annotations/sub/c.xml"), "<annotation><object><name>eel</name></object></annotation>"));
        QVERIFY(s.open({{"dog", "object"}, {"cat"}}));
        // Nothing new: duplicates go, but neither the views nor the file are refreshed.
        s.w.labels = {{"object", kRed}, {"dog", kGreen}, {"object", kBlue}, {"cat", kBlue}};
        QVERIFY(QFile::remove(s.path("annotations/label_colors.json")));
        s.w.syncClassComboFromAnnotations();
        QCOMPARE(describe(s.w.labels), describe({{"object", kRed}, {"dog", kGreen}, {"cat", kBlue}}));
        QVERIFY(!QFile::exists(s.path("annotations/label_colors.json")));
        // A label the list lacks is appended with the palette colour of its position.
        s.w.labels = {{"dog", kGreen}, {"dog", kRed}};
        s.w.syncClassComboFromAnnotations();
        const QStringList names = labelNames(s.w.labels);
        QCOMPARE(QSet<QString>(names.begin(), names.end()), (QSet<QString>{"dog", "object", "cat"}));
        QCOMPARE(names[0], QStringLiteral("dog"));
        QCOMPARE(s.w.labels[1].color.name() + s.w.labels[2].color.name(), QStringLiteral("#ff6464#64dc64"));
        QCOMPARE(labelFile(s), describe(s.w.labels));
        QCOMPARE(itemsOf(s.w.classCombo), labelNames(s.w.labels));
    }
};

QTEST_MAIN(TestLabelOps)
#include "tst_labelops.moc"
