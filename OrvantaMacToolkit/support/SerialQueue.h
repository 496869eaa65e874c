#pragma once

#include <QObject>
#include <QString>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

namespace orvanta {

class Mailbox;

// A thread with its own event loop that runs blocks one at a time, in the order they were handed in.
// Blocks may be handed in from any thread. Destroying the queue lets the block that is running finish
// and skips every block still waiting, so owners can hand out work that refers to them without keeping
// them alive.
class SerialQueue {
public:
    enum class Priority { normal, utility };

    explicit SerialQueue(const QString& label, Priority priority = Priority::normal);
    ~SerialQueue();

    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    QString label() const { return m_thread.objectName(); }

    // The object that lives on the queue's thread; timers and connections that must run on the queue
    // use it as their context.
    QObject* context() const;
    bool isCurrent() const { return QThread::currentThread() == &m_thread; }

    void async(std::function<void()> block);
    // Runs the block on the queue `ms` milliseconds after this call, or as soon after as the queue is free.
    // The timer is created on the queue itself, so the caller need not have an event loop.
    void after(int ms, std::function<void()> block);
    // Runs the block on the queue and waits for it; runs it directly when called on the queue.
    void sync(const std::function<void()>& block);
    // Waits until every block handed in before this call has run.
    void drain() {
        sync([] {});
    }

private:
    std::function<void()> guarded(std::function<void()> block) const;

    QThread m_thread;
    Mailbox* m_mailbox = nullptr; // lives on m_thread
    std::shared_ptr<std::atomic_bool> m_open = std::make_shared<std::atomic_bool>(true);
    std::shared_ptr<std::mutex> m_end = std::make_shared<std::mutex>();
};

} // namespace orvanta
