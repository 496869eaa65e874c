// The diagnostics' two hot paths: a script flooding the runner with output, and listing the reports on a
// crowded Desktop.

#include "FloodScript.h"
#include "diagnostics/ReportCatalog.h"
#include "diagnostics/ScriptRunner.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <memory>

using namespace orvanta;

namespace {

void BM_runnerFlood50MB(benchmark::State& state) {
    static FloodScript flood;
    double firstTenthNs = 0, lastTenthNs = 0, chunks = 0;
    for (auto _ : state) {
        ScriptRunner runner(flood.dir.path());
        QList<qint64> stamps;
        stamps.reserve(100'000);
        QElapsedTimer clock;
        QObject::connect(&runner, &ScriptRunner::logAppended, [&] { stamps << clock.nsecsElapsed(); });
        QEventLoop loop;
        QObject::connect(&runner, &ScriptRunner::stateChanged, &loop, [&] {
            if (!runner.isRunning())
                loop.quit();
        });
        clock.start();
        runner.run(ScriptCatalog::traceRoute, {});
        loop.exec();
        if (runner.logText().byteSize() != flood.bytes)
            state.SkipWithError("output incomplete");
        // With the producer always ahead, the gap between two appends is the cost of taking one chunk.
        const qsizetype tenth = stamps.size() / 10;
        if (tenth > 1) {
            firstTenthNs = double(stamps[tenth] - stamps[1]) / double(tenth - 1);
            lastTenthNs = double(stamps.last() - stamps[stamps.size() - 1 - tenth]) / double(tenth);
        }
        chunks = double(stamps.size());
    }
    state.SetBytesProcessed(state.iterations() * flood.bytes);
    state.counters["chunks"] = chunks;
    state.counters["ns_per_chunk_first_10pct"] = firstTenthNs;
    state.counters["ns_per_chunk_last_10pct"] = lastTenthNs;
}
BENCHMARK(BM_runnerFlood50MB)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// The decode-and-append step alone (decoding, storing, indexing the lines), with a buffer already holding
// `range(0)` MB. A fixed number of appends, since the buffer only grows.
void BM_appendChunkToFilledBuffer(benchmark::State& state) {
    const QByteArray chunk = (QByteArray(63, 'y') + '\n').repeated(1024); // 64 KiB
    OutputDecoder decoder;
    OutputText buffer;
    for (qint64 filled = 0; filled < state.range(0) * 1024 * 1024; filled += chunk.size())
        buffer.append(*decoder.decode(chunk));
    for (auto _ : state)
        buffer.append(*decoder.decode(chunk));
    state.SetBytesProcessed(state.iterations() * chunk.size());
}
BENCHMARK(BM_appendChunkToFilledBuffer)->Arg(0)->Arg(16)->Arg(64)->Iterations(512);

void BM_recentReportURLs(benchmark::State& state) {
    static QTemporaryDir desktop;
    static const bool filled = [] {
        for (int i = 0; i < 10'000; ++i) {
            QFile other(
                desktop.filePath(QStringLiteral("document %1.%2").arg(i).arg(i % 2 ? "html" : "txt")));
            other.open(QIODevice::WriteOnly);
        }
        for (int i = 0; i < 25; ++i) {
            const ScriptCatalog script = ScriptCatalog::allCases()[i % 3];
            QFile report(desktop.filePath(script.reportPrefix() + QString::number(i) + ".html"));
            report.open(QIODevice::WriteOnly);
            report.write("<html></html>");
            report.flush();
            report.setFileTime(QDateTime::currentDateTimeUtc().addSecs(-60 * i),
                               QFileDevice::FileModificationTime);
        }
        return true;
    }();
    benchmark::DoNotOptimize(filled);
    const QUrl folder = QUrl::fromLocalFile(desktop.path());
    for (auto _ : state) {
        const QList<QUrl> urls = ReportCatalog::recentReportURLs(folder, recentReportLimit);
        if (urls.size() != recentReportLimit)
            state.SkipWithError("wrong count");
        benchmark::DoNotOptimize(urls);
    }
    state.SetLabel("10,000 other files and 25 reports");
}
BENCHMARK(BM_recentReportURLs)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
