// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "archiveserver.h"
#include "archivestore.h"
#include "serverlog.h"
#include "storecheck.h"
#include "tlssetup_p.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QSslSocket>

#include <csignal>
#include <cstdio>
#include <functional>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>

using Kavro::Server::logLine;
using Kavro::Server::ServerLimits;

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

// A limit the command line may set: its option and where its value goes.
struct LimitOption {
    QCommandLineOption option;
    qint64 maximum;
    std::function<void(ServerLimits &, qint64)> set;
};

std::vector<LimitOption> limitOptions(const ServerLimits &defaults)
{
    using L = ServerLimits;
    const auto option = [](const char *name, const QString &description, const char *unit, qint64 fallback) {
        return QCommandLineOption(QLatin1String(name), description + QStringLiteral(" Default %1.").arg(fallback),
                                  QLatin1String(unit));
    };
    constexpr qint64 intMaximum = std::numeric_limits<int>::max();
    return {
        {option("max-request-size", QStringLiteral("The largest request a client may send, in bytes."), "BYTES",
                defaults.maxRequestSize),
         qint64(1) << 31,
         [](L &l, qint64 v) {
             l.maxRequestSize = v;
         }},
        {option("request-memory",
                QStringLiteral("The memory, in bytes, that the unfinished and unanswered requests of all "
                               "connections may hold together; beyond it, connections with large requests wait."),
                "BYTES", defaults.requestMemory),
         std::numeric_limits<qint64>::max(),
         [](L &l, qint64 v) {
             l.requestMemory = v;
         }},
        {option("max-connections", QStringLiteral("The most connections open at once; more are closed as they come."),
                "N", defaults.maxConnections),
         intMaximum,
         [](L &l, qint64 v) {
             l.maxConnections = int(v);
         }},
        {option("max-field-length", QStringLiteral("The most characters of one value of a request."), "N",
                defaults.maxFieldLength),
         intMaximum,
         [](L &l, qint64 v) {
             l.maxFieldLength = int(v);
         }},
        {option("idle-timeout", QStringLiteral("Seconds a new connection may take to send its first request."),
                "SECONDS", defaults.idleTimeoutMs / 1000),
         intMaximum / 1000,
         [](L &l, qint64 v) {
             l.idleTimeoutMs = int(v * 1000);
         }},
        {option("request-timeout",
                QStringLiteral("Seconds a request that has begun to arrive may take to arrive whole."), "SECONDS",
                defaults.requestTimeoutMs / 1000),
         intMaximum / 1000,
         [](L &l, qint64 v) {
             l.requestTimeoutMs = int(v * 1000);
         }},
    };
}

// The limits the command line sets; false, with the option at fault in \a error, for a value out of range.
bool readLimits(const QCommandLineParser &parser, const std::vector<LimitOption> &options, ServerLimits *limits,
                QString *error)
{
    for (const LimitOption &limit : options) {
        if (!parser.isSet(limit.option))
            continue;
        bool ok = false;
        const qint64 value = parser.value(limit.option).toLongLong(&ok);
        if (!ok || value < 1 || value > limit.maximum) {
            *error = QStringLiteral("--%1 takes a whole number from 1 to %2, not \"%3\"")
                         .arg(limit.option.names().constFirst())
                         .arg(limit.maximum)
                         .arg(parser.value(limit.option));
            return false;
        }
        limit.set(*limits, value);
    }
    return true;
}

