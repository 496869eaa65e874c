#include "SessionDetector.h"

#include "support/TextRules.h"

#include <QSet>

#include <charconv>
#include <cmath>
#include <limits>

namespace orvanta {

using namespace platform;

namespace {

void log(DebugCollector* collector, const QString& line) {
    if (collector)
        collector->log(line);
}

// A size for the log: its integer part, truncated toward zero, in full at any magnitude. NaN reads as 0; an
// infinity has no integer part and is written as "inf".
QString integerPartForLog(double value) {
    if (std::isnan(value))
        return QStringLiteral("0");
    if (std::isinf(value))
        return value > 0 ? QStringLiteral("inf") : QStringLiteral("-inf");
    // Adding zero turns the -0 that truncating a small negative value leaves into 0.
    const double whole = std::trunc(value) + 0.0;
    // Every finite double has at most 309 integer digits; fixed notation writes them exactly.
    char digits[320];
    const auto written = std::to_chars(digits, digits + sizeof digits, whole, std::chars_format::fixed, 0);
    return QString::fromLatin1(digits, written.ptr - digits);
}

// Numbers in error dictionaries and window descriptions may be of any of Qt's integer kinds; Bool is not a
// number here.
bool isSignedInteger(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::Char:
    case QMetaType::SChar:
        return true;
    default:
        return false;
    }
}

bool isUnsignedInteger(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::UChar:
        return true;
    default:
        return false;
    }
}

// The value of an integer of any kind when a 64-bit signed integer holds it. Unsigned values are read
// unsigned, so a huge one never wraps around to a small or negative number.
std::optional<qint64> int64Value(const QVariant& value) {
    if (isSignedInteger(value))
        return value.toLongLong();
    if (isUnsignedInteger(value) &&
        value.toULongLong() <= static_cast<qulonglong>(std::numeric_limits<qint64>::max()))
        return static_cast<qint64>(value.toULongLong());
    return std::nullopt;
}

bool isNonZeroInteger(const QVariant& value) {
    if (isSignedInteger(value))
        return value.toLongLong() != 0;
    return isUnsignedInteger(value) && value.toULongLong() != 0;
}

QString textAttribute(Accessibility& ax, const AXElement& element, const QString& name) {
    const AXAttributeResult result = ax.copyAttributeValue(element, name);
    if (result.error != axError::success)
        return {};
    const QString* text = std::get_if<QString>(&result.value);
    return text ? *text : QString();
}

} // namespace

const QStringList& SessionDetector::excludedTitles() {
    static const QStringList titles{
        QStringLiteral("Connection Center"),
        QStringLiteral("Devices"),
        QStringLiteral("Options"),
        QStringLiteral("RemoteApps"),
        QStringLiteral("Preferences"),
        QStringLiteral("About"),
        QStringLiteral("-"),
        QString(),
        QStringLiteral("Orvanta Session Tracker"),
        QStringLiteral("Orvanta Mac Toolkit"),
    };
    return titles;
}

const QStringList& SessionDetector::excludedTitleFragments() {
    // Windows' text services expose their input-method and language-bar windows under these names.
    static const QStringList fragments{
        QStringLiteral("Cicero"),
        QStringLiteral("CiceroUIWndFrame"),
        QStringLiteral("MSCTFIME"),
        QStringLiteral("FloatingLangBar"),
        QStringLiteral("TF_FloatingLangBar"),
        QStringLiteral("Default IME"),
        QStringLiteral("MSCTFIME UI"),
        QStringLiteral("IME_"),
        QStringLiteral("UIWndFrame"),
        QStringLiteral("CTF"),
        QStringLiteral("TSF_"),
    };
    return fragments;
}

std::optional<Pid> SessionDetector::windowsAppPID(Workspace& workspace) {
    const QList<RunningApplication> instances = workspace.runningApplications(windowsAppBundleID);
    if (instances.isEmpty())
        return std::nullopt;
    return instances.first().pid;
}

bool SessionDetector::isExcludedTitle(const QString& title) {
    // The lists are normalised once; each title is normalised once for each rule.
    static const QSet<QString> titleKeys = [] {
        QSet<QString> keys;
        for (const QString& excluded : excludedTitles())
            keys.insert(text::canonicalKey(excluded));
        return keys;
    }();
    static const QStringList fragmentKeys = [] {
        QStringList keys;
        for (const QString& fragment : excludedTitleFragments())
            keys << text::caseInsensitiveKey(fragment);
        return keys;
    }();

    const QString trimmed = text::trimmed(title);
    if (titleKeys.contains(text::canonicalKey(trimmed)))
        return true;
    // Fragments match whole characters of the canonical text, so equal titles always get the same verdict.
    const QString key = text::caseInsensitiveKey(trimmed);
    return std::any_of(fragmentKeys.cbegin(), fragmentKeys.cend(),
                       [&](const QString& fragment) { return text::containsCharacters(key, fragment); });
}

