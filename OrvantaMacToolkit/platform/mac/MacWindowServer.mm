// The window server's list over CoreGraphics. Safe from any thread.

#include "CFConvert.h"
#include "CFRef.h"
#include "MacPorts.h"

#include <CoreGraphics/CoreGraphics.h>

namespace orvanta::platform::mac {

namespace {

// Apple promises the bounds only as a dictionary for CGRectMakeWithDictionaryRepresentation, not the kinds
// of the numbers inside, and the owner only as a number: both are handed on in the kinds the census reads,
// floating-point sizes and a 32-bit process identifier. Anything that does not decode keeps its plain
// conversion, which the census then skips.
QVariant windowDescription(CFTypeRef entry) {
    QVariant converted = toVariant(entry);
    if (converted.typeId() != QMetaType::QVariantMap)
        return converted;
    const auto description = static_cast<CFDictionaryRef>(entry);
    QVariantMap window = converted.toMap();

    CFTypeRef owner = CFDictionaryGetValue(description, kCGWindowOwnerPID);
    if (owner && CFGetTypeID(owner) == CFNumberGetTypeID()) {
        // Succeeds whatever the number's own type, as long as the value converts without loss.
        SInt32 pid = 0;
        if (CFNumberGetValue(static_cast<CFNumberRef>(owner), kCFNumberSInt32Type, &pid))
            window.insert(windowList::ownerPID, int(pid));
    }

    CFTypeRef bounds = CFDictionaryGetValue(description, kCGWindowBounds);
    CGRect rect = CGRectZero;
    if (bounds && CFGetTypeID(bounds) == CFDictionaryGetTypeID() &&
        CGRectMakeWithDictionaryRepresentation(static_cast<CFDictionaryRef>(bounds), &rect)) {
        window.insert(windowList::bounds, QVariantMap{{QStringLiteral("X"), double(rect.origin.x)},
                                                      {QStringLiteral("Y"), double(rect.origin.y)},
                                                      {windowList::width, double(rect.size.width)},
                                                      {windowList::height, double(rect.size.height)}});
    }
    return window;
}

class MacWindowServer final : public WindowServer {
public:
    std::optional<QVariant> copyWindowInfo(quint32 options, quint32 relativeToWindow) override {
        const auto list = CFRef<CFArrayRef>::adopt(
            CGWindowListCopyWindowInfo(CGWindowListOption(options), CGWindowID(relativeToWindow)));
        if (!list)
            return std::nullopt;
        QVariantList windows;
        const CFIndex count = CFArrayGetCount(list.get());
        windows.reserve(count);
        for (CFIndex i = 0; i < count; ++i)
            windows.append(windowDescription(CFArrayGetValueAtIndex(list.get(), i)));
        return QVariant(windows);
    }
};

} // namespace

std::unique_ptr<WindowServer> makeWindowServer() {
    return std::make_unique<MacWindowServer>();
}

} // namespace orvanta::platform::mac
