// Soak check of the script runner: many start/cancel cycles of a real zsh child, then a count of the open
// file descriptors and a look for children left behind. Exits 0 when nothing leaked.
//
//   soak_runner [cycles]     (500 by default)
//
// Even cycles cancel once the child has printed (zsh idling in a builtin); odd cycles cancel at once,
// while the child may still be starting. Linux only: it reads /proc.

#include "diagnostics/ScriptRunner.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

using namespace orvanta;

namespace {

int openDescriptors() {
    return int(
        QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size());
}

// Children of this process by state, from /proc/<pid>/stat ("pid (name) state ppid ...").
struct Children {
    int zombies = 0;
    int alive = 0;
};

Children children() {
    Children found;
    const QString self = QString::number(getpid());
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray line = stat.readAll();
        const qsizetype close = line.lastIndexOf(')');
        if (close < 0)
            continue;
        const QList<QByteArray> fields = line.mid(close + 2).split(' ');
        if (fields.size() < 2 || fields.at(1) != self.toLatin1())
            continue;
        if (fields.at(0) == "Z")
            ++found.zombies;
        else
            ++found.alive;
    }
    return found;
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 50);
    }
    return true;
}

// Lets the runner's deleteLater of its finished process happen.
void settle() {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCoreApplication::processEvents();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int cycles = argc > 1 ? QByteArray(argv[1]).toInt() : 500;
    if (cycles <= 0) {
        std::fprintf(stderr, "usage: soak_runner [cycles]\n");
        return 2;
    }

    QTemporaryDir folder;
    QFile script(folder.filePath(ScriptCatalog(ScriptCatalog::networkMonitor).fileName()));
    if (!folder.isValid() || !script.open(QIODevice::WriteOnly)) {
        std::fprintf(stderr, "cannot write the script\n");
        return 2;
    }
    // Sleeps in a builtin, so SIGTERM reaches the only process there is.
    script.write("zmodload zsh/zselect\nprint started\nwhile :; do zselect -t 1000; done\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    const int descriptorsAtLaunch = openDescriptors();
    ScriptRunner runner(folder.path());
    int failures = 0;
    int printed = 0; // cycles whose child printed before it ended
    qint64 longestCycleMs = 0;
    const auto cycle = [&](int index) {
        QElapsedTimer timer;
        timer.start();
        runner.run(ScriptCatalog::networkMonitor, {});
        if (index % 2 == 0 && !waitUntil([&] { return runner.logBuffer().contains("started"); }, 10000))
            ++failures;
        runner.cancel();
        if (!waitUntil([&] { return !runner.hasChild(); }, 10000))
            ++failures;
        else if (runner.state().kind() != ScriptRunner::RunState::Kind::completed)
            ++failures;
        if (runner.logBuffer().contains(QLatin1String("started")))
            ++printed;
        settle();
        longestCycleMs = std::max(longestCycleMs, timer.elapsed());
    };

    // One cycle first, so descriptors Qt opens once for child processes count as the baseline.
    cycle(0);
    const int descriptorsAtStart = openDescriptors();

    QElapsedTimer total;
    total.start();
    for (int i = 0; i < cycles; ++i)
        cycle(i);
    const qint64 elapsedMs = total.elapsed();
    settle();

    const int descriptorsAtEnd = openDescriptors();
    const Children left = children();
    errno = 0;
    int status = 0;
    const pid_t reaped = waitpid(-1, &status, WNOHANG);
    const bool noChild = reaped == -1 && errno == ECHILD;

    std::printf("cycles: %d (%d failed, %d with the child's output before the end)\n", cycles, failures,
                printed);
    std::printf("time: %lld ms, %.2f ms per cycle, longest %lld ms\n", static_cast<long long>(elapsedMs),
                double(elapsedMs) / cycles, static_cast<long long>(longestCycleMs));
    std::printf("open descriptors: %d at launch, %d after the first cycle, %d at the end\n",
                descriptorsAtLaunch, descriptorsAtStart, descriptorsAtEnd);
    std::printf("children left: %d zombie, %d alive; waitpid(-1, WNOHANG): %s\n", left.zombies, left.alive,
                noChild ? "no child (ECHILD)" : "a child remains");

    const bool ok = failures == 0 && descriptorsAtEnd <= descriptorsAtStart && left.zombies == 0 &&
                    left.alive == 0 && noChild;
    std::printf("%s\n", ok ? "PASS" : "FAIL");
    return ok ? 0 : 1;
}
