// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "commandsender_p.h"

#include <kavro/kavroerrorstring.h>

#include "commandsendersocket_p.h"
#include "messages_p.h"
#include "settings_p.h"
#include "soapmessage_p.h"
#include "trace_p.h"

#include <QThread>
#include <QTimer>
#include <QUuid>

namespace Kavro
{

namespace
{
// Codes from this value on are handed on as ErrorUnknown by most handlers.
constexpr int s_errorLimit = 70;

void traceLateReply(const QString &requestId)
{
    KAVRO_TRACE_WARNING(
        QStringLiteral("CommandSender::SlotHandleXmlReply: dropped the late reply to %1").arg(requestId));
}
} // namespace

int errorOf(RequestFailure failure)
{
    return failure == RequestFailure::Overdue ? ErrorReplyTimeout : ErrorNotConnected;
}

void CommandSender::FailureAnnouncer::requestFailed(const QString &requestId, RequestFailure failure)
{
    Q_EMIT m_sender->requestFailed(requestId, errorOf(failure), m_sender->failureText(failure));
}

/*!
 * One reply the dispatcher understands: its error trace and how it is handed on.
 * The position in table() is the reply's position in the dispatcher's table.
 */
struct ReplyHandler {
    using Emit = void (*)(CommandSender &, const SoapMessage &, int error, const QString &errorString);

    const char *name;
    const char *errorTrace; // "%1 (%2)": error text and code; null for none
    bool limitErrors;
    QMetaMethod signal; // the signal emitReply emits; invalid for a reply the dispatcher takes itself
    Emit emitReply;

    static const QList<ReplyHandler> &table();
    static int position(const QString &name);
};

const QList<ReplyHandler> &ReplyHandler::table()
{
    using S = CommandSender;
    using R = SoapMessage;
    static const QList<ReplyHandler> handlers = {
        {"CreateFileGroupReply", "Error while creating file group: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::createFileGroupReply),
         [](S &s, const R &r, int, const QString &) {
             Q_EMIT s.createFileGroupReply(r.values.value(QStringLiteral("Guid")),
                                           r.values.value(QStringLiteral("Path")));
         }},
        {"AddFileReply", "Error while adding file: %1 (%2)", true, QMetaMethod::fromSignal(&S::addFileReply),
         [](S &s, const R &r, int, const QString &) {
             Q_EMIT s.addFileReply(r.requestId, r.values.value(QStringLiteral("FileId")).toUInt());
         }},
        {"DeleteFileReply", "Error while deleting file group: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::deleteFileReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.deleteFileReply(r.requestId, e, t);
         }},
        {"RequestFileReply", "Error while requesting file: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::requestFileReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.requestFileReply(r.requestId, r.values.value(QStringLiteral("Path")), e, t);
         }},
        {"CloseFileReply", "Error while closing file: %1 (%2)", true, QMetaMethod::fromSignal(&S::closeFileReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.closeFileReply(r.requestId, e, t);
         }},
        {"MoveToNasReply", "Error while moving to NAS: %1 (%2)", true, QMetaMethod::fromSignal(&S::moveToNasReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.moveToNasReply(r.requestId, e, t);
         }},
        {"AddReferenceReply", "Error while adding reference: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::addReferenceReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.addReferenceReply(r.requestId, e, t);
         }},
        {"RemoveReferenceReply", "Error while removing reference: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::removeReferenceReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.removeReferenceReply(r.requestId, e, t);
         }},
        {"RemoveAllReferencesReply", "Error while removing all references: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::removeAllReferenceReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.removeAllReferenceReply(r.requestId, e, t);
         }},
        {"QueryMetaDataReply", nullptr, true, QMetaMethod::fromSignal(&S::queryMetaDataReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.queryMetaDataReply(r.requestId, r.groups.value(0), e, t);
         }},
        {"GetApplicationListReply", "Error while getting application list: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::getApplicationListReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.getApplicationListReply(r.requestId, r.listTexts(), e, t);
         }},
        {"GetFileListReply", "Error while getting file list: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::getFileListReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.getFileListReply(r.requestId, r.listTexts(), e, t);
         }},
        {"GetUserListReply", "Error while getting user list: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::getUserListReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.getUserListReply(r.requestId, r.listTexts(), e, t);
         }},
        {"QueryFileGroupsReply", "Error while getting user list: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::queryFileGroupRecordsReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.queryFileGroupRecordsReply(r.requestId, r.groups, e, t);
         }},
        {"GetBasePathReply", "Error while getting base path: %1 (%2)", true, QMetaMethod(),
         [](S &s, const R &r, int, const QString &) {
             s.handleBasePath(r.values.value(QStringLiteral("Path")));
         }},
        {"ExportArchiveReply", "Error while exporting archive: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::exportArchiveReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.exportArchiveReply(r.requestId, e, t);
         }},
        {"ImportArchiveReply", "Error while importing archive: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::importArchiveReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.importArchiveReply(r.requestId, e, t);
         }},
        {"CreateRovecFileGroupReply", "Error while creating file group: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::createRovecFileGroupReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.createRovecFileGroupReply(r.values.value(QStringLiteral("Guid")),
                                                r.values.value(QStringLiteral("Path")), e, t);
         }},
        {"RegisterConverterReply", "Error while getting register converter reply: %1 (%2)", false,
         QMetaMethod::fromSignal(&S::registerConverterReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.registerConverterReply(r.requestId, e, t);
         }},
        {"DeleteFileGroupReply", "Error while getting delete filegroup reply: %1 (%2)", true,
         QMetaMethod::fromSignal(&S::deleteFileGroupReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.deleteFileGroupReply(r.requestId, e, t);
         }},
        {"QueryLocationStateProgressReply", "Error while getting QueryLocationStateProgress reply: %1 (%2)", false,
         QMetaMethod::fromSignal(&S::queryLocationStateProgressReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.queryLocationStateProgressReply(r.requestId,
                                                      r.values.value(QStringLiteral("LocationState")).toInt(),
                                                      r.values.value(QStringLiteral("CopyProgress")).toDouble(), e, t);
         }},
        {"CheckFileGroupExistsReply", "Error while getting QueryLocationStateProgress reply: %1 (%2)", false,
         QMetaMethod::fromSignal(&S::checkFileGroupExistsReply),
         [](S &s, const R &r, int e, const QString &t) {
             Q_EMIT s.checkFileGroupExistsReply(
                 r.requestId, r.values.value(QStringLiteral("Exists")) == QLatin1String("true"), e, t);
         }},
        {"CopyForeignFileGroupProgress", "Error while getting progress: %1 (%2)", false,
         QMetaMethod::fromSignal(&S::copyForeignFileGroupProgess),
         [](S &s, const R &r, int, const QString &) {
             Q_EMIT s.copyForeignFileGroupProgess(r.requestId,
                                                  r.values.value(QStringLiteral("CopyProgress")).toFloat());
         }},
        {"ConvertFileGroup", nullptr, false, QMetaMethod::fromSignal(&S::convertFileGroupRequested),
         [](S &s, const R &r, int, const QString &) {
             Q_EMIT s.convertFileGroupRequested(
                 r.values.value(QStringLiteral("Guid")),
                 static_cast<FileType>(r.values.value(QStringLiteral("FileType")).toInt()),
                 r.values.value(QStringLiteral("Path")));
         }},
    };
    return handlers;
}

