// AppleScript over Foundation's NSAppleScript. The detection pass runs it on the session monitor's thread,
// never on the main thread, so that waiting for System Events never blocks the menu bar; each call builds
// and compiles a fresh script object that no other thread sees.

#include "CFConvert.h"
#include "MacPorts.h"

#import <Foundation/Foundation.h>

namespace orvanta::platform::mac {

namespace {

class MacAppleScriptHost final : public AppleScriptHost {
public:
    AppleScriptOutcome run(const QString& source) override {
        // The pool drains the script's autoreleased results on this thread, which has no run loop of
        // AppKit's to do it.
        @autoreleasepool {
            NSAppleScript* script = [[NSAppleScript alloc] initWithSource:source.toNSString()];
            if (!script)
                return std::monostate{};
            NSDictionary<NSString*, id>* errorInfo = nil;
            NSAppleEventDescriptor* result = [script executeAndReturnError:&errorInfo];
            if (!result)
                return AppleScriptError{toVariant((__bridge CFDictionaryRef)errorInfo).toMap()};
            NSString* text = result.stringValue;
            if (!text)
                return AppleScriptResult{std::nullopt};
            return AppleScriptResult{QString::fromNSString(text)};
        }
    }
};

} // namespace

std::unique_ptr<AppleScriptHost> makeAppleScriptHost() {
    return std::make_unique<MacAppleScriptHost>();
}

} // namespace orvanta::platform::mac
