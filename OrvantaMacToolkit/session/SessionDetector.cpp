#include "SessionDetector.h"

#include "support/TextRules.h"

#include <cmath>
#include <limits>

namespace orvanta {

using namespace platform;

namespace {

void log(DebugCollector* collector, const QString& line) {
    if (collector)
        collector->log(line);
}

// Integer part of a size for the log: truncated toward zero; NaN reads as 0 and the infinities saturate.
qint64 truncatedForLog(double value) {
    if (std::isnan(value))
        return 0;
    constexpr double limit = 9.0e18;
    if (value >= limit)
        return std::numeric_limits<qint64>::max();
    if (value <= -limit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value);
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
        QStringLiteral("Cicero"),      QStringLiteral("CiceroUIWndFrame"),   QStringLiteral("MSCTFIME"),
        QStringLiteral("FloatingLangBar"), QStringLiteral("TF_FloatingLangBar"), QStringLiteral("Default IME"),
        QStringLiteral("MSCTFIME UI"), QStringLiteral("IME_"),               QStringLiteral("UIWndFrame"),
        QStringLiteral("CTF"),         QStringLiteral("TSF_"),
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
    // The lists are normalised once; each title is normalised and upper-cased once.
    static const QStringList decomposedTitles = [] {
        QStringList titles;
        for (const QString& excluded : excludedTitles())
            titles << excluded.normalized(QString::NormalizationForm_D);
        return titles;
    }();
    static const QStringList upperFragments = [] {
        QStringList fragments;
        for (const QString& fragment : excludedTitleFragments())
            fragments << text::fullUpper(fragment);
        return fragments;
    }();

    const QString trimmed = text::trimmed(title);
    if (decomposedTitles.contains(trimmed.normalized(QString::NormalizationForm_D)))
        return true;
    const QString upper = text::fullUpper(trimmed);
    return std::any_of(upperFragments.cbegin(), upperFragments.cend(),
                       [&](const QString& fragment) { return upper.contains(fragment); });
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
    for (const AXElement& window : *windows) {
        const Pid windowPid = ax.elementPid(window).value_or(0);
        if (windowPid == ownPid) {
            log(collector, QStringLiteral("OWN-PID exclusion fired (winPid=%1). Should be unreachable.").arg(windowPid));
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
                           QLatin1String(" size=") + QString::number(truncatedForLog(size.width)) +
                           QLatin1Char('x') + QString::number(truncatedForLog(size.height)) +
                           QLatin1String(minimized ? " min=true" : " min=false"));

        if (!title.isEmpty()) {
            if (!isExcludedTitle(title) && !small) {
                const bool seen = std::any_of(result.namedTitles.cbegin(), result.namedTitles.cend(),
                                              [&](const QString& t) { return text::canonicallyEqual(t, title); });
                if (!seen)
                    result.namedTitles.append(title);
            }
        } else if (subrole == QLatin1String("AXUnknown") && !small && !minimized) {
            ++result.unnamedCount;
        }
    }

    log(collector, QStringLiteral("AX detect: %1 named, %2 unnamed").arg(result.namedTitles.size()).arg(result.unnamedCount));
    return result;
}

} // namespace orvanta
