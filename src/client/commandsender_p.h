// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_COMMANDSENDER_P_H
#define KAVRO_COMMANDSENDER_P_H

#include <kavro/filegroupdata.h>
#include <kavro/kavroclient.h>
#include <kavro/kavrotypes.h>

#include "soapmessage_p.h"
#include "tlssetup_p.h"

#include <QAbstractSocket>
#include <QHash>
#include <QMetaMethod>
#include <QMutex>
#include <QObject>
#include <QStringList>

#include <atomic>
#include <functional>
#include <optional>

QT_BEGIN_NAMESPACE
class QTimer;
QT_END_NAMESPACE

namespace Kavro
{

class CommandSenderSocket;
class FileQuery;
class KavroClientSOAPMessage;

//! Why a request ended without a reply.
enum class RequestFailure {
    NotSent, //!< the client was not connected when it was made (ErrorNotConnected)
    ConnectionLost, //!< the connection went before the reply came (ErrorNotConnected)
    Overdue, //!< no reply within the reply timeout (ErrorReplyTimeout)
    ClientGone, //!< the client was destroyed first (ErrorNotConnected)
};

//! The error code a failure is reported with: ErrorNotConnected or ErrorReplyTimeout.
int errorOf(RequestFailure failure);

/*!
 * \brief Told on the dispatcher's thread how the request it waits for ended.
 *
 * Each waiter hears of its request at most once: after either call the
 * dispatcher forgets it.
 */
class RequestWaiter
{
public:
    virtual ~RequestWaiter() = default;
    /*!
     * The reply to the awaited request was handled; \a error is the code handed
     * on with it. False when the waiter had given up already (a late reply).
     */
    virtual bool requestHandled(const SoapMessage &reply, int error, const QString &errorString) = 0;
    //! The request \a requestId ended without a reply.
    virtual void requestFailed(const QString &requestId, RequestFailure failure) = 0;
    //! False when the waiter takes only the guids of a query's records.
    virtual bool needsRecords() const { return true; }

    //! Whether the public reply signals tell of the reply too, where something listens to them.
    enum class Announcement {
        Never, //!< the reply is the waiter's alone
        Bounded, //!< within the bound on what the client's thread has yet to take
        Unbounded, //!< always: the signal is how the reply reaches its caller
    };
    virtual Announcement announcement() const { return Announcement::Bounded; }
};

/*!
 * \brief Turns operations into requests and replies into signals.
 *
 * Lives on its own thread, "commandSenderThread", together with the
 * connection it owns. The request methods may be called from any thread;
 * each returns the request id, or an empty string with lastError() 43 when
 * the client is not connected. The client counts as connected once the
 * server has answered the first "GetBasePath" after a connection.
 *
 * A caller that waits for a reply registers a RequestWaiter for a request id
 * it chose (newRequestId()) before sending, so no reply can slip past it;
 * expectReply() registers the dispatcher's own waiter, which announces a
 * failure as requestFailed(). A waiter is told 44 when its request is
 * overdue and 43 when the connection is lost first. A request whose waiter
 * failed or gave up is taken out of the queue, so it is never sent
 * afterwards; a reply that comes after its waiter gave up is dropped.
 *
 * The connection's state and its failures are announced as they happen, on
 * the dispatcher's thread: stateChanged() and connectionFailed().
 *
 * A reply is read only where someone takes it: its waiter, or, as
 * setListenerCheck() tells, a listener beyond its signal; the signal goes out
 * only for such a listener. A reply nobody waits for, and one whose waiter
 * does not need the signal, is counted against undeliveredLimit until the
 * receiver of repliesAnnounced() reports it delivered with
 * repliesDelivered(); one that would pass the limit is not announced (traced),
 * so what the receiver's thread holds stays bounded however long it does not
 * take its events.
 */
class CommandSender : public QObject
{
    Q_OBJECT

public:
    static constexpr int defaultCheckInterval = 180000;
    //! Bytes of announced replies (as they came on the wire) the receiver may have yet to take.
    static constexpr qint64 undeliveredLimit = 16 * 1024 * 1024;

