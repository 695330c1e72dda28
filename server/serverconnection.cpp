// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "serverconnection.h"

#include "archiveserver.h"
#include "serverlog.h"
#include "xmlseparator_p.h"

#include <kavro/kavroerrorstring.h>

#include <QSslSocket>

namespace Kavro::Server
{

namespace
{
// What the socket itself takes from the network ahead of the separator.
constexpr qint64 s_socketReadBuffer = 64 << 10;

// A TLS ClientHello: a handshake record (0x16, version 3.x, its length) that begins with a ClientHello (1) as long as
// the record less the hello's own 4-byte header. No request of the protocol begins so.
bool isTlsClientHello(const QByteArray &head)
{
    if (head.size() < 9)
        return false;
    const auto byte = [&head](int i) {
        return int(quint8(head.at(i)));
    };
    const int recordLength = byte(3) << 8 | byte(4);
    const int helloLength = byte(6) << 16 | byte(7) << 8 | byte(8);
    return byte(0) == 0x16 && byte(1) == 0x03 && byte(5) == 0x01 && helloLength == recordLength - 4;
}
} // namespace

ServerConnection::ServerConnection(QTcpSocket *socket, ArchiveServer *server, ConnectionId id,
                                   const ServerLimits &limits)
    : QObject(server)
    , m_socket(socket)
    , m_server(server)
    , m_id(id)
    , m_limits(limits)
    , m_peer(socket->peerAddress().toString() + QLatin1Char(':') + QString::number(socket->peerPort()))
{
    socket->setParent(this);
    socket->setReadBufferSize(s_socketReadBuffer);
    // Replies and handshake messages go out as they are written, not after the peer's delayed acknowledgement.
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    auto *ssl = qobject_cast<QSslSocket *>(socket);
    if (ssl) {
        connect(ssl, &QSslSocket::encrypted, this, &ServerConnection::encrypted);
        connect(ssl, &QSslSocket::errorOccurred, this, &ServerConnection::failed);
    } else {
        // Ahead of the separator, which would take a handshake for a length.
        connect(socket, &QIODevice::readyRead, this, &ServerConnection::refuseUnexpectedHandshake);
    }
    m_separator = new XmlSeparator(socket, XmlSeparator::AutoDetect, this);
    m_separator->setMaxMessageSize(m_limits.maxRequestSize);
    // Plain XML by its first character, else a little-endian length unless only a big-endian one fits.
    m_separator->setDetection(XmlSeparator::Detection::FirstCharacter);
    // After the separator has taken what arrived: how much the connection holds now.
    connect(socket, &QIODevice::readyRead, this, &ServerConnection::bytesArrived);
    connect(m_separator, &XmlSeparator::xmlReceived, this, &ServerConnection::received);
    connect(m_separator, &XmlSeparator::messageTooLarge, this, [this](qint64 size) {
        logLine(QStringLiteral("%1: refused a message of %2 bytes or more (at most %3); closing the connection")
                    .arg(m_peer)
                    .arg(size)
                    .arg(m_limits.maxRequestSize));
        m_socket->abort();
    });
    connect(m_separator, &XmlSeparator::errorOccured, this, [this](const QString &error) {
        // Plain XML that is not well-formed cannot be resynchronised.
        logLine(QStringLiteral("%1: unreadable XML (%2); closing the connection").arg(m_peer, error));
        SoapMessage reply;
        reply.element = QStringLiteral("Reply");
        reply.setError(ErrorSoapParsing, error);
        send(m_server->framed(reply));
        m_socket->disconnectFromHost();
    });
    connect(socket, &QTcpSocket::bytesWritten, this, &ServerConnection::readOn);
    connect(socket, &QTcpSocket::disconnected, this, &ServerConnection::closed);
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, &ServerConnection::deadlinePassed);
    // The handshake counts as part of the wait for the first request.
    m_deadline.start(m_limits.idleTimeoutMs);
    if (ssl)
        ssl->startServerEncryption();
}

void ServerConnection::encrypted()
{
    auto *ssl = static_cast<QSslSocket *>(m_socket);
    if (ssl->peerVerifyMode() != QSslSocket::VerifyPeer)
        return;
    m_user = ssl->peerCertificate().subjectInfo(QSslCertificate::CommonName).value(0);
    if (m_user.isEmpty()) {
        logLine(QStringLiteral("%1: its certificate names no user (common name); closing the connection").arg(m_peer));
        m_socket->abort();
    }
}

