#include "SignalNotifier.h"

#include <QSocketNotifier>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace orvanta::platform::desktop {

#ifdef Q_OS_UNIX
namespace {

// Per signal number: the pipe its handler writes to, and the handler it replaced.
int writeEnds[NSIG];
struct sigaction previousActions[NSIG];
bool watched[NSIG];

void onSignal(int signalNumber) {
    const int savedErrno = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(writeEnds[signalNumber], &byte, 1);
    errno = savedErrno;
}

} // namespace
#endif

SignalNotifier::SignalNotifier(std::initializer_list<int> signalNumbers, QObject* parent) : QObject(parent) {
#ifdef Q_OS_UNIX
    for (const int signalNumber : signalNumbers)
        if (signalNumber <= 0 || signalNumber >= NSIG || watched[signalNumber])
            return;
    if (::pipe(m_pipe) != 0)
        return;
    for (const int fd : m_pipe) {
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
    m_notifier = new QSocketNotifier(m_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SignalNotifier::drain);

    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : signalNumbers) {
        watched[signalNumber] = true;
        writeEnds[signalNumber] = m_pipe[1];
        ::sigaction(signalNumber, &action, &previousActions[signalNumber]);
        m_signals.append(signalNumber);
    }
#else
    Q_UNUSED(signalNumbers);
#endif
}

SignalNotifier::~SignalNotifier() {
#ifdef Q_OS_UNIX
    if (!m_notifier)
        return;
    for (const int signalNumber : std::as_const(m_signals)) {
        ::sigaction(signalNumber, &previousActions[signalNumber], nullptr);
        watched[signalNumber] = false;
    }
    delete m_notifier;
    ::close(m_pipe[0]);
    ::close(m_pipe[1]);
#endif
}

void SignalNotifier::drain() {
#ifdef Q_OS_UNIX
    char bytes[64];
    ssize_t count;
    while ((count = ::read(m_pipe[0], bytes, sizeof bytes)) > 0)
        for (ssize_t i = 0; i < count; ++i)
            Q_EMIT received();
#endif
}

} // namespace orvanta::platform::desktop