int ReplyHandler::position(const QString &name)
{
    const QList<ReplyHandler> &handlers = table();
    for (int i = 0; i < handlers.size(); ++i) {
        if (name == QLatin1String(handlers.at(i).name))
            return i;
    }
    return -1;
}

CommandSender::CommandSender(const QString &host, quint16 port, const QString &application, const QString &user,
                             const QString &team)
    : m_host(host)
    , m_port(port)
    , m_application(application)
    , m_user(user)
    , m_team(team)
{
}

// The connection is a child of this object and goes with it, on this thread.
CommandSender::~CommandSender() = default;

QString CommandSender::GetHost() const
{
    return m_host;
}

quint16 CommandSender::GetPort() const
{
    return m_port;
}

int CommandSender::GetLastError() const
{
    return m_lastError.load();
}

QString CommandSender::GetApplication() const
{
    const QMutexLocker locker(&m_identityMutex);
    return m_application;
}

void CommandSender::SetApplication(const QString &application)
{
    const QMutexLocker locker(&m_identityMutex);
    m_application = application;
}

QString CommandSender::GetUser() const
{
    const QMutexLocker locker(&m_identityMutex);
    return m_user;
}

void CommandSender::SetUser(const QString &user)
{
    const QMutexLocker locker(&m_identityMutex);
    m_user = user;
}

QString CommandSender::GetTeamMembership() const
{
    const QMutexLocker locker(&m_identityMutex);
    return m_team;
}

void CommandSender::SetTeamMembership(const QString &team)
{
    const QMutexLocker locker(&m_identityMutex);
    m_team = team;
}

void CommandSender::setCheckInterval(int milliseconds)
{
    m_checkInterval = milliseconds;
}

void CommandSender::setReplyTimeout(int milliseconds)
{
    m_replyTimeout = milliseconds;
}

void CommandSender::setListenerCheck(std::function<bool(const QMetaMethod &)> check)
{
    m_listenerCheck = std::move(check);
}

