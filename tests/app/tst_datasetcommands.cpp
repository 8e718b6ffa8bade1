#include <QAction>
#include <QCheckBox>
#include <QDirIterator>
#include <QInputDialog>
#include <QLineEdit>
#include <QProgressDialog>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include "app/mainwindow.h"
#include "app/sessiontestutil.h"
#include "model/vocxml.h"
#include "support/records.h"
#include "support/appfiles.h"
#include "support/scriptedprompts.h"

// The split, conversion and collage commands driven through the main window and the
// dialog seam: what the user is asked and told, and what lands on disk.

using Shapes = QList<BoxAnnotation>;

using appfiles::contents;

namespace {

// Images a.png, b.png ... in `dir`, each with its shapes in its annotation file (none
// for an empty list). Opens them in `w` once the background scan is through.
void openDataset(MainWindow& w, const QTemporaryDir& dir, const QList<Shapes>& shapesPerImage)
{
    QDir().mkpath(dir.filePath("annotations"));
    for (int i = 0; i < shapesPerImage.size(); ++i) {
        const QString base(QChar('a' + i));
        QVERIFY(sessiontest::makeImageFile(dir.filePath(base + ".png")));
        ImageAnnotations record = image(dir.filePath(base + ".png"), 8, 6, shapesPerImage[i]);
        record.xmlPath = dir.filePath("annotations/" + base + ".xml");
        QVERIFY(record.boxes.isEmpty() || VocXml::save(record, "images"));
    }
    QVERIFY(w.openDataset(dir.path()));
    QTRY_VERIFY(sessiontest::scanDone(w)); // the scan writes the label colour file
}


// Runs `look` on the window's progress dialog at the first chance events get.
void atProgress(MainWindow& w, std::function<void(QProgressDialog*)> look)
{
    QTimer::singleShot(0, &w, [&w, look] {
        if (auto* progress = w.findChild<QProgressDialog*>())
            look(progress);
    });
}

} // namespace

