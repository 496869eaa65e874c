// The real macOS behind every port. Created on the main thread, after the application object, and kept
// for the whole run.

#include "MacPorts.h"

#include "platform/NativePlatform.h"

namespace orvanta::platform {

namespace {

class MacNativePlatform final : public NativePlatform {
public:
    Platform platform() override {
        return {m_accessibility.get(), m_appleScript.get(), m_windowServer.get(), m_appleEvents.get(),
                m_workspace.get()};
    }

private:
    std::unique_ptr<Accessibility> m_accessibility = mac::makeAccessibility();
    std::unique_ptr<AppleScriptHost> m_appleScript = mac::makeAppleScriptHost();
    std::unique_ptr<WindowServer> m_windowServer = mac::makeWindowServer();
    std::unique_ptr<AppleEvents> m_appleEvents = mac::makeAppleEvents();
    std::unique_ptr<Workspace> m_workspace = mac::makeWorkspace();
};

} // namespace

std::unique_ptr<NativePlatform> createNativePlatform() {
    return std::make_unique<MacNativePlatform>();
}

} // namespace orvanta::platform