SessionDetector::AXScanResult SessionDetector::scanAXWindows(const Platform& platform, Pid pid,
                                                             DebugCollector* collector) {
    Accessibility& ax = *platform.accessibility;
    AXScanResult result;

    const AXAttributeResult windowsRead =
        ax.copyAttributeValue(ax.applicationElement(pid), QStringLiteral("AXWindows"));
    const QList<AXElement>* windows =
        windowsRead.error == axError::success ? std::get_if<QList<AXElement>>(&windowsRead.value) : nullptr;
    if (!windows) {
        log(collector, QStringLiteral("AX windows query failed (result=%1)").arg(windowsRead.error));
        return result;
    }
    log(collector, QStringLiteral("AX windows: %1").arg(windows->size()));

    const Pid ownPid = platform.workspace->processId();
    QSet<QString> seenKeys; // canonical keys of namedTitles
    for (const AXElement& window : *windows) {
        const Pid windowPid = ax.elementPid(window).value_or(0);
        if (windowPid == ownPid) {
            log(collector,
                QStringLiteral("OWN-PID exclusion fired (winPid=%1). Should be unreachable.").arg(windowPid));
            continue;
        }

        const QString title = textAttribute(ax, window, QStringLiteral("AXTitle"));
        const QString subrole = textAttribute(ax, window, QStringLiteral("AXSubrole"));

        AXSize size;
        const AXAttributeResult sizeRead = ax.copyAttributeValue(window, QStringLiteral("AXSize"));
        if (sizeRead.error == axError::success)
            if (const AXSize* read = std::get_if<AXSize>(&sizeRead.value))
                size = *read;

        bool minimized = false;
        const AXAttributeResult minimizedRead = ax.copyAttributeValue(window, QStringLiteral("AXMinimized"));
        if (minimizedRead.error == axError::success)
            if (const bool* read = std::get_if<bool>(&minimizedRead.value))
                minimized = *read;

        const bool small = size.width < minimumWindowSide || size.height < minimumWindowSide;
        // Concatenated, not formatted: a title may itself contain "%1".
        log(collector, QLatin1String("  AX win title=\"") + title + QLatin1String("\" subrole=") + subrole +
                           QLatin1String(" size=") + integerPartForLog(size.width) + QLatin1Char('x') +
                           integerPartForLog(size.height) +
                           QLatin1String(minimized ? " min=true" : " min=false"));

        if (!title.isEmpty()) {
            if (!isExcludedTitle(title) && !small) {
                const QString key = text::canonicalKey(title);
                if (!seenKeys.contains(key)) {
                    seenKeys.insert(key);
                    result.namedTitles.append(title);
                }
            }
        } else if (subrole == QLatin1String("AXUnknown") && !small && !minimized) {
            ++result.unnamedCount;
        }
    }

    log(collector, QStringLiteral("AX detect: %1 named, %2 unnamed")
                       .arg(result.namedTitles.size())
                       .arg(result.unnamedCount));
    return result;
}

const QString& SessionDetector::appleScriptSource() {
    static const QString source = QStringLiteral("tell application \"System Events\"\n"
                                                 "    if exists (process \"") +
                                  windowsAppProcessName +
                                  QStringLiteral("\") then\n"
                                                 "        set output to \"\"\n"
                                                 "        set wList to every window of process \"") +
                                  windowsAppProcessName +
                                  QStringLiteral("\"\n"
                                                 "        repeat with w in wList\n"
                                                 "            try\n"
                                                 "                set wName to name of w\n"
                                                 "                set output to output & wName & linefeed\n"
                                                 "            end try\n"
                                                 "        end repeat\n"
                                                 "        return output\n"
                                                 "    end if\n"
                                                 "end tell");
    return source;
}

SessionDetector::AppleScriptQueryResult SessionDetector::queryAppleScriptWindows(const Platform& platform,
                                                                                 DebugCollector* collector) {
    AppleScriptQueryResult result;
    const AppleScriptOutcome outcome = platform.appleScript->run(appleScriptSource());
    if (std::holds_alternative<std::monostate>(outcome))
        return result;

    if (const auto* error = std::get_if<AppleScriptError>(&outcome)) {
        // Only an integer counts as the error number, at its full width; anything else (a text, a
        // floating-point number, a Boolean, an unsigned value beyond the signed range) reads as 0.
        const qint64 code = int64Value(error->info.value(appleScriptErrorNumberKey)).value_or(0);
        result.permissionDenied = code == appleEventNotPermitted || code == appleEventPrivilegeError;
        log(collector, QStringLiteral("AS detect: error code=%1 permissionDenied=%2")
                           .arg(code)
                           .arg(result.permissionDenied ? QStringLiteral("true") : QStringLiteral("false")));
        return result;
    }

    const QString text = std::get<AppleScriptResult>(outcome).text.value_or(QString());
    qsizetype rawCount = 0;
    for (const QStringView piece : QStringView(text).split(QLatin1Char('\n'))) {
        const QString name = text::trimmed(piece.toString());
        if (name.isEmpty())
            continue;
        ++rawCount;
        if (!isExcludedTitle(name))
            result.titles.append(name);
    }
    log(collector, QStringLiteral("AS detect: raw=%1 filtered=%2").arg(rawCount).arg(result.titles.size()));
    return result;
}