class TestDatasetCommands : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void split()
    {
        QTemporaryDir dir, out;
        ScriptedPrompts prompts;
        prompts.directoryAnswers << out.path();
        QList<int> seen;
        prompts.dialogHandler = [&](QDialog* d) {
            auto* train = d->findChild<QSpinBox*>("trainSpinBox");
            auto* test = d->findChild<QSpinBox*>("testSpinBox");
            seen << train->value() << test->value();
            test->setValue(35);
            seen << train->value();
            QSignalSpy testChanged(test, &QSpinBox::valueChanged); // set with its signal blocked
            train->setValue(70);
            seen << test->value() << int(testChanged.count());
            QSignalSpy finished(d, &QDialog::finished);
            d->show(); // a shown dialog would press its default button on Return
            QTest::keyClick(train, Qt::Key_Return);
            seen << int(finished.count());
            return int(QDialog::Accepted);
        };
        MainWindow w;
        QList<Shapes> shapes(10);
        shapes[1] = shapes[4] = shapes[9] = {box("car", 1, 1, 3, 3)};
        openDataset(w, dir, shapes);
        const QMap<QString, QByteArray> before = contents(dir.path());

        w.findChild<QAction*>("exportSplitAction")->trigger();

        QCOMPARE(seen, QList<int>({80, 20, 65, 30, 0, 0}));
        QCOMPARE(prompts.callsOf("directory").value(0).title, "Select output folder for Train/Test split");
        QCOMPARE(prompts.last().title, "Split complete");
        QCOMPARE(prompts.last().text,
                 "Split complete:\n\nTrain: 7 images (70%)\nTest:  3 images (30%)\n\nOutput: " + out.path());
        const QStringList copied = contents(out.path()).keys();
        QCOMPARE(QList<qsizetype>({copied.filter("Train/images/").size(), copied.filter("annotations/").size()}),
                 QList<qsizetype>({7, 3}));
        QCOMPARE(copied.size(), 13);
        QCOMPARE(contents(dir.path()), before);
    }

    // a.png is shown, so its size (8 x 6) limits its box; b.png's size is not known.
    void keyPointsToBoxes()
    {
        QTemporaryDir dir;
        ScriptedPrompts prompts;
        prompts.questionAnswers << QMessageBox::Yes;
        QStringList radiusDialog;
        prompts.dialogHandler = [&](QDialog* d) {
            auto* input = qobject_cast<QInputDialog*>(d);
            radiusDialog << input->windowTitle() << input->labelText()
                         << QString::asprintf("%d %d..%d step %d", input->intValue(), input->intMinimum(),
                                              input->intMaximum(), input->intStep());
            input->setIntValue(10);
            return int(QDialog::Accepted);
        };
        MainWindow w;
        const BoxAnnotation eye = shape("eye", ShapeType::Keypoint, {{5, 4}});
        const BoxAnnotation road = shape("road", ShapeType::Polygon, {{0, 0}, {5, 0}, {5, 5}});
        openDataset(w, dir, {{eye}, {eye, road}, {road}, {}});
        const QMap<QString, QByteArray> annotations = contents(dir.filePath("annotations"));
        QString shownLabel;
        atProgress(w, [&](QProgressDialog* p) { shownLabel = p->labelText(); });

        w.findChild<QAction*>("keyPointsToBBoxesAction")->trigger();

        QCOMPARE(radiusDialog, QStringList({"Bounding Box Radius",
                                            "Radius around each key point in pixels:\n(Box will be "
                                            "radius*2 x radius*2 centered on the key point)",
                                            "20 1..9999 step 1"}));
        QCOMPARE(prompts.callsOf("question").value(0).text,
                 "This will process 3 annotated image(s).\n\nEach key point becomes a 20x20 px bounding "
                 "box centered on it with the same label.\n\nOutput saved to a 'bounding_boxes' folder "
                 "next to your annotations folder.\n\nContinue?");
        QCOMPARE(shownLabel, "Converting key points to bounding boxes...");
        QCOMPARE(prompts.last().title, "Conversion Complete");
        QCOMPARE(prompts.last().text, "Conversion complete!\n\nImages processed: 2\nBounding boxes created: 2\n"
                                      "Images skipped (no key points): 1\n\nOutput folder:\n"
                                      + dir.filePath("bounding_boxes"));
        QCOMPARE(contents(dir.filePath("bounding_boxes")).keys(), QStringList({"a.xml", "b.xml"}));
        ImageAnnotations a, b;
        a.xmlPath = dir.filePath("bounding_boxes/a.xml");
        b.xmlPath = dir.filePath("bounding_boxes/b.xml");
        QVERIFY(VocXml::load(a) && VocXml::load(b));
        QCOMPARE(a.boxes + b.boxes, Shapes({box("eye", 0, 0, 7, 5), box("eye", -5, -6, 15, 14)}));
        QCOMPARE(contents(dir.filePath("annotations")), annotations);
    }

    // The dialog's checks, a collage written, then one cancelled from its progress dialog.
    void collage()
    {
        QTemporaryDir dir, out;
        ScriptedPrompts prompts;
        const QString png = out.filePath("collage.png");
        prompts.saveFileAnswers << png << out.filePath("cancelled.png");
        QStringList seen;
        prompts.dialogHandler = [&](QDialog* d) {
            auto* edit = d->findChild<QLineEdit*>("collageCountEdit");
            auto* random = d->findChild<QCheckBox*>("collageRandomCheck");
            QSignalSpy accepted(d, &QDialog::accepted);
            seen << d->windowTitle() << edit->text() << edit->placeholderText() << random->text();
            edit->setText("0");
            QTest::keyClick(edit, Qt::Key_Return);
            seen << edit->text();
            edit->setText("99");
            d->findChild<QPushButton*>("collageExportButton")->click();
            seen << edit->text() << QString::number(accepted.count());
            random->setChecked(false);
            seen << random->text();
            edit->setText("2");
            QTest::keyClick(edit, Qt::Key_Return);
            seen << QString::number(accepted.count());
            return d->result();
        };
        MainWindow w;
        openDataset(w, dir, {{box("car", 0, 0, 7, 5)}, {}, {box("car", 1, 1, 4, 4)}, {box("dog", 2, 2, 5, 5)}});
        QAction* action = w.findChild<QAction*>("exportCollageAction");

        action->trigger();

        QCOMPARE(seen, QStringList({"Export Collage", "3", "1\u20133", "On  (randomly pick images)", "1",
                                    "3", "0", "Off  (top to bottom)", "1"}));
        const ScriptedPrompts::Call save = prompts.callsOf("save").value(0);
        QCOMPARE(QStringList({save.title, save.text, save.informativeText}),
                 QStringList({"Save Collage PNG", "collage.png", "PNG Image (*.png)"}));
        QCOMPARE(prompts.last().title, "Export Collage");
        QCOMPARE(prompts.last().text, "Collage saved with 2 image(s):\n" + png);
        QCOMPARE(QImage(png).size(), QSize(2584, 1040));

        QStringList shown;
        atProgress(w, [&](QProgressDialog* p) {
            shown << p->windowTitle() << p->labelText() << QString::number(p->maximum());
            QVERIFY(p->windowModality() == Qt::WindowModal && p->isVisible());
            p->cancel();
        });
        const int messages = int(prompts.calls.size()) + 2; // the dialog and the file chooser
        action->trigger();
        QCOMPARE(shown, QStringList({"Exporting Collage", "Processing images for collage...\n2 images total", "2"}));
        QCOMPARE(prompts.calls.size(), messages);
        QCOMPARE(contents(out.path()).keys(), QStringList({"collage.png"}));
    }
};

QTEST_MAIN(TestDatasetCommands)
#include "tst_datasetcommands.moc"