    CommandSender(const QString &host, quint16 port, const QString &application, const QString &user,
                  const QString &team);
    ~CommandSender() override;
    Q_DISABLE_COPY_MOVE(CommandSender)

    QString GetHost() const;
    quint16 GetPort() const;
    int GetLastError() const;
    QString GetApplication() const;
    void SetApplication(const QString &application);
    QString GetUser() const;
    void SetUser(const QString &user);
    QString GetTeamMembership() const;
    void SetTeamMembership(const QString &team);
    //! Milliseconds between keep-alive requests; set before start().
    void setCheckInterval(int milliseconds);
    //! Milliseconds a reply may take before the connection is re-established (0: no limit); set before start().
    void setReplyTimeout(int milliseconds);
    /*!
     * Tells, on this object's thread, whether anything listens beyond the
     * reply signal \a replySignal of this class: a reply nobody waits for is
     * read only when something does, and a query's records are read in full
     * only for a waiter that needs them or a listener. Without a check, every
     * signal is heard. Set before start().
     */
    void setListenerCheck(std::function<bool(const QMetaMethod &replySignal)> check);
    //! The receiver of repliesAnnounced() has handed on replies of \a bytes; thread-safe.
    void repliesDelivered(qint64 bytes);
    /*!
     * Encrypts the connection with \a configuration from now on (a null one:
     * not at all) instead of as the settings say; thread-safe. A connection
     * that is up or being made is made again.
     */
    void setSslConfiguration(const QSslConfiguration &configuration);
    //! The configuration set by setSslConfiguration(), else the settings' (null without TLS).
    QSslConfiguration sslConfiguration() const;

    bool CheckIsConnected();

    static QString newRequestId();
    //! Waits for \a requestId; after shutDown() the waiter fails at once with 43.
    void addWaiter(const QString &requestId, RequestWaiter *waiter);
    //! Announces requestFailed() should \a requestId end without a reply; register before sending.
    void expectReply(const QString &requestId);

    //! What becomes of a request on the wire whose waiter gives up.
    enum class GiveUp {
        ResetLine, //!< it is overdue: the line is reset, as the watchdog would
        KeepLine, //!< the caller lost interest: its reply, when it comes, is dropped
    };
    //! The waiter is done: its request is withdrawn if still queued, else handled as \a giveUp says.
    void removeWaiter(const QString &requestId, GiveUp giveUp = GiveUp::ResetLine);
    //! A plain account of \a failure for people, naming the server and what to do.
    QString failureText(RequestFailure failure) const;
    //! Sends what the line can take at once, then fails every waiter with 43 and every later one at once; for the
    //! client's destructor.
    void shutDown();

