#include "SessionFocus.h"

#include "session/SessionDetector.h"
#include "support/TextRules.h"

#include <QTimer>

namespace orvanta {

using namespace platform;

void SessionFocus::focus(const Platform& platform, const SessionInfo& session) {
    platform.workspace->activateSelf();
    // The workspace is the context: should the platform go away first, the steps are dropped.
    QTimer::singleShot(
        clientActivationDelayMs, Qt::PreciseTimer, platform.workspace, [platform, title = session.title] {
            AXElement window = findAXWindow(platform, title);
            if (!window)
                return;
            if (const std::optional<Pid> pid = SessionDetector::windowsAppPID(*platform.workspace))
                platform.workspace->activateApplication(*pid, activateAllWindows);
            QTimer::singleShot(raiseDelayMs, Qt::PreciseTimer, platform.workspace,
                               [platform, window = std::move(window)] {
                                   platform.accessibility->performAction(window, QStringLiteral("AXRaise"));
                               });
        });
}

AXElement SessionFocus::findAXWindow(const Platform& platform, const std::optional<QString>& title) {
    if (!title || title->isEmpty())
        return nullptr;
    const std::optional<Pid> pid = SessionDetector::windowsAppPID(*platform.workspace);
    if (!pid)
        return nullptr;
    Accessibility& ax = *platform.accessibility;
    // These requests run on the main thread: a client that stops answering may hold each of them only
    // briefly, not for the platform's default wait, or the menu would freeze. (The detection pass, off the
    // main thread, keeps the default.)
    const AXElement application = ax.applicationElement(*pid);
    ax.setMessagingTimeout(application, messagingTimeoutSeconds);
    const AXAttributeResult read = ax.copyAttributeValue(application, QStringLiteral("AXWindows"));
    const QList<AXElement>* windows =
        read.error == axError::success ? std::get_if<QList<AXElement>>(&read.value) : nullptr;
    if (!windows)
        return nullptr;
    for (const AXElement& window : *windows) {
        // Also bounds the raise, which goes through the element found.
        ax.setMessagingTimeout(window, messagingTimeoutSeconds);
        const AXAttributeResult titleRead = ax.copyAttributeValue(window, QStringLiteral("AXTitle"));
        if (titleRead.error != axError::success)
            continue;
        if (const QString* text = std::get_if<QString>(&titleRead.value);
            text && text::canonicallyEqual(*text, *title))
            return window;
    }
    return nullptr;
}

} // namespace orvanta