void CommandSender::repliesDelivered(qint64 bytes)
{
    m_undeliveredBytes -= bytes;
}

void CommandSender::setSslConfiguration(const QSslConfiguration &configuration)
{
    const TlsSetup setup = TlsSetup::fromConfiguration(configuration);
    {
        const QMutexLocker locker(&m_identityMutex);
        m_tls = setup;
    }
    // Before start() the socket takes it as it is made.
    QMetaObject::invokeMethod(this, [this, setup] {
        if (CommandSenderSocket *socket = m_socket.load())
            socket->setTls(setup);
    });
}

QSslConfiguration CommandSender::sslConfiguration() const
{
    {
        const QMutexLocker locker(&m_identityMutex);
        if (m_tls)
            return m_tls->configuration;
    }
    return TlsSetup::fromSettings(Settings(Settings::kavroSection())).configuration;
}

void CommandSender::start()
{
    // The connection is made once; a second start would only repeat it.
    if (m_socket.load())
        return;
    auto *socket = new CommandSenderSocket(m_host, m_port);
    socket->setParent(this);
    socket->setReplyTimeout(m_replyTimeout);
    socket->setUnsolicitedFilter(isUnsolicitedMessage);
    {
        const QMutexLocker locker(&m_identityMutex);
        if (m_tls)
            socket->setTls(*m_tls);
    }
    connect(socket, &CommandSenderSocket::si_newMessage, this, &CommandSender::SlotHandleXmlReply);
    connect(socket, &CommandSenderSocket::si_connected, this, &CommandSender::SlotConnected);
    connect(socket, &CommandSenderSocket::si_disconnected, this, &CommandSender::SlotDisconnected);
    connect(socket, &CommandSenderSocket::si_replyOverdue, this, &CommandSender::replyOverdue);
    connect(socket, &CommandSenderSocket::si_connecting, this, [this] {
        setState(KavroClient::Connecting);
    });
    connect(socket, &CommandSenderSocket::si_socketError, this, &CommandSender::socketFailed);
    connect(socket, &CommandSenderSocket::si_messageRefused, this, &CommandSender::messageRefused);
    m_socket.store(socket);

    m_checkTimer = new QTimer(this);
    m_checkTimer->setInterval(m_checkInterval);
    connect(m_checkTimer, &QTimer::timeout, this, &CommandSender::SlotCheckConnection);
    m_checkTimer->start();
}

void CommandSender::SlotConnected()
{
    sendGetBasePath();
}

void CommandSender::SlotDisconnected()
{
    const bool wasConnected = m_connected.exchange(false);
    failAllWaiters(RequestFailure::ConnectionLost);
    setState(KavroClient::Unconnected);
    if (wasConnected) {
        reportConnectionFailure(ErrorNotConnected,
                                QStringLiteral("the connection to the archive server at %1 was lost; the client "
                                               "reconnects by itself")
                                    .arg(serverName()));
        Q_EMIT disconnected();
    }
}

void CommandSender::replyOverdue(const QString &requestId)
{
    if (!m_connected.load()) {
        reportConnectionFailure(ErrorReplyTimeout,
                                QStringLiteral("the peer at %1 accepted the connection but did not answer within "
                                               "%2 ms; is it an archive server?")
                                    .arg(serverName())
                                    .arg(m_replyTimeout));
    }
    const QMutexLocker locker(&m_waitersMutex);
    const auto waiting = m_waiters.constFind(requestId);
    if (waiting == m_waiters.constEnd())
        return;
    if (waiting->waiter)
        waiting->waiter->requestFailed(requestId, RequestFailure::Overdue);
    m_waiters.erase(waiting);
}

void CommandSender::socketFailed(QAbstractSocket::SocketError error, const QString &text)
{
    if (m_connected.load())
        return; // a lost connection is reported once it is gone
    setState(KavroClient::Unconnected);
    if (const QString channelText = channelFailureText(error, text); !channelText.isEmpty()) {
        reportConnectionFailure(ErrorNotConnected, channelText);
        return;
    }
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
        reportConnectionFailure(
            ErrorNotConnected,
            QStringLiteral("no archive server answers at %1; is kavro-server running?").arg(serverName()));
        break;
    case QAbstractSocket::HostNotFoundError:
        reportConnectionFailure(ErrorNotConnected,
                                QStringLiteral("the host %1 of the archive server was not found; check ServerHost "
                                               "in the section [KAVRO] of the settings")
                                    .arg(m_host));
        break;
    default:
        reportConnectionFailure(ErrorNotConnected,
                                QStringLiteral("cannot reach the archive server at %1: %2").arg(serverName(), text));
        break;
    }
}

