#include "SerialQueue.h"

#include "Mailbox.h"

#include <QDeadlineTimer>

#include <chrono>

#include <condition_variable>

namespace orvanta {

SerialQueue::SerialQueue(const QString& label, Priority priority) {
    m_thread.setObjectName(label);
    m_mailbox = new Mailbox;
    m_mailbox->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, m_mailbox, &QObject::deleteLater);
    // The thread's last step under a standard mutex: QThread::wait() alone is invisible to ThreadSanitizer.
    QObject::connect(
        &m_thread, &QThread::finished, m_mailbox, [end = m_end] { std::lock_guard lock(*end); },
        Qt::DirectConnection);
    m_thread.start(priority == Priority::utility ? QThread::LowPriority : QThread::InheritPriority);
}

SerialQueue::~SerialQueue() {
    m_open->store(false);
    m_mailbox->close();
    m_thread.quit();
    m_thread.wait();
    std::lock_guard lock(*m_end);
    // The mailbox was deleted on the queue's own thread as it finished; its pending events went with it.
}

QObject* SerialQueue::context() const {
    return m_mailbox;
}

std::function<void()> SerialQueue::guarded(std::function<void()> block) const {
    return [open = m_open, block = std::move(block)] {
        if (open->load())
            block();
    };
}

void SerialQueue::async(std::function<void()> block) {
    m_mailbox->post(std::move(block));
}

void SerialQueue::after(int ms, std::function<void()> block) {
    // The delay counts from this call, not from when the queue gets round to arming the timer: a block
    // that is running now must not push the delayed one back by its own length.
    const QDeadlineTimer due(std::chrono::milliseconds(ms), Qt::PreciseTimer);
    // A timer that comes due while the queue is being destroyed must not run its block.
    async([this, due, block = guarded(std::move(block))] {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(due.remainingTimeAsDuration());
        QTimer::singleShot(left, Qt::PreciseTimer, m_mailbox, block);
    });
}

void SerialQueue::sync(const std::function<void()>& block) {
    if (isCurrent()) {
        block();
        return;
    }
    std::mutex mutex;
    std::condition_variable ran;
    bool done = false;
    const bool posted = m_mailbox->post([&] {
        block();
        std::lock_guard lock(mutex);
        done = true;
        ran.notify_one();
    });
    if (!posted)
        return;
    std::unique_lock lock(mutex);
    ran.wait(lock, [&] { return done; });
}

} // namespace orvanta
