#include "ScriptCatalog.h"

namespace orvanta {

namespace {

// The maker's help articles. Fill in an address to make the card's information icon open it; an empty
// text means the icon only shows the description.
const QString connectorReachArticle;
const QString networkMonitorArticle;

std::optional<QUrl> article(const QString& address) {
    if (address.isEmpty())
        return std::nullopt;
    return QUrl(address);
}

} // namespace

const QList<ScriptCatalog>& ScriptCatalog::allCases() {
    static const QList<ScriptCatalog> cases{connectorReach, networkMonitor, traceRoute};
    return cases;
}

QString ScriptCatalog::title() const {
    switch (m_value) {
    case connectorReach:
        return QStringLiteral("Connector Reachability");
    case networkMonitor:
        return QStringLiteral("Network Monitor");
    case traceRoute:
        return QStringLiteral("Trace Route");
    }
    return {};
}

QString ScriptCatalog::fileName() const {
    switch (m_value) {
    case connectorReach:
        return QStringLiteral("orvanta-mac-client-reach.zsh");
    case networkMonitor:
        return QStringLiteral("orvanta-mac-network-monitor.zsh");
    case traceRoute:
        return QStringLiteral("orvanta-mac-traceroute.zsh");
    }
    return {};
}

QString ScriptCatalog::reportPrefix() const {
    switch (m_value) {
    case connectorReach:
        return QStringLiteral("OrvantaMacClientReach_");
    case networkMonitor:
        return QStringLiteral("OrvantaNetMonitor_");
    case traceRoute:
        return QStringLiteral("OrvantaTraceRoute_");
    }
    return {};
}

QString ScriptCatalog::summary() const {
    switch (m_value) {
    case connectorReach:
        return QStringLiteral(
            "Run a one-shot reachability check against Orvanta endpoints and active relays. "
            "Produces an HTML report on the Desktop.");
    case networkMonitor:
        return QStringLiteral(
            "Run a network monitor probing Orvanta and your network for the duration selected "
            "to the left. Produces an HTML report with outage clusters and per-target stats.");
    case traceRoute:
        return QStringLiteral(
            "Run a hop-by-hop network trace to the Orvanta front end, the latest known relay, "
            "and the default gateway. Produces an HTML report on the Desktop.");
    }
    return {};
}

QString ScriptCatalog::openLatestHelp() const {
    switch (m_value) {
    case connectorReach:
        return QStringLiteral("Open the most recent Connector Reachability HTML report.");
    case networkMonitor:
        return QStringLiteral("Open the most recent Network Monitor HTML report.");
    case traceRoute:
        return QStringLiteral("Open the most recent Trace Route HTML report.");
    }
    return {};
}

QString ScriptCatalog::details() const {
    switch (m_value) {
    case connectorReach:
        return QStringLiteral(
            "The Connector Reachability script runs a one-shot health check of Orvanta endpoints (TLS "
            "handshake "
            "plus certificate inspection), the system proxy configuration, the running Orvanta Mac "
            "Connector, "
            "and the assigned RDP relay if a session is active. Produces an HTML report on the Desktop.");
    case networkMonitor:
        return QStringLiteral(
            "The Network Monitor passively probes five targets (public DNS, your local gateway, the Orvanta "
            "front end, the active relay if a session is open) every two seconds for the duration you pick "
            "(default 1 hour, up to 12 hours, or until you stop it). Clusters any outages it sees and "
            "produces "
            "a correlation verdict explaining which side of the path failed.");
    case traceRoute:
        return QStringLiteral(
            "Runs a network trace to the Orvanta front end, the latest known relay IP, and your default "
            "gateway. Shows the hop-by-hop path your packets take through the internet and highlights where "
            "latency or routing problems originate. Useful when reachability or monitor diagnostics flag a "
            "problem but don't tell you where in the path it lives.");
    }
    return {};
}

std::optional<QUrl> ScriptCatalog::helpArticle() const {
    switch (m_value) {
    case connectorReach:
        return article(connectorReachArticle);
    case networkMonitor:
        return article(networkMonitorArticle);
    case traceRoute:
        return std::nullopt;
    }
    return std::nullopt;
}

const QList<MonitorDuration>& MonitorDuration::allCases() {
    static const QList<MonitorDuration> cases{fifteenMin, thirtyMin,  oneHour,     twoHours,
                                              fourHours,  eightHours, twelveHours, untilStopped};
    return cases;
}

QString MonitorDuration::label() const {
    switch (m_value) {
    case fifteenMin:
        return QStringLiteral("15 min");
    case thirtyMin:
        return QStringLiteral("30 min");
    case oneHour:
        return QStringLiteral("1 hour");
    case twoHours:
        return QStringLiteral("2 hours");
    case fourHours:
        return QStringLiteral("4 hours");
    case eightHours:
        return QStringLiteral("8 hours");
    case twelveHours:
        return QStringLiteral("12 hours");
    case untilStopped:
        return QStringLiteral("Until stopped");
    }
    return {};
}

QStringList MonitorDuration::scriptArguments() const {
    const auto minutes = [](int count) {
        return QStringList{QStringLiteral("--duration"), QString::number(count)};
    };
    switch (m_value) {
    case fifteenMin:
        return minutes(15);
    case thirtyMin:
        return minutes(30);
    case oneHour:
        return {};
    case twoHours:
        return minutes(120);
    case fourHours:
        return minutes(240);
    case eightHours:
        return minutes(480);
    case twelveHours:
        return minutes(720);
    case untilStopped:
        return {QStringLiteral("--indefinite")};
    }
    return {};
}

QStringList argumentsFor(ScriptCatalog script, MonitorDuration duration) {
    return script == ScriptCatalog::networkMonitor ? duration.scriptArguments() : QStringList{};
}

} // namespace orvanta
