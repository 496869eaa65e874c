// 50 MB and 200 MB of script output streamed through a real runner into the shown toolkit window: what one
// chunk costs the window at the start and at the end of the stream (it must not grow with what the log
// already holds), and the longest the main event loop went without turning (a 1 ms timer notes the largest
// gap between two of its ticks).

#include "DebugLog.h"
#include "FloodScript.h"
#include "diagnostics/ScriptRunner.h"
#include "permissions/PermissionsService.h"
#include "platform/simulated/SimulatedDesktop.h"
#include "session/SessionMonitor.h"
#include "window/MainWindow.h"
#include "window/OutputLogView.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <memory>
#include <sys/resource.h>

using namespace orvanta;

namespace {

// Mean of the values in [from, to).
double mean(const QList<qint64>& values, qsizetype from, qsizetype to) {
    if (to <= from)
        return 0;
    double sum = 0;
    for (qsizetype i = from; i < to; ++i)
        sum += double(values[i]);
    return sum / double(to - from);
}

void BM_streamIntoShownLog(benchmark::State& state) {
    // One prepared file per size, made once; the 200 MB one only when that size runs.
    static std::map<int64_t, std::unique_ptr<FloodScript>> streams;
    auto& slot = streams[state.range(0)];
    if (!slot)
        slot = std::make_unique<FloodScript>(state.range(0));
    const FloodScript& stream = *slot;
    platform::SimulatedDesktop desktop;
    PermissionsService permissions(desktop.platform());
    SessionMonitor monitor(desktop.platform(), std::make_shared<DebugLog>(2000, QString()));
    QTemporaryDir reports;

    for (auto _ : state) {
        ScriptRunner reach(stream.dir.path()), monitorRunner(stream.dir.path()), trace(stream.dir.path());
        window::MainWindow window(reach, monitorRunner, trace, monitor, permissions, desktop.platform(),
                                  QUrl::fromLocalFile(reports.path()));
        window.resize(720, 640);
        window.show();
        QCoreApplication::processEvents();

        // The window's cost of one chunk: from the runner announcing it to the end of the window's handling
        // (this handler is connected after the window's own).
        QElapsedTimer clock;
        qint64 chunkStart = 0;
        QList<qint64> chunkNs;
        chunkNs.reserve(200'000);
        QObject::connect(&trace, &ScriptRunner::logAppended, [&] { chunkStart = clock.nsecsElapsed(); });
        QObject::connect(&trace, &ScriptRunner::logBufferChanged, [&] {
            if (chunkStart)
                chunkNs << clock.nsecsElapsed() - chunkStart;
            chunkStart = 0;
        });

        qint64 lastTick = -1, longestGapNs = 0;
        QTimer ticker;
        ticker.setTimerType(Qt::PreciseTimer);
        ticker.setInterval(1);
        QObject::connect(&ticker, &QTimer::timeout, [&] {
            const qint64 now = clock.nsecsElapsed();
            if (lastTick >= 0)
                longestGapNs = std::max(longestGapNs, now - lastTick);
            lastTick = now;
        });

        QEventLoop loop;
        QObject::connect(&trace, &ScriptRunner::stateChanged, &loop, [&] {
            if (!trace.isRunning())
                loop.quit();
        });
        clock.start();
        ticker.start();
        trace.run(ScriptCatalog::traceRoute, {});
        loop.exec();
        // Whatever the last chunk left to lay out and paint still counts.
        QElapsedTimer settle;
        settle.start();
        while (settle.elapsed() < 200)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        ticker.stop();

        // Sizes only: a string of the whole text here would count in the peak memory.
        if (trace.logText().byteSize() != stream.bytes ||
            window.output()->logArea()->text() != &trace.logText())
            state.SkipWithError("output incomplete");
        const qsizetype tenth = chunkNs.size() / 10;
        state.counters["chunks"] = double(chunkNs.size());
        state.counters["bytes_per_chunk"] =
            double(stream.bytes) / double(std::max<qsizetype>(1, chunkNs.size()));
        state.counters["us_per_chunk_first_10pct"] = mean(chunkNs, 0, tenth) / 1e3;
        state.counters["us_per_chunk_middle_10pct"] =
            mean(chunkNs, chunkNs.size() / 2 - tenth / 2, chunkNs.size() / 2 + tenth / 2) / 1e3;
        state.counters["us_per_chunk_last_10pct"] =
            mean(chunkNs, chunkNs.size() - tenth, chunkNs.size()) / 1e3;
        state.counters["us_slowest_chunk"] =
            chunkNs.isEmpty() ? 0 : double(*std::max_element(chunkNs.begin(), chunkNs.end())) / 1e3;
        state.counters["ms_longest_stall"] = double(longestGapNs) / 1e6;
    }
    state.SetBytesProcessed(state.iterations() * stream.bytes);
    // The runner holds the text once, as UTF-8; the view holds only the layouts of what it shows.
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["MB_peak_resident"] = double(usage.ru_maxrss) / 1024;
}
// The peak is the process's, so the smaller size runs first. A chunk costs tens of microseconds, so one
// preemption on a busy machine moves a tenth's mean: five runs each, of which the median counts.
BENCHMARK(BM_streamIntoShownLog)
    ->Arg(50)
    ->Arg(200)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->Repetitions(5)
    ->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