// A connection that broke after it was made, but before the server answered, was ended by the server: over TLS it
// did not accept this client's certificate (or the handshake failed), without TLS the server may want TLS.
QString CommandSender::channelFailureText(QAbstractSocket::SocketError error, const QString &text) const
{
    const CommandSenderSocket *socket = m_socket.load();
    if (error == QAbstractSocket::SslInvalidUserDataError)
        return text;
    if (!socket->usesTls()) {
        if (error != QAbstractSocket::RemoteHostClosedError)
            return QString();
        return QStringLiteral("the archive server at %1 closed the connection before answering; does it require "
                              "TLS (UseTls and TlsCaCertificates in [KAVRO])?")
            .arg(serverName());
    }
    bool setByCode = false;
    {
        const QMutexLocker locker(&m_identityMutex);
        setByCode = m_tls.has_value();
    }
    // Where to look: the settings, or whatever the application set from code (the kavro tool: its options).
    const auto where = [setByCode](const char *keys) {
        return setByCode ? QStringLiteral("the TLS configuration the application set")
                         : QStringLiteral("%1 in [KAVRO]").arg(QLatin1String(keys));
    };
    if (socket->isEncrypted())
        return QStringLiteral("the archive server at %1 refused the TLS connection: %2; it requires a client "
                              "certificate signed by a CA it trusts (%3)")
            .arg(serverName(), text, where("TlsCertificate and TlsKey"));
    if (error == QAbstractSocket::ConnectionRefusedError || error == QAbstractSocket::HostNotFoundError)
        return QString();
    return QStringLiteral("the TLS handshake with the archive server at %1 failed: %2; does the server serve TLS, "
                          "and does %3 name the CA that signed its certificate?")
        .arg(serverName(), text, where("TlsCaCertificates"));
}

void CommandSender::messageRefused(qint64 size)
{
    if (!m_connected.load()) {
        refusePeer(QStringLiteral("its first message claims %1 bytes").arg(size));
        return;
    }
    reportConnectionFailure(ErrorCommunication,
                            QStringLiteral("the archive server at %1 sent a message of %2 bytes, more than "
                                           "MaxMessageSize allows; the client reconnects")
                                .arg(serverName())
                                .arg(size));
}

void CommandSender::refusePeer(const QString &detail)
{
    reportConnectionFailure(ErrorCommunication,
                            QStringLiteral("the peer at %1 does not speak the archive protocol (%2); check the host "
                                           "and port")
                                .arg(serverName(), detail));
    if (CommandSenderSocket *socket = m_socket.load())
        socket->reconnect();
}

void CommandSender::reportConnectionFailure(int error, const QString &text)
{
    if (text == m_lastFailure)
        return;
    m_lastFailure = text;
    Q_EMIT connectionFailed(error, text);
}

void CommandSender::setState(KavroClient::State state)
{
    if (state == m_state)
        return;
    m_state = state;
    if (state == KavroClient::Connected)
        m_lastFailure.clear();
    Q_EMIT stateChanged(state);
}

QString CommandSender::serverName() const
{
    return QStringLiteral("%1:%2").arg(m_host).arg(m_port);
}

QString CommandSender::failureText(RequestFailure failure) const
{
    switch (failure) {
    case RequestFailure::NotSent:
        return QStringLiteral("not connected to the archive server at %1; wait for connected() or call "
                              "waitForConnected() first")
            .arg(serverName());
    case RequestFailure::ConnectionLost:
        return QStringLiteral("the connection to the archive server at %1 was lost before the reply came; try again "
                              "once the client is connected")
            .arg(serverName());
    case RequestFailure::Overdue:
        return QStringLiteral("the archive server at %1 did not reply within %2 ms (ReplyTimeoutMs); the client "
                              "reconnects")
            .arg(serverName())
            .arg(m_replyTimeout);
    case RequestFailure::ClientGone:
        break;
    }
    return QStringLiteral("the client was destroyed before the reply came");
}

void CommandSender::failAllWaiters(RequestFailure failure)
{
    // Replies to what went out on this connection cannot come any more, so every entry goes; one whose
    // request is still on its way to the connection stays, marked, so that it is not sent.
    const QMutexLocker locker(&m_waitersMutex);
    CommandSenderSocket *socket = m_socket.load();
    for (auto waiting = m_waiters.begin(); waiting != m_waiters.end();) {
        if (waiting->waiter) {
            if (socket)
                socket->withdraw(waiting.key());
            waiting->waiter->requestFailed(waiting.key(), failure);
        }
        if (waiting->posted) {
            waiting = m_waiters.erase(waiting);
        } else {
            *waiting = {nullptr, QString(), false, true};
            ++waiting;
        }
    }
}

