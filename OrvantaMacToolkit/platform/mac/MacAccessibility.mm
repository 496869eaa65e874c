// Accessibility over ApplicationServices (HIServices). Every call is synchronous and may be made from any
// thread: the detection pass calls it on the session monitor's thread, focusing on the main thread.

#include "CFConvert.h"
#include "CFRef.h"
#include "MacPorts.h"

#include <ApplicationServices/ApplicationServices.h>

namespace orvanta::platform::mac {

namespace {

class MacAXElement final : public AXElementHandle {
public:
    explicit MacAXElement(CFRef<AXUIElementRef> element) : ref(std::move(element)) {}
    const CFRef<AXUIElementRef> ref;
};

AXUIElementRef elementRef(const AXElement& element) {
    const auto* mac = dynamic_cast<const MacAXElement*>(element.get());
    return mac ? mac->ref.get() : nullptr;
}

AXElement wrap(CFRef<AXUIElementRef> element) {
    if (!element)
        return nullptr;
    return std::make_shared<const MacAXElement>(std::move(element));
}

// A list counts as a list of elements only when every entry is one; an empty list is such a list.
AXValue arrayValue(CFArrayRef array) {
    QList<AXElement> elements;
    const CFIndex count = CFArrayGetCount(array);
    elements.reserve(count);
    for (CFIndex i = 0; i < count; ++i) {
        CFTypeRef entry = CFArrayGetValueAtIndex(array, i);
        if (!entry || CFGetTypeID(entry) != AXUIElementGetTypeID())
            return AXOtherValue{QStringLiteral("CFArray")};
        // Got from the array, so retained for as long as the handle lives.
        elements.append(wrap(CFRef<AXUIElementRef>::retain(static_cast<AXUIElementRef>(entry))));
    }
    return elements;
}

AXValue axValue(AXValueRef value) {
    if (AXValueGetType(value) == kAXValueTypeCGSize) {
        CGSize size = CGSizeZero;
        if (AXValueGetValue(value, kAXValueTypeCGSize, &size))
            return AXSize{double(size.width), double(size.height)};
    }
    return AXOtherValue{QStringLiteral("AXValue")};
}

AXValue toAXValue(CFTypeRef value) {
    if (!value)
        return std::monostate{};
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFStringGetTypeID())
        return QString::fromCFString(static_cast<CFStringRef>(value));
    if (type == CFBooleanGetTypeID())
        return bool(CFBooleanGetValue(static_cast<CFBooleanRef>(value)));
    if (type == AXValueGetTypeID())
        return axValue(static_cast<AXValueRef>(value));
    if (type == CFArrayGetTypeID())
        return arrayValue(static_cast<CFArrayRef>(value));
    return AXOtherValue{typeName(value)};
}

class MacAccessibility final : public Accessibility {
public:
    bool isProcessTrusted() override { return AXIsProcessTrusted(); }

    AXElement applicationElement(Pid pid) override {
        return wrap(CFRef<AXUIElementRef>::adopt(AXUIElementCreateApplication(pid)));
    }

    AXAttributeResult copyAttributeValue(const AXElement& element, const QString& attribute) override {
        AXUIElementRef ref = elementRef(element);
        if (!ref)
            return {axError::illegalArgument, std::monostate{}};
        const auto name = CFRef<CFStringRef>::adopt(attribute.toCFString());
        CFRef<CFTypeRef> value;
        const AXError error = AXUIElementCopyAttributeValue(ref, name.get(), value.put());
        if (error != kAXErrorSuccess)
            return {int(error), std::monostate{}};
        return {axError::success, toAXValue(value.get())};
    }

    std::optional<Pid> elementPid(const AXElement& element) override {
        AXUIElementRef ref = elementRef(element);
        pid_t pid = 0;
        if (!ref || AXUIElementGetPid(ref, &pid) != kAXErrorSuccess)
            return std::nullopt;
        return Pid(pid);
    }

    int performAction(const AXElement& element, const QString& action) override {
        AXUIElementRef ref = elementRef(element);
        if (!ref)
            return axError::illegalArgument;
        const auto name = CFRef<CFStringRef>::adopt(action.toCFString());
        return int(AXUIElementPerformAction(ref, name.get()));
    }

    int setMessagingTimeout(const AXElement& element, float seconds) override {
        AXUIElementRef ref = elementRef(element);
        if (!ref)
            return axError::illegalArgument;
        return int(AXUIElementSetMessagingTimeout(ref, seconds));
    }
};

} // namespace

std::unique_ptr<Accessibility> makeAccessibility() {
    return std::make_unique<MacAccessibility>();
}

} // namespace orvanta::platform::mac
