// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_COMMANDSENDERSOCKET_P_H
#define KAVRO_COMMANDSENDERSOCKET_P_H

#include <QAbstractSocket>
#include <QByteArray>
#include <QFile>
#include <QObject>
#include <QQueue>

#include <atomic>

QT_BEGIN_NAMESPACE
class QTcpSocket;
class QTimer;
QT_END_NAMESPACE

namespace Kavro
{

class XmlSeparator;

/*!
 * \brief The one TCP connection to the archive server.
 *
 * Messages travel behind a 4-byte little-endian length. Only one request is
 * outstanding at a time: later ones wait in a FIFO, and the next one goes out
 * as soon as a message arrives, before that message is announced. While the
 * connection is down it is re-established every "ReconnectIntervalMs" (5000
 * by default). A reply overdue by "ReplyTimeoutMs", or a message larger than
 * "MaxMessageSize", tears the connection down and re-establishes it; the FIFO
 * survives.
 *
 * The object lives on its own thread and is reached through queued calls;
 * isConnected() may be read from any thread.
 */
class CommandSenderSocket : public QObject
{
    Q_OBJECT

public:
    static constexpr int defaultReconnectInterval = 5000;
    static constexpr int defaultReplyTimeout = 30000;

    CommandSenderSocket(const QString &host, quint16 port);
    ~CommandSenderSocket() override;
    Q_DISABLE_COPY_MOVE(CommandSenderSocket)

    bool isConnected() const;
    bool isAwaitingReply() const;
    int pendingCount() const;
    //! How often sl_connect() has started a connection attempt.
    int connectAttempts() const;
    bool isLogging() const;

    //! Milliseconds between connection attempts; set before the object moves to its thread.
    void setReconnectInterval(int milliseconds);
    //! Milliseconds a reply may take before the connection is re-established; 0 waits for ever.
    void setReplyTimeout(int milliseconds);

Q_SIGNALS:
    void si_newMessage(QByteArray message);
    void si_connected();
    void si_disconnected();

public Q_SLOTS:
    void sl_sendMessage(QByteArray message);
    //! Sends a message that expects no reply, such as an answer to the server, without taking the line.
    void sl_sendAnswer(QByteArray message);
    void sl_handleNewMessage(QByteArray message);
    void sl_handleXmlError(QString text);
    void sl_connect();
    void sl_connected();
    void sl_disconnected();
    void sl_handleTcpError(QAbstractSocket::SocketError error);
    void sl_stateChanged(QAbstractSocket::SocketState state);

private Q_SLOTS:
    void replyOverdue();
    void messageTooLarge(qint64 size);

private:
    void openMessageLog();
    void writeLogEntry(const char *direction, const QByteArray &message);
    void startReconnectTimer();
    void tearDown();
    void setConnected(bool connected);

    QQueue<QByteArray> m_pending;
    bool m_awaitingReply = false;
    XmlSeparator *m_separator = nullptr;
    QTcpSocket *m_socket = nullptr;
    int m_lastSocketError = -2;
    int m_connectAttempts = 0;
    std::atomic<bool> m_connected{false};
    QTimer *m_reconnectTimer = nullptr;
    QTimer *m_replyTimer = nullptr;
    bool m_logEnabled = false;
    QFile m_logFile;
    const QString m_host;
    const quint16 m_port;
    int m_reconnectInterval = defaultReconnectInterval;
    int m_replyTimeout = defaultReplyTimeout;
    qint64 m_maxMessageSize;
};

} // namespace Kavro

#endif
