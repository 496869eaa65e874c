#pragma once

#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

namespace orvanta {

// The three diagnostic scripts delivered beside the application, with every constant that belongs to one
// of them. A value type: compare, switch on and hash it like the enumeration it wraps.
class ScriptCatalog {
public:
    enum Case : quint8 { connectorReach, networkMonitor, traceRoute };

    // A default value exists only so the type can sit in containers and QVariant.
    constexpr ScriptCatalog() noexcept = default;
    constexpr ScriptCatalog(Case value) noexcept : m_value(value) {}
    constexpr operator Case() const noexcept { return m_value; }

    // The three cases in declaration order.
    static const QList<ScriptCatalog>& allCases();

    QString title() const;
    QString fileName() const;     // the script file in the scripts folder
    QString reportPrefix() const; // how the names of its HTML reports on the Desktop begin
    QString summary() const;      // help text of the card's "Run" control
    QString openLatestHelp() const;
    QString details() const; // long description behind the card's information icon
    // The maker's help article for the script, when one is configured.
    std::optional<QUrl> helpArticle() const;

private:
    Case m_value = connectorReach;
};

inline size_t qHash(ScriptCatalog script, size_t seed = 0) {
    return ::qHash(static_cast<uint>(ScriptCatalog::Case(script)), seed);
}

// The run lengths offered for the Network Monitor, in the order of the duration picker.
class MonitorDuration {
public:
    enum Case : quint8 {
        fifteenMin,
        thirtyMin,
        oneHour,
        twoHours,
        fourHours,
        eightHours,
        twelveHours,
        untilStopped
    };

    constexpr MonitorDuration() noexcept = default;
    constexpr MonitorDuration(Case value) noexcept : m_value(value) {}
    constexpr operator Case() const noexcept { return m_value; }

    static const QList<MonitorDuration>& allCases();

    QString label() const;
    // What the Network Monitor's command line gets after the script path; empty for one hour, the
    // script's own default length.
    QStringList scriptArguments() const;

private:
    Case m_value = oneHour;
};

inline size_t qHash(MonitorDuration duration, size_t seed = 0) {
    return ::qHash(static_cast<uint>(MonitorDuration::Case(duration)), seed);
}

// The initial choice of the duration picker, and its help text.
inline constexpr MonitorDuration defaultMonitorDuration = MonitorDuration::oneHour;
inline const QString monitorDurationHelp = QStringLiteral(
    "Choose how long the Network Monitor runs. 'Until stopped' runs continuously until you click Cancel.");

// The arguments for a run of `script`: the duration's arguments for the Network Monitor, none otherwise.
QStringList argumentsFor(ScriptCatalog script, MonitorDuration duration);

} // namespace orvanta

Q_DECLARE_METATYPE(orvanta::ScriptCatalog)
Q_DECLARE_METATYPE(orvanta::MonitorDuration)
