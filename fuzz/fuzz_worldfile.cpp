// The world-file loader on arbitrary bytes: it either gives a world or says where the file is wrong, and a
// world it gives can be run through a whole detection pass, recorded, and replayed with the same pass.

#include "FuzzSupport.h"

#include "DebugLog.h"
#include "platform/simulated/SimulatedDesktop.h"
#include "platform/simulated/WorldFile.h"
#include "platform/simulated/WorldWriter.h"
#include "session/SessionDetector.h"

#include <QSet>

using namespace orvanta;
using namespace orvanta::platform;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray json(reinterpret_cast<const char*>(data), qsizetype(size));
    const QString fileName = QStringLiteral("fuzz.json");
    WorldOrError loaded = parseWorld(json, fileName);
    if (const QString* error = std::get_if<QString>(&loaded)) {
        FUZZ_TRACE("error", *error);
        FUZZ_CHECK(error->startsWith(fileName + QLatin1Char(':')));
        FUZZ_CHECK(std::holds_alternative<QString>(parseWorld(json, fileName)));
        return 0;
    }
    SimWorld world = std::get<SimWorld>(std::move(loaded));
    // The loader makes no world that the rest of the system cannot take.
    world.now = world.now.value_or(QDateTime(QDate(2025, 1, 1), QTime(0, 0), Qt::UTC));
    world.appleScriptDelayMs = 0; // a late System Events only makes the pass wait
    SimulatedDesktop desktop(world);
    DebugCollector collector;
    const DetectorStatus status = SessionDetector::detect(desktop.platform(), &collector);
    FUZZ_CHECK(!collector.lines.isEmpty());
    FUZZ_CHECK(status.kind() == DetectorStatus::Kind::sessions || status.sessions().isEmpty());

    // A recording of the world reads back and replays the same pass, unless a client's window list holds a
    // window of another process, which a recording deliberately keeps only as its owner.
    const QByteArray recording = worldFileText(recordWorld(desktop.platform()));
    FUZZ_TRACE("recording", QString::fromUtf8(recording));
    WorldOrError replayed = parseWorld(recording, fileName);
    FUZZ_CHECK(std::holds_alternative<SimWorld>(replayed));
    QSet<Pid> clients{desktop.processId()};
    for (const RunningApplication& app : desktop.runningApplications(windowsAppBundleID))
        clients.insert(app.pid);
    for (const Pid client : std::as_const(clients))
        for (const SimWindow& window : world.windows.value(client))
            if (window.pid && !clients.contains(*window.pid))
                return 0;
    SimulatedDesktop replay(std::get<SimWorld>(std::move(replayed)));
    DebugCollector replayLines;
    FUZZ_CHECK(SessionDetector::detect(replay.platform(), &replayLines) == status);
    FUZZ_CHECK(replayLines.lines == collector.lines);
    return 0;
}
