// The world-file loader on arbitrary bytes: it either gives a world or says where the file is wrong, and a
// world it gives can be run through a whole detection pass, recorded, and replayed to what the user saw.

#include "FuzzSupport.h"

#include "app/CommandLine.h"
#include "app/MenuBarContent.h"
#include "app/MenuBarLabel.h"
#include "platform/simulated/SimulatedDesktop.h"
#include "platform/simulated/WorldFile.h"
#include "platform/simulated/WorldWriter.h"

using namespace orvanta;
using namespace orvanta::platform;

namespace {

// The pass's log lines but the first, which holds the time; the outcome with the sessions; the label; the
// menu's session rows.
QStringList whatTheUserSees(SimulatedDesktop& desktop, bool trusted) {
    const app::DetectionReport report = app::runDetection(desktop.platform());
    const StatusItemLabel label = MenuBarLabel::content(trusted, report.status);
    QStringList seen = report.transcript.mid(1) + app::statusLines(report.status);
    seen << label.text + label.symbol;
    for (const MenuRow& row : MenuBarContent::sessionSection(report.status))
        seen << row.text;
    return seen;
}

} // namespace

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
    world.appleScriptDelayMs = 0; // a late System Events only makes the pass wait
    SimulatedDesktop desktop(world);
    const QStringList seen = whatTheUserSees(desktop, world.accessibilityTrusted);

    // A support recording of the world reads back and replays to what the user saw.
    const QByteArray recording = worldFileText(recordWorld(desktop.platform()));
    FUZZ_TRACE("recording", QString::fromUtf8(recording));
    WorldOrError replayed = parseWorld(recording, fileName);
    if (const QString* error = std::get_if<QString>(&replayed))
        FUZZ_TRACE("replay error", *error);
    FUZZ_CHECK(std::holds_alternative<SimWorld>(replayed));
    const SimWorld replayWorld = std::get<SimWorld>(std::move(replayed));
    SimulatedDesktop replay(replayWorld);
    const QStringList replaySeen = whatTheUserSees(replay, replayWorld.accessibilityTrusted);
    FUZZ_TRACE("seen", seen.join(QLatin1Char('\n')));
    FUZZ_TRACE("replay seen", replaySeen.join(QLatin1Char('\n')));
    FUZZ_CHECK(replaySeen == seen);
    return 0;
}