struct TlsOptions {
    QCommandLineOption certificate{QStringLiteral("tls-cert"),
                                   QStringLiteral("Serve TLS only, with this PEM certificate (chain)."),
                                   QStringLiteral("FILE")};
    QCommandLineOption key{QStringLiteral("tls-key"), QStringLiteral("The unencrypted PEM key of --tls-cert."),
                           QStringLiteral("FILE")};
    QCommandLineOption clientCa{QStringLiteral("tls-client-ca"),
                                QStringLiteral("Require every client to present a certificate signed by a CA in this "
                                               "PEM file; the certificate's common name is the user it acts as."),
                                QStringLiteral("FILE")};
    QCommandLineOption admin{QStringLiteral("admin"),
                             QStringLiteral("A user who may act for others (release their locks, delete their "
                                            "groups); may be given more than once. Needs --tls-client-ca."),
                             QStringLiteral("NAME")};
    QCommandLineOption insecure{QStringLiteral("insecure"),
                                QStringLiteral("Listen on an address other than loopback without client "
                                               "certificates: anyone who reaches the port may act as any user.")};
};

/*!
 * The server's TLS configuration from the command line, or nullopt when it serves no TLS; false, with \a error,
 * when the options do not go together or a file cannot be used.
 */
bool readTls(const QCommandLineParser &parser, const TlsOptions &options, std::optional<QSslConfiguration> *tls,
             QString *error)
{
    if (parser.isSet(options.certificate) != parser.isSet(options.key)) {
        *error = QStringLiteral("--tls-cert and --tls-key go together");
        return false;
    }
    if (parser.isSet(options.clientCa) && !parser.isSet(options.certificate)) {
        *error = QStringLiteral("--tls-client-ca needs --tls-cert and --tls-key");
        return false;
    }
    if (parser.isSet(options.admin) && !parser.isSet(options.clientCa)) {
        *error = QStringLiteral("--admin needs --tls-client-ca: only certificates prove who a user is");
        return false;
    }
    if (!parser.isSet(options.certificate))
        return true;
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setProtocol(QSsl::TlsV1_2OrLater);
    configuration.setLocalCertificateChain(Kavro::certificatesFromFile(parser.value(options.certificate), error));
    if (error->isEmpty())
        configuration.setPrivateKey(Kavro::privateKeyFromFile(parser.value(options.key), error));
    configuration.setPeerVerifyMode(QSslSocket::VerifyNone);
    if (error->isEmpty() && parser.isSet(options.clientCa)) {
        configuration.setCaCertificates(Kavro::certificatesFromFile(parser.value(options.clientCa), error));
        configuration.setPeerVerifyMode(QSslSocket::VerifyPeer);
    }
    *tls = configuration;
    return error->isEmpty();
}

void printLines(const char *label, const QStringList &lines)
{
    for (const QString &line : lines)
        std::printf("%s: %s\n", label, Kavro::Server::escapedForLog(line).toUtf8().constData());
}

