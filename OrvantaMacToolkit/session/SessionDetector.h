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

    static const QStringList& excludedTitles();
    static const QStringList& excludedTitleFragments();
    static constexpr double minimumWindowSide = 200;

    // The process identifier of the first running instance of the client, in the platform's order.
    static std::optional<platform::Pid> windowsAppPID(platform::Workspace& workspace);

    // True when a window title names one of the client's auxiliary windows or a text-input window.
    static bool isExcludedTitle(const QString& title);

    // Lists the titled session windows and counts the untitled ones of one client process.
    static AXScanResult scanAXWindows(const platform::Platform& platform, platform::Pid pid,
                                      DebugCollector* collector = nullptr);
};

} // namespace orvanta
