#pragma once

#include "platform/Platform.h"
#include "session/SessionInfo.h"

#include <optional>

namespace orvanta {

// Brings one session's window to the front: this application first, then the client with all its windows,
// then the window whose title is the session's. Stateless; main thread only.
class SessionFocus {
public:
    static constexpr int clientActivationDelayMs = 100;
    static constexpr int raiseDelayMs = 50;
    // How long one Accessibility request of the focus path may wait for the client.
    static constexpr float messagingTimeoutSeconds = 1.0f;

    // Returns at once; the client's activation and the raise follow on the main thread. Reports nothing:
    // a session without a title, a client that is gone or a window that changed its title ends it quietly.
    static void focus(const platform::Platform& platform, const SessionInfo& session);

    // The first window of the client's first instance whose title equals `title` (canonical equivalence,
    // nothing trimmed, letter case kept), or nullptr.
    static platform::AXElement findAXWindow(const platform::Platform& platform,
                                            const std::optional<QString>& title);
};

} // namespace orvanta
