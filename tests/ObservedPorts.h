#pragma once

// Ports that forward to a simulated desktop and note which thread asked, and can hold the System Events
// query until the test lets it go.

#include "platform/simulated/SimulatedDesktop.h"

#include <QElapsedTimer>
#include <QMutex>
#include <QSemaphore>
#include <QThread>

#include <atomic>

namespace orvanta::testing {

class ObservedPorts final : public platform::Accessibility,
                            public platform::AppleScriptHost,
                            public platform::AppleEvents {
public:
    explicit ObservedPorts(platform::SimulatedDesktop& desktop) : m_desktop(desktop) { m_clock.start(); }

    platform::Platform platform() {
        platform::Platform ports = m_desktop.platform();
        ports.accessibility = this;
        ports.appleScript = this;
        ports.appleEvents = this;
        return ports;
    }

    // The names of the threads that checked trust, in order.
    QStringList trustThreads() const {
        QMutexLocker lock(&m_mutex);
        return m_trustThreads;
    }

    // The names of the threads that asked for the Apple Events permission with the consent prompt, in order.
    QStringList requestThreads() const {
        QMutexLocker lock(&m_mutex);
        return m_requestThreads;
    }

    // Milliseconds since the ports were made, on the clock that times the permission checks.
    qint64 elapsed() const { return m_clock.elapsed(); }
    QList<qint64> permissionCheckTimes() const {
        QMutexLocker lock(&m_mutex);
        return m_permissionCheckTimes;
    }
    // When each trust check came, in nanoseconds on the same clock.
    qint64 elapsedNanos() const { return m_clock.nsecsElapsed(); }
    QList<qint64> trustCheckNanos() const {
        QMutexLocker lock(&m_mutex);
        return m_trustCheckNanos;
    }

    std::atomic_int permissionChecks{0};
    std::atomic_bool holdScript{false};
    QSemaphore scriptEntered;
    QSemaphore scriptReleased;

    bool isProcessTrusted() override {
        {
            QMutexLocker lock(&m_mutex);
            m_trustThreads << QThread::currentThread()->objectName();
            m_trustCheckNanos << m_clock.nsecsElapsed();
        }
        return m_desktop.isProcessTrusted();
    }
    platform::AXElement applicationElement(platform::Pid pid) override {
        return m_desktop.applicationElement(pid);
    }
    platform::AXAttributeResult copyAttributeValue(const platform::AXElement& element,
                                                   const QString& attribute) override {
        return m_desktop.copyAttributeValue(element, attribute);
    }
    std::optional<platform::Pid> elementPid(const platform::AXElement& element) override {
        return m_desktop.elementPid(element);
    }
    int performAction(const platform::AXElement& element, const QString& action) override {
        return m_desktop.performAction(element, action);
    }
    int setMessagingTimeout(const platform::AXElement& element, float seconds) override {
        return m_desktop.setMessagingTimeout(element, seconds);
    }

    platform::AppleScriptOutcome run(const QString& source) override {
        if (holdScript) {
            scriptEntered.release();
            scriptReleased.acquire();
        }
        return m_desktop.run(source);
    }

    int determinePermissionToAutomate(const QString& bundleId, bool askUser) override {
        const int status = m_desktop.determinePermissionToAutomate(bundleId, askUser);
        {
            QMutexLocker lock(&m_mutex);
            m_permissionCheckTimes << m_clock.elapsed();
            if (askUser)
                m_requestThreads << QThread::currentThread()->objectName();
        }
        ++permissionChecks;
        return status;
    }

private:
    platform::SimulatedDesktop& m_desktop;
    QElapsedTimer m_clock;
    mutable QMutex m_mutex;
    QStringList m_trustThreads;
    QStringList m_requestThreads;
    QList<qint64> m_permissionCheckTimes;
    QList<qint64> m_trustCheckNanos;
};

} // namespace orvanta::testing
