// The window server's list over CoreGraphics. Safe from any thread.

#include "CFConvert.h"
#include "CFRef.h"
#include "MacPorts.h"

#include <CoreGraphics/CoreGraphics.h>

namespace orvanta::platform::mac {

namespace {

class MacWindowServer final : public WindowServer {
public:
    std::optional<QVariant> copyWindowInfo(quint32 options, quint32 relativeToWindow) override {
        const auto list = CFRef<CFArrayRef>::adopt(
            CGWindowListCopyWindowInfo(CGWindowListOption(options), CGWindowID(relativeToWindow)));
        if (!list)
            return std::nullopt;
        return toVariant(list.get());
    }
};

} // namespace

std::unique_ptr<WindowServer> makeWindowServer() {
    return std::make_unique<MacWindowServer>();
}

} // namespace orvanta::platform::mac
