// The rhythm of the two polls, measured: a session monitor (one pass at once, then every 5 s) and a
// permissions service (every 2 s from 2 s after start) are started at several phases of the wall clock's
// second, all at once, and left running. Each tick is noted where it reaches the platform (the trust check
// that opens every pass and every permission poll).
//
//   measure_poll_rhythm [SECONDS]     (60 by default)
//
// For every poll it prints the smallest and the largest gap between ticks, and how far the ticks strayed
// from the ideal grid (start + k * interval): negative is early, positive late. The leeway allows late
// ticks by up to 200 ms (monitor) or 500 ms (permissions), never early ones.

#include "ObservedPorts.h"
#include "TestWorlds.h"
#include "permissions/PermissionsService.h"
#include "session/SessionMonitor.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

using namespace orvanta;
using namespace orvanta::testing;

namespace {

struct Poll {
    const char* name;
    int phaseMs;
    int intervalMs;
    int firstDueMs; // after start
    // Notes the time of every trust check, which opens every pass and every permission poll.
    std::unique_ptr<ObservedPorts> recorder;
    qint64 startedNanos = 0;
    qsizetype ticksBeforeStart = 0; // the permissions service reads trust once at construction
};

double ms(qint64 nanos) {
    return double(nanos) / 1e6;
}

void report(const Poll& poll) {
    const QList<qint64> ticks = poll.recorder->trustCheckNanos().mid(poll.ticksBeforeStart);
    if (ticks.size() < 2) {
        std::printf("%-11s phase %3d ms: %lld ticks, too few to measure\n", poll.name, poll.phaseMs,
                    qlonglong(ticks.size()));
        return;
    }
    double minGap = 1e18, maxGap = -1e18, earliest = 1e18, latest = -1e18;
    for (qsizetype k = 0; k < ticks.size(); ++k) {
        const double offset =
            ms(ticks[k] - poll.startedNanos) - poll.firstDueMs - double(k) * poll.intervalMs;
        earliest = std::min(earliest, offset);
        latest = std::max(latest, offset);
        if (k > 0) {
            const double gap = ms(ticks[k] - ticks[k - 1]);
            minGap = std::min(minGap, gap);
            maxGap = std::max(maxGap, gap);
        }
    }
    std::printf(
        "%-11s phase %3d ms: %2lld ticks, gap min %8.1f max %8.1f ms, against the grid %+7.1f .. %+7.1f ms\n",
        poll.name, poll.phaseMs, qlonglong(ticks.size()), minGap, maxGap, earliest, latest);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(10, std::atoi(argv[1])) : 60;
    const std::vector<int> phases{0, 250, 500, 750};

    platform::SimulatedDesktop desktop(clientWorld({window(QStringLiteral("Desk 1"))}));
    std::vector<Poll> polls;
    std::vector<std::unique_ptr<SessionMonitor>> monitors;
    std::vector<std::unique_ptr<PermissionsService>> services;

    // Every start is due at the next whole second plus its phase, at least 200 ms from now.
    const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
    const qint64 secondStart = (nowMs / 1000 + 1) * 1000 + (nowMs % 1000 > 800 ? 1000 : 0);
    for (const int phase : phases) {
        for (const bool isMonitor : {true, false}) {
            Poll poll{isMonitor ? "monitor" : "permissions",
                      phase,
                      isMonitor ? 5000 : 2000,
                      isMonitor ? 0 : 2000,
                      std::make_unique<ObservedPorts>(desktop),
                      {},
                      0};
            polls.push_back(std::move(poll));
        }
    }
    for (std::size_t i = 0; i < polls.size(); ++i) {
        Poll& poll = polls[i];
        const platform::Platform ports = poll.recorder->platform();
        const bool isMonitor = poll.intervalMs == 5000;
        if (isMonitor)
            monitors.push_back(
                std::make_unique<SessionMonitor>(ports, std::make_shared<DebugLog>(2000, QString())));
        else
            services.push_back(std::make_unique<PermissionsService>(ports));
        QObject* object = isMonitor ? static_cast<QObject*>(monitors.back().get()) : services.back().get();
        const qint64 due = secondStart + poll.phaseMs - QDateTime::currentMSecsSinceEpoch();
        QTimer::singleShot(std::max<qint64>(0, due), Qt::PreciseTimer, object, [&poll, object, isMonitor] {
            poll.ticksBeforeStart = poll.recorder->trustCheckNanos().size();
            poll.startedNanos = poll.recorder->elapsedNanos();
            if (isMonitor)
                static_cast<SessionMonitor*>(object)->start();
            else
                static_cast<PermissionsService*>(object)->start();
        });
    }
    std::printf(
        "Measuring for %d s; starts at %s plus 0, 250, 500 and 750 ms\n", seconds,
        qPrintable(QDateTime::fromMSecsSinceEpoch(secondStart).toString(QStringLiteral("HH:mm:ss.zzz"))));
    std::fflush(stdout);
    const qint64 endDue =
        secondStart + phases.back() + qint64(seconds) * 1000 + 100 - QDateTime::currentMSecsSinceEpoch();
    QTimer::singleShot(std::max<qint64>(0, endDue), Qt::PreciseTimer, &app, &QCoreApplication::quit);
    app.exec();
    monitors.clear();
    services.clear();
    for (const Poll& poll : polls)
        report(poll);
    return 0;
}
