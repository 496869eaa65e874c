#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

namespace orvanta {

// Keeps one running copy per user: the first launch listens on a local socket, later launches ask it to
// show its toolkit window and leave.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    enum class Role { primary, secondary, unavailable };

    explicit SingleInstance(QString key = defaultKey(), QObject* parent = nullptr);
    ~SingleInstance() override;

    // Becomes the primary copy, or, when one already runs, asks it to show its window.
    Role claim();

    static QString defaultKey();

Q_SIGNALS:
    void showRequested();

private:
    void acceptConnections();

    QString m_key;
    QLocalServer* m_server = nullptr;
};

} // namespace orvanta
