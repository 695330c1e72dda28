// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archiveserver.h"
#include "serverconnection.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
int s_signalPipe[2] = {-1, -1};

void forwardSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(s_signalPipe[1], &byte, 1);
}

// SIGINT and SIGTERM end the event loop, so the server closes its connections and store.
void quitOnSignals(QCoreApplication &app)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, s_signalPipe) != 0)
        return;
    auto *notifier = new QSocketNotifier(s_signalPipe[0], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    struct sigaction action = {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool parseListen(const QString &text, QHostAddress *address, quint16 *port)
{
    const qsizetype colon = text.lastIndexOf(QLatin1Char(':'));
    bool numeric = false;
    const uint number = text.mid(colon + 1).toUInt(&numeric);
    QString host = text.left(colon);
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
        host = host.mid(1, host.size() - 2);
    if (colon <= 0 || !numeric || number > 65535 || !address->setAddress(host))
        return false;
    *port = quint16(number);
    return true;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kavro-server"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KAVRO_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("The reference archive server. Prints the port it listens on as its first line."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption store(QStringLiteral("store"),
                                   QStringLiteral("The store: the database kavro.sqlite, the storage directory data/ "
                                                  "and network storage nas/. Created when missing."),
                                   QStringLiteral("DIR"));
    const QCommandLineOption listen(QStringLiteral("listen"),
                                    QStringLiteral("Address and port to listen on; port 0 picks a free one."),
                                    QStringLiteral("HOST:PORT"), QStringLiteral("127.0.0.1:5223"));
    const QCommandLineOption compress(QStringLiteral("compress"), QStringLiteral("Send every reply compressed."));
    const QCommandLineOption archiveRoot(QStringLiteral("archive-root"),
                                         QStringLiteral("The only directory archives are exported to and imported "
                                                        "from (default: DIR/archives)."),
                                         QStringLiteral("DIR"));
    parser.addOptions({store, listen, compress, archiveRoot});
    parser.process(app);

    QHostAddress address;
    quint16 port = 0;
    if (!parser.isSet(store)) {
        Kavro::Server::logLine(QStringLiteral("--store DIR is required; see --help"));
        return 2;
    }
    if (!parseListen(parser.value(listen), &address, &port)) {
        Kavro::Server::logLine(QStringLiteral("--listen takes HOST:PORT, not \"%1\"").arg(parser.value(listen)));
        return 2;
    }

    Kavro::Server::ArchiveServer server;
    QString error;
    if (!server.open(parser.value(store), parser.value(archiveRoot), &error)) {
        Kavro::Server::logLine(QStringLiteral("cannot open the store: %1").arg(error));
        return 1;
    }
    server.setCompressReplies(parser.isSet(compress));
    if (!server.listen(address, port)) {
        Kavro::Server::logLine(
            QStringLiteral("cannot listen on %1: %2").arg(parser.value(listen), server.errorString()));
        return 1;
    }
    std::printf("%u\n", unsigned(server.port()));
    std::fflush(stdout);
    quitOnSignals(app);
    const int status = app.exec();
    server.close();
    return status;
}