int SessionDetector::countLargeHiddenWindows(const Platform& platform, DebugCollector* collector) {
    QSet<Pid> clientPids;
    for (const RunningApplication& app : platform.workspace->runningApplications(windowsAppBundleID))
        clientPids.insert(app.pid);
    if (clientPids.isEmpty())
        return 0;

    const std::optional<QVariant> info =
        platform.windowServer->copyWindowInfo(windowList::excludeDesktopElements, windowList::nullWindow);
    if (!info || info->typeId() != QMetaType::QVariantList)
        return 0;
    const QVariantList entries = info->toList();
    for (const QVariant& entry : entries)
        if (entry.typeId() != QMetaType::QVariantMap)
            return 0;

    const auto isFloatingPoint = [](const QVariant& value) {
        return value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float;
    };

    int count = 0;
    for (const QVariant& entry : entries) {
        const QVariantMap window = entry.toMap();
        const QVariant owner = window.value(windowList::ownerPID);
        if (owner.typeId() != QMetaType::Int || !clientPids.contains(owner.toInt()))
            continue;
        const QVariant layer = window.value(windowList::layer);
        if (isNonZeroInteger(layer))
            continue;
        const QVariant boundsValue = window.value(windowList::bounds);
        if (boundsValue.typeId() != QMetaType::QVariantMap)
            continue;
        const QVariantMap bounds = boundsValue.toMap();
        const QVariant width = bounds.value(windowList::width);
        const QVariant height = bounds.value(windowList::height);
        if (!isFloatingPoint(width) || !isFloatingPoint(height))
            continue;
        if (width.toDouble() >= hiddenWindowMinimumWidth && height.toDouble() >= hiddenWindowMinimumHeight)
            ++count;
    }
    log(collector, QStringLiteral("CG tiebreaker: %1 large hidden window(s)").arg(count));
    return count;
}

DetectorStatus SessionDetector::detect(const Platform& platform, DebugCollector* collector) {
    if (collector) {
        const QDateTime now = platform.workspace->now().toUTC();
        collector->log(QStringLiteral("=== Detection @ ") +
                       now.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + QStringLiteral(" +0000 ==="));
    }
    if (!platform.accessibility->isProcessTrusted()) {
        log(collector, QStringLiteral("AX trust: NOT trusted"));
        return DetectorStatus::needsAXPermission();
    }
    log(collector, QStringLiteral("AX trust: ok"));

    const QList<RunningApplication> instances = platform.workspace->runningApplications(windowsAppBundleID);
    if (instances.isEmpty()) {
        log(collector,
            QStringLiteral("Windows App not running (bundle=") + windowsAppBundleID + QLatin1Char(')'));
        return DetectorStatus::appNotRunning();
    }
    const Pid pid = instances.first().pid;
    log(collector, QStringLiteral("Windows App pid=%1").arg(pid));

    const AXScanResult scan = scanAXWindows(platform, pid, collector);
    const AppleScriptQueryResult query = queryAppleScriptWindows(platform, collector);

    QList<SessionInfo> sessions;
    sessions.reserve(scan.namedTitles.size() + query.titles.size() + scan.unnamedCount);
    // Each title is normalised once and looked up in a set, so many windows cost no more than their number.
    QSet<QString> scannedKeys;
    scannedKeys.reserve(scan.namedTitles.size());
    for (const QString& title : scan.namedTitles) {
        sessions.append({title, SessionInfo::Source::axNamed});
        scannedKeys.insert(text::canonicalKey(title));
    }
    for (const QString& title : query.titles)
        if (!scannedKeys.contains(text::canonicalKey(title)))
            sessions.append({title, SessionInfo::Source::appleScript});
    for (int i = 0; i < scan.unnamedCount; ++i)
        sessions.append({std::nullopt, SessionInfo::Source::axUnnamed});

    if (sessions.isEmpty()) {
        const int hidden = countLargeHiddenWindows(platform, collector);
        for (int i = 0; i < hidden; ++i)
            sessions.append({std::nullopt, SessionInfo::Source::cgHidden});
    }

    if (sessions.isEmpty()) {
        if (query.permissionDenied) {
            log(collector, QStringLiteral("Result: needsAEPermission"));
            return DetectorStatus::needsAEPermission();
        }
        log(collector, QStringLiteral("Result: noActiveSession"));
        return DetectorStatus::noActiveSession();
    }
    log(collector, QStringLiteral("Result: sessions count=%1 named=%2 unnamed=%3")
                       .arg(sessions.size())
                       .arg(namedCount(sessions))
                       .arg(unnamedCount(sessions)));
    return DetectorStatus::withSessions(std::move(sessions));
}

} // namespace orvanta
