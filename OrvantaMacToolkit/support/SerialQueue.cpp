#include "SerialQueue.h"

#include <QMetaObject>

namespace orvanta {

SerialQueue::SerialQueue(const QString& label, Priority priority) {
    m_thread.setObjectName(label);
    m_context = new QObject;
    m_context->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, m_context, &QObject::deleteLater);
    m_thread.start(priority == Priority::utility ? QThread::LowPriority : QThread::InheritPriority);
}

SerialQueue::~SerialQueue() {
    m_open->store(false);
    m_thread.quit();
    m_thread.wait();
    // The context was deleted by the finished signal on the queue's own thread; its pending events
    // went with it.
}

std::function<void()> SerialQueue::guarded(std::function<void()> block) const {
    return [open = m_open, block = std::move(block)] {
        if (open->load())
            block();
    };
}

void SerialQueue::async(std::function<void()> block) {
    QMetaObject::invokeMethod(m_context, guarded(std::move(block)), Qt::QueuedConnection);
}

void SerialQueue::after(int ms, std::function<void()> block) {
    async([this, ms, block = guarded(std::move(block))] {
        QTimer::singleShot(ms, Qt::PreciseTimer, m_context, block);
    });
}

void SerialQueue::sync(const std::function<void()>& block) {
    if (isCurrent()) {
        block();
        return;
    }
    QMetaObject::invokeMethod(m_context, block, Qt::BlockingQueuedConnection);
}

} // namespace orvanta
