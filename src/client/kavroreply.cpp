// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "kavroreply_p.h"

#include <kavro/kavroerrorstring.h>

namespace Kavro
{

namespace
{
// The server's own text where it sent one, else the code's; an unreadable reply says so.
QString plainError(int error, const QString &text)
{
    if (error == ErrorSoapParsing)
        return QStringLiteral("the archive server's reply could not be read: %1").arg(text);
    if (error == ErrorUnknownReplyCommand || error == ErrorReplyCommandMismatch)
        return QStringLiteral("the archive server answered with a message that does not fit the request (%1)")
            .arg(KavroErrorString::Get(static_cast<KavroError>(error)));
    return text.isEmpty() ? KavroErrorString::Get(static_cast<KavroError>(error)) : text;
}
} // namespace

void SenderLink::giveUp(const QString &requestId)
{
    const QMutexLocker locker(&mutex);
    if (sender)
        sender->removeWaiter(requestId, CommandSender::GiveUp::KeepLine);
}

QStringList listResult(const QStringList &entries)
{
    const QString text = entries.join(QLatin1Char('|'));
    return text.isEmpty() ? QStringList() : text.split(QLatin1Char('|'), Qt::KeepEmptyParts, Qt::CaseSensitive);
}

KavroReplyPrivate::KavroReplyPrivate(KavroReply *owner, const QString &requestId)
    : q(owner)
    , requestId(requestId)
{
}

void KavroReplyPrivate::finish(int errorCode, const QString &text, const SoapMessage &message)
{
    if (finished)
        return;
    finished = true;
    error = static_cast<KavroError>(errorCode);
    errorString = errorCode == NoError ? QString() : text;
    reply = message;
    if (error != NoError && onFailure)
        onFailure();
    Q_EMIT q->finished();
}

void KavroReplyPrivate::finishLater(int errorCode, const QString &text, const SoapMessage &message)
{
    QMetaObject::invokeMethod(
        q,
        [this, errorCode, text, message] {
            finish(errorCode, text, message);
        },
        Qt::QueuedConnection);
}

bool KavroReplyPrivate::requestHandled(const SoapMessage &message, int errorCode, const QString &text)
{
    finishLater(errorCode, plainError(errorCode, text), message);
    return true;
}

void KavroReplyPrivate::requestFailed(const QString &, RequestFailure failure)
{
    // Only the dispatcher calls this, so it is still there.
    finishLater(errorOf(failure), dispatcher->failureText(failure));
}

KavroReply::KavroReply(const QString &requestId)
    : d(std::make_unique<KavroReplyPrivate>(this, requestId))
{
}

KavroReply::~KavroReply()
{
    // Nothing is told to this reply once the dispatcher has let go of it.
    if (d->link && !d->finished)
        d->link->giveUp(d->requestId);
}

QString KavroReply::requestId() const
{
    return d->requestId;
}

bool KavroReply::isFinished() const
{
    return d->finished;
}

KavroError KavroReply::error() const
{
    return d->error;
}

QString KavroReply::errorString() const
{
    return d->errorString;
}

void KavroReply::abort()
{
    if (d->finished)
        return;
    if (d->link)
        d->link->giveUp(d->requestId);
    d->finish(ErrorAborted, QStringLiteral("the request was aborted"), SoapMessage());
}

QStringList KavroReply::users() const
{
    return listResult(d->reply.listTexts());
}

QStringList KavroReply::applications() const
{
    return users();
}

QStringList KavroReply::files() const
{
    return users();
}

FileGroupData KavroReply::metaData() const
{
    return d->reply.groups.value(0);
}

QList<FileGroupData> KavroReply::groups() const
{
    return d->reply.groups;
}

QString KavroReply::guid() const
{
    return d->error == NoError ? d->reply.values.value(QStringLiteral("Guid"), d->guid) : QString();
}

QString KavroReply::path() const
{
    if (d->error != NoError)
        return QString();
    return d->path.isEmpty() ? d->reply.values.value(QStringLiteral("Path")) : d->path;
}

quint32 KavroReply::fileId() const
{
    return d->reply.values.value(QStringLiteral("FileId")).toUInt();
}

bool KavroReply::exists() const
{
    return d->reply.values.value(QStringLiteral("Exists")) == QLatin1String("true");
}

LocationState KavroReply::locationState() const
{
    return static_cast<LocationState>(d->reply.values.value(QStringLiteral("LocationState")).toInt());
}

double KavroReply::progress() const
{
    return d->reply.values.value(QStringLiteral("CopyProgress")).toDouble();
}

} // namespace Kavro
