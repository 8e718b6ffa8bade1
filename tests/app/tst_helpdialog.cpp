#include <QApplication>
#include <QBoxLayout>
#include <QDialog>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTextBrowser>

#include "app/helpdialog.h"

class TestHelpDialog : public QObject {
    Q_OBJECT

private:
    QWidget* owner = nullptr;

    QList<QDialog*> guides() const { return owner->findChildren<QDialog*>(); }

private Q_SLOTS:
    void init() { owner = new QWidget; }
    void cleanup()
    {
        delete owner;
        owner = nullptr;
    }

    void windowIsBuiltAndShownWithoutBlocking()
    {
        showHelpDialog(owner);
        QCOMPARE(guides().size(), 1);
        QDialog* help = guides().first();
        QVERIFY(help->isVisible());
        QVERIFY(!help->isModal());
        QVERIFY(help->testAttribute(Qt::WA_DeleteOnClose));
        QCOMPARE(help->windowTitle(), QStringLiteral("Brindle (Beta) - Help & User Guide"));
        QCOMPARE(help->size(), QSize(740, 680));

        auto* layout = qobject_cast<QVBoxLayout*>(help->layout());
        QVERIFY(layout);
        QCOMPARE(layout->contentsMargins(), QMargins(0, 0, 0, 12));
        QCOMPARE(layout->spacing(), 8);
        QVERIFY(qobject_cast<QTextBrowser*>(layout->itemAt(0)->widget()));
        auto* row = qobject_cast<QHBoxLayout*>(layout->itemAt(1)->layout());
        QVERIFY(row);
        QCOMPARE(row->contentsMargins(), QMargins(12, 0, 12, 0));

        auto* site = help->findChild<QPushButton*>(QStringLiteral("webSiteButton"));
        auto* close = help->findChild<QPushButton*>(QStringLiteral("closeButton"));
        QVERIFY(site && close);
        QCOMPARE(row->itemAt(0)->widget(), static_cast<QWidget*>(site));
        QVERIFY(row->itemAt(1)->spacerItem());
        QCOMPARE(row->itemAt(2)->widget(), static_cast<QWidget*>(close));
        QCOMPARE(site->styleSheet(), QStringLiteral("QPushButton { color: #4db8ff; font-weight: bold; }"));
        QVERIFY(close->isDefault());
        QCOMPARE(close->text(), QStringLiteral("Close"));
    }

    void guideHasItsSectionsInOrder()
    {
        showHelpDialog(owner);
        QDialog* help = guides().first();
        auto* browser = help->findChild<QTextBrowser*>();
        QVERIFY(browser->openExternalLinks());
        const QString text = browser->toPlainText();
        const QStringList sections = {
            "Brindle (Beta) \u2014 User Guide", "Step 1", "Step 2", "Step 3", "Step 4", "Step 5",
            "Step 6", "Step 7", "Edit menu", "Annotation file format",
            "AI video frame extraction with YOLO", "Supported YOLO versions",
            "Installing the AI dependencies", "Dedicated Python environment", "GPU acceleration",
            "Configuration", "What gets drawn", "Keyboard shortcuts", "Drawing shapes", "Editing",
            "Selection and clipboard", "Moving the selected annotation", "Image navigation",
            "Zoom and pan", "Context menus", "Frame viewer",
            "For updates, bug reports, feature requests and questions visit:"};
        int at = 0;
        for (const QString& s : sections) {
            const int found = text.indexOf(s, at);
            QVERIFY2(found >= 0, qPrintable(s));
            at = found;
        }
        // The button and the closing link name the same site.
        auto* site = help->findChild<QPushButton*>(QStringLiteral("webSiteButton"));
        QVERIFY(site->text().startsWith(QStringLiteral("Open ")));
        const QString host = site->text().mid(5);
        QVERIFY(!host.isEmpty());
        QVERIFY(text.indexOf(host, at) > at);
        QVERIFY(browser->toHtml().contains(QStringLiteral("href=\"https://") + host));
    }

    void severalGuidesAreIndependent()
    {
        showHelpDialog(owner);
        showHelpDialog(owner);
        QCOMPARE(guides().size(), 2);
        QPointer<QDialog> first = guides().at(0);
        QPointer<QDialog> second = guides().at(1);
        QTest::mouseClick(first->findChild<QPushButton*>(QStringLiteral("closeButton")),
                          Qt::LeftButton);
        QTRY_VERIFY(first.isNull()); // freed on close
        QVERIFY(!second.isNull());
        QVERIFY(second->isVisible());
    }
};

QTEST_MAIN(TestHelpDialog)
#include "tst_helpdialog.moc"
