// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "commandsendersocket_p.h"

#include "settings_p.h"
#include "trace_p.h"
#include "xmlseparator_p.h"

#include <QDateTime>
#include <QDir>
#include <QHostAddress>
#include <QSslSocket>
#include <QThread>
#include <QTimer>

namespace Kavro
{

namespace
{
QString logDirectory(const QString &dataDirectory)
{
    return dataDirectory + QDir::separator() + QStringLiteral("Logging") + QDir::separator();
}

QString addressText(const QTcpSocket *socket, bool local)
{
    if (!socket || socket->state() != QAbstractSocket::ConnectedState)
        return QString();
    return (local ? socket->localAddress() : socket->peerAddress()).toString();
}
} // namespace

CommandSenderSocket::CommandSenderSocket(const QString &host, quint16 port)
    : m_host(host)
    , m_port(port)
{
    const Settings settings(Settings::kavroSection());
    m_reconnectInterval = settings.intValue(QStringLiteral("ReconnectIntervalMs"), defaultReconnectInterval);
    m_maxMessageSize = settings.intValue(QStringLiteral("MaxMessageSize"), XmlSeparator::defaultMaxMessageSize);
    m_tls = TlsSetup::fromSettings(settings);
    openMessageLog();
    QMetaObject::invokeMethod(this, "sl_connect", Qt::QueuedConnection);
}

CommandSenderSocket::~CommandSenderSocket() = default;

bool CommandSenderSocket::isConnected() const
{
    return m_connected.load();
}

bool CommandSenderSocket::isAwaitingReply() const
{
    return m_awaitingReply;
}

int CommandSenderSocket::pendingCount() const
{
    const QMutexLocker locker(&m_queueMutex);
    return m_pending.size();
}

int CommandSenderSocket::connectAttempts() const
{
    return m_connectAttempts;
}

bool CommandSenderSocket::isLogging() const
{
    return m_logEnabled;
}

bool CommandSenderSocket::usesTls() const
{
    return m_tls.enabled;
}

bool CommandSenderSocket::isEncrypted() const
{
    const auto *ssl = qobject_cast<const QSslSocket *>(m_socket);
    return ssl && ssl->isEncrypted();
}

void CommandSenderSocket::setReconnectInterval(int milliseconds)
{
    m_reconnectInterval = milliseconds;
    if (m_reconnectTimer)
        m_reconnectTimer->setInterval(milliseconds);
}

void CommandSenderSocket::setReplyTimeout(int milliseconds)
{
    m_replyTimeout = milliseconds;
}

void CommandSenderSocket::setUnsolicitedFilter(UnsolicitedFilter filter)
{
    m_unsolicited = std::move(filter);
}

void CommandSenderSocket::setTls(const TlsSetup &setup)
{
    m_tls = setup;
    if (!m_socket)
        return;
    tearDown();
    sl_connect();
}

void CommandSenderSocket::openMessageLog()
{
    // Logging is switched on by a marker file, once per object.
    const Settings admin(Settings::adminSection());
    const QString directory = logDirectory(admin.stringValue(QStringLiteral("SirelDataDir"), QString()));
    m_logEnabled = QFile::exists(directory + QStringLiteral("logkavromessages.txt"));
    if (!m_logEnabled)
        return;
    const QString name = QStringLiteral("%1_%2_kavromessages.txt")
                             .arg(QDate::currentDate().toString(QStringLiteral("yyyyMMdd")))
                             .arg(reinterpret_cast<quintptr>(QThread::currentThread()));
    m_logFile.setFileName(directory + name);
    if (!m_logFile.open(QIODevice::WriteOnly | QIODevice::Append))
        KAVRO_TRACE_INFO(QStringLiteral("Could not open kavro message log"));
}

void CommandSenderSocket::writeLogEntry(const char *direction, const QByteArray &message)
{
    if (!m_logEnabled || !m_logFile.isOpen() || !m_logFile.isWritable())
        return;
    // A sent message goes from the local address to the peer, a received one back.
    const bool sent = qstrcmp(direction, "TX") == 0;
    const QString header =
        QStringLiteral("\n\n%1: %2 ('%3' -> '%4')\n")
            .arg(QDateTime::currentDateTime().toString(QStringLiteral("dd.MM.yyyy T hh:mm:ss.zzz")),
                 QLatin1String(direction), addressText(m_socket, sent), addressText(m_socket, !sent));
    m_logFile.write(header.toLatin1());
    m_logFile.flush();
    m_logFile.write(message);
    m_logFile.flush();
}

void CommandSenderSocket::sl_connect()
{
    if (!m_reconnectTimer) {
        m_reconnectTimer = new QTimer(this);
        m_reconnectTimer->setInterval(m_reconnectInterval);
        connect(m_reconnectTimer, &QTimer::timeout, this, &CommandSenderSocket::sl_connect);
        m_replyTimer = new QTimer(this);
        m_replyTimer->setSingleShot(true);
        m_replyTimer->setTimerType(Qt::PreciseTimer);
        connect(m_replyTimer, &QTimer::timeout, this, &CommandSenderSocket::replyOverdue);
    }
    m_reconnectTimer->stop();

    if (!m_tls.problem.isEmpty()) {
        // Settings that cannot be used fail every attempt, before the network is touched.
        Q_EMIT si_socketError(QAbstractSocket::SslInvalidUserDataError, m_tls.problem);
        startReconnectTimer();
        return;
    }
    if (!m_socket)
        createSocket();
    ++m_connectAttempts;
    Q_EMIT si_connecting();
    if (auto *ssl = qobject_cast<QSslSocket *>(m_socket))
        ssl->connectToHostEncrypted(m_host, m_port, QIODevice::ReadWrite);
    else
        m_socket->connectToHost(m_host, m_port, QIODevice::ReadWrite);
    if (!m_socket) {
        // An error signalled during the call has torn the socket down already.
        KAVRO_TRACE_INFO(QStringLiteral("Probably you're trying to connect to the wrong host (%1) and port (%2)")
                             .arg(m_host)
                             .arg(m_port));
        return;
    }

    m_socket->setReadBufferSize(readChunkSize);
    if (m_separator) {
        disconnect(m_separator, nullptr, this, nullptr);
        delete m_separator;
    }
    m_separator = new XmlSeparator(m_socket, XmlSeparator::LengthPrefixLittleEndian, m_socket);
    m_separator->setMaxMessageSize(m_maxMessageSize);
    connect(m_separator, &XmlSeparator::xmlReceived, this, &CommandSenderSocket::sl_handleNewMessage);
    connect(m_separator, &XmlSeparator::errorOccured, this, &CommandSenderSocket::sl_handleXmlError);
    connect(m_separator, &XmlSeparator::messageTooLarge, this, &CommandSenderSocket::messageTooLarge);
}

// A TLS connection counts as made once its handshake has verified the server, and the handshake must finish
// in the time a reply may take.
void CommandSenderSocket::createSocket()
{
    if (!m_tls.enabled) {
        m_socket = new QTcpSocket(this);
        connect(m_socket, &QTcpSocket::connected, this, &CommandSenderSocket::sl_connected);
    } else {
        auto *ssl = new QSslSocket(this);
        ssl->setSslConfiguration(m_tls.configuration);
        connect(ssl, &QSslSocket::encrypted, this, &CommandSenderSocket::sl_connected);
        connect(ssl, &QSslSocket::connected, this, [this] {
            if (m_replyTimeout > 0)
                QTimer::singleShot(m_replyTimeout, m_socket, [this, attempt = m_connectAttempts] {
                    handshakeOverdue(attempt);
                });
        });
        m_socket = ssl;
    }
    connect(m_socket, &QTcpSocket::disconnected, this, &CommandSenderSocket::sl_disconnected);
    connect(m_socket, &QTcpSocket::errorOccurred, this, &CommandSenderSocket::sl_handleTcpError);
    connect(m_socket, &QTcpSocket::stateChanged, this, &CommandSenderSocket::sl_stateChanged);
}

void CommandSenderSocket::handshakeOverdue(int attempt)
{
    if (attempt != m_connectAttempts || isEncrypted())
        return;
    const QString text = QStringLiteral("no TLS handshake within %1 ms").arg(m_replyTimeout);
    KAVRO_TRACE_WARNING(QStringLiteral("CommandSender::HandleTcpError: %1").arg(text));
    Q_EMIT si_socketError(QAbstractSocket::SslHandshakeFailedError, text);
    tearDown();
}

void CommandSenderSocket::sl_connected()
{
    setConnected(true);
    m_lastSocketError = -2;
    Q_EMIT si_connected();
}

void CommandSenderSocket::sl_stateChanged(QAbstractSocket::SocketState state)
{
    // Over TLS the connection is made once the handshake is, whatever the state of the socket underneath.
    setConnected(m_socket && m_socket->isValid() && state == QAbstractSocket::ConnectedState
                 && (!m_tls.enabled || isEncrypted()));
}

void CommandSenderSocket::sl_disconnected()
{
    setConnected(false);
    m_awaitingReply = false;
    m_outstanding.clear();
    m_replyTimer->stop();
    startReconnectTimer();
    Q_EMIT si_disconnected();
}

void CommandSenderSocket::sl_handleTcpError(QAbstractSocket::SocketError error)
{
    const QString text = m_socket ? m_socket->errorString() : QString();
    if (m_socket && m_socket->error() != m_lastSocketError) {
        m_lastSocketError = m_socket->error();
        KAVRO_TRACE_WARNING(QStringLiteral("CommandSender::HandleTcpError: %1").arg(text));
    }
    // Told before the connection goes, so a failure is told apart from the loss it causes.
    Q_EMIT si_socketError(error, text);
    tearDown();
}

void CommandSenderSocket::replyOverdue()
{
    KAVRO_TRACE_WARNING(QStringLiteral("CommandSenderSocket: no reply within %1 ms, reconnecting").arg(m_replyTimeout));
    // Whoever waits for this request learns that it is overdue before the connection goes.
    Q_EMIT si_replyOverdue(m_outstanding);
    tearDown();
}

void CommandSenderSocket::messageTooLarge(qint64 size)
{
    KAVRO_TRACE_WARNING(QStringLiteral("CommandSenderSocket: refused a message of %1 bytes, more than %2; reconnecting")
                            .arg(size)
                            .arg(m_maxMessageSize));
    Q_EMIT si_messageRefused(size);
    tearDown();
}

void CommandSenderSocket::reconnect()
{
    if (m_socket)
        tearDown();
}

void CommandSenderSocket::tearDown()
{
    m_awaitingReply = false;
    m_outstanding.clear();
    m_replyTimer->stop();
    if (m_separator) {
        // The separator may be the caller (a refused message): it goes with the event loop.
        disconnect(m_separator, nullptr, this, nullptr);
        m_separator->deleteLater();
        m_separator = nullptr;
    }
    if (m_socket) {
        // Unhooked first: closing with bytes unwritten changes the state at once, which must not
        // pass for the announcement below.
        disconnect(m_socket, nullptr, this, nullptr);
        if (m_socket->isValid())
            m_socket->disconnectFromHost();
        m_socket->deleteLater();
        m_socket = nullptr;
    }
    startReconnectTimer();
    // Whoever waits on this connection learns that it is gone, however it went.
    if (m_connected.load()) {
        setConnected(false);
        Q_EMIT si_disconnected();
    }
}

void CommandSenderSocket::startReconnectTimer()
{
    if (m_reconnectTimer)
        m_reconnectTimer->start();
    else
        KAVRO_TRACE_INFO(QStringLiteral("CommandSenderSocket: no reconnect timer!"));
}

void CommandSenderSocket::setConnected(bool connected)
{
    m_connected.store(connected);
}

void CommandSenderSocket::sl_sendMessage(QByteArray message)
{
    post(QString(), message);
}

void CommandSenderSocket::post(const QString &requestId, const QByteArray &message)
{
    if (QThread::currentThread() == thread() && m_separator && !m_awaitingReply) {
        put(requestId, message);
        return;
    }
    {
        const QMutexLocker locker(&m_queueMutex);
        m_pending.enqueue({requestId, message});
    }
    if (QThread::currentThread() != thread())
        QMetaObject::invokeMethod(this, &CommandSenderSocket::sendNextPending, Qt::QueuedConnection);
}

bool CommandSenderSocket::withdraw(const QString &requestId)
{
    const QMutexLocker locker(&m_queueMutex);
    for (auto request = m_pending.begin(); request != m_pending.end(); ++request) {
        if (request->id == requestId) {
            m_pending.erase(request);
            return true;
        }
    }
    return false;
}

void CommandSenderSocket::abandonOutstanding(const QString &requestId)
{
    if (m_awaitingReply && m_outstanding == requestId)
        replyOverdue();
}

void CommandSenderSocket::put(const QString &requestId, const QByteArray &message)
{
    m_awaitingReply = true;
    m_outstanding = requestId;
    if (m_replyTimeout > 0)
        m_replyTimer->start(m_replyTimeout);
    m_separator->sendXml(message);
    writeLogEntry("TX", message);
}

void CommandSenderSocket::flushForShutdown()
{
    sendNextPending();
    if (m_socket)
        m_socket->flush();
}

void CommandSenderSocket::sendNextPending()
{
    if (!m_separator || m_awaitingReply)
        return;
    Request request;
    {
        const QMutexLocker locker(&m_queueMutex);
        if (m_pending.isEmpty())
            return;
        request = m_pending.dequeue();
    }
    put(request.id, request.message);
}

void CommandSenderSocket::sl_sendAnswer(QByteArray message)
{
    if (!m_separator || !isConnected()) {
        KAVRO_TRACE_WARNING(QStringLiteral("CommandSenderSocket: not connected, answer dropped"));
        return;
    }
    m_separator->sendXml(message);
    writeLogEntry("TX", message);
}

void CommandSenderSocket::sl_handleNewMessage(QByteArray message)
{
    writeLogEntry("RX", message);
    // A message the peer sends of its own accord answers nothing: the line stays taken.
    if (!m_unsolicited || !m_unsolicited(message)) {
        m_awaitingReply = false;
        m_outstanding.clear();
        m_replyTimer->stop();
        sendNextPending();
    }
    Q_EMIT si_newMessage(message);
}

void CommandSenderSocket::sl_handleXmlError(QString text)
{
    KAVRO_TRACE_INFO(QStringLiteral("CommandSenderSocket: XML Error: %1").arg(text));
}

} // namespace Kavro
