// The world-file loader on arbitrary bytes: it either gives a world or says where the file is wrong, and a
// world it gives can be run through a whole detection pass.

#include "FuzzSupport.h"

#include "DebugLog.h"
#include "platform/SimulatedDesktop.h"
#include "platform/WorldFile.h"
#include "session/SessionDetector.h"

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
    return 0;
}
