#pragma once

// Worlds shared by the tests: the client running as pid 812, this process as pid 4242.

#include "app/CommandLine.h"
#include "app/MenuBarContent.h"
#include "app/MenuBarLabel.h"
#include "platform/simulated/SimulatedDesktop.h"
#include "platform/simulated/WorldFile.h"
#include "platform/simulated/WorldWriter.h"
#include "session/SessionInfo.h"

#include <QTest>

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

// What a user sees of one pass over the world: its log lines but the first, which holds the time, the outcome
// with the sessions, the menu-bar label and the menu's session rows.
inline QStringList whatTheUserSees(const platform::SimWorld& world) {
    platform::SimulatedDesktop desktop(world);
    const app::DetectionReport report = app::runDetection(desktop.platform());
    const platform::StatusItemLabel label = MenuBarLabel::content(world.accessibilityTrusted, report.status);
    QStringList lines = report.transcript.mid(1) + app::statusLines(report.status);
    lines << label.text + label.symbol;
    for (const MenuRow& row : MenuBarContent::sessionSection(report.status))
        lines << row.text;
    return lines;
}

// A support recording of the world asks System Events only where a pass would, replays to the user's pass,
// and records again to the same file: nothing is lost or changed on the way.
inline void checkRecordingReplays(platform::SimWorld world) {
    world.now = world.now.value_or(QDateTime(QDate(2025, 3, 4), QTime(9, 15, 27), Qt::UTC));
    platform::SimulatedDesktop desktop(world), pass(world);
    const QByteArray text = platform::worldFileText(platform::recordWorld(desktop.platform()));
    app::runDetection(pass.platform());
    QCOMPARE(desktop.appleScriptRuns(), pass.appleScriptRuns());
    const platform::WorldOrError replayed = platform::parseWorld(text, QStringLiteral("recording.json"));
    if (const QString* error = std::get_if<QString>(&replayed))
        QFAIL(qPrintable(*error + QLatin1Char('\n') + QString::fromUtf8(text)));
    QCOMPARE(whatTheUserSees(std::get<platform::SimWorld>(replayed)), whatTheUserSees(world));
    platform::SimulatedDesktop replay(std::get<platform::SimWorld>(replayed));
    QCOMPARE(QString::fromUtf8(platform::worldFileText(platform::recordWorld(replay.platform()))),
             QString::fromUtf8(text));
}

} // namespace orvanta::testing
