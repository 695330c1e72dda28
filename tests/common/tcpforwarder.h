// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_TCPFORWARDER_H
#define KAVRO_TESTS_TCPFORWARDER_H

#include <QTcpServer>
#include <QTcpSocket>

/*!
 * A TCP load balancer in miniature, on 127.0.0.1: each connection it takes is forwarded to the port set last,
 * and closed when either end closes. Lets a test move clients from one server to another.
 */
class TcpForwarder : public QObject
{
public:
    bool listen(quint16 target)
    {
        m_target = target;
        connect(&m_server, &QTcpServer::newConnection, this, &TcpForwarder::forward);
        return m_server.listen(QHostAddress::LocalHost);
    }
    quint16 port() const { return m_server.serverPort(); }
    //! Connections made from now on go to \a target.
    void setTarget(quint16 target) { m_target = target; }

private:
    void forward()
    {
        while (QTcpSocket *client = m_server.nextPendingConnection()) {
            auto *upstream = new QTcpSocket(client);
            connect(client, &QTcpSocket::readyRead, upstream, [client, upstream] {
                if (upstream->state() == QAbstractSocket::ConnectedState)
                    upstream->write(client->readAll());
            });
            connect(upstream, &QTcpSocket::readyRead, client, [client, upstream] {
                client->write(upstream->readAll());
            });
            // Bytes the client sends before the upstream connection stands wait in its buffer.
            connect(upstream, &QTcpSocket::connected, client, [client, upstream] {
                upstream->write(client->readAll());
            });
            for (QTcpSocket *end : {client, upstream}) {
                connect(end, &QTcpSocket::disconnected, client, &QObject::deleteLater);
                connect(end, &QTcpSocket::errorOccurred, client, &QObject::deleteLater);
            }
            upstream->connectToHost(QHostAddress::LocalHost, m_target);
        }
    }

    QTcpServer m_server;
    quint16 m_target = 0;
};

#endif
