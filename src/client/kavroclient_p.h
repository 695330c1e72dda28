// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROCLIENT_P_H
#define KAVRO_KAVROCLIENT_P_H

#include <kavro/kavroclient.h>

#include "commandsender_p.h"
#include "soapmessage_p.h"

#include <QDeadlineTimer>
#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <atomic>
#include <functional>
#include <optional>

namespace Kavro
{

class AsyncHandler;
class KavroReplyPrivate;
struct SenderLink;

/*!
 * \brief The connection settings shared by every client of the process.
 *
 * Read once from the section "KAVRO"; a client made with an explicit host
 * and port overwrites them for all.
 */
class KavroClient::ClientConfig
{
public:
    ClientConfig();
    ~ClientConfig();
    Q_DISABLE_COPY_MOVE(ClientConfig)

    //! The shared instance, made on first use.
    static ClientConfig &instance();
    //! Reads the configuration again (for tests that change it between cases).
    void reload();

    QString host() const;
    quint16 port() const;
    bool isAvailable() const;
    bool isUseUtc() const;
    int compressionRate() const;
    int replyTimeout() const;
    void overrideAddress(const QString &host, quint16 port);
    void setAvailable(bool available);

private:
    void read();

    mutable QMutex m_mutex;
    QString m_host;
    quint16 m_port = 0;
    bool m_available = false;
    bool m_useUtc = false;
    int m_compressionRate = -1;
    int m_replyTimeout = 30000;
};

class KavroClientPrivate
{
public:
    explicit KavroClientPrivate(KavroClient *owner);
    ~KavroClientPrivate();

    void startSender(QString application, const QString &user, const QString &team);
    //! Fails every waiting call with 43, waits until no operation runs any more, then stops the dispatcher.
    void stopSender();
    //! The error of the calling thread's last operation on this client.
    void setError(int error);
    int error() const;
    //! How many error entries all threads hold at present, for the tests.
    static qsizetype errorRecordEntries();

    /*!
     * Keeps the dispatcher alive while an operation runs: the client's
     * destructor waits for every one to leave. Fails once the client is
     * being destroyed.
     */
    class Operation
    {
    public:
        explicit Operation(KavroClientPrivate *d);
        ~Operation();
        Q_DISABLE_COPY_MOVE(Operation)
        explicit operator bool() const { return m_entered; }

    private:
        KavroClientPrivate *const d;
        const bool m_entered;
    };

    //! The checks every operation begins with; traces and returns false when the operation cannot go on.
    bool begin(const char *operation, const Operation &operationScope);
    void traceStart(const char *operation, const QString &arguments) const;
    void traceEnd(const char *operation) const;
    //! How an asynchronous request is followed.
    enum class Tracking {
        AnnounceFailure, //!< requestFailed() tells when it ends without a reply
        None, //!< it expects no reply, or someone else waits for it
    };
    //! A new request id whose failure requestFailed() will announce.
    QString newTrackedRequest();
    /*!
     * An asynchronous operation: \a send sends with the request id it is given,
     * or, with Tracking::None, with one of its own; returns the id sent.
     */
    QString runAsync(const char *operation, const QString &arguments,
                     const std::function<QString(const QString &)> &send,
                     Tracking tracking = Tracking::AnnounceFailure);
    /*!
     * A reply-object operation: \a send sends with the request id it is
     * given. Made ready by \a prepare (false: the reply has been finished
     * with an error already).
     */
    KavroReply *request(const char *operation, const QString &arguments,
                        const std::function<QString(const QString &)> &send,
                        const std::function<bool(KavroReplyPrivate &)> &prepare = {});
    /*!
     * A blocking operation: \a send sends with the given request id; true when the
     * reply came in time, with \a handler holding it. Traces "AsyncHandler failed".
     */
    bool runBlocking(const char *operation, AsyncHandler &handler, const std::function<QString(const QString &)> &send);
    /*!
     * Creates the storage directory of a new group; empty when there is no
     * storage directory, or the group's would leave it. \a firstCreated is
     * the outermost directory made for it.
     */
    QString storagePath(const QString &guid, const QString &name, QString *firstCreated);
    //! Makes the local directory of a new group for \a reply, or finishes it with ErrorCreatePath.
    bool prepareGroupDirectory(KavroReplyPrivate &reply, const QString &guid, const QString &name, QString *localPath);
    QString createFileGroup(bool blocking, const QString &version, const QDateTime &lifeCycle, const QString &detail,
                            const QString &comment, FileType fileType, quint64 reservedStorage, const QString &name,
                            QString &localPath, const QString &guid);
    QString createRovecFileGroup(const QString &subsystem, const QString &rovecId, const QString &recordId,
                                 const QString &detail, const QString &comment, const QString &user, FileType fileType,
                                 QString &localPath, const QString &guid);
    QString addFile(bool blocking, const QString &path, const QString &guid, int fileId, unsigned int *newFileId);
    /*!
     * A blocking operation from its checks to its end trace: the reply when it
     * came in time with error 0. With \a guidsOnly a query's records may hold
     * their guids only.
     */
    std::optional<SoapMessage> blockingCall(const char *operation, const QString &arguments,
                                            const std::function<QString(const QString &)> &send,
                                            bool guidsOnly = false);
    //! A blocking query; with \a guidsOnly its records may hold their guids only.
    QList<FileGroupData> queryGroups(const char *operation, const FileQuery &query, bool guidsOnly);
    QStringList listOperation(const char *operation, const QString &arguments,
                              const std::function<QString(const QString &)> &send);
    void connectSignals();
    /*!
     * Hands the dispatcher's reply signal \a from on to \a to on the client's
     * thread; \a heardAt are the client's signals it ends in, \a to itself
     * when none are given.
     */
    template<typename From, typename To, typename... HeardAt>
    void relay(From from, To to, HeardAt... heardAt);
    //! Whether anything is connected to a signal of the client that \a replySignal of the dispatcher ends in.
    bool heard(const QMetaMethod &replySignal) const;

    QString storageDirectory() const;
    //! Told on the dispatcher's thread, as it happens, so that waiters without an event loop hear of it.
    void setState(KavroClient::State state, const QString &storageDirectory = QString());
    KavroClient::State state() const;
    bool waitForConnected(QDeadlineTimer deadline);

    bool explicitIdentity = false;
    CommandSender *sender = nullptr;
    const std::shared_ptr<SenderLink> link;
    KavroClient *const owner;
    QThread senderThread;

private:
    // The client's signals each reply signal of the dispatcher ends in, by the reply signal's method index;
    // made before the dispatcher's thread starts and unchanged afterwards.
    QHash<int, QList<QMetaMethod>> m_heardAt;
    mutable QMutex m_stateMutex;
    QString m_storageDirectory;
    KavroClient::State m_state = KavroClient::Unconnected;
    QWaitCondition m_stateChanged;
    QWaitCondition m_operationsDone;
    int m_operations = 0;
    bool m_stopping = false;
    const quint64 m_serial; // names this client in the calling threads' error records
};

} // namespace Kavro

#endif
