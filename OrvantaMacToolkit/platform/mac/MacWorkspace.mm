// The workspace over AppKit. Lookups of running applications may be made from any thread; activating,
// opening and the wake notification belong to the main thread, where the application calls them.

#include "MacPorts.h"

#import <AppKit/AppKit.h>

#include <QPointer>

#include <unistd.h>

namespace orvanta::platform::mac {

namespace {

class MacWorkspace final : public Workspace {
public:
    MacWorkspace() {
        // No operation queue: the block runs synchronously on the thread that posts the notification, which
        // for the workspace's notifications is the main thread, where this object lives and is destroyed.
        // So the guard is read on the thread that clears it, and once the observer is removed no block runs.
        QPointer<MacWorkspace> guard(this);
        m_wakeObserver = [[[NSWorkspace sharedWorkspace] notificationCenter]
            addObserverForName:NSWorkspaceDidWakeNotification
                        object:nil
                         queue:nil
                    usingBlock:^(NSNotification* notification) {
                      Q_UNUSED(notification);
                      if (guard)
                          Q_EMIT guard->didWake();
                    }];
    }

    ~MacWorkspace() override {
        if (m_wakeObserver)
            [[[NSWorkspace sharedWorkspace] notificationCenter] removeObserver:m_wakeObserver];
    }

    QList<RunningApplication> runningApplications(const QString& bundleId) override {
        QList<RunningApplication> result;
        @autoreleasepool {
            NSArray<NSRunningApplication*>* running =
                [NSRunningApplication runningApplicationsWithBundleIdentifier:bundleId.toNSString()];
            for (NSRunningApplication* app in running)
                result.append({Pid(app.processIdentifier), QString::fromNSString(app.bundleIdentifier),
                               QString::fromNSString(app.localizedName)});
        }
        return result;
    }

    bool activateApplication(Pid pid, unsigned options) override {
        @autoreleasepool {
            NSRunningApplication* app = [NSRunningApplication runningApplicationWithProcessIdentifier:pid];
            if (!app)
                return false;
            // From macOS 14 activation is cooperative: the active application (this one, activated just
            // before) yields to the client, which a yield alone does not activate; activating it from this
            // application completes the hand-over, and the system may still refuse it.
            if (@available(macOS 14.0, *)) {
                [NSApp yieldActivationToApplication:app];
                return [app activateFromApplication:NSRunningApplication.currentApplication
                                            options:NSApplicationActivationOptions(options)];
            }
            [app activateWithOptions:NSApplicationActivationOptions(options)];
            return true;
        }
    }

    void activateSelf() override {
        // Called right after the user chose something in this application's menu, when the system
        // normally grants the request.
        if (@available(macOS 14.0, *)) {
            [NSApp activate];
        } else {
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
            [NSApp activateIgnoringOtherApps:YES];
#pragma clang diagnostic pop
        }
    }

    bool openUrl(const QUrl& url) override {
        @autoreleasepool {
            NSURL* nsUrl = url.toNSURL();
            return nsUrl && [[NSWorkspace sharedWorkspace] openURL:nsUrl];
        }
    }

    bool moveToTrash(const QString& path) override {
        @autoreleasepool {
            NSURL* item = [NSURL fileURLWithPath:path.toNSString()];
            return [[NSFileManager defaultManager] trashItemAtURL:item resultingItemURL:nil error:nil];
        }
    }

    Pid processId() override {
        return Pid(getpid());
    }

    QDateTime now() override {
        return QDateTime::currentDateTime();
    }

private:
    id<NSObject> m_wakeObserver = nil;
};

} // namespace

std::unique_ptr<Workspace> makeWorkspace() {
    return std::make_unique<MacWorkspace>();
}

} // namespace orvanta::platform::mac
