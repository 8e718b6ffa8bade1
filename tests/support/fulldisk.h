#pragma once

// A full disk without root: a child process whose files may not grow past a few bytes.
// With SIGXFSZ ignored, a write past the limit fails with EFBIG ("File too large") just as
// a write on a full file system fails with ENOSPC. Header-only, for core and window tests.

#include <QByteArray>

#include <csignal>
#include <functional>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

// Runs body in a forked child under the limit; the parent then sees the files the child
// left, and gets body's result through a pipe ("<child died>" if it did not end normally).
inline QByteArray inChildWithFullDisk(const std::function<QByteArray()>& body, rlim_t limit = 16)
{
    int fds[2];
    if (::pipe(fds) != 0)
        return "<no pipe>";
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit rl {};
        ::getrlimit(RLIMIT_FSIZE, &rl);
        rl.rlim_cur = limit;
        ::setrlimit(RLIMIT_FSIZE, &rl);
        const QByteArray out = body();
        for (qsizetype done = 0; done < out.size();) {
            const ssize_t n = ::write(fds[1], out.constData() + done, size_t(out.size() - done));
            if (n <= 0)
                break;
            done += n;
        }
        ::_exit(0);
    }
    ::close(fds[1]);
    QByteArray result;
    char buffer[4096];
    for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;)
        result.append(buffer, n);
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? result : QByteArray("<child died>");
}
