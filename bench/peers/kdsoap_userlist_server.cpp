// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// A KDSoap server that answers GetUserList with a few user names, the peer
// kdsoap_roundtrip times. It listens on 127.0.0.1 and a free port, prints the
// port as its first line, and serves until it is terminated.
//
//   kdsoap_userlist_server [--nodelay]
//   --nodelay: set TCP_NODELAY on every accepted connection
#include "userlist.h"

#include <KDSoapServer/KDSoapServer.h>
#include <KDSoapServer/KDSoapServerObjectInterface.h>

#include <QCoreApplication>
#include <QHostAddress>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace
{
class UserListObject : public QObject, public KDSoapServerObjectInterface
{
    Q_OBJECT
    Q_INTERFACES(KDSoapServerObjectInterface)

public:
    void processRequest(const KDSoapMessage &request, KDSoapMessage &response, const QByteArray &) override
    {
        if (request.name() != UserList::operation()) {
            setFault(QStringLiteral("Client.Data"), QStringLiteral("unknown operation ") + request.name());
            return;
        }
        KDSoapValueList users;
        const QStringList names = UserList::users();
        for (const QString &name : names)
            users.addArgument(UserList::userElement(), name);
        response = KDSoapValue(UserList::operation() + QStringLiteral("Response"), users);
    }
};

class UserListServer : public KDSoapServer
{
    Q_OBJECT

public:
    explicit UserListServer(bool noDelay)
        : m_noDelay(noDelay)
    {
    }

    QObject *createServerObject() override { return new UserListObject; }

protected:
    // KDSoap makes its socket from the descriptor; the option is set on it first.
    void incomingConnection(qintptr descriptor) override
    {
        if (m_noDelay) {
            const int on = 1;
            if (setsockopt(int(descriptor), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0)
                std::fprintf(stderr, "kdsoap_userlist_server: TCP_NODELAY: %s\n", std::strerror(errno));
        }
        KDSoapServer::incomingConnection(descriptor);
    }

private:
    const bool m_noDelay;
};
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const bool noDelay = app.arguments().contains(QStringLiteral("--nodelay"));
    UserListServer server(noDelay);
    if (!server.listen(QHostAddress::LocalHost, 0)) {
        std::fprintf(stderr, "kdsoap_userlist_server: %s\n", qPrintable(server.errorString()));
        return 1;
    }
    std::printf("%u\n", unsigned(server.serverPort()));
    std::fflush(stdout);
    return app.exec();
}

#include "kdsoap_userlist_server.moc"
