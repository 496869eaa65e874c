// Reading world files of 10 MB: the worst shapes for a reader that keeps something per value (an array of
// small numbers, an array of empty objects) and a realistic one (a long window list of the client). Peak
// memory is the process's, so run one benchmark per process to read it.

#include "platform/simulated/WorldFile.h"

#include <benchmark/benchmark.h>

#include <QFile>

using namespace orvanta::platform;

namespace {

constexpr qsizetype fileSize = 10 * 1000 * 1000;

// A window list of `size` bytes that repeats one value: small numbers, or empty objects, the most values
// per byte that become containers.
QByteArray listOf(const QByteArray& value, const QByteArray& separator, qsizetype size = fileSize) {
    QByteArray json = R"({"windowServer": [)";
    while (json.size() < size)
        json += value + separator;
    json += value + "]}";
    return json;
}

QByteArray manyWindows() {
    QByteArray json =
        R"({"runningApplications": [{"bundleIdentifier": "com.microsoft.rdc.macos", "pid": 812}],
        "windows": {"812": [)";
    for (int i = 0; json.size() < fileSize; ++i)
        json += R"({"title": "Desk )" + QByteArray::number(i) +
                R"(", "subrole": "AXStandardWindow", "size": [1920.0, 1080.0], "minimized": false},)" + '\n';
    json += R"({"title": "last"}]}})";
    return json;
}

// Peak resident memory of this process in MB (Linux), 0 elsewhere.
double peakMegabytes() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024;
    return 0;
}

void readWorld(benchmark::State& state, const QByteArray& json) {
    for (auto _ : state) {
        WorldOrError world = parseWorld(json, QStringLiteral("bench.json"));
        if (std::holds_alternative<QString>(world))
            state.SkipWithError(qPrintable(std::get<QString>(world)));
        benchmark::DoNotOptimize(world);
    }
    state.SetBytesProcessed(state.iterations() * json.size());
    state.counters["peak_MB"] = peakMegabytes();
}

// Also at a quarter of the size: time and memory per byte stay the same.
void BM_readSmallNumbers(benchmark::State& state) {
    readWorld(state, listOf("7", ", ", state.range(0)));
}
BENCHMARK(BM_readSmallNumbers)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->Arg(fileSize / 4)
    ->Arg(fileSize);

void BM_readEmptyObjects(benchmark::State& state) {
    readWorld(state, listOf("{}", ","));
}
BENCHMARK(BM_readEmptyObjects)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_readManyWindows(benchmark::State& state) {
    readWorld(state, manyWindows());
}
BENCHMARK(BM_readManyWindows)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

BENCHMARK_MAIN();
