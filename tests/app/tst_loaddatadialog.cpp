#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include "app/loaddatadialog.h"
#include "support/scriptedprompts.h"

class TestLoadDataDialog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void layoutAndTexts();
    void browseImagesFillsAnnotationsWhenEmpty_data();
    void browseImagesFillsAnnotationsWhenEmpty();
    void browseAnnotationsStartFolder_data();
    void browseAnnotationsStartFolder();
    void accept_data();
    void accept();
};

void TestLoadDataDialog::layoutAndTexts()
{
    LoadDataDialog dialog(nullptr, "/data/imgs", QString());
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Load Data"));
    QVERIFY(dialog.isModal());
    QCOMPARE(dialog.minimumWidth(), 640);
    QCOMPARE(dialog.imagesEdit->text(), QStringLiteral("/data/imgs"));
    QCOMPARE(dialog.annotationsFolder(), QString());
    for (QLineEdit* edit : {dialog.imagesEdit, dialog.annotationsEdit}) {
        QVERIFY(edit->isReadOnly());
        QCOMPARE(edit->placeholderText(), QStringLiteral("(no folder selected)"));
    }
    QStringList labelTexts;
    for (QLabel* label : dialog.findChildren<QLabel*>())
        labelTexts << label->text();
    QVERIFY(labelTexts.contains("Images folder"));
    QVERIFY(labelTexts.contains("Annotations folder"));
    QVERIFY(labelTexts.contains("If the annotations folder contains .xml files, bounding boxes "
                                "will be\nloaded automatically when you open each image."));
    auto* ok = dialog.findChild<QPushButton*>("okButton");
    QVERIFY(ok);
    QCOMPARE(ok->text(), QStringLiteral("OK"));
    QVERIFY(ok->isDefault());
    QCOMPARE(dialog.findChild<QPushButton*>("cancelButton")->text(), QStringLiteral("Cancel"));
    QCOMPARE(dialog.findChild<QPushButton*>("browseImagesButton")->text(),
             QStringLiteral("Change..."));

    dialog.findChild<QPushButton*>("cancelButton")->click();
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
}

void TestLoadDataDialog::browseImagesFillsAnnotationsWhenEmpty_data()
{
    QTest::addColumn<QString>("images");
    QTest::addColumn<QString>("annotations");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("expectedStart");
    QTest::addColumn<QString>("expectedImages");
    QTest::addColumn<QString>("expectedAnnotations");

    QTest::newRow("fresh") << "" << "" << "/data/imgs" << QDir::homePath() << "/data/imgs"
                           << "/data/imgs/annotations";
    QTest::newRow("annotations already chosen")
        << "/old" << "/ann" << "/data/imgs" << "/old" << "/data/imgs" << "/ann";
    QTest::newRow("cancelled") << "/old" << "" << "" << "/old" << "/old" << "";
}

void TestLoadDataDialog::browseImagesFillsAnnotationsWhenEmpty()
{
    QFETCH(QString, images);
    QFETCH(QString, annotations);
    QFETCH(QString, answer);
    QFETCH(QString, expectedStart);
    QFETCH(QString, expectedImages);
    QFETCH(QString, expectedAnnotations);

    ScriptedPrompts prompts;
    prompts.directoryAnswers << answer;
    LoadDataDialog dialog(nullptr, images, annotations);
    dialog.findChild<QPushButton*>("browseImagesButton")->click();
    QCOMPARE(prompts.calls.size(), 1);
    QCOMPARE(prompts.last().title, QStringLiteral("Select images folder"));
    QCOMPARE(prompts.last().text, expectedStart);
    QCOMPARE(dialog.imagesFolder(), expectedImages);
    QCOMPARE(dialog.annotationsFolder(), expectedAnnotations);
}

void TestLoadDataDialog::browseAnnotationsStartFolder_data()
{
    QTest::addColumn<QString>("images");
    QTest::addColumn<QString>("annotations");
    QTest::addColumn<QString>("expectedStart");
    QTest::newRow("annotations set") << "/i" << "/a" << "/a";
    QTest::newRow("only images set") << "/i" << "" << "/i";
    QTest::newRow("nothing set") << "" << "" << QDir::homePath();
}

void TestLoadDataDialog::browseAnnotationsStartFolder()
{
    QFETCH(QString, images);
    QFETCH(QString, annotations);
    QFETCH(QString, expectedStart);

    ScriptedPrompts prompts;
    prompts.directoryAnswers << "/picked";
    LoadDataDialog dialog(nullptr, images, annotations);
    dialog.findChild<QPushButton*>("browseAnnotationsButton")->click();
    QCOMPARE(prompts.last().title, QStringLiteral("Select annotations folder"));
    QCOMPARE(prompts.last().text, expectedStart);
    QCOMPARE(dialog.annotationsFolder(), QStringLiteral("/picked"));
    QCOMPARE(dialog.imagesFolder(), images);
}

void TestLoadDataDialog::accept_data()
{
    // Paths are relative to a temporary folder; "@" stands for it.
    QTest::addColumn<QString>("images");
    QTest::addColumn<QString>("annotations");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QString>("warningTitle");
    QTest::addColumn<QString>("warningText");

    QTest::newRow("no images folder")
        << "  " << "@/ann" << false << "Missing folder" << "Please select an images folder.";
    QTest::newRow("no annotations folder")
        << "@/imgs" << " " << false << "Missing folder" << "Please select an annotations folder.";
    QTest::newRow("annotations folder created with its parents")
        << "@/missing-images" << "@/deep/er/ann" << true << "" << "";
    QTest::newRow("annotations folder cannot be created")
        << "@/imgs" << "@/file/ann" << false << "Error"
        << "Could not create annotations folder:\n@/file/ann";
}

void TestLoadDataDialog::accept()
{
    QFETCH(QString, images);
    QFETCH(QString, annotations);
    QFETCH(bool, accepted);
    QFETCH(QString, warningTitle);
    QFETCH(QString, warningText);

    QTemporaryDir dir;
    QFile blocker(dir.filePath("file"));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    images.replace("@", dir.path());
    annotations.replace("@", dir.path());
    warningText.replace("@", dir.path());

    ScriptedPrompts prompts;
    LoadDataDialog dialog(nullptr, images, annotations);
    dialog.findChild<QPushButton*>("okButton")->click();
    QCOMPARE(dialog.result() == QDialog::Accepted, accepted);
    if (accepted) {
        QVERIFY(prompts.calls.isEmpty());
        QVERIFY(QFileInfo(annotations).isDir());
        // The images folder is not checked, let alone created.
        QVERIFY(!QFileInfo::exists(images));
    } else {
        QCOMPARE(prompts.calls.size(), 1);
        QCOMPARE(prompts.last().kind, QStringLiteral("warning"));
        QCOMPARE(prompts.last().title, warningTitle);
        QCOMPARE(prompts.last().text, warningText);
    }
}

QTEST_MAIN(TestLoadDataDialog)
#include "tst_loaddatadialog.moc"
