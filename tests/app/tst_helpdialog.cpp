#include <QDialog>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTextBrowser>

#include "app/helpdialog.h"

class TestHelpDialog : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // Two guides open side by side without blocking; the guide's sections come in order and
    // its button and closing link name the same site; closing one frees it alone.
    void guides()
    {
        QWidget owner;
        showHelpDialog(&owner);
        showHelpDialog(&owner);
        const QList<QDialog*> open = owner.findChildren<QDialog*>();
        QCOMPARE(open.size(), 2);
        QDialog* help = open.first();
        QVERIFY(help->isVisible() && !help->isModal());
        QCOMPARE(help->windowTitle(), "Brindle (Beta) - Help & User Guide");
        auto* browser = help->findChild<QTextBrowser*>();
        QVERIFY(browser->openExternalLinks());
        const QString text = browser->toPlainText();
        qsizetype at = 0;
        for (const char* s : {"Brindle (Beta) \u2014 User Guide", "Step 1", "Step 2", "Step 3", "Step 4", "Step 5", "Step 6",
                              "Step 7", "Edit menu", "Annotation file format", "AI video frame extraction with YOLO",
                              "Supported YOLO versions", "Installing the AI dependencies", "Dedicated Python environment",
                              "GPU acceleration", "Configuration", "What gets drawn", "Keyboard shortcuts", "Drawing shapes",
                              "Editing", "Selection and clipboard", "Moving the selected annotation", "Image navigation",
                              "Zoom and pan", "Context menus", "Frame viewer",
                              "For updates, bug reports, feature requests and questions visit:"}) {
            at = text.indexOf(QString(s), at);
            QVERIFY2(at >= 0, s);
        }
        const QString site = help->findChild<QPushButton*>("webSiteButton")->text();
        QVERIFY(site.startsWith("Open ") && site.size() > 5);
        QVERIFY(text.indexOf(site.mid(5), at) > at);
        QVERIFY(browser->toHtml().contains("href=\"https://" + site.mid(5)));
        QPointer<QDialog> first = help, second = open.last();
        QVERIFY(help->findChild<QPushButton*>("closeButton")->isDefault());
        QTest::mouseClick(help->findChild<QPushButton*>("closeButton"), Qt::LeftButton);
        QTRY_VERIFY(first.isNull());
        QVERIFY(second && second->isVisible());
    }
};

QTEST_MAIN(TestHelpDialog)
#include "tst_helpdialog.moc"
