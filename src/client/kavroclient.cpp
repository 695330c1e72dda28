// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "kavroclient_p.h"

#include <kavro/createpath.h>
#include <kavro/filequery.h>
#include <kavro/kavroerrorstring.h>

#include "asynchandler_p.h"
#include "commandsender_p.h"
#include "kavroreply_p.h"
#include "settings_p.h"
#include "trace_p.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QMetaMethod>
#include <QSet>
#include <QUuid>

namespace Kavro
{

namespace
{
QString trace(const char *operation, const char *ending)
{
    return QStringLiteral("KavroClient::") + QLatin1String(operation) + QStringLiteral(": ") + QLatin1String(ending);
}

// Join of a list as the archive traces write it: "a ;b ;".
QString joined(const QStringList &entries)
{
    QString text;
    for (const QString &entry : entries)
        text += QStringLiteral("%1 ;").arg(entry);
    return text;
}

// The file name sent for a path: after the last native separator, else after the last '/'.
QString fileNameOf(const QString &path)
{
    qsizetype cut = path.lastIndexOf(QDir::separator());
    if (cut < 0)
        cut = path.lastIndexOf(QLatin1Char('/'));
    return path.mid(cut + 1);
}

// Each thread keeps the failed outcome of its last operation per client, by
// the client's serial number; success is the absence of an entry. Entries of
// destroyed clients are pruned, and a thread's record goes when the thread
// does, so the records stay as small as the set of live clients each running
// thread has seen fail. s_errorEntries counts the entries of all threads.
std::atomic<quint64> s_nextSerial{1};
std::atomic<qsizetype> s_errorEntries{0};
QMutex s_liveClientsMutex;
QSet<quint64> s_liveClients;
constexpr qsizetype s_pruneAbove = 8;

class ThreadErrors
{
public:
    ~ThreadErrors() { s_errorEntries -= m_byClient.size(); }

    int value(quint64 client) const { return m_byClient.value(client, NoError); }

    void set(quint64 client, int error)
    {
        if (!m_byClient.contains(client))
            ++s_errorEntries;
        m_byClient.insert(client, error);
        if (m_byClient.size() > s_pruneAbove)
            pruneDeadClients();
    }

    void remove(quint64 client) { s_errorEntries -= m_byClient.remove(client) ? 1 : 0; }

private:
    void pruneDeadClients()
    {
        const QMutexLocker locker(&s_liveClientsMutex);
        s_errorEntries -= m_byClient.removeIf([](const std::pair<const quint64 &, int &> &entry) {
            return !s_liveClients.contains(entry.first);
        });
    }

