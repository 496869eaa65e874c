#include "SimulatedDesktop.h"

#include "platform/desktop/DesktopServices.h"

#include <QCoreApplication>
#include <QMutexLocker>
#include <QThread>

#include <cstdio>

namespace orvanta::platform {

namespace {

// An element of the simulated tree: an application, or one of its windows by position.
struct SimElement final : AXElementHandle {
    SimElement(Pid p, qsizetype i) : appPid(p), windowIndex(i) {}
    Pid appPid;
    qsizetype windowIndex; // -1 for the application element
};

const SimElement* simElement(const AXElement& element) {
    return dynamic_cast<const SimElement*>(element.get());
}

const QString systemEventsClientName = QStringLiteral("Windows App");

} // namespace

SimWindow SimWindow::make(const QString& title, double width, double height, const QString& subrole,
                          bool minimized) {
    SimWindow window;
    window.title = AXValue(title);
    window.subrole = AXValue(subrole);
    window.size = AXValue(AXSize{width, height});
    window.minimized = AXValue(minimized);
    return window;
}

SimulatedDesktop::SimulatedDesktop(SimWorld world, QObject* parent)
    : Workspace(parent), m_world(std::move(world)) {
    m_clock.start();
}

Platform SimulatedDesktop::platform() {
    return Platform{this, this, this, this, this};
}

SimWorld SimulatedDesktop::world() const {
    QMutexLocker lock(&m_mutex);
    return m_world;
}

void SimulatedDesktop::setWorld(SimWorld world) {
    QMutexLocker lock(&m_mutex);
    m_world = std::move(world);
}

void SimulatedDesktop::updateWorld(const std::function<void(SimWorld&)>& change) {
    QMutexLocker lock(&m_mutex);
    change(m_world);
}

QList<SimulatedDesktop::Action> SimulatedDesktop::actions() const {
    QMutexLocker lock(&m_mutex);
    return m_actions;
}

QStringList SimulatedDesktop::actionDescriptions() const {
    QStringList descriptions;
    for (const Action& action : actions())
        descriptions << action.description;
    return descriptions;
}

void SimulatedDesktop::clearActions() {
    QMutexLocker lock(&m_mutex);
    m_actions.clear();
}

QStringList SimulatedDesktop::messagingTimeouts() const {
    QMutexLocker lock(&m_mutex);
    return m_messagingTimeouts;
}

QString SimulatedDesktop::lastAppleScriptSource() const {
    QMutexLocker lock(&m_mutex);
    return m_lastSource;
}

int SimulatedDesktop::appleScriptRuns() const {
    QMutexLocker lock(&m_mutex);
    return m_appleScriptRuns;
}

void SimulatedDesktop::simulateWake() {
    Q_EMIT didWake();
}

void SimulatedDesktop::record(const QString& description) {
    {
        QMutexLocker lock(&m_mutex);
        m_actions.append({description, m_clock.elapsed()});
    }
    if (m_reportActions) {
        std::fprintf(stderr, "simulated desktop: %s\n", qUtf8Printable(description));
        std::fflush(stderr);
    }
    Q_EMIT actionRecorded(description);
}

const SimWindow* SimulatedDesktop::windowLocked(const AXElement& element) const {
    const SimElement* sim = simElement(element);
    if (!sim || sim->windowIndex < 0)
        return nullptr;
    const auto it = m_world.windows.constFind(sim->appPid);
    if (it == m_world.windows.constEnd() || sim->windowIndex >= it->size())
        return nullptr;
    return &it->at(sim->windowIndex);
}

// ---- Accessibility ---------------------------------------------------------------------------------

bool SimulatedDesktop::isProcessTrusted() {
    QMutexLocker lock(&m_mutex);
    return m_world.accessibilityTrusted;
}

AXElement SimulatedDesktop::applicationElement(Pid pid) {
    return std::make_shared<SimElement>(pid, -1);
}

AXAttributeResult SimulatedDesktop::copyAttributeValue(const AXElement& element, const QString& attribute) {
    QMutexLocker lock(&m_mutex);
    if (!m_world.accessibilityTrusted)
        return {axError::apiDisabled, {}};
    const SimElement* sim = simElement(element);
    if (!sim)
        return {axError::illegalArgument, {}};

    if (sim->windowIndex < 0) {
        if (attribute != QLatin1String("AXWindows"))
            return {axError::attributeUnsupported, {}};
        if (const auto error = m_world.windowsError.constFind(sim->appPid);
            error != m_world.windowsError.constEnd())
            return {*error, {}};
        const auto windows = m_world.windows.constFind(sim->appPid);
        if (windows == m_world.windows.constEnd()) {
            const bool running =
                std::any_of(m_world.runningApplications.cbegin(), m_world.runningApplications.cend(),
                            [&](const RunningApplication& app) { return app.pid == sim->appPid; });
            if (!running)
                return {axError::cannotComplete, {}};
            return {axError::success, AXValue(QList<AXElement>{})};
        }
        QList<AXElement> elements;
        for (qsizetype i = 0; i < windows->size(); ++i)
            elements.append(std::make_shared<SimElement>(sim->appPid, i));
        return {axError::success, AXValue(elements)};
    }

    const SimWindow* window = windowLocked(element);
    if (!window)
        return {axError::invalidUIElement, {}};
    const std::optional<AXValue>* slot = nullptr;
    if (attribute == QLatin1String("AXTitle"))
        slot = &window->title;
    else if (attribute == QLatin1String("AXSubrole"))
        slot = &window->subrole;
    else if (attribute == QLatin1String("AXSize"))
        slot = &window->size;
    else if (attribute == QLatin1String("AXMinimized"))
        slot = &window->minimized;
    if (!slot)
        return {axError::attributeUnsupported, {}};
    if (!slot->has_value())
        return {window->readErrors.value(attribute, axError::noValue), {}};
    return {axError::success, **slot};
}

std::optional<Pid> SimulatedDesktop::elementPid(const AXElement& element) {
    QMutexLocker lock(&m_mutex);
    const SimElement* sim = simElement(element);
    if (!sim)
        return std::nullopt;
    if (sim->windowIndex < 0)
        return sim->appPid;
    const SimWindow* window = windowLocked(element);
    if (!window || window->ownerUnknown)
        return std::nullopt;
    return window->pid.value_or(sim->appPid);
}

int SimulatedDesktop::performAction(const AXElement& element, const QString& action) {
    QString description;
    {
        QMutexLocker lock(&m_mutex);
        const SimElement* sim = simElement(element);
        const SimWindow* window = windowLocked(element);
        if (!sim || !window)
            return axError::invalidUIElement;
        const QString* title = window->title ? std::get_if<QString>(&*window->title) : nullptr;
        description = QStringLiteral("%1 pid=%2 window=%3 title=\"%4\"")
                          .arg(action)
                          .arg(sim->appPid)
                          .arg(sim->windowIndex)
                          .arg(title ? *title : QString());
    }
    record(description);
    return axError::success;
}

int SimulatedDesktop::setMessagingTimeout(const AXElement& element, float seconds) {
    const SimElement* sim = simElement(element);
    if (!sim || seconds < 0)
        return axError::illegalArgument;
    QMutexLocker lock(&m_mutex);
    m_messagingTimeouts.append(
        QStringLiteral("pid=%1 window=%2 %3s").arg(sim->appPid).arg(sim->windowIndex).arg(double(seconds)));
    return axError::success;
}

// ---- AppleScript -----------------------------------------------------------------------------------

AppleScriptOutcome SimulatedDesktop::run(const QString& source) {
    int delayMs = 0;
    {
        QMutexLocker lock(&m_mutex);
        delayMs = m_world.appleScriptDelayMs;
    }
    if (delayMs > 0) {
        record(QStringLiteral("System Events answers in %1 ms").arg(delayMs));
        QThread::msleep(static_cast<unsigned long>(delayMs));
    }
    QMutexLocker lock(&m_mutex);
    m_lastSource = source;
    ++m_appleScriptRuns;
    if (m_world.appleScript)
        return *m_world.appleScript;

    // System Events as macOS answers the window-name query: the first process of that name, the names of
    // its windows that have one, each followed by a line feed; nothing when there is no such process.
    // Windows that another process owns are not that process's windows.
    const auto client =
        std::find_if(m_world.runningApplications.cbegin(), m_world.runningApplications.cend(),
                     [](const RunningApplication& app) { return app.name == systemEventsClientName; });
    if (client == m_world.runningApplications.cend())
        return AppleScriptResult{std::nullopt};
    QString names;
    for (const SimWindow& window : m_world.windows.value(client->pid)) {
        if (window.pid.value_or(client->pid) != client->pid)
            continue;
        if (window.title)
            if (const QString* title = std::get_if<QString>(&*window.title))
                names += *title + QLatin1Char('\n');
    }
    return AppleScriptResult{names};
}

// ---- Window server ---------------------------------------------------------------------------------

std::optional<QVariant> SimulatedDesktop::copyWindowInfo(quint32, quint32) {
    QMutexLocker lock(&m_mutex);
    switch (m_world.windowServer.kind) {
    case SimWindowList::Kind::none:
        return std::nullopt;
    case SimWindowList::Kind::given:
        return m_world.windowServer.value;
    case SimWindowList::Kind::derived:
        break;
    }
    QVariantList list;
    for (auto it = m_world.windows.cbegin(); it != m_world.windows.cend(); ++it) {
        for (const SimWindow& window : it.value()) {
            const Pid owner = window.pid.value_or(it.key());
            const bool running =
                std::any_of(m_world.runningApplications.cbegin(), m_world.runningApplications.cend(),
                            [&](const RunningApplication& app) { return app.pid == owner; });
            if (!running)
                continue;
            AXSize size;
            if (window.size)
                if (const AXSize* given = std::get_if<AXSize>(&*window.size))
                    size = *given;
            QVariantMap bounds{{QStringLiteral("X"), 0.0},
                               {QStringLiteral("Y"), 0.0},
                               {windowList::width, size.width},
                               {windowList::height, size.height}};
            list.append(QVariantMap{{windowList::ownerPID, QVariant::fromValue<qint32>(owner)},
                                    {windowList::layer, QVariant::fromValue<qint32>(0)},
                                    {windowList::bounds, bounds}});
        }
    }
    return QVariant(list);
}

// ---- Apple Events ----------------------------------------------------------------------------------

int SimulatedDesktop::determinePermissionToAutomate(const QString& bundleId, bool askUser) {
    if (askUser)
        record(QStringLiteral("ask permission to automate %1").arg(bundleId));
    QMutexLocker lock(&m_mutex);
    return m_world.appleEventsStatus;
}

// ---- Workspace -------------------------------------------------------------------------------------

QList<RunningApplication> SimulatedDesktop::runningApplications(const QString& bundleId) {
    QMutexLocker lock(&m_mutex);
    QList<RunningApplication> found;
    for (const RunningApplication& app : m_world.runningApplications)
        if (app.bundleIdentifier == bundleId)
            found.append(app);
    return found;
}

bool SimulatedDesktop::activateApplication(Pid pid, unsigned options) {
    {
        QMutexLocker lock(&m_mutex);
        const bool running =
            std::any_of(m_world.runningApplications.cbegin(), m_world.runningApplications.cend(),
                        [&](const RunningApplication& app) { return app.pid == pid; });
        if (!running)
            return false;
    }
    record(QStringLiteral("activate pid=%1 options=%2").arg(pid).arg(options));
    return true;
}

void SimulatedDesktop::activateSelf() {
    record(QStringLiteral("activate self"));
}

bool SimulatedDesktop::openUrl(const QUrl& url) {
    record(QStringLiteral("open %1").arg(url.toString()));
    return m_openForReal ? desktop::openWithDefaultApplication(url) : true;
}

bool SimulatedDesktop::moveToTrash(const QString& path) {
    record(QStringLiteral("trash %1").arg(path));
    return desktop::moveToTrash(path);
}

Pid SimulatedDesktop::processId() {
    QMutexLocker lock(&m_mutex);
    return m_world.ownPid.value_or(static_cast<Pid>(QCoreApplication::applicationPid()));
}

QDateTime SimulatedDesktop::now() {
    QMutexLocker lock(&m_mutex);
    return m_world.now.value_or(QDateTime::currentDateTimeUtc());
}

} // namespace orvanta::platform
