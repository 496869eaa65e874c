#pragma once

// The operating system as the deciding logic sees it. Each port is shaped like the calls it stands for,
// with their error codes and loosely typed values, so that every failure path can be produced in a test.
// Implementations: platform/mac (the real frameworks, Apple only) and platform/simulated (a world in memory).
// Every port may be called from any thread unless its comment says otherwise.

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariant>
#include <QVariantMap>

#include <memory>
#include <optional>
#include <variant>

namespace orvanta::platform {

using Pid = qint32;

// ---- Accessibility ---------------------------------------------------------------------------------

// Accessibility error codes the logic and the tests name (AXError values).
namespace axError {
inline constexpr int success = 0;
inline constexpr int failure = -25200;
inline constexpr int illegalArgument = -25201;
inline constexpr int invalidUIElement = -25202;
inline constexpr int cannotComplete = -25204;
inline constexpr int attributeUnsupported = -25205;
inline constexpr int actionUnsupported = -25206;
inline constexpr int apiDisabled = -25211;
inline constexpr int noValue = -25212;
} // namespace axError

// An element of the Accessibility tree. Implementations subclass it; copies share the element.
class AXElementHandle {
public:
    virtual ~AXElementHandle() = default;
};
using AXElement = std::shared_ptr<const AXElementHandle>;

struct AXSize {
    double width = 0;
    double height = 0;
};

// A value of some type the logic does not read (a number where a text was expected, say).
struct AXOtherValue {
    QString typeDescription;
};

// An attribute value: absent, text, Boolean, size, list of elements, or something else.
using AXValue = std::variant<std::monostate, QString, bool, AXSize, QList<AXElement>, AXOtherValue>;

struct AXAttributeResult {
    int error = axError::success; // zero on success
    AXValue value;                // meaningful only on success; may still be absent
};

class Accessibility {
public:
    virtual ~Accessibility() = default;
    virtual bool isProcessTrusted() = 0;
    virtual AXElement applicationElement(Pid pid) = 0;
    virtual AXAttributeResult copyAttributeValue(const AXElement& element, const QString& attribute) = 0;
    // The owning process of an element, or none when the platform reports an error.
    virtual std::optional<Pid> elementPid(const AXElement& element) = 0;
    virtual int performAction(const AXElement& element, const QString& action) = 0;
    // Bounds how long later requests through this element (not its children) wait for the application to
    // answer; past it they fail with cannotComplete. Elements start with the platform's default.
    virtual int setMessagingTimeout(const AXElement& element, float seconds) = 0;
};

// ---- AppleScript -----------------------------------------------------------------------------------

struct AppleScriptResult {
    std::optional<QString> text; // the result descriptor's text, absent when it has none
};
struct AppleScriptError {
    QVariantMap info; // the error dictionary; "NSAppleScriptErrorNumber" may be missing or not an integer
};
// No script object (monostate), a result, or an error dictionary.
using AppleScriptOutcome = std::variant<std::monostate, AppleScriptResult, AppleScriptError>;

inline const QString appleScriptErrorNumberKey = QStringLiteral("NSAppleScriptErrorNumber");

class AppleScriptHost {
public:
    virtual ~AppleScriptHost() = default;
    // Compiles and runs `source` synchronously; blocks until the target has answered.
    virtual AppleScriptOutcome run(const QString& source) = 0;
};

// ---- Window server ---------------------------------------------------------------------------------

namespace windowList {
inline constexpr quint32 excludeDesktopElements = 16; // kCGWindowListExcludeDesktopElements
inline constexpr quint32 nullWindow = 0;              // kCGNullWindowID
inline const QString ownerPID = QStringLiteral("kCGWindowOwnerPID");
inline const QString layer = QStringLiteral("kCGWindowLayer");
inline const QString bounds = QStringLiteral("kCGWindowBounds");
inline const QString width = QStringLiteral("Width");
inline const QString height = QStringLiteral("Height");
} // namespace windowList

class WindowServer {
public:
    virtual ~WindowServer() = default;
    // Nothing, or a value that should be a list of maps with text keys. Numbers keep their kind: a 32-bit
    // integer is QMetaType::Int, a wider integer QMetaType::LongLong, floating point QMetaType::Double.
    // The native list gives the owner's process identifier as Int whenever its value fits, and the bounds
    // as decoded by the platform: X, Y, Width and Height, all Double.
    virtual std::optional<QVariant> copyWindowInfo(quint32 options, quint32 relativeToWindow) = 0;
};

// ---- Apple Events ----------------------------------------------------------------------------------

class AppleEvents {
public:
    virtual ~AppleEvents() = default;
    // The status of AEDeterminePermissionToAutomateTarget for the application with `bundleId`, for any
    // event class and identifier; 0 means permitted. With `askUser` the system may show its consent prompt.
    virtual int determinePermissionToAutomate(const QString& bundleId, bool askUser) = 0;
};

// ---- Workspace -------------------------------------------------------------------------------------

struct RunningApplication {
    Pid pid = 0;
    QString bundleIdentifier;
    QString name;
};

inline constexpr unsigned activateAllWindows = 1; // NSApplicationActivateAllWindows

class Workspace : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    ~Workspace() override = default;

    // The running instances with this bundle identifier, in the platform's order.
    virtual QList<RunningApplication> runningApplications(const QString& bundleId) = 0;
    // Activates the running application with this process identifier; false when there is none. Where
    // activation is cooperative (macOS 14 and later), this application first yields its turn to it.
    virtual bool activateApplication(Pid pid, unsigned options) = 0;
    // Brings this application to the front, ignoring other applications (on macOS 14 and later, asks to).
    virtual void activateSelf() = 0;
    virtual bool openUrl(const QUrl& url) = 0;
    virtual bool moveToTrash(const QString& path) = 0;
    virtual Pid processId() = 0;
    virtual QDateTime now() = 0;

Q_SIGNALS:
    // The computer woke from sleep. Emitted on the thread that learns of it.
    void didWake();
};

// ---- All ports together ----------------------------------------------------------------------------

struct Platform {
    Accessibility* accessibility = nullptr;
    AppleScriptHost* appleScript = nullptr;
    WindowServer* windowServer = nullptr;
    AppleEvents* appleEvents = nullptr;
    Workspace* workspace = nullptr;
};

} // namespace orvanta::platform