void CommandSender::shutDown()
{
    // What was handed over just before leaves first, where the line is free: a request nobody waits for, such as
    // a file's release right before the program ends, would otherwise be withdrawn below and its lock kept.
    CommandSenderSocket *socket = m_socket.load();
    if (socket && QThread::currentThread() != socket->thread())
        QMetaObject::invokeMethod(socket, &CommandSenderSocket::flushForShutdown, Qt::BlockingQueuedConnection);
    {
        const QMutexLocker locker(&m_waitersMutex);
        m_shutDown = true;
    }
    failAllWaiters(RequestFailure::ClientGone);
}

void CommandSender::SlotCheckConnection()
{
    const CommandSenderSocket *socket = m_socket.load();
    if (socket && socket->isConnected())
        sendGetBasePath();
}

void CommandSender::sendGetBasePath()
{
    send(GetBasePathMessage());
}

void CommandSender::handleBasePath(const QString &path)
{
    // The first answer after a connection, whatever its error, makes the client connected.
    if (m_connected.exchange(true))
        return;
    setState(KavroClient::Connected);
    Q_EMIT connected(path);
}

bool CommandSender::CheckIsConnected()
{
    const CommandSenderSocket *socket = m_socket.load();
    if (socket && socket->isConnected() && m_connected.load()) {
        m_lastError.store(NoError);
        return true;
    }
    m_lastError.store(ErrorNotConnected);
    KAVRO_TRACE_WARNING(
        QStringLiteral("CommandSender::CheckIsConnected: %1").arg(KavroErrorString::Get(ErrorNotConnected)));
    return false;
}

QString CommandSender::newRequestId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

void CommandSender::addWaiter(const QString &requestId, RequestWaiter *waiter)
{
    const QMutexLocker locker(&m_waitersMutex);
    if (m_shutDown)
        waiter->requestFailed(requestId, RequestFailure::ClientGone);
    else
        m_waiters.insert(requestId, {waiter, QString(), false, false});
}

void CommandSender::expectReply(const QString &requestId)
{
    addWaiter(requestId, &m_announcer);
}

void CommandSender::removeWaiter(const QString &requestId, GiveUp giveUp)
{
    CommandSenderSocket *socket = m_socket.load();
    {
        const QMutexLocker locker(&m_waitersMutex);
        const auto waiting = m_waiters.find(requestId);
        if (waiting == m_waiters.end())
            return;
        if (!waiting->posted || !socket || socket->withdraw(requestId)) {
            m_waiters.erase(waiting);
            return;
        }
        waiting->waiter = nullptr; // gone out: its reply, if it comes, is dropped
    }
    if (giveUp == GiveUp::KeepLine)
        return;
    // Its caller gave up on it as overdue, so the line it holds is reset before the caller hears of it:
    // the next request does not queue behind a reply that will not come.
    const auto abandon = [socket, requestId] {
        socket->abandonOutstanding(requestId);
    };
    if (QThread::currentThread() == socket->thread())
        abandon();
    else
        QMetaObject::invokeMethod(socket, abandon, Qt::BlockingQueuedConnection);
}

CommandSender::Delivery CommandSender::deliveryOf(const QString &requestId, const QString &element, qint64 bytes)
{
    const int position = ReplyHandler::position(element);
    // Until the server has named its storage directory all is read, as is what the dispatcher takes itself or
    // does not know.
    if (m_state == KavroClient::Connecting || position < 0 || !ReplyHandler::table().at(position).signal.isValid())
        return {};
    bool waited = false;
    bool needsRecords = true;
    auto announcement = RequestWaiter::Announcement::Bounded;
    {
        const QMutexLocker locker(&m_waitersMutex);
        const auto waiting = m_waiters.constFind(requestId);
        if (waiting != m_waiters.constEnd()) {
            if (!waiting->waiter)
                return {SoapReading::ElementOnly, false, 0}; // a late reply, dropped
            waited = true;
            needsRecords = waiting->waiter->needsRecords();
            announcement = waiting->waiter->announcement();
        }
    }
    Delivery delivery;
    delivery.announced =
        announcement != RequestWaiter::Announcement::Never && heard(ReplyHandler::table().at(position).signal);
    if (delivery.announced && announcement == RequestWaiter::Announcement::Bounded) {
        delivery.announced = withinBound(element, requestId, bytes);
        delivery.countedBytes = delivery.announced && counting() ? bytes : 0;
    }
    if (!delivery.announced)
        delivery.reading = !waited ? SoapReading::ElementOnly
            : needsRecords         ? SoapReading::Full
                                   : SoapReading::GuidsOnly;
    return delivery;
}

bool CommandSender::heard(const QMetaMethod &replySignal) const
{
    return !m_listenerCheck || m_listenerCheck(replySignal);
}

bool CommandSender::counting() const
{
    return isSignalConnected(QMetaMethod::fromSignal(&CommandSender::repliesAnnounced));
}