    // Request methods; the optional last argument is the request id to use.
    QString CreateFileGroup(const QString &version, const QDateTime &lifeCycle, const QString &detail,
                            const QString &comment, FileType fileType, quint64 reservedStorage, const QString &name,
                            const QString &guid, const QString &path, const QString &requestId = QString());
    QString CreateRovecFileGroup(const QString &subsystem, const QString &rovecId, const QString &recordId,
                                 const QString &detail, const QString &comment, const QString &user, FileType fileType,
                                 const QString &path, const QString &guid, const QString &requestId = QString());
    QString DeleteFileGroup(const QString &guid, bool shallow, const QString &requestId = QString());
    QString CheckFileGroupExists(const QString &guid, const QString &requestId = QString());
    QString QueryMetaData(const QString &guid, const QString &application, const QString &requestId = QString());
    QString QueryLocationStateProgress(const QString &guid, const QString &requestId = QString());
    QString AddFile(const QString &guid, const QString &fileName, quint32 fileId, const QString &requestId = QString());
    QString DeleteFile(const QString &guid, quint32 fileId, const QString &requestId = QString());
    QString RequestFile(const QString &guid, quint32 fileId, LockState lock, const QString &requestId = QString());
    QString CloseFile(const QString &guid, quint32 fileId, const QString &requestId = QString());
    QString MoveToNas(const QString &guid, const QString &requestId = QString());
    QString AddReference(const QString &guid, const QString &application, const QString &requestId = QString());
    QString RemoveReference(const QString &guid, const QString &application, const QString &requestId = QString());
    QString RemoveAllReferences(const QString &guid, const QString &application, const QString &requestId = QString());
    QString GetApplicationList(const QString &requestId = QString());
    QString GetUserList(const QString &requestId = QString());
    QString GetFileList(const QString &guid, const QString &requestId = QString());
    QString QueryFileGroups(const FileQuery &query, const QString &requestId = QString());
    QString ExportArchive(const QString &path, const QStringList &guids, const QString &requestId = QString());
    QString ImportArchive(const QStringList &paths, const QString &requestId = QString());
    QString RegisterConverter(const QString &converterId, const QVector<FileType> &fileTypes,
                              const QString &requestId = QString());
    //! Answers the server's "ConvertFileGroup"; sent at once, expecting no reply.
    QString ConvertFileGroupReply(const QString &guid, int error, const QString &errorString);

Q_SIGNALS:
    void finished();
    //! The client is connected once the server has named its storage directory \a basePath.
    void connected(QString basePath);
    //! Only after connected().
    void disconnected();
    void stateChanged(Kavro::KavroClient::State state);
    //! A connection attempt failed or a connection was lost, in plain words.
    void connectionFailed(int error, QString text);
    //! A request announced through expectReply() ended without a reply.
    void requestFailed(QString requestId, int error, QString errorString);
    void createFileGroupReply(QString guid, QString pathToUse);
    void createRovecFileGroupReply(QString guid, QString path, int error, QString errorString);
    void addFileReply(QString requestId, uint fileId);
    void deleteFileReply(QString requestId, int error, QString errorString);
    void requestFileReply(QString requestId, QString path, int error, QString errorString);
    void closeFileReply(QString requestId, int error, QString errorString);
    void moveToNasReply(QString requestId, int error, QString errorString);
    void addReferenceReply(QString requestId, int error, QString errorString);
    void removeReferenceReply(QString requestId, int error, QString errorString);
    void removeAllReferenceReply(QString requestId, int error, QString errorString);
    void getApplicationListReply(QString requestId, QStringList applicationList, int error, QString errorString);
    void getFileListReply(QString requestId, QStringList fileList, int error, QString errorString);
    void getUserListReply(QString requestId, QStringList userList, int error, QString errorString);
    //! A query's reply; the client makes the table of display texts from it where someone wants one.
    void queryFileGroupRecordsReply(QString requestId, QList<Kavro::FileGroupData> groups, int error,
                                    QString errorString);
    void copyForeignFileGroupProgess(QString requestId, float progress);
    void exportArchiveReply(QString requestId, int error, QString errorString);
    void importArchiveReply(QString requestId, int error, QString errorString);
    void registerConverterReply(QString requestId, int error, QString errorString);
    void convertFileGroupRequested(QString fileGroupId, FileType fileType, QString filePath);
    void queryMetaDataReply(QString requestId, Kavro::FileGroupData metaData, int error, QString errorString);
    void deleteFileGroupReply(QString requestId, int error, QString errorString);
    void queryLocationStateProgressReply(QString requestId, int locationState, double progress, int error,
                                         QString errorString);
    void checkFileGroupExistsReply(QString requestId, bool exists, int error, QString errorString);
    void si_requestHandled(QString requestId);
    /*!
     * Follows a reply signal that counts against undeliveredLimit, \a bytes
     * its size; connected queued, it arrives once the reply has been handed on.
     */
    void repliesAnnounced(qint64 bytes);

public Q_SLOTS:
    void start();
    void SlotConnected();
    void SlotDisconnected();
    void SlotHandleXmlReply(QByteArray data);
    void SlotHandleXmlError(QString error, bool recoverable);
    void SlotHandleXmlError(QString error);
    void SlotCheckConnection();

private Q_SLOTS:
    void replyOverdue(const QString &requestId);
    void socketFailed(QAbstractSocket::SocketError error, const QString &text);
    void messageRefused(qint64 size);

private:
    friend struct ReplyHandler;

