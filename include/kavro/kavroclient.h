// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROCLIENT_H
#define KAVRO_KAVROCLIENT_H

#include <kavro/filegroupdata.h>
#include <kavro/kavroreply.h>
#include <kavro/kavrotypes.h>
#include <kavro/kavrourl.h>

#include <QObject>
#include <QStringList>
#include <QVector>

#include <memory>

QT_BEGIN_NAMESPACE
class QSslConfiguration;
class QWidget;
QT_END_NAMESPACE

namespace Kavro
{

class FileQuery;
class KavroClientPrivate;

/*!
 * \brief The connection of an application to the archive server.
 *
 * A client reads the section "KAVRO" of the configuration (the server's host
 * and port, whether times are shown in UTC, the compression rate), connects
 * on a thread of its own and keeps reconnecting while the server is away. It
 * counts as connected once the server has told it its storage directory; then
 * connected() is emitted. The connection is encrypted by TLS when the
 * configuration says so ("UseTls", "TlsCaCertificates", "TlsCertificate",
 * "TlsKey") or setSslConfiguration() is called.
 *
 * Every operation has a form ending in \c Request that returns a KavroReply:
 * it emits finished() exactly once, whatever happens, and holds the typed
 * result. Most operations also come in two classic forms. The
 * blocking form waits for the reply, at most "ReplyTimeoutMs" (30 s by
 * default), and returns its result; on the GUI thread it freezes the
 * interface for as long. The form ending in \c Async returns the request id
 * at once and delivers the outcome as a signal whose first argument is that
 * id, or as requestFailed() when no reply came. Failures return an empty
 * result (empty string or list, 0, false); GetError() tells why. Blocking
 * calls may be made from several threads at once; each gets its own result,
 * and GetError() reports the error of the calling thread's last operation.
 *
 * Blocking calls emit the reply signals too, as asynchronous
 * ones do; an application tells its own asynchronous replies apart by the
 * request id. Requests made through a KavroReply are told to their reply
 * object only: neither the reply signals below nor requestFailed()
 * carry them.
 *
 * \code
 * Kavro::KavroClient client(QStringLiteral("archive.example.org"), 5223, QStringLiteral("viewer"),
 *                           QStringLiteral("alice"), QStringLiteral("blue"));
 * QObject::connect(&client, &Kavro::KavroClient::connected, &client, [&client] {
 *     Kavro::KavroReply *reply = client.GetUserListRequest();
 *     QObject::connect(reply, &Kavro::KavroReply::finished, reply, [reply] {
 *         qDebug() << reply->users() << reply->errorString();
 *         reply->deleteLater();
 *     });
 * });
 * \endcode
 */
class KAVRO_EXPORT KavroClient : public QObject
{
    Q_OBJECT

public:
    class ClientConfig;

    //! The state of the connection to the server.
    enum State {
        Unconnected, //!< no connection, and none being made; the next attempt follows by itself
        Connecting, //!< a connection is being made, or waits for the server to name its storage directory
        Connected, //!< the server has named its storage directory: requests may go out
    };
    Q_ENUM(State)

    //! A client for the server of the configuration; without "ServerHost" it stays unavailable.
    KavroClient();
    //! As KavroClient(), with the host and port replaced where given (non-empty, non-zero).
    KavroClient(const QString &host, quint16 port);
    /*!
     * A client for \a host and \a port with the given identity, available whatever the configuration says;
     * an empty host or a port of 0 is taken from the configuration (else localhost and 5223).
     */
    KavroClient(const QString &host, quint16 port, const QString &application, const QString &user,
                const QString &team);
    ~KavroClient() override;
    Q_DISABLE_COPY_MOVE(KavroClient)

    //! True when the configuration names a server, or a client was made with an explicit identity.
    static bool IsKavroAvailable();
    //! The configured compression rate; -1 when none is set.
    static int GetCompressionRate();
    //! A new GUID as 36 characters, without braces.
    static QString CreateGuid();