    QHash<quint64, int> m_byClient;
};

thread_local ThreadErrors t_errors;

// Removes the directories from \a leaf up to \a top as long as they are empty.
void removeCreatedDirectories(const QString &leaf, const QString &top)
{
    if (top.isEmpty())
        return;
    const QString stop = QDir::cleanPath(top);
    for (QDir dir(QDir::cleanPath(leaf)); dir.path().startsWith(stop); dir.setPath(QFileInfo(dir.path()).path())) {
        if (!QDir().rmdir(dir.path()) || dir.path() == stop)
            break;
    }
}
} // namespace

// ClientConfig

KavroClient::ClientConfig::ClientConfig()
{
    read();
}

KavroClient::ClientConfig::~ClientConfig()
{
    KAVRO_TRACE_INFO(QStringLiteral("ClientConfig::~ClientConfig: Destoyed"));
}

KavroClient::ClientConfig &KavroClient::ClientConfig::instance()
{
    static ClientConfig config;
    return config;
}

void KavroClient::ClientConfig::reload()
{
    read();
}

void KavroClient::ClientConfig::read()
{
    KAVRO_TRACE_INFO(QStringLiteral("ClientConfig::ClientConfig: Start "));
    Settings settings(Settings::kavroSection());
    const QMutexLocker locker(&m_mutex);
    m_available = settings.contains(QStringLiteral("ServerHost"));
    m_host = settings.stringValue(QStringLiteral("ServerHost"), QStringLiteral("localhost"));
    m_port = static_cast<quint16>(settings.intValue(QStringLiteral("XmlPort"), 5223));
    m_useUtc = settings.boolValue(QStringLiteral("UseUtc"), false);
    // An absent or zero rate is written as -1, so the key is there from then on.
    if (settings.intValue(QStringLiteral("CompressionRate"), 0) == 0)
        settings.setIntValue(QStringLiteral("CompressionRate"), -1);
    m_compressionRate = settings.intValue(QStringLiteral("CompressionRate"), -1);
    m_replyTimeout = settings.intValue(QStringLiteral("ReplyTimeoutMs"), 30000);
    KAVRO_TRACE_INFO(QStringLiteral("ClientConfig::ClientConfig: End"));
}

QString KavroClient::ClientConfig::host() const
{
    const QMutexLocker locker(&m_mutex);
    return m_host;
}

quint16 KavroClient::ClientConfig::port() const
{
    const QMutexLocker locker(&m_mutex);
    return m_port;
}

bool KavroClient::ClientConfig::isAvailable() const
{
    const QMutexLocker locker(&m_mutex);
    return m_available;
}

bool KavroClient::ClientConfig::isUseUtc() const
{
    const QMutexLocker locker(&m_mutex);
    return m_useUtc;
}

int KavroClient::ClientConfig::compressionRate() const
{
    const QMutexLocker locker(&m_mutex);
    return m_compressionRate;
}

int KavroClient::ClientConfig::replyTimeout() const
{
    const QMutexLocker locker(&m_mutex);
    return m_replyTimeout;
}

void KavroClient::ClientConfig::overrideAddress(const QString &host, quint16 port)
{
    const QMutexLocker locker(&m_mutex);
    m_host = host;
    m_port = port;
}

void KavroClient::ClientConfig::setAvailable(bool available)
{
    const QMutexLocker locker(&m_mutex);
    m_available = available;
}

// KavroClientPrivate

KavroClientPrivate::KavroClientPrivate(KavroClient *owner)
    : link(std::make_shared<SenderLink>())
    , owner(owner)
    , m_serial(s_nextSerial.fetch_add(1))
{
    KavroClient::ClientConfig::instance();
    qRegisterMetaType<FileGroupData>("Kavro::FileGroupData");
    qRegisterMetaType<QList<FileGroupData>>("QList<Kavro::FileGroupData>");
    qRegisterMetaType<FileType>("FileType");
    qRegisterMetaType<KavroClient::State>("Kavro::KavroClient::State");
    senderThread.setObjectName(QStringLiteral("commandSenderThread"));
    const QMutexLocker locker(&s_liveClientsMutex);
    s_liveClients.insert(m_serial);
}

KavroClientPrivate::~KavroClientPrivate()
{
    t_errors.remove(m_serial);
    const QMutexLocker locker(&s_liveClientsMutex);
    s_liveClients.remove(m_serial);
}

KavroClientPrivate::Operation::Operation(KavroClientPrivate *d)
    : d(d)
    , m_entered([d] {
        const QMutexLocker locker(&d->m_stateMutex);
        if (d->m_stopping)
            return false;
        ++d->m_operations;
        return true;
    }())
{
}

KavroClientPrivate::Operation::~Operation()
{
    if (!m_entered)
        return;
    const QMutexLocker locker(&d->m_stateMutex);
    if (--d->m_operations == 0)
        d->m_operationsDone.wakeAll();
}

void KavroClientPrivate::stopSender()
{
    {
        const QMutexLocker locker(&m_stateMutex);
        m_stopping = true;
    }
    m_stateChanged.wakeAll();
    if (sender) {
        // Waiting calls fail at once; the dispatcher stays until the last of them has left.
        sender->shutDown();
        {
            const QMutexLocker locker(&link->mutex);
            link->sender = nullptr;
        }
        const QMutexLocker locker(&m_stateMutex);
        while (m_operations > 0)
            m_operationsDone.wait(&m_stateMutex);
    }
    senderThread.quit();
    senderThread.wait();
}

void KavroClientPrivate::startSender(QString application, const QString &user, const QString &team)
{
    const KavroClient::ClientConfig &config = KavroClient::ClientConfig::instance();
    if (!explicitIdentity && !config.isAvailable())
        return;
    if (application.isEmpty())
        application = QCoreApplication::applicationName();
    sender = new CommandSender(config.host(), config.port(), application, user, team);
    sender->setReplyTimeout(config.replyTimeout());
    sender->moveToThread(&senderThread);
    link->sender = sender;
    connectSignals();
    // The table of relays is complete and stays as it is from here on, while the dispatcher's thread reads it.
    sender->setListenerCheck([this](const QMetaMethod &replySignal) {
        return heard(replySignal);
    });
    QObject::connect(&senderThread, &QThread::finished, sender, &QObject::deleteLater);
    senderThread.start(QThread::InheritPriority);
    QMetaObject::invokeMethod(sender, "start", Qt::QueuedConnection);
}

template<typename From, typename To, typename... HeardAt>
void KavroClientPrivate::relay(From from, To to, HeardAt... heardAt)
{
    QObject::connect(sender, from, owner, to);
    QList<QMetaMethod> &targets = m_heardAt[QMetaMethod::fromSignal(from).methodIndex()];
    if constexpr (sizeof...(heardAt) == 0)
        targets.append(QMetaMethod::fromSignal(to));
    else
        (targets.append(QMetaMethod::fromSignal(heardAt)), ...);
}

bool KavroClientPrivate::heard(const QMetaMethod &replySignal) const
{
    const QList<QMetaMethod> targets = m_heardAt.value(replySignal.methodIndex());
    return std::any_of(targets.cbegin(), targets.cend(), [q = owner](const QMetaMethod &signal) {
        return q->isSignalConnected(signal);
    });
}

void KavroClientPrivate::connectSignals()
{
    using C = CommandSender;
    using K = KavroClient;
    KavroClient *q = owner;
    // The state is kept as the dispatcher sees it, for callers without an event loop; the signals follow
    // on the client's thread.
    QObject::connect(
        sender, &C::connected, sender,
        [this](const QString &basePath) {
            setState(KavroClient::Connected, basePath);
        },
        Qt::DirectConnection);
    QObject::connect(
        sender, &C::stateChanged, sender,
        [this](KavroClient::State state) {
            if (state != KavroClient::Connected)
                setState(state);
        },
        Qt::DirectConnection);
    QObject::connect(sender, &C::stateChanged, q, &K::stateChanged);
    QObject::connect(sender, &C::connected, q, &K::SlotConnected);
    QObject::connect(sender, &C::disconnected, q, &K::SlotDisconnected);
    QObject::connect(sender, &C::connectionFailed, q, [q](int error, const QString &text) {
        Q_EMIT q->errorOccurred(static_cast<KavroError>(error), text);
    });
    QObject::connect(sender, &C::requestFailed, q, &K::requestFailed);
    relay(&C::createFileGroupReply, &K::EmitCreateFileGroupSg, &K::CreateFileGroupSg);
    relay(&C::createRovecFileGroupReply, &K::CreateRovecFileGroupSg);
    relay(&C::addFileReply, &K::EmitAddFileSg, &K::AddFileSg);
    relay(&C::deleteFileReply, &K::DeleteFileNameSg);
    relay(&C::requestFileReply, &K::RequestFileSg);
    relay(&C::closeFileReply, &K::CloseFileSg);
    relay(&C::moveToNasReply, &K::MoveToNasSg);
    relay(&C::addReferenceReply, &K::AddReferenceSg);
    relay(&C::removeReferenceReply, &K::RemoveReferenceSg);
    relay(&C::removeAllReferenceReply, &K::RemoveAllReferenceSg);
    relay(&C::getApplicationListReply, &K::GetApplicationListSg);
    relay(&C::getUserListReply, &K::GetUserListSg);
    relay(&C::getFileListReply, &K::GetFileListSg);
    relay(&C::copyForeignFileGroupProgess, &K::copyForeignFileGroupProgess);
    relay(&C::exportArchiveReply, &K::exportArchiveSg);
    relay(&C::importArchiveReply, &K::importArchiveSg);
    relay(
        &C::queryFileGroupRecordsReply,
        [q](const QString &requestId, const QList<FileGroupData> &groups, int error, const QString &errorString) {
            // The table of display texts costs more than the records: it is made for listeners only.
            if (q->isSignalConnected(QMetaMethod::fromSignal(&K::queryFileGroupsSg))) {
                QStringList cells;
                FileGroupData::GetHeaders(cells);
                const int columns = int(cells.size());
                for (const FileGroupData &group : groups)
                    group.ToStringList(cells);
                Q_EMIT q->queryFileGroupsSg(requestId, cells, columns, error, errorString);
            }
            Q_EMIT q->QueryFileGroupRecordsSg(requestId, groups, error, errorString);
        },
        &K::queryFileGroupsSg, &K::QueryFileGroupRecordsSg);
    relay(&C::queryMetaDataReply, &K::QueryMetaDataSg);
    relay(&C::deleteFileGroupReply, &K::deleteFileGroupSg);
    relay(&C::queryLocationStateProgressReply, &K::queryLocationStateProgressSg);
    relay(&C::checkFileGroupExistsReply, &K::checkFileGroupExistsSg);
    relay(&C::registerConverterReply, &K::RegisterConverterSg);
    relay(&C::convertFileGroupRequested, &K::ConvertFileGroupRequestedSg);
    // Queued behind the reply signals it follows, so it comes once they have been handed on.
    QObject::connect(sender, &C::repliesAnnounced, q, [dispatcher = sender](qint64 bytes) {
        dispatcher->repliesDelivered(bytes);
    });
}

void KavroClientPrivate::setError(int error)
{
    if (error == NoError)
        t_errors.remove(m_serial);
    else
        t_errors.set(m_serial, error);
}

int KavroClientPrivate::error() const
{
    return t_errors.value(m_serial);
}

qsizetype KavroClientPrivate::errorRecordEntries()
{
    return s_errorEntries;
}

QString KavroClientPrivate::storageDirectory() const
{
    const QMutexLocker locker(&m_stateMutex);
    return m_storageDirectory;
}

void KavroClientPrivate::setState(KavroClient::State state, const QString &directory)
{
    const QMutexLocker locker(&m_stateMutex);
    m_state = state;
    if (state == KavroClient::Connected)
        m_storageDirectory = directory;
    m_stateChanged.wakeAll();
}

KavroClient::State KavroClientPrivate::state() const
{
    const QMutexLocker locker(&m_stateMutex);
    return m_state;
}

bool KavroClientPrivate::waitForConnected(QDeadlineTimer deadline)
{
    const QMutexLocker locker(&m_stateMutex);
    while (m_state != KavroClient::Connected && !m_stopping && m_stateChanged.wait(&m_stateMutex, deadline)) { }
    return m_state == KavroClient::Connected && !m_stopping;
}

bool KavroClientPrivate::begin(const char *operation, const Operation &operationScope)
{
    if (!KavroClient::IsKavroAvailable()) {
        KAVRO_TRACE_WARNING(trace(operation, "no kavro available"));
        return false;
    }
    if (!operationScope || !sender || !sender->CheckIsConnected()) {
        setError(ErrorNotConnected);
        KAVRO_TRACE_WARNING(trace(operation, "no commandsender available"));
        return false;
    }
    setError(NoError);
    return true;
}

void KavroClientPrivate::traceStart(const char *operation, const QString &arguments) const
{
    KAVRO_TRACE_INFO(arguments.isNull() ? trace(operation, "Start") : trace(operation, "Start (%1)").arg(arguments));
}

void KavroClientPrivate::traceEnd(const char *operation) const
{
    KAVRO_TRACE_INFO(trace(operation, "End (%1)").arg(error()));
}

QString KavroClientPrivate::newTrackedRequest()
{
    const QString requestId = CommandSender::newRequestId();
    sender->expectReply(requestId);
    return requestId;
}

QString KavroClientPrivate::runAsync(const char *operation, const QString &arguments,
                                     const std::function<QString(const QString &)> &send, Tracking tracking)
{
    const Operation scope(this);
    if (!begin(operation, scope))
        return QString();
    traceStart(operation, arguments);
    // A request method sends nothing only when the connection is gone.
    const QString requestId = send(tracking == Tracking::AnnounceFailure ? newTrackedRequest() : QString());
    if (requestId.isEmpty())
        setError(ErrorNotConnected);
    traceEnd(operation);
    return requestId;
}

KavroReply *KavroClientPrivate::request(const char *operation, const QString &arguments,
                                        const std::function<QString(const QString &)> &send,
                                        const std::function<bool(KavroReplyPrivate &)> &prepare)
{
    auto *reply = new KavroReply(CommandSender::newRequestId());
    KavroReplyPrivate &state = *reply->d;
    state.link = link;
    state.dispatcher = sender;
    const auto notSent = [&] {
        state.finishLater(ErrorNotConnected,
                          sender ? sender->failureText(RequestFailure::NotSent)
                                 : QStringLiteral("no archive server is configured: set ServerHost in the section "
                                                  "[KAVRO] of the settings"));
    };
    const Operation scope(this);
    if (!begin(operation, scope)) {
        notSent();
        return reply;
    }
    traceStart(operation, arguments);
    if (!prepare || prepare(state)) {
        sender->addWaiter(state.requestId, &state);
        // Nothing went out only when the connection is gone; the dispatcher has forgotten the waiter then.
        if (send(state.requestId).isEmpty())
            notSent();
    }
    traceEnd(operation);
    return reply;
}

bool KavroClientPrivate::runBlocking(const char *operation, AsyncHandler &handler,
                                     const std::function<QString(const QString &)> &send)
{
    const QString requestId = send(handler.requestId());
    const bool handled = !requestId.isEmpty() && handler.wait(requestId);
    setError(requestId.isEmpty() ? int(ErrorNotConnected) : handler.error());
    if (!handled)
        KAVRO_TRACE_WARNING(trace(operation, "AsyncHandler failed"));
    return handled;
}

std::optional<SoapMessage> KavroClientPrivate::blockingCall(const char *operation, const QString &arguments,
                                                            const std::function<QString(const QString &)> &send,
                                                            bool guidsOnly)
{
    const Operation scope(this);
    if (!begin(operation, scope))
        return std::nullopt;
    traceStart(operation, arguments);
    AsyncHandler handler(sender, KavroClient::ClientConfig::instance().replyTimeout());
    handler.setGuidsOnly(guidsOnly);
    std::optional<SoapMessage> reply;
    if (runBlocking(operation, handler, send) && handler.error() == NoError)
        reply = handler.reply();
    traceEnd(operation);
    return reply;
}

QStringList KavroClientPrivate::listOperation(const char *operation, const QString &arguments,
                                              const std::function<QString(const QString &)> &send)
{
    const std::optional<SoapMessage> reply = blockingCall(operation, arguments, send);
    return reply ? listResult(reply->listTexts()) : QStringList();
}

QString KavroClientPrivate::storagePath(const QString &guid, const QString &name, QString *firstCreated)
{
    // No storage directory here means nowhere to put the group: never the current directory.
    const QString directory = storageDirectory();
    if (directory.isEmpty() || !QFileInfo(directory).isDir())
        return QString();
    // The group's directory must lie inside the storage directory, whatever the name or guid say.
    const QString base = QDir::cleanPath(QDir(directory).absolutePath());
    const QString path = CreatePath(base, guid, name);
    const QString inside = QDir::toNativeSeparators(base + QLatin1Char('/'));
    if (!path.startsWith(inside) || path.size() <= inside.size())
        return QString();
    firstCreated->clear();
    for (QString parent = QDir::cleanPath(path); !QFileInfo::exists(parent); parent = QFileInfo(parent).path())
        *firstCreated = parent;
    if (!QDir().mkpath(path))
        return QString();
    return path;
}

QString KavroClientPrivate::createFileGroup(bool blocking, const QString &version, const QDateTime &lifeCycle,
                                            const QString &detail, const QString &comment, FileType fileType,
                                            quint64 reservedStorage, const QString &name, QString &localPath,
                                            const QString &guid)
{
    const char *operation = "CreateFileGroupHelper";
    const Operation scope(this);
    if (!begin(operation, scope))
        return QString();
    KAVRO_TRACE_INFO(trace(operation,
                           "Start (GUID: %1, Version: %2, Lifecycle: %3, Detail: %4, Comment: %5, "
                           "Filetype: %6, ReservedStorage: %7, Filegroupname: %8, LocalPath: %9)")
                         .arg(guid, version, lifeCycle.toString(QStringLiteral("dd.MM.yyyy hh.mm.ss")), detail, comment,
                              QString::number(fileType), QString::number(reservedStorage), name, localPath));
    QString firstCreated;
    localPath = storagePath(guid, name, &firstCreated);
    bool created = false;
    if (localPath.isEmpty()) {
        setError(ErrorCreatePath);
    } else {
        const auto send = [&](const QString &requestId) {
            return sender->CreateFileGroup(version, lifeCycle, detail, comment, fileType, reservedStorage, name, guid,
                                           localPath, requestId);
        };
        if (blocking) {
            AsyncHandler handler(sender, KavroClient::ClientConfig::instance().replyTimeout());
            const bool replied = runBlocking(operation, handler, send);
            created = replied && handler.error() == NoError;
            if (replied && !created) {
                // Refused by the server: the directory made for the group goes again.
                KAVRO_TRACE_WARNING(trace(operation, "error (%1)").arg(handler.error()));
                removeCreatedDirectories(localPath, firstCreated);
            }
        } else {
            const QString requestId = newTrackedRequest();
            created = !send(requestId).isEmpty();
            if (!created)
                setError(ErrorNotConnected);
        }
    }
    traceEnd(operation);
    return created ? guid : QString();
}

QString KavroClientPrivate::createRovecFileGroup(const QString &subsystem, const QString &rovecId,
                                                 const QString &recordId, const QString &detail, const QString &comment,
                                                 const QString &user, FileType fileType, QString &localPath,
                                                 const QString &guid)
{
    const char *operation = "CreateRovecFileGroupHelper";
    const Operation scope(this);
    if (!begin(operation, scope))
        return QString();
    KAVRO_TRACE_INFO(
        trace(operation, "Start (Subsystem: %1, RovecId: %2, RecordId: %3)").arg(subsystem, rovecId, recordId));
    QString firstCreated;
    localPath = storagePath(guid, recordId, &firstCreated);
    bool sent = false;
    if (localPath.isEmpty()) {
        setError(ErrorCreatePath);
    } else {
        sent = !sender
                    ->CreateRovecFileGroup(subsystem, rovecId, recordId, detail, comment, user, fileType, localPath,
                                           guid, newTrackedRequest())
                    .isEmpty();
        if (!sent)
            setError(ErrorNotConnected);
    }
    traceEnd(operation);
    return sent ? guid : QString();
}

QString KavroClientPrivate::addFile(bool blocking, const QString &path, const QString &guid, int fileId,
                                    unsigned int *newFileId)
{
    const char *operation = "AddFileHelper";
    *newFileId = 0;
    const Operation scope(this);
    if (!begin(operation, scope))
        return QString();
    KAVRO_TRACE_INFO(trace(operation, "Start (%1, %2)").arg(path, guid));
    const QString name = fileNameOf(path);
    QString requestId;
    if (blocking) {
        AsyncHandler handler(sender, KavroClient::ClientConfig::instance().replyTimeout());
        const auto send = [&](const QString &id) {
            return sender->AddFile(guid, name, 0, id);
        };
        if (runBlocking(operation, handler, send)) {
            requestId = handler.requestId();
            if (handler.error() == NoError)
                *newFileId = handler.reply().values.value(QStringLiteral("FileId")).toUInt();
            else
                KAVRO_TRACE_WARNING(trace(operation, "error (%1)").arg(handler.error()));
        }
    } else {
        requestId = sender->AddFile(guid, name, static_cast<quint32>(fileId), newTrackedRequest());
        if (requestId.isEmpty())
            setError(ErrorNotConnected);
    }
    traceEnd(operation);
    return requestId;
}

bool KavroClientPrivate::prepareGroupDirectory(KavroReplyPrivate &reply, const QString &guid, const QString &name,
                                               QString *localPath)
{
    QString firstCreated;
    *localPath = storagePath(guid, name, &firstCreated);
    if (localPath->isEmpty()) {
        reply.finishLater(ErrorCreatePath,
                          QStringLiteral("cannot create the directory of the group \"%1\" inside the "
                                         "server's storage directory \"%2\"")
                              .arg(name, storageDirectory()));
        return false;
    }
    reply.guid = guid;
    reply.path = *localPath;
    // Refused by the server: the directory made for the group goes again.
    reply.onFailure = [path = *localPath, firstCreated] {
        removeCreatedDirectories(path, firstCreated);
    };
    return true;
}

// KavroClient

KavroClient::KavroClient()
    : d(std::make_unique<KavroClientPrivate>(this))
{
    KAVRO_TRACE_INFO(QStringLiteral("KavroClient::KavroClient: Start"));
    d->startSender(QString(), QString(), QString());
    KAVRO_TRACE_INFO(QStringLiteral("KavroClient::KavroClient: End"));
}

KavroClient::KavroClient(const QString &host, quint16 port)
    : d(std::make_unique<KavroClientPrivate>(this))
{
    KAVRO_TRACE_INFO(QStringLiteral("KavroClient::KavroClient: Start"));
    ClientConfig &config = ClientConfig::instance();
    config.overrideAddress(host.isEmpty() ? config.host() : host, port == 0 ? config.port() : port);
    d->startSender(QString(), QString(), QString());
    KAVRO_TRACE_INFO(QStringLiteral("KavroClient::KavroClient: End"));
}

KavroClient::KavroClient(const QString &host, quint16 port, const QString &application, const QString &user,
                         const QString &team)
    : d(std::make_unique<KavroClientPrivate>(this))
{
    KAVRO_TRACE_INFO(QStringLiteral("KavroClient::KavroClient: Start (%1, %2)").arg(host).arg(port));
    ClientConfig &config = ClientConfig::instance();
    config.overrideAddress(host.isEmpty() ? config.host() : host, port == 0 ? config.port() : port);
    config.setAvailable(true);
    d->explicitIdentity = true;
    d->startSender(application, user, team);
    KAVRO_TRACE_INFO(QStringLiteral("KavroClient::KavroClient: End"));
}

KavroClient::~KavroClient()
{
    KAVRO_TRACE_INFO(QStringLiteral("KavroClient::~KavroClient: Start"));
    d->stopSender();
    KAVRO_TRACE_INFO(QStringLiteral("KavroClient::~KavroClient: End"));
}

bool KavroClient::IsKavroAvailable()
{
    return ClientConfig::instance().isAvailable();
}

int KavroClient::GetCompressionRate()
{
    return ClientConfig::instance().compressionRate();
}

QString KavroClient::CreateGuid()
{
    return QUuid::createUuid().toString().remove(QLatin1Char('{')).remove(QLatin1Char('}'));
}

bool KavroClient::IsUseUtc() const
{
    return ClientConfig::instance().isUseUtc();
}

QString KavroClient::GetHost() const
{
    return d->sender ? d->sender->GetHost() : QString();
}

unsigned short KavroClient::GetPort() const
{
    return d->sender ? d->sender->GetPort() : 0;
}

bool KavroClient::IsConnected() const
{
    return IsKavroAvailable() && d->sender && d->sender->CheckIsConnected() && d->state() == Connected;
}

KavroClient::State KavroClient::state() const
{
    return d->state();
}

QString KavroClient::storageDirectory() const
{
    return d->storageDirectory();
}

bool KavroClient::waitForConnected(int msecs)
{
    if (!IsKavroAvailable() || !d->sender)
        return false;
    return d->waitForConnected(msecs < 0 ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(msecs));
}

void KavroClient::setSslConfiguration(const QSslConfiguration &configuration)
{
    if (d->sender)
        d->sender->setSslConfiguration(configuration);
}

QSslConfiguration KavroClient::sslConfiguration() const
{
    return d->sender ? d->sender->sslConfiguration() : QSslConfiguration();
}

QSslConfiguration KavroClient::sslConfigurationFromFiles(const QString &caCertificates, const QString &certificate,
                                                         const QString &key, QString *error)
{
    const TlsSetup setup = TlsSetup::fromFiles(caCertificates, certificate, key);
    if (error)
        *error = setup.problem;
    return setup.problem.isEmpty() ? setup.configuration : QSslConfiguration();
}

void KavroClient::Reconnect()
{
}

void KavroClient::SetUser(const QString &user)
{
    if (IsKavroAvailable() && d->sender)
        d->sender->SetUser(user);
}

void KavroClient::SetApplication(const QString &application)
{
    if (IsKavroAvailable() && d->sender)
        d->sender->SetApplication(application);
}

void KavroClient::SetTeamMembership(const QString &team)
{
    if (IsKavroAvailable() && d->sender)
        d->sender->SetTeamMembership(team);
}

KavroError KavroClient::GetError()
{
    return IsKavroAvailable() ? static_cast<KavroError>(d->error()) : NoError;
}

QString KavroClient::GetErrorString()
{
    return KavroErrorString::Get(GetError());
}

void KavroClient::SlotConnected(QString storageDirectory)
{
    if (storageDirectory.isEmpty() || !QDir(storageDirectory).exists())
        KAVRO_TRACE_WARNING(QStringLiteral("Directory does not exist: ") + storageDirectory);
    Q_EMIT connected();
}

void KavroClient::SlotDisconnected()
{
    Q_EMIT disconnected();
}

void KavroClient::EmitCreateFileGroupSg(QString guid, QString path)
{
    Q_EMIT CreateFileGroupSg(guid, path);
}

void KavroClient::EmitAddFileSg(QString requestId, unsigned int fileId)
{
    Q_EMIT AddFileSg(requestId, fileId);
}

// Operations

unsigned int KavroClient::AddFile(const QString &path, const QString &guid)
{
    unsigned int fileId = 0;
    d->addFile(true, path, guid, 0, &fileId);
    return fileId;
}

QString KavroClient::AddFileAsync(const QString &path, const QString &guid, int fileId)
{
    unsigned int unused = 0;
    return d->addFile(false, path, guid, fileId, &unused);
}

void KavroClient::AddReference(const QString &guid)
{
    d->runAsync("AddReference", guid, [&](const QString &id) {
        return d->sender->AddReference(guid, d->sender->GetApplication(), id);
    });
}

void KavroClient::AddReference(const KavroUrl &url)
{
    AddReference(url.toKavroGuid());
}

void KavroClient::RemoveReference(const QString &guid)
{
    d->runAsync("RemoveReference", guid, [&](const QString &id) {
        return d->sender->RemoveReference(guid, d->sender->GetApplication(), id);
    });
}

void KavroClient::RemoveReference(const KavroUrl &url)
{
    RemoveReference(url.toKavroGuid());
}

void KavroClient::RemoveAllReferences(const QString &guid)
{
    d->runAsync("RemoveAllReferences", guid, [&](const QString &id) {
        return d->sender->RemoveAllReferences(guid, d->sender->GetApplication(), id);
    });
}

void KavroClient::RemoveAllReferences(const KavroUrl &url)
{
    RemoveAllReferences(url.toKavroGuid());
}

QString KavroClient::CheckFileGroupExists(const QString &guid)
{
    return d->runAsync("CheckFileGroupExists", guid, [&](const QString &id) {
        return d->sender->CheckFileGroupExists(guid, id);
    });
}

void KavroClient::CloseFile(unsigned int fileId, const QString &guid)
{
    d->runAsync("CloseFile", QStringLiteral("%1, %2").arg(guid).arg(fileId), [&](const QString &id) {
        return d->sender->CloseFile(guid, fileId, id);
    });
}

void KavroClient::CloseFile(const KavroUrl &url)
{
    CloseFile(url.toKavroFileId(), url.toKavroGuid());
}

QString KavroClient::CreateFileGroup(const QString &version, const QDateTime &lifeCycle, const QString &detail,
                                     const QString &comment, FileType fileType, quint64 reservedStorage,
                                     const QString &name, QString &localPath, QString guid)
{
    if (guid.isEmpty())
        guid = CreateGuid();
    return d->createFileGroup(true, version, lifeCycle, detail, comment, fileType, reservedStorage, name, localPath,
                              guid);
}

QString KavroClient::CreateFileGroupAsync(const QString &version, const QDateTime &lifeCycle, const QString &detail,
                                          const QString &comment, FileType fileType, quint64 reservedStorage,
                                          const QString &name, QString &localPath, QString guid)
{
    if (guid.isEmpty())
        guid = CreateGuid();
    return d->createFileGroup(false, version, lifeCycle, detail, comment, fileType, reservedStorage, name, localPath,
                              guid);
}

QString KavroClient::CreateRovecFileGroupAsync(const QString &subsystem, const QString &rovecId,
                                               const QString &recordId, const QString &detail, const QString &comment,
                                               const QString &user, FileType fileType, QString &localPath, QString guid)
{
    if (guid.isEmpty())
        guid = CreateGuid();
    return d->createRovecFileGroup(subsystem, rovecId, recordId, detail, comment, user, fileType, localPath, guid);
}

QString KavroClient::CreateRovecFileGroupAsync(const QString &rovecId, const QString &recordId, const QString &detail,
                                               const QString &comment, const QString &user, FileType fileType,
                                               QString &localPath, QString guid)
{
    return CreateRovecFileGroupAsync(QStringLiteral("IpAddress"), rovecId, recordId, detail, comment, user, fileType,
                                     localPath, guid);
}

QString KavroClient::DeleteFileGroupAsync(const QString &guid)
{
    return d->runAsync("DeleteFileGroup", guid, [&](const QString &id) {
        return d->sender->DeleteFileGroup(guid, false, id);
    });
}

QString KavroClient::DeleteFileName(unsigned int fileId, const QString &guid)
{
    return d->runAsync("DeleteFile", QStringLiteral("%1, %2").arg(guid).arg(fileId), [&](const QString &id) {
        return d->sender->DeleteFile(guid, fileId, id);
    });
}

QString KavroClient::DeleteFileName(const KavroUrl &url)
{
    return DeleteFileName(url.toKavroFileId(), url.toKavroGuid());
}

QString KavroClient::ExportArchiveAsync(const QStringList &guids, const QString &target)
{
    return d->runAsync("ExportArchive", QStringLiteral("%1, %2").arg(joined(guids), target), [&](const QString &id) {
        return d->sender->ExportArchive(target, guids, id);
    });
}

QString KavroClient::ImportArchiveAsync(const QStringList &paths)
{
    return d->runAsync("ImportArchive", joined(paths), [&](const QString &id) {
        return d->sender->ImportArchive(paths, id);
    });
}

QStringList KavroClient::GetApplicationList()
{
    return d->listOperation("GetApplicationList", QString(), [&](const QString &id) {
        return d->sender->GetApplicationList(id);
    });
}

QString KavroClient::GetApplicationListAsync()
{
    return d->runAsync("GetApplicationList", QString(), [&](const QString &id) {
        return d->sender->GetApplicationList(id);
    });
}

QStringList KavroClient::GetUserList()
{
    return d->listOperation("GetUserList", QString(), [&](const QString &id) {
        return d->sender->GetUserList(id);
    });
}

QString KavroClient::GetUserListAsync()
{
    return d->runAsync("GetUserList", QString(), [&](const QString &id) {
        return d->sender->GetUserList(id);
    });
}

QStringList KavroClient::GetFileList(const QString &guid)
{
    return d->listOperation("GetFileList", guid, [&](const QString &id) {
        return d->sender->GetFileList(guid, id);
    });
}

QStringList KavroClient::GetFileList(const KavroUrl &url)
{
    return GetFileList(url.toKavroGuid());
}

QString KavroClient::GetFileListAsync(const QString &guid)
{
    return d->runAsync("GetFileList", guid, [&](const QString &id) {
        return d->sender->GetFileList(guid, id);
    });
}

QList<FileGroupData> KavroClientPrivate::queryGroups(const char *operation, const FileQuery &query, bool guidsOnly)
{
    const std::optional<SoapMessage> reply = blockingCall(
        operation, QString(),
        [&](const QString &id) {
            return sender->QueryFileGroups(query, id);
        },
        guidsOnly);
    return reply ? reply->groups : QList<FileGroupData>();
}

QStringList KavroClient::QueryFiles(const FileQuery &query, unsigned int &count)
{
    QStringList guids;
    for (const FileGroupData &group : d->queryGroups("QueryFiles", query, true))
        guids.append(group.getGuid());
    count = static_cast<unsigned int>(guids.size());
    return guids;
}

QList<FileGroupData> KavroClient::QueryFileGroups(const FileQuery &query)
{
    return d->queryGroups("QueryFileGroups", query, false);
}

QString KavroClient::QueryFilesAsync(const FileQuery &query)
{
    return d->runAsync("QueryFiles", QString(), [&](const QString &id) {
        return d->sender->QueryFileGroups(query, id);
    });
}

FileGroupData KavroClient::QueryMetaData(const QString &guid, const QString &application)
{
    const std::optional<SoapMessage> reply = d->blockingCall("QueryMetaData", guid, [&](const QString &id) {
        return d->sender->QueryMetaData(guid, application, id);
    });
    return reply ? reply->groups.value(0) : FileGroupData();
}

QString KavroClient::QueryMetaDataAsync(const QString &guid, const QString &application)
{
    return d->runAsync("QueryMetaData", guid, [&](const QString &id) {
        return d->sender->QueryMetaData(guid, application, id);
    });
}

QString KavroClient::QueryLocationStateProgress(const QString &guid)
{
    return d->runAsync("QueryLocationStateProgress", guid, [&](const QString &id) {
        return d->sender->QueryLocationStateProgress(guid, id);
    });
}

QString KavroClient::MoveToNas(const QString &guid)
{
    return d->runAsync("MoveToNas", guid, [&](const QString &id) {
        return d->sender->MoveToNas(guid, id);
    });
}

QString KavroClient::MoveToNas(const KavroUrl &url)
{
    return MoveToNas(url.toKavroGuid());
}

void KavroClient::MoveToNasSync(const QString &guid)
{
    const char *operation = "MoveToNas";
    const KavroClientPrivate::Operation scope(d.get());
    if (!d->begin(operation, scope))
        return;
    d->traceStart(operation, guid);
    AsyncHandler handler(d->sender, ClientConfig::instance().replyTimeout());
    const QString requestId = d->runAsync(
        operation, guid,
        [&](const QString &) {
            return d->sender->MoveToNas(guid, handler.requestId());
        },
        KavroClientPrivate::Tracking::None);
    if (!requestId.isEmpty()) {
        const bool handled = handler.wait(requestId);
        d->setError(handler.error());
        if (!handled)
            KAVRO_TRACE_WARNING(QStringLiteral("KavroClient::QueryFiles: AsyncHandler failed"));
    }
    d->traceEnd(operation);
}

QString KavroClient::RequestFile(unsigned int fileId, const QString &guid, LockState lockState)
{
    const char *operation = "RequestFile";
    const KavroClientPrivate::Operation scope(d.get());
    if (!d->begin(operation, scope))
        return QString();
    d->traceStart(operation, QStringLiteral("%1, %2").arg(guid).arg(fileId));
    AsyncHandler handler(d->sender, ClientConfig::instance().replyTimeout());
    QString path;
    if (d->runBlocking(operation, handler,
                       [&](const QString &id) {
                           return d->sender->RequestFile(guid, fileId, lockState, id);
                       })
        && handler.error() == NoError)
        path = handler.reply().values.value(QStringLiteral("Path"));
    d->traceEnd(operation);
    return path;
}

QString KavroClient::RequestFile(const KavroUrl &url, LockState lockState)
{
    return RequestFile(url.toKavroFileId(), url.toKavroGuid(), lockState);
}

QString KavroClient::RequestFileAsync(unsigned int fileId, const QString &guid, LockState lockState)
{
    return d->runAsync("RequestFile", QStringLiteral("%1, %2").arg(guid).arg(fileId), [&](const QString &id) {
        return d->sender->RequestFile(guid, fileId, lockState, id);
    });
}

QString KavroClient::RequestFileAsync(const KavroUrl &url, LockState lockState)
{
    return RequestFileAsync(url.toKavroFileId(), url.toKavroGuid(), lockState);
}

bool KavroClient::IsValidURL(const KavroUrl &url)
{
    if (!url.isKavroUrl())
        return false;
    const QStringList files = GetFileList(url.toKavroGuid());
    if (IsKavroAvailable() && GetError() != NoError)
        return false;
    if (!url.hasKavroFileId())
        return true;
    // The list alternates id and name; only ids are compared.
    const QString fileId = QString::number(url.toKavroFileId());
    for (qsizetype i = 0; i < files.size(); i += 2) {
        if (files.at(i) == fileId)
            return true;
    }
    return false;
}

QString KavroClient::RegisterConverterAsync(const QString &converterId, const QVector<FileType> &fileTypes)
{
    return d->runAsync("RegisterConverter", converterId, [&](const QString &id) {
        return d->sender->RegisterConverter(converterId, fileTypes, id);
    });
}

void KavroClient::AnswerConvertFileGroup(const QString &guid, KavroError error, const QString &errorString)
{
    d->runAsync(
        "AnswerConvertFileGroup", guid,
        [&](const QString &) {
            return d->sender->ConvertFileGroupReply(guid, error, errorString);
        },
        KavroClientPrivate::Tracking::None);
}

// Reply objects

KavroReply *KavroClient::AddFileRequest(const QString &path, const QString &guid)
{
    return d->request("AddFileHelper", QStringLiteral("%1, %2").arg(path, guid), [&](const QString &id) {
        return d->sender->AddFile(guid, fileNameOf(path), 0, id);
    });
}

KavroReply *KavroClient::AddReferenceRequest(const QString &guid)
{
    return d->request("AddReference", guid, [&](const QString &id) {
        return d->sender->AddReference(guid, d->sender->GetApplication(), id);
    });
}

KavroReply *KavroClient::RemoveReferenceRequest(const QString &guid)
{
    return d->request("RemoveReference", guid, [&](const QString &id) {
        return d->sender->RemoveReference(guid, d->sender->GetApplication(), id);
    });
}

KavroReply *KavroClient::RemoveAllReferencesRequest(const QString &guid)
{
    return d->request("RemoveAllReferences", guid, [&](const QString &id) {
        return d->sender->RemoveAllReferences(guid, d->sender->GetApplication(), id);
    });
}

KavroReply *KavroClient::CheckFileGroupExistsRequest(const QString &guid)
{
    return d->request("CheckFileGroupExists", guid, [&](const QString &id) {
        return d->sender->CheckFileGroupExists(guid, id);
    });
}

KavroReply *KavroClient::CloseFileRequest(unsigned int fileId, const QString &guid)
{
    return d->request("CloseFile", QStringLiteral("%1, %2").arg(guid).arg(fileId), [&](const QString &id) {
        return d->sender->CloseFile(guid, fileId, id);
    });
}

KavroReply *KavroClient::CreateFileGroupRequest(const QString &version, const QDateTime &lifeCycle,
                                                const QString &detail, const QString &comment, FileType fileType,
                                                quint64 reservedStorage, const QString &name, const QString &guid)
{
    const QString groupGuid = guid.isEmpty() ? CreateGuid() : guid;
    QString localPath;
    return d->request(
        "CreateFileGroupHelper", QStringLiteral("%1, %2").arg(groupGuid, name),
        [&](const QString &id) {
            return d->sender->CreateFileGroup(version, lifeCycle, detail, comment, fileType, reservedStorage, name,
                                              groupGuid, localPath, id);
        },
        [&](KavroReplyPrivate &reply) {
            return d->prepareGroupDirectory(reply, groupGuid, name, &localPath);
        });
}

KavroReply *KavroClient::CreateRovecFileGroupRequest(const QString &subsystem, const QString &rovecId,
                                                     const QString &recordId, const QString &detail,
                                                     const QString &comment, const QString &user, FileType fileType,
                                                     const QString &guid)
{
    const QString groupGuid = guid.isEmpty() ? CreateGuid() : guid;
    QString localPath;
    return d->request(
        "CreateRovecFileGroupHelper", QStringLiteral("%1, %2, %3").arg(subsystem, rovecId, recordId),
        [&](const QString &id) {
            return d->sender->CreateRovecFileGroup(subsystem, rovecId, recordId, detail, comment, user, fileType,
                                                   localPath, groupGuid, id);
        },
        [&](KavroReplyPrivate &reply) {
            return d->prepareGroupDirectory(reply, groupGuid, recordId, &localPath);
        });
}

KavroReply *KavroClient::DeleteFileGroupRequest(const QString &guid, bool shallow)
{
    return d->request("DeleteFileGroup", guid, [&](const QString &id) {
        return d->sender->DeleteFileGroup(guid, shallow, id);
    });
}

KavroReply *KavroClient::DeleteFileNameRequest(unsigned int fileId, const QString &guid)
{
    return d->request("DeleteFile", QStringLiteral("%1, %2").arg(guid).arg(fileId), [&](const QString &id) {
        return d->sender->DeleteFile(guid, fileId, id);
    });
}

KavroReply *KavroClient::ExportArchiveRequest(const QStringList &guids, const QString &target)
{
    return d->request("ExportArchive", QStringLiteral("%1, %2").arg(joined(guids), target), [&](const QString &id) {
        return d->sender->ExportArchive(target, guids, id);
    });
}

KavroReply *KavroClient::ImportArchiveRequest(const QStringList &paths)
{
    return d->request("ImportArchive", joined(paths), [&](const QString &id) {
        return d->sender->ImportArchive(paths, id);
    });
}

KavroReply *KavroClient::GetApplicationListRequest()
{
    return d->request("GetApplicationList", QString(), [&](const QString &id) {
        return d->sender->GetApplicationList(id);
    });
}

KavroReply *KavroClient::GetUserListRequest()
{
    return d->request("GetUserList", QString(), [&](const QString &id) {
        return d->sender->GetUserList(id);
    });
}

KavroReply *KavroClient::GetFileListRequest(const QString &guid)
{
    return d->request("GetFileList", guid, [&](const QString &id) {
        return d->sender->GetFileList(guid, id);
    });
}

KavroReply *KavroClient::QueryFilesRequest(const FileQuery &query)
{
    return d->request("QueryFiles", QString(), [&](const QString &id) {
        return d->sender->QueryFileGroups(query, id);
    });
}

KavroReply *KavroClient::QueryMetaDataRequest(const QString &guid, const QString &application)
{
    return d->request("QueryMetaData", guid, [&](const QString &id) {
        return d->sender->QueryMetaData(guid, application, id);
    });
}

KavroReply *KavroClient::QueryLocationStateProgressRequest(const QString &guid)
{
    return d->request("QueryLocationStateProgress", guid, [&](const QString &id) {
        return d->sender->QueryLocationStateProgress(guid, id);
    });
}

KavroReply *KavroClient::MoveToNasRequest(const QString &guid)
{
    return d->request("MoveToNas", guid, [&](const QString &id) {
        return d->sender->MoveToNas(guid, id);
    });
}

KavroReply *KavroClient::RequestFileRequest(unsigned int fileId, const QString &guid, LockState lockState)
{
    return d->request("RequestFile", QStringLiteral("%1, %2").arg(guid).arg(fileId), [&](const QString &id) {
        return d->sender->RequestFile(guid, fileId, lockState, id);
    });
}

KavroReply *KavroClient::RegisterConverterRequest(const QString &converterId, const QVector<FileType> &fileTypes)
{
    return d->request("RegisterConverter", converterId, [&](const QString &id) {
        return d->sender->RegisterConverter(converterId, fileTypes, id);
    });
}

} // namespace Kavro
