#pragma once

#include <QObject>

#include <deque>
#include <functional>
#include <mutex>

namespace orvanta {

// Runs functions handed in from any thread on the thread the mailbox lives on, one at a time, in the order
// they were handed in. The functions travel under a standard mutex, not only through Qt's event queue, so
// the hand-off is visible to ThreadSanitizer even though Qt itself is not built with it. The owner must
// keep the mailbox alive while other threads may still post to it.
class Mailbox : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    ~Mailbox() override;

    // False, and nothing runs, once the mailbox is closed.
    bool post(std::function<void()> function);
    // Refuses further functions and drops those still waiting; one that is running finishes.
    void close();
    bool isOpen() const;

private Q_SLOTS:
    void deliver();

private:
    mutable std::mutex m_mutex;
    std::deque<std::function<void()>> m_pending;
    bool m_open = true;
    bool m_wakePosted = false; // a deliver() is on its way and will see everything pending
};

} // namespace orvanta