    bool IsUseUtc() const;
    QString GetHost() const;
    unsigned short GetPort() const;
    bool IsConnected() const;
    //! Does nothing: the client reconnects by itself.
    void Reconnect();
    //! The connection's state; Unconnected for good when no server is configured.
    State state() const;
    //! The storage directory the server named when the client connected last; empty before.
    QString storageDirectory() const;
    /*!
     * Waits until the client is connected, at most \a msecs milliseconds (-1:
     * without limit), while attempts go on underneath. Works on any thread,
     * also one without an event loop, and before the client's own thread has
     * seen connected(). False on timeout, when no server is configured, or
     * when the client is being destroyed.
     */
    bool waitForConnected(int msecs = 30000);
    /*!
     * Encrypts the connection by TLS with \a configuration, instead of as the
     * configuration file says; a null configuration switches TLS off. A
     * connection that is up or being made is made again at once, so call it
     * right after construction. The server's certificate is verified as
     * \a configuration says (QSslSocket::VerifyPeer by default); the user
     * this client names must be the common name of the client certificate
     * where the server asks for one.
     */
    void setSslConfiguration(const QSslConfiguration &configuration);
    //! The TLS configuration in force: setSslConfiguration()'s, else the configuration file's; null without TLS or a
    //! server.
    QSslConfiguration sslConfiguration() const;
    /*!
     * A TLS configuration that trusts the CA certificates in the PEM file
     * \a caCertificates (the system's when empty) and presents the
     * certificate in \a certificate with the unencrypted key in \a key
     * (neither when both are empty). A null configuration, with \a error
     * saying why, when a file cannot be used.
     */
    static QSslConfiguration sslConfigurationFromFiles(const QString &caCertificates, const QString &certificate,
                                                       const QString &key, QString *error = nullptr);
    void SetUser(const QString &user);
    void SetApplication(const QString &application);
    void SetTeamMembership(const QString &team);
    //! The error of the calling thread's last operation on this client; NoError when unavailable.
    KavroError GetError();
    QString GetErrorString();

    //! Adds the local file at \a path to the group \a guid; blocks. The new file id, or 0.
    unsigned int AddFile(const QString &path, const QString &guid);
    //! Adds the local file at \a path to the group \a guid; AddFileSg() tells the new id.
    QString AddFileAsync(const QString &path, const QString &guid, int fileId);
    //! Marks the group as referenced by this client's application; fire and forget.
    void AddReference(const QString &guid);
    void AddReference(const KavroUrl &url);
    void RemoveReference(const QString &guid);
    void RemoveReference(const KavroUrl &url);
    void RemoveAllReferences(const QString &guid);
    void RemoveAllReferences(const KavroUrl &url);
    //! Asks whether a group exists; checkFileGroupExistsSg() answers.
    QString CheckFileGroupExists(const QString &guid);
    //! Releases the lock on a file taken by RequestFile(); fire and forget.
    void CloseFile(unsigned int fileId, const QString &guid);
    void CloseFile(const KavroUrl &url);
    /*!
     * Creates a file group and the local directory for its files (returned in
     * \a localPath, inside the server's storage directory); blocks. Returns the
     * group's guid (\a guid, or a new one when empty), or an empty string.
     */
    QString CreateFileGroup(const QString &version, const QDateTime &lifeCycle, const QString &detail,
                            const QString &comment, FileType fileType, quint64 reservedStorage, const QString &name,
                            QString &localPath, QString guid = QString());
    //! As CreateFileGroup(), without waiting; CreateFileGroupSg() answers.
    QString CreateFileGroupAsync(const QString &version, const QDateTime &lifeCycle, const QString &detail,
                                 const QString &comment, FileType fileType, quint64 reservedStorage,
                                 const QString &name, QString &localPath, QString guid = QString());
    //! Creates a group for a Rovec recording; CreateRovecFileGroupSg() answers. Returns the guid.
    QString CreateRovecFileGroupAsync(const QString &subsystem, const QString &rovecId, const QString &recordId,
                                      const QString &detail, const QString &comment, const QString &user,
                                      FileType fileType, QString &localPath, QString guid = QString());
    //! As above for the subsystem "IpAddress".
    QString CreateRovecFileGroupAsync(const QString &rovecId, const QString &recordId, const QString &detail,
                                      const QString &comment, const QString &user, FileType fileType,
                                      QString &localPath, QString guid = QString());
    QString DeleteFileGroupAsync(const QString &guid);
    QString DeleteFileName(unsigned int fileId, const QString &guid);
    QString DeleteFileName(const KavroUrl &url);
    //! Exports the groups \a guids to the archive \a target; exportArchiveSg() answers.
    QString ExportArchiveAsync(const QStringList &guids, const QString &target);
    QString ImportArchiveAsync(const QStringList &paths);
    QStringList GetApplicationList();
    QString GetApplicationListAsync();
    QStringList GetUserList();
    QString GetUserListAsync();
    //! The files of a group as id, name, id, name, ...; blocks.
    QStringList GetFileList(const QString &guid);
    QStringList GetFileList(const KavroUrl &url);
    QString GetFileListAsync(const QString &guid);
    //! The guids of the groups that match \a query, in the server's order; \a count is their number.
    QStringList QueryFiles(const FileQuery &query, unsigned int &count);
    //! The records of the groups that meet \a query, in reply order, with their times in UTC.
    QList<FileGroupData> QueryFileGroups(const FileQuery &query);
    //! queryFileGroupsSg() answers with the table of matching groups, QueryFileGroupRecordsSg() with their records.
    QString QueryFilesAsync(const FileQuery &query);
    //! The record of the group \a guid, its files included; blocks. A null record on failure (see GetError()).
    FileGroupData QueryMetaData(const QString &guid, const QString &application = QString());
    QString QueryMetaDataAsync(const QString &guid, const QString &application);
    QString QueryLocationStateProgress(const QString &guid);
    QString MoveToNas(const QString &guid);
    QString MoveToNas(const KavroUrl &url);
    //! Moves a group to network storage and waits for the server's answer.
    void MoveToNasSync(const QString &guid);
    //! Fetches a file, locked for reading or writing; blocks. The local path of the file, or empty.
    QString RequestFile(unsigned int fileId, const QString &guid, LockState lockState);
    QString RequestFile(const KavroUrl &url, LockState lockState);
    QString RequestFileAsync(unsigned int fileId, const QString &guid, LockState lockState);
    QString RequestFileAsync(const KavroUrl &url, LockState lockState);
    //! True when \a url names an existing group, and, where it names a file, a file of that group.
    bool IsValidURL(const KavroUrl &url);
    /*!
     * Lets the user choose an archived file in FileSelectDialog (button "Ok",
     * one file, every listed file type); true when a file was chosen, which
     * \a guid and \a fileId then name. Defined in Kavro::Widgets: a program
     * that calls it links that library.
     */
    bool GetSelectedFile(QWidget *parent, const QString &caption, QString &guid, unsigned int &fileId);
    //! As above, the chosen file as its archive URL.
    bool GetSelectedFile(QWidget *parent, const QString &caption, KavroUrl &url);

