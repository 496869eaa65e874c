// The Apple Events permission over the Apple Event Manager (CoreServices).

#include "MacPorts.h"

#include <CoreServices/CoreServices.h>
#import <Foundation/Foundation.h>

#include <QByteArray>

namespace orvanta::platform::mac {

namespace {

// The silent check addresses the target by the raw bytes of its bundle identifier. Any thread.
int checkSilently(const QString& bundleId) {
    const QByteArray utf8 = bundleId.toUtf8();
    if (utf8.isEmpty())
        return paramErr;
    AEAddressDesc target;
    AEInitializeDesc(&target);
    const OSErr created = AECreateDesc(typeApplicationBundleID, utf8.constData(), Size(utf8.size()), &target);
    if (created != noErr)
        return created;
    const OSStatus status = AEDeterminePermissionToAutomateTarget(&target, typeWildCard, typeWildCard, false);
    AEDisposeDesc(&target);
    return int(status);
}

// The request addresses the target through Foundation's descriptor. While the target runs, the system may
// show its consent prompt and the call returns when the user has answered; while it does not, the call
// returns procNotFound (-600) at once and nothing is shown, so the caller asks again once it runs.
int requestWithPrompt(const QString& bundleId) {
    @autoreleasepool {
        NSAppleEventDescriptor* target =
            [NSAppleEventDescriptor descriptorWithBundleIdentifier:bundleId.toNSString()];
        // Owned by `target`, which stays alive until the end of this scope.
        const AEDesc* raw = target.aeDesc;
        if (!raw)
            return errAEDescNotFound;
        return int(AEDeterminePermissionToAutomateTarget(raw, typeWildCard, typeWildCard, true));
    }
}

class MacAppleEvents final : public AppleEvents {
public:
    int determinePermissionToAutomate(const QString& bundleId, bool askUser) override {
        return askUser ? requestWithPrompt(bundleId) : checkSilently(bundleId);
    }
};

} // namespace

std::unique_ptr<AppleEvents> makeAppleEvents() {
    return std::make_unique<MacAppleEvents>();
}

} // namespace orvanta::platform::mac