bool CommandSender::withinBound(const QString &element, const QString &requestId, qint64 bytes) const
{
    // Only this thread adds to the count, so a reply that fits now still fits when it is announced.
    const qint64 held = m_undeliveredBytes.load();
    if (held == 0 || held + bytes <= undeliveredLimit || !counting())
        return true;
    KAVRO_TRACE_WARNING(QStringLiteral("CommandSender::SlotHandleXmlReply: did not announce %1 to %2 (%3 bytes): the "
                                       "client's thread has yet to take %4 bytes of replies")
                            .arg(element, requestId)
                            .arg(bytes)
                            .arg(held));
    return false;
}

bool CommandSender::dropLateReply(const QString &requestId)
{
    const QMutexLocker locker(&m_waitersMutex);
    const auto waiting = m_waiters.find(requestId);
    if (waiting == m_waiters.end() || waiting->waiter)
        return false;
    m_waiters.erase(waiting);
    traceLateReply(requestId);
    return true;
}

QString CommandSender::send(const KavroClientSOAPMessage &message)
{
    const QByteArray request = message.writeRequest();
    // Handed over under the waiters' lock, so a failure of all waiters either withdraws it or stops it here.
    const QMutexLocker locker(&m_waitersMutex);
    const auto waiting = m_waiters.find(message.requestId());
    if (waiting != m_waiters.end()) {
        if (waiting->failed) {
            m_waiters.erase(waiting);
            return QString();
        }
        waiting->expectedReply = message.command() + QStringLiteral("Reply");
        waiting->posted = true;
    }
    m_socket.load()->post(message.requestId(), request);
    return message.requestId();
}

void CommandSender::notifyWaiter(const SoapMessage &reply, int error, const QString &errorString)
{
    const QMutexLocker locker(&m_waitersMutex);
    const auto waiting = m_waiters.constFind(reply.requestId);
    if (waiting == m_waiters.constEnd() || !waiting->waiter)
        return;
    // A reply the waiter cannot use still releases it, with the reason.
    int outcome = error;
    if (!reply.known && reply.readError.isEmpty())
        outcome = ErrorUnknownReplyCommand;
    else if (reply.readError.isEmpty() && !waiting->expectedReply.isEmpty() && reply.element != waiting->expectedReply)
        outcome = ErrorReplyCommandMismatch;
    const QString outcomeText =
        outcome == error ? errorString : KavroErrorString::Get(static_cast<KavroError>(outcome));
    if (!waiting->waiter->requestHandled(reply, outcome, outcomeText))
        traceLateReply(reply.requestId);
    m_waiters.erase(waiting);
}

void CommandSender::SlotHandleXmlReply(QByteArray data)
{
    Delivery delivery;
    const SoapMessage reply =
        readSoapMessage(data, SoapSender::Server, [&](const QString &requestId, const QString &element) {
            delivery = deliveryOf(requestId, element, data.size());
            return delivery.reading;
        });
    if (!reply.requestId.isEmpty() && dropLateReply(reply.requestId))
        return;
    if (reply.elementOnly) {
        Q_EMIT si_requestHandled(reply.requestId); // nobody takes it
        return;
    }
    if (m_state == KavroClient::Connecting
        && (!reply.readError.isEmpty() || reply.element != QLatin1String("GetBasePathReply"))) {
        // Until the server has named its storage directory, nothing else is expected of it.
        refusePeer(reply.readError.isEmpty() ? QStringLiteral("it answered with \"%1\"").arg(reply.element)
                                             : reply.readError);
        return;
    }
    const int position = ReplyHandler::position(reply.element);
    if (position < 0) {
        if (reply.readError.isEmpty())
            KAVRO_TRACE_WARNING(QStringLiteral("CommandSender::SlotHandleXmlReply: Unknown command: %1").arg(position));
        else
            KAVRO_TRACE_WARNING(QStringLiteral("CommandSender::SlotHandleXmlReply: %1").arg(reply.readError));
        m_lastError.store(reply.readError.isEmpty() ? ErrorUnknownReplyCommand : ErrorSoapParsing);
        notifyWaiter(reply, ErrorSoapParsing, reply.readError);
        Q_EMIT si_requestHandled(reply.requestId);
        return;
    }

    const ReplyHandler &handler = ReplyHandler::table().at(position);
    int error = reply.error;
    QString errorString = reply.errorString;
    if (!reply.readError.isEmpty()) {
        error = ErrorSoapParsing;
        errorString = reply.readError;
    } else if (handler.limitErrors && error >= s_errorLimit) {
        error = ErrorUnknown;
    }
    if (qstrcmp(handler.name, "QueryMetaDataReply") == 0 && reply.readError.isEmpty()) {
        // This reply reports its error through the code's own text.
        errorString = KavroErrorString::Get(static_cast<KavroError>(error));
        if (error != NoError)
            KAVRO_TRACE_WARNING(
                QStringLiteral("the filegroup meta data request returned the error: %1").arg(errorString));
    } else if (error != NoError && handler.errorTrace) {
        KAVRO_TRACE_WARNING(QLatin1String(handler.errorTrace).arg(errorString).arg(error));
    }
    m_lastError.store(error);
    if (delivery.announced) {
        m_undeliveredBytes += delivery.countedBytes;
        handler.emitReply(*this, reply, error, errorString);
        if (delivery.countedBytes > 0)
            Q_EMIT repliesAnnounced(delivery.countedBytes);
    }
    notifyWaiter(reply, error, errorString);
    Q_EMIT si_requestHandled(reply.requestId);
}

