#include "app/SingleInstance.h"

#include <QLocalServer>
#include <QLocalSocket>

namespace orvanta {

namespace {

const QByteArray showMessage = QByteArrayLiteral("show\n");
constexpr int connectTimeoutMs = 1000;

} // namespace

SingleInstance::SingleInstance(QString key, QObject* parent) : QObject(parent), m_key(std::move(key)) {}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultKey() {
    QString user = qEnvironmentVariable("USER");
    if (user.isEmpty())
        user = qEnvironmentVariable("USERNAME");
    return QStringLiteral("orvanta-mac-toolkit-") + user;
}

SingleInstance::Role SingleInstance::claim() {
    {
        QLocalSocket socket;
        socket.connectToServer(m_key);
        if (socket.waitForConnected(connectTimeoutMs)) {
            socket.write(showMessage);
            socket.waitForBytesWritten(connectTimeoutMs);
            socket.disconnectFromServer();
            return Role::secondary;
        }
    }

    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    // Nobody answered, so a socket file left by a copy that crashed is stale.
    QLocalServer::removeServer(m_key);
    if (!m_server->listen(m_key)) {
        delete m_server;
        m_server = nullptr;
        return Role::unavailable;
    }
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnections);
    return Role::primary;
}

void SingleInstance::acceptConnections() {
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        auto readRequests = [this, socket] {
            while (socket->canReadLine()) {
                if (socket->readLine() == showMessage)
                    Q_EMIT showRequested();
            }
        };
        connect(socket, &QLocalSocket::readyRead, this, readRequests);
        readRequests(); // what arrived before the connection was taken
    }
}

} // namespace orvanta
