// Core cost of session detection against the simulated desktop, which answers at once: what is left is
// the logic itself (title filter, Unicode rules, log lines).

#include "TestWorlds.h"
#include "session/SessionDetector.h"

#include <benchmark/benchmark.h>

using namespace orvanta;
using namespace orvanta::testing;

namespace {

const QStringList sampleTitles{
    QStringLiteral("Desk 1"),
    QStringLiteral("  Connection Center "),
    QStringLiteral("MSCTFIME UI"),
    QStringLiteral("Quarterly review \u2013 Finance workstation"),
    QString::fromUtf8("B\u00fcro Stra\u00dfe 12"),
    QStringLiteral("Orvanta Mac Toolkit"),
    QStringLiteral("TF_FloatingLangBar"),
    QStringLiteral("Remote desktop for a very long project name that keeps going"),
};

void BM_isExcludedTitle(benchmark::State& state) {
    qsizetype i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(SessionDetector::isExcludedTitle(sampleTitles[i]));
        i = (i + 1) % sampleTitles.size();
    }
    state.SetLabel("per title, mixed accepted and excluded");
}
BENCHMARK(BM_isExcludedTitle);

// `count` windows of the client: every tenth untitled and unknown, those `auxiliary` picks the client's own
// "Connection Center", the others sessions named "Desk N".
QList<platform::SimWindow> clientWindows(int count, bool (*auxiliary)(int)) {
    QList<platform::SimWindow> windows;
    for (int i = 0; i < count; ++i) {
        if (i % 10 == 0)
            windows << window(QString(), 1920, 1080, QStringLiteral("AXUnknown"));
        else if (auxiliary(i))
            windows << window(QStringLiteral("Connection Center"), 900, 640);
        else
            windows << window(QStringLiteral("Desk %1").arg(i));
    }
    return windows;
}

void BM_scanAXWindows50(benchmark::State& state) {
    platform::SimulatedDesktop desktop(clientWorld(clientWindows(50, [](int i) { return i % 7 == 0; })));
    const platform::Platform platform = desktop.platform();
    for (auto _ : state) {
        DebugCollector collector;
        auto result = SessionDetector::scanAXWindows(platform, clientPid, &collector);
        benchmark::DoNotOptimize(result);
    }
    state.SetLabel("50 windows, with log lines");
}
BENCHMARK(BM_scanAXWindows50);

// One whole pass on a client with 20 windows: 16 sessions, 2 auxiliary windows and 2 untitled ones; System
// Events reports the same names, so the merge compares every name with every scanned title.
// Whole passes, with their log lines, over `world`.
void detectPasses(benchmark::State& state, platform::SimWorld world, const char* label) {
    platform::SimulatedDesktop desktop(std::move(world));
    const platform::Platform platform = desktop.platform();
    for (auto _ : state) {
        DebugCollector collector;
        DetectorStatus status = SessionDetector::detect(platform, &collector);
        benchmark::DoNotOptimize(status);
    }
    state.SetLabel(label);
}

void BM_detect20(benchmark::State& state) {
    detectPasses(state, clientWorld(clientWindows(20, [](int i) { return i % 10 == 5; })),
                 "20 windows, with log lines");
}
BENCHMARK(BM_detect20)->Unit(benchmark::kMicrosecond);

// One whole pass on a client with 4,000 distinct session windows, every other title with an accent, and
// System Events reporting the same 4,000 names: the scan's own de-duplication and the merge of the query's
// names each see every title.
void BM_detect4000(benchmark::State& state) {
    QList<platform::SimWindow> windows;
    for (int i = 0; i < 4000; ++i)
        windows << window(i % 2 ? QStringLiteral("Desk %1").arg(i)
                                : QString::fromUtf8("Caf\u00e9 %1").arg(i));
    detectPasses(state, clientWorld(windows), "4,000 titled windows, with log lines");
}
BENCHMARK(BM_detect4000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
