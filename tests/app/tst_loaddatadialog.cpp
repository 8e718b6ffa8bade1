#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include "app/loaddatadialog.h"
#include "support/scriptedprompts.h"

class TestLoadDataDialog : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // The folder each Change... button starts in, and what an answer (or a cancel) fills in.
    void browse_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QStringList>("before"); // images, annotations
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QStringList>("after");  // start folder ("~" = home), images, annotations
        QTest::newRow("images, fresh") << "Images" << QStringList{"", ""} << "/d/i" << QStringList{"~", "/d/i", "/d/i/annotations"};
        QTest::newRow("images, annotations set") << "Images" << QStringList{"/old", "/a"} << "/d/i" << QStringList{"/old", "/d/i", "/a"};
        QTest::newRow("images, cancelled") << "Images" << QStringList{"/old", ""} << "" << QStringList{"/old", "/old", ""};
        QTest::newRow("annotations set") << "Annotations" << QStringList{"/i", "/a"} << "/p" << QStringList{"/a", "/i", "/p"};
        QTest::newRow("only images set") << "Annotations" << QStringList{"/i", ""} << "/p" << QStringList{"/i", "/i", "/p"};
        QTest::newRow("nothing set") << "Annotations" << QStringList{"", ""} << "/p" << QStringList{"~", "", "/p"};
    }

    void browse()
    {
        QFETCH(QString, button);
        QFETCH(QStringList, before);
        QFETCH(QString, answer);
        QFETCH(QStringList, after);
        ScriptedPrompts prompts;
        prompts.directoryAnswers << answer;
        LoadDataDialog dialog(nullptr, before[0], before[1]);
        dialog.findChild<QPushButton*>("browse" + button + "Button")->click();
        QCOMPARE(prompts.calls.size(), 1);
        QCOMPARE(prompts.last().title, "Select " + button.toLower() + " folder");
        QCOMPARE(prompts.last().text, after[0].replace("~", QDir::homePath()));
        QCOMPARE(QStringList({dialog.imagesFolder(), dialog.annotationsFolder()}), after.mid(1));
    }

    void accept_data()
    {
        QTest::addColumn<QString>("images"); // "@" = a scratch folder holding the plain file "file"
        QTest::addColumn<QString>("annotations");
        QTest::addColumn<QStringList>("warning"); // title, text; none: accepted
        QTest::newRow("no images folder") << "  " << "@/ann" << QStringList{"Missing folder", "Please select an images folder."};
        QTest::newRow("no annotations folder") << "@/imgs" << " " << QStringList{"Missing folder", "Please select an annotations folder."};
        QTest::newRow("annotations made with parents") << "@/missing" << "@/deep/er/ann" << QStringList{};
        QTest::newRow("annotations cannot be made") << "@/imgs" << "@/file/ann"
                                                    << QStringList{"Error", "Could not create annotations folder:\n@/file/ann"};
    }

    void accept()
    {
        QFETCH(QString, images);
        QFETCH(QString, annotations);
        QFETCH(QStringList, warning);
        QTemporaryDir dir;
        QFile(dir.filePath("file")).open(QIODevice::WriteOnly);
        images.replace("@", dir.path());
        annotations.replace("@", dir.path());
        ScriptedPrompts prompts;
        LoadDataDialog dialog(nullptr, images, annotations);
        QVERIFY(dialog.findChild<QPushButton*>("okButton")->isDefault());
        bool explained = false;
        for (QLabel* label : dialog.findChildren<QLabel*>())
            explained |= label->text() == "If the annotations folder contains .xml files, bounding boxes will be\n"
                                          "loaded automatically when you open each image.";
        QVERIFY(explained);
        dialog.findChild<QPushButton*>("okButton")->click();
        QCOMPARE(dialog.result() == QDialog::Accepted, warning.isEmpty());
        QStringList shown;
        for (const ScriptedPrompts::Call& c : prompts.calls)
            shown << c.title << c.text;
        QCOMPARE(shown, warning.replaceInStrings("@", dir.path()));
        QCOMPARE(QFileInfo(annotations).isDir(), warning.isEmpty());
        QCOMPARE(prompts.callsOf("warning").size(), prompts.calls.size());
        QVERIFY(!QFileInfo::exists(images)); // the images folder is neither checked nor made
    }
};

QTEST_MAIN(TestLoadDataDialog)
#include "tst_loaddatadialog.moc"