void CommandSender::SlotHandleXmlError(QString error, bool recoverable)
{
    KAVRO_TRACE_WARNING(QStringLiteral("CommandSender::HandleXmlError: XML parse error from %1:%2: %3")
                            .arg(m_host)
                            .arg(m_port)
                            .arg(error));
    if (!recoverable)
        KAVRO_TRACE_WARNING(
            QStringLiteral("CommandSender::HandleXmlError: Cannot recover from error. Closing connection."));
}

void CommandSender::SlotHandleXmlError(QString error)
{
    SlotHandleXmlError(error, false);
}

// Request methods: check the connection, trace, send.

QString CommandSender::sendIfConnected(const KavroClientSOAPMessage &message, const std::function<QString()> &trace)
{
    if (!CheckIsConnected()) {
        // A request that cannot go out is forgotten: its caller learns of it from the empty id.
        const QMutexLocker locker(&m_waitersMutex);
        m_waiters.remove(message.requestId());
        return QString();
    }
    if (trace)
        KAVRO_TRACE_INFO(trace());
    return send(message);
}

QString CommandSender::CreateFileGroup(const QString &version, const QDateTime &lifeCycle, const QString &detail,
                                       const QString &comment, FileType fileType, quint64 reservedStorage,
                                       const QString &name, const QString &guid, const QString &path,
                                       const QString &requestId)
{
    const QString user = GetUser();
    return sendIfConnected(CreateFileGroupMessage(comment, guid, detail, name, fileType, lifeCycle, reservedStorage,
                                                  GetTeamMembership(), user, version, path, requestId),
                           [&] {
                               return QStringLiteral("KavroClient::CreateFG: guid='%1' group='%2' path='%3' "
                                                     "detail='%4' comment='%5' user='%6' type='%7'")
                                   .arg(guid, name, path, detail, comment, user)
                                   .arg(fileType);
                           });
}

QString CommandSender::CreateRovecFileGroup(const QString &subsystem, const QString &rovecId, const QString &recordId,
                                            const QString &detail, const QString &comment, const QString &user,
                                            FileType fileType, const QString &path, const QString &guid,
                                            const QString &requestId)
{
    const QString userName = user.isEmpty() ? GetUser() : user;
    return sendIfConnected(CreateRovecFileGroupMessage(rovecId, subsystem, recordId, QString(), detail, comment,
                                                       fileType, GetTeamMembership(), userName, guid, path, requestId),
                           [&] {
                               return QStringLiteral("KavroClient::CreateRovecFG: guid='%1' rovec='%2' record='%3' "
                                                     "detail='%4' comment='%5' user='%6' subsystem='%7' type='%8' "
                                                     "filepath='%9'")
                                   .arg(guid, rovecId, recordId, detail, comment, userName, subsystem)
                                   .arg(fileType)
                                   .arg(path);
                           });
}

QString CommandSender::DeleteFileGroup(const QString &guid, bool shallow, const QString &requestId)
{
    return sendIfConnected(DeleteFileGroupMessage(guid, shallow, requestId), [&] {
        return QStringLiteral("KavroClient::DeleteFG: guid='%1' shallow='%2'")
            .arg(guid, KavroClientSOAPMessage::booleanText(shallow));
    });
}

QString CommandSender::CheckFileGroupExists(const QString &guid, const QString &requestId)
{
    return sendIfConnected(CheckFileGroupExistsMessage(guid, requestId));
}

QString CommandSender::QueryMetaData(const QString &guid, const QString &application, const QString &requestId)
{
    return sendIfConnected(QueryMetaDataMessage(guid, application, requestId), [&] {
        return QStringLiteral("KavroClient::QueryMetaData: guid='%1' app='%2'").arg(guid, application);
    });
}

QString CommandSender::QueryLocationStateProgress(const QString &guid, const QString &requestId)
{
    return sendIfConnected(QueryLocationStateProgressMessage(guid, requestId));
}

