#include "app/ProcessEnd.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cstdio>
#include <cstdlib>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace orvanta::app {

#ifdef Q_OS_UNIX
namespace {

int terminationPipe[2] = {-1, -1};
constexpr int endingSignals[] = {SIGTERM, SIGINT};
struct sigaction previousActions[std::size(endingSignals)];

void onTerminationSignal(int) {
    const int savedErrno = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(terminationPipe[1], &byte, 1);
    errno = savedErrno;
}

} // namespace
#endif

TerminationSignals::TerminationSignals(QObject* parent) : QObject(parent) {
#ifdef Q_OS_UNIX
    if (terminationPipe[0] >= 0 || ::pipe(terminationPipe) != 0)
        return;
    for (const int fd : terminationPipe) {
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
    m_notifier = new QSocketNotifier(terminationPipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [] {
        char bytes[16];
        while (::read(terminationPipe[0], bytes, sizeof bytes) > 0) {
        }
        QCoreApplication::quit();
    });

    struct sigaction action = {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (size_t i = 0; i < std::size(endingSignals); ++i)
        ::sigaction(endingSignals[i], &action, &previousActions[i]);
#endif
}

TerminationSignals::~TerminationSignals() {
#ifdef Q_OS_UNIX
    if (!m_notifier)
        return;
    for (size_t i = 0; i < std::size(endingSignals); ++i)
        ::sigaction(endingSignals[i], &previousActions[i], nullptr);
    delete m_notifier;
    m_notifier = nullptr;
    ::close(terminationPipe[0]);
    ::close(terminationPipe[1]);
    terminationPipe[0] = terminationPipe[1] = -1;
#endif
}

ExitDeadline::~ExitDeadline() {
    {
        std::lock_guard lock(m_mutex);
        m_finished = true;
    }
    m_done.notify_all();
    if (m_watch.joinable())
        m_watch.join();
}

void ExitDeadline::arm(std::chrono::milliseconds grace, int status) {
    if (m_watch.joinable())
        return;
    m_watch = std::thread([this, grace, status] {
        std::unique_lock lock(m_mutex);
        if (m_done.wait_for(lock, grace, [this] { return m_finished; }))
            return;
        // Whatever is still being torn down holds nothing that needs saving; what was printed must not be
        // lost, though.
        std::fflush(stdout);
        std::fflush(stderr);
        std::_Exit(status);
    });
}

} // namespace orvanta::app