void ServerConnection::failed(QAbstractSocket::SocketError error)
{
    auto *ssl = static_cast<QSslSocket *>(m_socket);
    if (ssl->isEncrypted() || error == QAbstractSocket::RemoteHostClosedError)
        return;
    logLine(
        QStringLiteral("%1: TLS handshake failed (%2); closing the connection").arg(m_peer, m_socket->errorString()));
    m_socket->abort();
    // A socket that never counted as connected does not say that it is gone.
    if (m_socket->state() == QAbstractSocket::UnconnectedState)
        closed();
}

void ServerConnection::refuseUnexpectedHandshake()
{
    disconnect(m_socket, &QIODevice::readyRead, this, &ServerConnection::refuseUnexpectedHandshake);
    if (!isTlsClientHello(m_socket->peek(9)))
        return;
    logLine(
        QStringLiteral("%1: sent a TLS handshake, but this server serves no TLS; closing the connection").arg(m_peer));
    m_socket->abort();
}

void ServerConnection::closed()
{
    if (!std::exchange(m_closed, true))
        m_server->connectionClosed(this);
}

ServerConnection::~ServerConnection() = default;

void ServerConnection::close()
{
    m_socket->disconnectFromHost();
}

void ServerConnection::send(const QByteArray &document)
{
    if (m_socket->state() == QAbstractSocket::ConnectedState)
        m_separator->sendXml(document);
}

void ServerConnection::received(const QByteArray &document)
{
    // One request at a time: the rest stays unread until its reply is on its way.
    m_separator->pause();
    m_answering = true;
    m_hadRequest = true;
    m_requestSize = document.size();
    m_deadline.stop();
    reportMemory();
    m_server->answer(this, document);
}

void ServerConnection::finishRequest(const QByteArray &reply)
{
    if (!reply.isEmpty())
        send(reply);
    m_answering = false;
    m_requestSize = 0;
    reportMemory();
    for (const auto &work : std::exchange(m_afterReply, {}))
        work();
    readOn();
    watchDeadline();
}

void ServerConnection::afterReply(const std::function<void()> &work)
{
    if (m_answering)
        m_afterReply.append(work);
    else
        work();
}

void ServerConnection::memoryFreed()
{
    m_waitingForMemory = false;
    readOn();
}

void ServerConnection::readOn()
{
    if (m_answering || m_waitingForMemory || m_socket->state() != QAbstractSocket::ConnectedState)
        return;
    const bool unread = m_socket->bytesToWrite() > m_limits.maxUnsentReplies;
    if (unread && !std::exchange(m_repliesPiledUp, true))
        logLine(QStringLiteral("%1: does not read its replies (%2 bytes unsent); its requests wait")
                    .arg(m_peer)
                    .arg(m_socket->bytesToWrite()));
    if (unread)
        return;
    m_repliesPiledUp = false;
    m_separator->resume();
}

void ServerConnection::bytesArrived()
{
    if (m_answering)
        return;
    reportMemory();
    watchDeadline();
}

// What the connection holds or is about to: a frame is claimed whole once its length is known, and an
// unfinished plain document past the free share may grow to the largest request.
qint64 ServerConnection::bytesHeld() const
{
    const qint64 held = m_separator->heldBytes() + m_socket->bytesAvailable();
    qint64 claimed = qMax(held, m_separator->announcedBytes());
    if (m_separator->mode() == XmlSeparator::PlainXml && held > m_limits.freeShare)
        claimed = qMax(claimed, m_limits.maxRequestSize);
    return claimed + m_requestSize;
}

void ServerConnection::watchDeadline()
{
    // A request that has begun must be whole in time; before the first one, the idle timeout runs.
    if (!m_answering && bytesHeld() > 0 && !m_deadline.isActive())
        m_deadline.start(m_limits.requestTimeoutMs);
}

void ServerConnection::reportMemory()
{
    if (!m_server->holdMemory(this, bytesHeld()) && !m_answering) {
        m_waitingForMemory = true;
        m_separator->pause();
    }
}

void ServerConnection::deadlinePassed()
{
    if (m_answering || m_waitingForMemory) {
        m_deadline.start(m_limits.requestTimeoutMs); // not this connection's doing
        return;
    }
    logLine(m_hadRequest ? QStringLiteral("%1: a request did not arrive whole within %2 s; closing the connection")
                               .arg(m_peer)
                               .arg(m_limits.requestTimeoutMs / 1000)
                         : QStringLiteral("%1: no request within %2 s; closing the connection")
                               .arg(m_peer)
                               .arg(m_limits.idleTimeoutMs / 1000));
    m_socket->abort();
}

} // namespace Kavro::Server
