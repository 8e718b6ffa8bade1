#include <QAction>
#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "canvas/imagecanvas.h"
#include "model/vocxml.h"
#include "support/sessionfixture.h"
#include "training/checkdialog.h"
#include "training/trainingexportdialog.h"

// "Check Dataset..." and "Export for Training..." driven through the window: the check
// sees a file never opened, its table opens the image with the shape selected; the export
// says what it will clip before writing.

using namespace sessionfx;

namespace {

// a.png without shapes, b.png (never shown) with a box inside and one reaching out.
void makeDataset(const QTemporaryDir& dir)
{
    QVERIFY(writeImage(dir.filePath("a.png"), 80, 60));
    QVERIFY(writeImage(dir.filePath("b.png"), 80, 60));
    QVERIFY(QDir().mkpath(dir.filePath("annotations")));
    ImageAnnotations b;
    b.imagePath = dir.filePath("b.png");
    b.xmlPath = dir.filePath("annotations/b.xml");
    b.width = 80;
    b.height = 60;
    b.boxes = {box("car", 5, 5, 20, 20), box("car", 60, 40, 99, 59)};
    QVERIFY(VocXml::save(b, "images"));
}

} // namespace

class TestTrainingCommands : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void checkListsProblemsAndOpensTheShape()
    {
        Session s;
        makeDataset(s.dir);
        QVERIFY(s.w.openDataset(s.dir.path()));
        QCOMPARE(s.w.currentIndex, 0);
        s.w.findChild<QAction*>("checkDatasetAction")->trigger();
        QVERIFY(s.w.checkDialog && s.w.checkDialog->isVisible());
        QTableView* table = s.w.checkDialog->table();
        QCOMPARE(table->model()->rowCount(), 1);
        const QString row = table->model()->index(0, 0).data().toString() + '|'
            + table->model()->index(0, 1).data().toString() + '|' + table->model()->index(0, 2).data().toString();
        QCOMPARE(row, QStringLiteral("warning|outside|b.png"));

        Q_EMIT table->activated(table->model()->index(0, 1));
        QCOMPARE(s.w.currentIndex, 1);
        QCOMPARE(s.w.canvas->selectedIndex(), 1);
        QVERIFY(s.prompts.calls.isEmpty());
    }

    void exportForTrainingPreviewsThenWrites_data()
    {
        QTest::addColumn<int>("answer"); // 0 Export, 1 Cancel
        QTest::newRow("export") << 0;
        QTest::newRow("cancel after the preview") << 1;
    }

    void exportForTrainingPreviewsThenWrites()
    {
        QFETCH(int, answer);
        Session s;
        QTemporaryDir out;
        makeDataset(s.dir);
        s.prompts.dialogHandler = [&](QDialog* dialog) {
            auto* combo = dialog->findChild<QComboBox*>("layoutCombo");
            combo->setCurrentIndex(combo->findData("ultralytics-detect"));
            dialog->findChild<QLineEdit*>("folderEdit")->setText(out.path());
            return int(QDialog::Accepted);
        };
        s.prompts.chooseAnswers << answer;
        QVERIFY(s.w.openDataset(s.dir.path()));
        s.w.findChild<QAction*>("exportForTrainingAction")->trigger();

        const QList<ScriptedPrompts::Call> questions = s.prompts.callsOf("choose");
        QCOMPARE(questions.size(), 1);
        QVERIFY2(questions.first().text.contains("The check found 0 errors and 1 warning"), qPrintable(questions.first().text));
        QVERIFY2(questions.first().text.contains("2 shapes written, 1 of them clipped"), qPrintable(questions.first().text));
        QCOMPARE(QDir(out.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).isEmpty(), answer != 0);
        if (answer != 0)
            return;
        QCOMPARE(s.prompts.last().title, QStringLiteral("Export complete"));
        QCOMPARE(readBytes(out.filePath("labels/train/b.txt")).count('\n') + readBytes(out.filePath("labels/val/b.txt")).count('\n'), 2);
        QVERIFY(readBytes(out.filePath("data.yaml")).contains("\"car\""));
    }
};

QTEST_MAIN(TestTrainingCommands)
#include "tst_trainingcommands.moc"
