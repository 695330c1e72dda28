// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_COMMANDSENDERSOCKET_P_H
#define KAVRO_COMMANDSENDERSOCKET_P_H

#include <QAbstractSocket>
#include <QByteArray>
#include <QFile>
#include <QMutex>
#include <QObject>
#include <QQueue>

#include "tlssetup_p.h"

#include <atomic>
#include <functional>

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
 * as soon as a reply arrives, before that reply is announced. Messages the
 * peer sends of its own accord (see setUnsolicitedFilter()) are announced
 * without freeing the line. While the connection is down it is
 * re-established every "ReconnectIntervalMs" (5000 by default). A reply
 * overdue by the reply timeout, or a message larger than "MaxMessageSize",
 * tears the connection down and re-establishes it; the FIFO survives.
 *
 * What a connection holds is bounded: the socket buffers at most
 * readChunkSize bytes, the separator at most one frame and one chunk, and
 * no frame is cut while the previous one still waits to be announced, so a
 * peer that sends faster than its messages are handled is held back by TCP.
 *
 * With TLS (the settings, or setTls()) the connection counts as made once
 * the handshake has verified the server; a handshake that does not finish
 * within the reply timeout fails the attempt.
 *
 * The object lives on its owner's thread and is reached there; isConnected()
 * may be read from any thread.
 */
class CommandSenderSocket : public QObject
{
    Q_OBJECT

public:
    static constexpr int defaultReconnectInterval = 5000;
    static constexpr int defaultReplyTimeout = 30000;
    //! The most the socket reads ahead of the separator.
    static constexpr qint64 readChunkSize = 1024 * 1024;

    //! True for a message the peer sends of its own accord: it answers no request.
    using UnsolicitedFilter = std::function<bool(const QByteArray &message)>;

    CommandSenderSocket(const QString &host, quint16 port);
    ~CommandSenderSocket() override;
    Q_DISABLE_COPY_MOVE(CommandSenderSocket)

    bool isConnected() const;
    bool isAwaitingReply() const;
    int pendingCount() const;
    //! How often sl_connect() has started a connection attempt.
    int connectAttempts() const;
    bool isLogging() const;
    bool usesTls() const;
    //! True once the TLS handshake of the current connection has finished.
    bool isEncrypted() const;

    //! Milliseconds between connection attempts; set before the object moves to its thread.
    void setReconnectInterval(int milliseconds);
    //! Milliseconds a reply may take before the connection is re-established; 0 (or less) waits for ever.
    void setReplyTimeout(int milliseconds);
    void setUnsolicitedFilter(UnsolicitedFilter filter);
    /*!
     * Encrypts the connection as \a setup says, instead of as the settings
     * do; on the socket's thread. A connection that is up or being made is
     * made again at once.
     */
    void setTls(const TlsSetup &setup);

    /*!
     * Sends the request \a requestId, or queues it; may be called from any
     * thread. On the socket's own thread an idle line takes it at once, ahead
     * of the queue; from another thread it joins the end of the queue.
     */
    void post(const QString &requestId, const QByteArray &message);
    /*!
     * Takes a queued request back, from any thread; true when it was still
     * queued and so will never be sent, false when it has gone out already.
     */
    bool withdraw(const QString &requestId);
    /*!
     * The caller of \a requestId stopped waiting for its overdue reply: when
     * it is the request on the wire, the line is reset as the watchdog would.
     */
    void abandonOutstanding(const QString &requestId);
    //! Drops the connection, with whatever is on the wire, and re-establishes it later.
    void reconnect();
    /*!
     * On the socket's thread: hands the next queued request to an idle line
     * and writes out what is buffered, without waiting for the peer. For a
     * client about to go away, so that a request made just before still
     * leaves (a file's release right before the program ends).
     */
    void flushForShutdown();

Q_SIGNALS:
    void si_newMessage(QByteArray message);
    void si_connected();
    void si_disconnected();
    //! The reply to \a requestId is overdue; the connection is re-established right after.
    void si_replyOverdue(QString requestId);
    //! A connection attempt begins.
    void si_connecting();
    //! The connection, or the attempt to make one, failed with \a error; \a text is the system's account.
    void si_socketError(QAbstractSocket::SocketError error, QString text);
    //! A message of \a size bytes was refused as too large; the connection is re-established.
    void si_messageRefused(qint64 size);

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
    void handshakeOverdue(int attempt);

private:
    void openMessageLog();
    void writeLogEntry(const char *direction, const QByteArray &message);
    void startReconnectTimer();
    void tearDown();
    void setConnected(bool connected);
    void sendNextPending();
    void put(const QString &requestId, const QByteArray &message);
    void createSocket();

    struct Request {
        QString id;
        QByteArray message;
    };
    QQueue<Request> m_pending;
    QString m_outstanding;
    mutable QMutex m_queueMutex; // guards m_pending, which other threads post to
    UnsolicitedFilter m_unsolicited;
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
    TlsSetup m_tls;
};

} // namespace Kavro

#endif
