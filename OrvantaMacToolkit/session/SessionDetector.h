#pragma once

#include "DebugLog.h"
#include "platform/Platform.h"
#include "session/SessionInfo.h"

#include <QStringList>

#include <optional>

namespace orvanta {

// Finds the sessions of the remote-desktop client. Stateless: every operation works on the platform it is
// given and writes its account of itself into the optional collector.
class SessionDetector {
public:
    struct AXScanResult {
        QStringList namedTitles; // distinct, in scan order, exactly as read
        int unnamedCount = 0;
    };

    struct AppleScriptQueryResult {
        QStringList titles; // accepted names in the order reported; repeats kept
        bool permissionDenied = false;
    };

    static const QStringList& excludedTitles();
    static const QStringList& excludedTitleFragments();
    static constexpr double minimumWindowSide = 200;
    static constexpr double hiddenWindowMinimumWidth = 1400;
    static constexpr double hiddenWindowMinimumHeight = 800;
    // Apple Events refusals for lack of permission: errAEEventNotPermitted and errAEPrivilegeError.
    static constexpr int appleEventNotPermitted = -1743;
    static constexpr int appleEventPrivilegeError = -10004;

    // The System Events query for the client's window names.
    static const QString& appleScriptSource();

    // The process identifier of the first running instance of the client, in the platform's order.
    static std::optional<platform::Pid> windowsAppPID(platform::Workspace& workspace);

    // True when a window title names one of the client's auxiliary windows or a text-input window.
    static bool isExcludedTitle(const QString& title);

    // Lists the titled session windows and counts the untitled ones of one client process.
    static AXScanResult scanAXWindows(const platform::Platform& platform, platform::Pid pid,
                                      DebugCollector* collector = nullptr);

    // Asks System Events for the names of the client's windows.
    static AppleScriptQueryResult queryAppleScriptWindows(const platform::Platform& platform,
                                                          DebugCollector* collector = nullptr);

    // Counts the client's normal-layer windows in the window server's list that are as large as a desktop.
    static int countLargeHiddenWindows(const platform::Platform& platform,
                                       DebugCollector* collector = nullptr);

    // One detection pass: trust, client, the three sources, the merged and classified result.
    static DetectorStatus detect(const platform::Platform& platform, DebugCollector* collector = nullptr);
};

} // namespace orvanta
