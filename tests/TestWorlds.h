#pragma once

// Worlds shared by the tests: the client running as pid 812, this process as pid 4242.

#include "platform/simulated/SimulatedDesktop.h"
#include "session/SessionInfo.h"

namespace orvanta::testing {

inline constexpr platform::Pid clientPid = 812;
inline constexpr platform::Pid ownPid = 4242;

inline platform::SimWorld clientWorld(QList<platform::SimWindow> windows = {}) {
    platform::SimWorld world;
    world.ownPid = ownPid;
    world.now = QDateTime(QDate(2025, 3, 4), QTime(9, 15, 27), Qt::UTC);
    world.runningApplications = {{clientPid, windowsAppBundleID, windowsAppProcessName}};
    world.windows[clientPid] = std::move(windows);
    return world;
}

inline platform::SimWindow window(const QString& title, double width = 1920, double height = 1080,
                                  const QString& subrole = QStringLiteral("AXStandardWindow"),
                                  bool minimized = false) {
    return platform::SimWindow::make(title, width, height, subrole, minimized);
}

// A session with a title, and one without.
inline SessionInfo named(const QString& title, SessionInfo::Source source = SessionInfo::Source::axNamed) {
    return {title, source};
}

inline SessionInfo untitled(SessionInfo::Source source = SessionInfo::Source::cgHidden) {
    return {std::nullopt, source};
}

} // namespace orvanta::testing