    //! Offers this client as converter for \a fileTypes; RegisterConverterSg() answers.
    QString RegisterConverterAsync(const QString &converterId, const QVector<FileType> &fileTypes);
    //! Answers a ConvertFileGroupRequestedSg() for the group \a guid.
    void AnswerConvertFileGroup(const QString &guid, KavroError error, const QString &errorString);

    //! \name Reply objects
    //! Each returns a new KavroReply owned by the caller; see KavroReply for what it holds.
    //! @{
    KavroReply *AddFileRequest(const QString &path, const QString &guid);
    KavroReply *AddReferenceRequest(const QString &guid);
    KavroReply *RemoveReferenceRequest(const QString &guid);
    KavroReply *RemoveAllReferencesRequest(const QString &guid);
    KavroReply *CheckFileGroupExistsRequest(const QString &guid);
    KavroReply *CloseFileRequest(unsigned int fileId, const QString &guid);
    //! Creates the group's local directory first, and removes it again when the creation fails.
    KavroReply *CreateFileGroupRequest(const QString &version, const QDateTime &lifeCycle, const QString &detail,
                                       const QString &comment, FileType fileType, quint64 reservedStorage,
                                       const QString &name, const QString &guid = QString());
    KavroReply *CreateRovecFileGroupRequest(const QString &subsystem, const QString &rovecId, const QString &recordId,
                                            const QString &detail, const QString &comment, const QString &user,
                                            FileType fileType, const QString &guid = QString());
    //! \a shallow keeps the group's files on disk.
    KavroReply *DeleteFileGroupRequest(const QString &guid, bool shallow = false);
    KavroReply *DeleteFileNameRequest(unsigned int fileId, const QString &guid);
    KavroReply *ExportArchiveRequest(const QStringList &guids, const QString &target);
    KavroReply *ImportArchiveRequest(const QStringList &paths);
    KavroReply *GetApplicationListRequest();
    KavroReply *GetUserListRequest();
    KavroReply *GetFileListRequest(const QString &guid);
    KavroReply *QueryFilesRequest(const FileQuery &query);
    KavroReply *QueryMetaDataRequest(const QString &guid, const QString &application = QString());
    KavroReply *QueryLocationStateProgressRequest(const QString &guid);
    KavroReply *MoveToNasRequest(const QString &guid);
    KavroReply *RequestFileRequest(unsigned int fileId, const QString &guid, LockState lockState);
    KavroReply *RegisterConverterRequest(const QString &converterId, const QVector<FileType> &fileTypes);
    //! @}

Q_SIGNALS:
    //! The server has named its storage directory: requests may go out.
    void connected();
    //! The connection was lost; only ever after connected(). The client reconnects by itself.
    void disconnected();
    void stateChanged(Kavro::KavroClient::State state);
    /*!
     * A connection attempt failed, the peer is no archive server, or the
     * connection was lost, in plain words for people. Each distinct failure
     * is told once until the client is connected again.
     */
    void errorOccurred(Kavro::KavroError error, const QString &errorString);
    /*!
     * The asynchronous request \a requestId (made by an \c Async form or a
     * fire-and-forget call) ended without a reply: ErrorNotConnected when the
     * connection was lost, ErrorReplyTimeout when no reply came within
     * "ReplyTimeoutMs" of its going out. Emitted once per id; never for
     * blocking calls, which return the error, nor for reply objects.
     */
    void requestFailed(const QString &requestId, int error, const QString &errorString);
    /*!
     * \name Reply signals
     * Each reply signal is emitted for the replies to blocking calls and to
     * \c Async calls alike: an application tells its own asynchronous replies
     * apart by their request id. Requests made through a KavroReply never
     * appear here.
     * @{
     */
    void CreateFileGroupSg(QString guid, QString path);
    void CreateRovecFileGroupSg(QString guid, QString path, int error, QString errorString);
    void AddFileSg(QString requestId, unsigned int fileId);
    //! Declared for compatibility; never emitted.
    void AddRovecFileSg(QString requestId, unsigned int fileId, int error, QString errorString);
    void DeleteFileNameSg(QString requestId, int error, QString errorString);
    void RequestFileSg(QString requestId, QString path, int error, QString errorString);
    void CloseFileSg(QString requestId, int error, QString errorString);
    void MoveToNasSg(QString requestId, int error, QString errorString);
    void AddReferenceSg(QString requestId, int error, QString errorString);
    void RemoveReferenceSg(QString requestId, int error, QString errorString);
    void RemoveAllReferenceSg(QString requestId, int error, QString errorString);
    void GetApplicationListSg(QString requestId, QStringList applications, int error, QString errorString);
    void GetUserListSg(QString requestId, QStringList users, int error, QString errorString);
    void GetFileListSg(QString requestId, QStringList files, int error, QString errorString);
    void copyForeignFileGroupProgess(QString requestId, float progress);
    void exportArchiveSg(QString requestId, int error, QString errorString);
    void importArchiveSg(QString requestId, int error, QString errorString);
    void queryFileGroupsSg(QString requestId, QStringList data, int columnCount, int error, QString errorString);
    void QueryFileGroupRecordsSg(QString requestId, QList<Kavro::FileGroupData> groups, int error, QString errorString);
    void QueryMetaDataSg(QString requestId, Kavro::FileGroupData metaData, int error, QString errorString);
    void deleteFileGroupSg(QString requestId, int error, QString errorString);
    void queryLocationStateProgressSg(QString requestId, int locationState, double progress, int error,
                                      QString errorString);
    void checkFileGroupExistsSg(QString requestId, bool exists, int error, QString errorString);
    void RegisterConverterSg(QString requestId, int error, QString errorString);
    //! The server asks this converter to convert the group \a guid; answer with AnswerConvertFileGroup().
    void ConvertFileGroupRequestedSg(QString guid, FileType fileType, QString filePath);
    //! @}

private Q_SLOTS:
    void SlotConnected(QString storageDirectory);
    void SlotDisconnected();
    void EmitCreateFileGroupSg(QString guid, QString path);
    void EmitAddFileSg(QString requestId, unsigned int fileId);

private:
    friend class KavroClientPrivate;
    const std::unique_ptr<KavroClientPrivate> d;
};

} // namespace Kavro

#endif
