#include "Mailbox.h"

#include <QMetaObject>

namespace orvanta {

Mailbox::~Mailbox() {
    // The mailbox may end on another thread than the one that closed it; the lock orders the two.
    std::lock_guard lock(m_mutex);
    m_pending.clear();
}

bool Mailbox::post(std::function<void()> function) {
    std::lock_guard lock(m_mutex);
    if (!m_open)
        return false;
    m_pending.push_back(std::move(function));
    if (!m_wakePosted) {
        m_wakePosted = true;
        // Posted under the mutex, which deliver() takes before anything else: that orders Qt's allocation of
        // the event before its deletion on the other thread for ThreadSanitizer too. Invoked by name, so
        // that no function object of ours travels through Qt's queue.
        QMetaObject::invokeMethod(this, "deliver", Qt::QueuedConnection);
    }
    return true;
}

void Mailbox::close() {
    std::deque<std::function<void()>> dropped;
    {
        std::lock_guard lock(m_mutex);
        m_open = false;
        dropped.swap(m_pending);
    }
}

bool Mailbox::isOpen() const {
    std::lock_guard lock(m_mutex);
    return m_open;
}

void Mailbox::deliver() {
    for (;;) {
        std::function<void()> function;
        {
            std::lock_guard lock(m_mutex);
            if (m_pending.empty()) {
                m_wakePosted = false;
                return;
            }
            function = std::move(m_pending.front());
            m_pending.pop_front();
        }
        function();
    }
}

} // namespace orvanta