QString CommandSender::AddFile(const QString &guid, const QString &fileName, quint32 fileId, const QString &requestId)
{
    return sendIfConnected(AddFileMessage(guid, fileName, fileId, requestId), [&] {
        return QStringLiteral("KavroClient::AddFile: guid='%1' fileid='%2' filename='%3'")
            .arg(guid)
            .arg(fileId)
            .arg(fileName);
    });
}

QString CommandSender::DeleteFile(const QString &guid, quint32 fileId, const QString &requestId)
{
    return sendIfConnected(DeleteFileMessage(guid, fileId, requestId), [&] {
        return QStringLiteral("KavroClient::DeleteFile: guid='%1' fileid='%2'").arg(guid).arg(fileId);
    });
}

QString CommandSender::RequestFile(const QString &guid, quint32 fileId, LockState lock, const QString &requestId)
{
    const QString user = GetUser();
    return sendIfConnected(RequestFileMessage(guid, fileId, lock == LockWrite, user, requestId), [&] {
        const QString lockId = QStringLiteral("%1|%2|%3").arg(guid).arg(fileId).arg(user);
        return QStringLiteral("KavroClient::RequestFile: guid='%1' fileid='%2' lock='%3' lockid='%4'")
            .arg(guid)
            .arg(fileId)
            .arg(lock)
            .arg(lockId);
    });
}

QString CommandSender::CloseFile(const QString &guid, quint32 fileId, const QString &requestId)
{
    return sendIfConnected(CloseFileMessage(guid, fileId, GetUser(), requestId), [&] {
        return QStringLiteral("KavroClient::CloseFile: guid='%1' fileid='%2'").arg(guid).arg(fileId);
    });
}

QString CommandSender::MoveToNas(const QString &guid, const QString &requestId)
{
    const QString user = GetUser();
    return sendIfConnected(MoveToNasMessage(guid, user, requestId), [&] {
        return QStringLiteral("KavroClient::MoveToNas: guid='%1' user='%2'").arg(guid, user);
    });
}

QString CommandSender::AddReference(const QString &guid, const QString &application, const QString &requestId)
{
    return sendIfConnected(AddReferenceMessage(guid, application, requestId), [&] {
        return QStringLiteral("KavroClient::AddRef: guid='%1' app='%2'").arg(guid, application);
    });
}

QString CommandSender::RemoveReference(const QString &guid, const QString &application, const QString &requestId)
{
    return sendIfConnected(RemoveReferenceMessage(guid, application, requestId), [&] {
        return QStringLiteral("KavroClient::RemoveReference: guid='%1'").arg(guid);
    });
}

QString CommandSender::RemoveAllReferences(const QString &guid, const QString &application, const QString &requestId)
{
    return sendIfConnected(RemoveAllReferencesMessage(guid, application, requestId), [&] {
        return QStringLiteral("KavroClient::RemoveAllReferences: guid='%1'").arg(guid);
    });
}

QString CommandSender::GetApplicationList(const QString &requestId)
{
    return sendIfConnected(GetApplicationListMessage(requestId));
}

QString CommandSender::GetUserList(const QString &requestId)
{
    return sendIfConnected(GetUserListMessage(requestId));
}

QString CommandSender::GetFileList(const QString &guid, const QString &requestId)
{
    return sendIfConnected(GetFileListMessage(guid, requestId));
}

QString CommandSender::QueryFileGroups(const FileQuery &query, const QString &requestId)
{
    return sendIfConnected(QueryFileGroupsMessage(query, GetApplication(), GetUser(), requestId));
}

QString CommandSender::ExportArchive(const QString &path, const QStringList &guids, const QString &requestId)
{
    return sendIfConnected(ExportArchiveMessage(path, guids, requestId));
}

QString CommandSender::ImportArchive(const QStringList &paths, const QString &requestId)
{
    return sendIfConnected(ImportArchiveMessage(paths, requestId));
}

QString CommandSender::RegisterConverter(const QString &converterId, const QVector<FileType> &fileTypes,
                                         const QString &requestId)
{
    return sendIfConnected(RegisterConverterMessage(converterId, fileTypes, requestId));
}

QString CommandSender::ConvertFileGroupReply(const QString &guid, int error, const QString &errorString)
{
    if (!CheckIsConnected())
        return QString();
    const ConvertFileGroupReplyMessage message(guid, error, errorString);
    CommandSenderSocket *socket = m_socket.load();
    QMetaObject::invokeMethod(
        socket,
        [socket, bytes = message.writeRequest()] {
            socket->sl_sendAnswer(bytes);
        },
        Qt::AutoConnection);
    return message.requestId();
}

} // namespace Kavro
