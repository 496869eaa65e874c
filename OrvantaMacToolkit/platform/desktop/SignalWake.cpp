#include "SignalWake.h"

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

int wakePipe[2] = {-1, -1};
struct sigaction previousAction;

void onUserSignal(int) {
    const int savedErrno = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakePipe[1], &byte, 1);
    errno = savedErrno;
}

} // namespace
#endif

UserSignalWake::UserSignalWake(QObject* parent) : QObject(parent) {
#ifdef Q_OS_UNIX
    if (wakePipe[0] >= 0 || ::pipe(wakePipe) != 0)
        return;
    for (const int fd : wakePipe) {
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
    m_notifier = new QSocketNotifier(wakePipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &UserSignalWake::drain);

    struct sigaction action = {};
    action.sa_handler = onUserSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGUSR1, &action, &previousAction);
#endif
}

UserSignalWake::~UserSignalWake() {
#ifdef Q_OS_UNIX
    if (!m_notifier)
        return;
    ::sigaction(SIGUSR1, &previousAction, nullptr);
    delete m_notifier;
    m_notifier = nullptr;
    ::close(wakePipe[0]);
    ::close(wakePipe[1]);
    wakePipe[0] = wakePipe[1] = -1;
#endif
}

void UserSignalWake::drain() {
#ifdef Q_OS_UNIX
    char bytes[64];
    ssize_t count;
    while ((count = ::read(wakePipe[0], bytes, sizeof bytes)) > 0)
        for (ssize_t i = 0; i < count; ++i)
            Q_EMIT received();
#endif
}

} // namespace orvanta::platform::desktop
