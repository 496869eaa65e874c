#include "app/ProcessEnd.h"

#include <cstdio>
#include <cstdlib>

namespace orvanta::app {

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
