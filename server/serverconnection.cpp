// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "serverconnection.h"

#include "archiveserver.h"
#include "xmlseparator_p.h"

#include <QTcpSocket>

#include <cstdio>

namespace Kavro::Server
{

void logLine(const QString &line)
{
    std::fprintf(stderr, "kavro-server: %s\n", line.toLocal8Bit().constData());
    std::fflush(stderr);
}

ServerConnection::ServerConnection(QTcpSocket *socket, ArchiveServer *server)
    : QObject(server)
    , m_socket(socket)
    , m_separator(new XmlSeparator(socket, XmlSeparator::AutoDetect, this))
    , m_server(server)
    , m_peer(socket->peerAddress().toString() + QLatin1Char(':') + QString::number(socket->peerPort()))
{
    socket->setParent(this);
    connect(m_separator, &XmlSeparator::xmlReceived, this, &ServerConnection::received);
    connect(m_separator, &XmlSeparator::messageTooLarge, this, [this](qint64 size) {
        logLine(QStringLiteral("%1: refused a message of %2 bytes; closing the connection").arg(m_peer).arg(size));
        m_socket->abort();
    });
    connect(m_separator, &XmlSeparator::errorOccured, this, [this](const QString &error) {
        // Plain XML that is not well-formed cannot be resynchronised.
        logLine(QStringLiteral("%1: unreadable XML (%2); closing the connection").arg(m_peer, error));
        SoapMessage reply;
        reply.element = QStringLiteral("Reply");
        reply.setError(ErrorSoapParsing, error);
        send(reply);
        m_socket->disconnectFromHost();
    });
    connect(socket, &QTcpSocket::disconnected, this, [this] {
        m_server->connectionClosed(this);
    });
}

ServerConnection::~ServerConnection() = default;

void ServerConnection::close()
{
    m_socket->disconnectFromHost();
}

void ServerConnection::send(const SoapMessage &message)
{
    const QByteArray document = writeSoapMessage(message);
    m_separator->sendXml(m_server->m_compressReplies ? qCompress(document) : document);
}

void ServerConnection::sendReply(const SoapMessage &reply)
{
    if (reply.number(QStringLiteral("Error")) != NoError)
        logLine(QStringLiteral("%1: %2 refused with %3: %4")
                    .arg(m_peer, reply.element, reply.text(QStringLiteral("Error")),
                         reply.text(QStringLiteral("ErrorString"))));
    send(reply);
}

void ServerConnection::received(const QByteArray &document)
{
    m_pending.append(document);
    answerPending();
}

void ServerConnection::answerPending()
{
    while (!m_busy && !m_pending.isEmpty()) {
        const SoapMessage request = readSoapMessage(m_pending.takeFirst(), SoapSender::Client);
        if (request.readError.isEmpty() && RequestHandler::runsInBackground(request.element)) {
            m_busy = true;
            m_server->answerInBackground(this, request);
            return;
        }
        if (const std::optional<SoapMessage> reply = m_server->m_handler.handle(request, this))
            sendReply(*reply);
    }
}

void ServerConnection::finishBackground(const SoapMessage &reply)
{
    sendReply(reply);
    m_busy = false;
    answerPending();
}

} // namespace Kavro::Server