// Compares the store with its database and says what does not match; with \a repair, removes the orphans.
int checkStore(const Kavro::Server::StorePaths &paths, bool repair)
{
    Kavro::Server::ArchiveStore store;
    QString error;
    if (!store.open(paths.database, &error, Kavro::Server::ArchiveStore::Schema::AsItIs)) {
        logLine(QStringLiteral("cannot open the database: %1").arg(error));
        return 1;
    }
    const Kavro::Server::StoreReport report = Kavro::Server::checkStore(store, paths);
    const QStringList left = repair ? Kavro::Server::removeOrphans(paths, report) : report.orphans;
    printLines("database", report.database);
    printLines("missing", report.missing);
    QStringList removed = report.orphans;
    removed.removeIf([&left](const QString &orphan) {
        return left.contains(orphan);
    });
    printLines("removed", removed);
    printLines("orphan", left);
    const bool clean = report.database.isEmpty() && report.missing.isEmpty() && left.isEmpty();
    std::printf("%s\n", clean ? "the store matches its database" : "the store does not match its database");
    return clean ? 0 : 1;
}
// Applies the migrations the database lacks.
int migrateStore(const Kavro::Server::StorePaths &paths)
{
    Kavro::Server::ArchiveStore store;
    QString error;
    if (!store.open(paths.database, &error)) {
        logLine(QStringLiteral("cannot bring the database up to date: %1").arg(error));
        return 1;
    }
    std::printf("the database's schema is at version %d\n", Kavro::Server::ArchiveStore::schemaVersion());
    return 0;
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
    const QCommandLineOption check(QStringLiteral("check"),
                                   QStringLiteral("Compare the store with its database, print what does not match "
                                                  "and exit: 0 when all matches, 1 otherwise. Serves nothing."));
    const QCommandLineOption repair(QStringLiteral("repair"),
                                    QStringLiteral("With --check: remove what no record names (orphans)."));
    const QCommandLineOption database(
        QStringLiteral("database"),
        QStringLiteral("The catalogue's database: postgresql://USER@HOST:PORT/NAME, the password from PGPASSWORD or "
                       "~/.pgpass (default: the SQLite file DIR/kavro.sqlite)."),
        QStringLiteral("URL"));
    const QCommandLineOption migrate(
        QStringLiteral("migrate"), QStringLiteral("Bring the database's schema up to date and exit. Serves nothing."));
    const TlsOptions tlsOptions;
    parser.addOptions({store, listen, compress, archiveRoot, database, migrate, check, repair, tlsOptions.certificate,
                       tlsOptions.key, tlsOptions.clientCa, tlsOptions.admin, tlsOptions.insecure});
    const ServerLimits defaults;
    const std::vector<LimitOption> limits = limitOptions(defaults);
    for (const LimitOption &limit : limits)
        parser.addOption(limit.option);
    parser.process(app);

    QHostAddress address;
    quint16 port = 0;
    ServerLimits chosen = defaults;
    QString error;
    if (!parser.isSet(store)) {
        logLine(QStringLiteral("--store DIR is required; see --help"));
        return 2;
    }
    if (!parseListen(parser.value(listen), &address, &port)) {
        logLine(QStringLiteral("--listen takes HOST:PORT, not \"%1\"").arg(parser.value(listen)));
        return 2;
    }
    if (!readLimits(parser, limits, &chosen, &error)) {
        logLine(error);
        return 2;
    }
    std::optional<QSslConfiguration> tls;
    if (!readTls(parser, tlsOptions, &tls, &error)) {
        logLine(error);
        return 2;
    }
    if (!address.isLoopback() && !parser.isSet(tlsOptions.clientCa) && !parser.isSet(tlsOptions.insecure)) {
        logLine(QStringLiteral("refusing to listen on %1 without --tls-client-ca: anyone who reaches it could act as "
                               "any user; require client certificates (--tls-cert, --tls-key, --tls-client-ca), or "
                               "give --insecure to allow it on purpose")
                    .arg(parser.value(listen)));
        return 2;
    }
    if (parser.isSet(repair) && !parser.isSet(check)) {
        logLine(QStringLiteral("--repair goes with --check"));
        return 2;
    }
    if (parser.isSet(check) || parser.isSet(migrate)) {
        Kavro::Server::StorePaths paths;
        if (!paths.create(parser.value(store), parser.value(archiveRoot), parser.value(database), &error)) {
            logLine(QStringLiteral("cannot open the store: %1").arg(error));
            return 1;
        }
        return parser.isSet(check) ? checkStore(paths, parser.isSet(repair)) : migrateStore(paths);
    }

    Kavro::Server::ArchiveServer server;
    if (!server.open(parser.value(store), parser.value(archiveRoot), parser.value(database), &error)) {
        logLine(QStringLiteral("cannot open the store: %1").arg(error));
        return 1;
    }
    server.setCompressReplies(parser.isSet(compress));
    server.setLimits(chosen);
    if (tls)
        server.setTls(*tls);
    server.setAdministrators(parser.values(tlsOptions.admin));
    if (!server.listen(address, port)) {
        logLine(QStringLiteral("cannot listen on %1: %2").arg(parser.value(listen), server.errorString()));
        return 1;
    }
    // Stopping cleanly is possible from the moment the port is told.
    quitOnSignals(app);
    std::printf("%u\n", unsigned(server.port()));
    std::fflush(stdout);
    const int status = app.exec();
    server.close();
    return status;
}
