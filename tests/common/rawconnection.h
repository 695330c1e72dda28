// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_RAWCONNECTION_H
#define KAVRO_TESTS_RAWCONNECTION_H

#include "soapmessage_p.h"
#include "xmlseparator_p.h"

#include <QDeadlineTimer>
#include <QHostAddress>
#include <QSignalSpy>
#include <QTcpSocket>

/*!
 * A connection to the archive server that writes whatever documents it is
 * given, in little-endian frames, and keeps every document that comes back:
 * the client a hostile or careless program would be.
 */
class RawConnection
{
public:
    explicit RawConnection(quint16 port) { m_socket.connectToHost(QHostAddress::LocalHost, port); }

    QTcpSocket &socket() { return m_socket; }
    //! Leaves what the server sends in the network: the client that never reads.
    void pauseReading()
    {
        m_socket.setReadBufferSize(4096);
        m_separator.pause();
    }
    void resumeReading()
    {
        m_socket.setReadBufferSize(0);
        m_separator.resume();
    }
    qsizetype receivedCount() const { return m_documents.size(); }
    bool waitForConnected() { return m_socket.waitForConnected(20000); }
    bool send(const QByteArray &document) { return m_separator.sendXml(document); }
    bool send(const Kavro::SoapMessage &message) { return send(Kavro::writeSoapMessage(message)); }
    //! Every document received so far, read as the server's.
    QList<Kavro::SoapMessage> received() const
    {
        QList<Kavro::SoapMessage> messages;
        for (const QList<QVariant> &arguments : m_documents)
            messages.append(Kavro::readSoapMessage(arguments.at(0).toByteArray(), Kavro::SoapSender::Server));
        return messages;
    }
    //! The reply to \a requestId once it has come; an empty message when it does not come in time.
    Kavro::SoapMessage reply(const QString &requestId, int msecs = 20000)
    {
        const QDeadlineTimer deadline(msecs);
        for (;;) {
            for (const Kavro::SoapMessage &message : received()) {
                if (message.requestId == requestId && message.element.endsWith(QLatin1String("Reply")))
                    return message;
            }
            if (deadline.hasExpired() || !m_documents.wait(int(qMax<qint64>(1, deadline.remainingTime()))))
                return Kavro::SoapMessage();
        }
    }

private:
    QTcpSocket m_socket;
    Kavro::XmlSeparator m_separator{&m_socket, Kavro::XmlSeparator::LengthPrefixLittleEndian, nullptr};
    QSignalSpy m_documents{&m_separator, &Kavro::XmlSeparator::xmlReceived};
};

#endif
