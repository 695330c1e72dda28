// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROREPLY_H
#define KAVRO_KAVROREPLY_H

#include <kavro/filegroupdata.h>
#include <kavro/kavrotypes.h>

#include <QObject>
#include <QStringList>

#include <memory>

namespace Kavro
{

class KavroReplyPrivate;

/*!
 * \brief The outcome of one request, made by one of KavroClient's \c ...Request() methods.
 *
 * A reply emits finished() exactly once, whatever happens: the server's
 * reply, an error reply, a reply that cannot be read, no reply within
 * "ReplyTimeoutMs" (ErrorReplyTimeout), the connection lost or never there
 * (ErrorNotConnected), abort() (ErrorAborted), or the client destroyed with
 * the request outstanding (ErrorNotConnected). finished() is emitted on the
 * thread that made the request, which needs a running event loop; it is
 * never emitted from within the \c ...Request() call itself, so connecting
 * right after the call is in time.
 *
 * The application owns the reply: delete it, or call deleteLater() in the
 * slot connected to finished(). A reply may outlive its client.
 *
 * The typed results hold the server's answer once finished() with
 * NoError; which of them an operation fills is said with each method.
 *
 * \code
 * Kavro::KavroReply *reply = client.GetUserListRequest();
 * QObject::connect(reply, &Kavro::KavroReply::finished, reply, [reply] {
 *     if (reply->error() == Kavro::NoError)
 *         qDebug() << reply->users();
 *     else
 *         qWarning() << reply->errorString();
 *     reply->deleteLater();
 * });
 * \endcode
 */
class KAVRO_EXPORT KavroReply : public QObject
{
    Q_OBJECT

public:
    ~KavroReply() override;
    Q_DISABLE_COPY_MOVE(KavroReply)

    //! The id the request went out with; the client's reply signals would carry the same id.
    QString requestId() const;
    //! True once finished() has been emitted.
    bool isFinished() const;
    //! NoError, the server's error code, or the library's (ErrorNotConnected, ErrorReplyTimeout, ErrorAborted, ...).
    KavroError error() const;
    //! What went wrong, in plain words: the server's own text where it sent one. Empty without an error.
    QString errorString() const;
    /*!
     * Stops waiting: finished() is emitted at once with ErrorAborted. A request
     * still queued is never sent; the reply to one already sent is dropped.
     * Does nothing once finished.
     */
    void abort();

    //! GetUserListRequest(): the user names.
    QStringList users() const;
    //! GetApplicationListRequest(): the application names.
    QStringList applications() const;
    //! GetFileListRequest(): the group's files as id, name, id, name, ...
    QStringList files() const;
    //! QueryMetaDataRequest(): the group's record, its files included.
    FileGroupData metaData() const;
    //! QueryFilesRequest(): the records of the groups found, in the server's order, times in UTC.
    QList<FileGroupData> groups() const;
    //! CreateFileGroupRequest(), CreateRovecFileGroupRequest(): the new group's guid.
    QString guid() const;
    //! CreateFileGroupRequest(), CreateRovecFileGroupRequest(): the group's local directory; RequestFileRequest(): the
    //! file's local path.
    QString path() const;
    //! AddFileRequest(): the new file's id.
    quint32 fileId() const;
    //! CheckFileGroupExistsRequest(): whether the group exists.
    bool exists() const;
    //! QueryLocationStateProgressRequest(): where the group is.
    LocationState locationState() const;
    //! QueryLocationStateProgressRequest(): how far a copy has come, as the server reports it.
    double progress() const;

Q_SIGNALS:
    //! The request has ended; see error(). Emitted exactly once.
    void finished();

private:
    explicit KavroReply(const QString &requestId);
    friend class KavroClientPrivate;
    friend class KavroReplyPrivate;
    const std::unique_ptr<KavroReplyPrivate> d;
};

} // namespace Kavro

#endif