    QString send(const KavroClientSOAPMessage &message);
    //! Sends \a message when connected, after tracing what \a trace makes (when given).
    QString sendIfConnected(const KavroClientSOAPMessage &message, const std::function<QString()> &trace = {});
    void sendGetBasePath();
    void notifyWaiter(const SoapMessage &reply, int error, const QString &errorString);
    //! How a reply is read and handed on.
    struct Delivery {
        SoapReading reading = SoapReading::Full;
        bool announced = true;
        qint64 countedBytes = 0; // counted against undeliveredLimit until delivered
    };
    //! Decided once the reply's request id and element are known, before its body is read.
    Delivery deliveryOf(const QString &requestId, const QString &element, qint64 bytes);
    //! Whether anything listens beyond \a replySignal.
    bool heard(const QMetaMethod &replySignal) const;
    //! Whether announced replies are counted: something reports their delivery.
    bool counting() const;
    //! Whether a reply of \a bytes may be announced now; traces when it may not.
    bool withinBound(const QString &element, const QString &requestId, qint64 bytes) const;
    //! True, and traced, for the reply to a request whose waiter gave up.
    bool dropLateReply(const QString &requestId);
    //! Fails every waiter and forgets them all; their queued requests are withdrawn.
    void failAllWaiters(RequestFailure failure);
    void handleBasePath(const QString &path);
    void setState(KavroClient::State state);
    //! Reports a failure of the connection, each distinct one once until the client is connected again.
    void reportConnectionFailure(int error, const QString &text);
    //! The peer answered the first request with something other than the protocol: reconnect later.
    void refusePeer(const QString &detail);
    QString serverName() const;
    //! What a failure before the server first answered means, when the channel explains it.
    QString channelFailureText(QAbstractSocket::SocketError error, const QString &text) const;

    //! The dispatcher's own waiter for asynchronous requests: it announces their failures.
    class FailureAnnouncer : public RequestWaiter
    {
    public:
        explicit FailureAnnouncer(CommandSender *sender)
            : m_sender(sender)
        {
        }
        bool requestHandled(const SoapMessage &, int, const QString &) override { return true; }
        void requestFailed(const QString &requestId, RequestFailure failure) override;
        Announcement announcement() const override { return Announcement::Unbounded; }

    private:
        CommandSender *const m_sender;
    };

    const QString m_host;
    const quint16 m_port;
    mutable QMutex m_identityMutex;
    QString m_application;
    QString m_user;
    QString m_team;
    std::optional<TlsSetup> m_tls; // set by code, overriding the settings; under m_identityMutex
    std::atomic<CommandSenderSocket *> m_socket{nullptr};
    QTimer *m_checkTimer = nullptr;
    int m_checkInterval = defaultCheckInterval;
    int m_replyTimeout = 30000;
    std::atomic<bool> m_connected{false};
    std::atomic<int> m_lastError{NoError};
    KavroClient::State m_state = KavroClient::Unconnected;
    QString m_lastFailure; // the connection failure reported last, until the client is connected again
    FailureAnnouncer m_announcer{this};

    struct Waiting {
        RequestWaiter *waiter; // null once the waiter gave up on a request that had gone out
        QString expectedReply;
        bool posted = false; // handed to the connection
        bool failed = false; // told it failed before it was handed over: it must not go out
    };

    std::function<bool(const QMetaMethod &)> m_listenerCheck;
    std::atomic<qint64> m_undeliveredBytes{0};
    QMutex m_waitersMutex;
    QHash<QString, Waiting> m_waiters;
    bool m_shutDown = false;
};

} // namespace Kavro

#endif
