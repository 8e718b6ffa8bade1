#include "ui/backgroundtask.h"

#include <QEventLoop>
#include <QProgressDialog>
#include <QThread>
#include <QTimer>

#include <atomic>

namespace BackgroundTask {

namespace {

constexpr int kShowProgressAfterMs = 400;
constexpr int kProgressRefreshMs = 40;

} // namespace

bool run(QWidget* parent, const QString& title, const QString& label,
         const std::function<void(const Progress&)>& work, const QString& objectName)
{
    std::atomic<int> done{0};
    std::atomic<int> total{0};
    std::atomic<bool> cancelled{false};
    const Progress progress = [&](int d, int t) {
        done = d;
        total = t;
        return !cancelled.load();
    };

    QThread* thread = QThread::create([&] { work(progress); });
    QEventLoop loop;
    QObject::connect(thread, &QThread::finished, &loop, &QEventLoop::quit);
    thread->start();

    // Short work ends before anything shows; input waits meanwhile, so that nothing the
    // user does can reach the data the work reads.
    QTimer grace;
    grace.setSingleShot(true);
    QObject::connect(&grace, &QTimer::timeout, &loop, &QEventLoop::quit);
    grace.start(kShowProgressAfterMs);
    loop.exec(QEventLoop::ExcludeUserInputEvents);

    if (thread->isRunning()) {
        QProgressDialog dialog(label, QStringLiteral("Cancel"), 0, 0, parent);
        dialog.setObjectName(objectName);
        dialog.setWindowTitle(title);
        dialog.setWindowModality(Qt::WindowModal);
        dialog.setMinimumDuration(0);
        dialog.setAutoReset(false);
        dialog.setAutoClose(false);
        QObject::connect(&dialog, &QProgressDialog::canceled, &dialog, [&] {
            cancelled = true;
            dialog.setLabelText(QStringLiteral("Cancelling..."));
        });
        QTimer refresh;
        QObject::connect(&refresh, &QTimer::timeout, &dialog, [&] {
            if (dialog.maximum() != total.load())
                dialog.setMaximum(total.load());
            dialog.setValue(std::min(done.load(), total.load()));
        });
        refresh.start(kProgressRefreshMs);
        dialog.show();
        if (thread->isRunning())
            loop.exec();
        refresh.stop();
        dialog.hide();
    }
    thread->wait();
    delete thread;
    return !cancelled.load();
}

} // namespace BackgroundTask
