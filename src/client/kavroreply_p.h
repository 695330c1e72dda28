// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROREPLY_P_H
#define KAVRO_KAVROREPLY_P_H

#include <kavro/kavroreply.h>

#include "commandsender_p.h"
#include "soapmessage_p.h"

#include <QMutex>

#include <functional>
#include <memory>

namespace Kavro
{

/*!
 * \brief How replies reach the dispatcher of their client, for as long as it exists.
 *
 * The client clears it when it shuts its dispatcher down; a reply that
 * outlives its client then has nothing left to withdraw.
 */
struct SenderLink {
    QMutex mutex;
    CommandSender *sender = nullptr;

    //! Withdraws the request \a requestId, or drops its reply, when the dispatcher is still there.
    void giveUp(const QString &requestId);
};

//! A list reply's entries: empty means none, else split at "|" with empty parts kept.
QStringList listResult(const QStringList &entries);

class KavroReplyPrivate : public RequestWaiter
{
public:
    KavroReplyPrivate(KavroReply *owner, const QString &requestId);

    //! Ends the request on the reply's thread, unless it has ended already.
    void finish(int error, const QString &errorString, const SoapMessage &reply);
    //! Ends the request later on the reply's thread, so whoever made it can connect first.
    void finishLater(int error, const QString &errorString, const SoapMessage &reply = SoapMessage());

    // Told on the dispatcher's thread, under its lock, while the reply exists.
    bool requestHandled(const SoapMessage &reply, int error, const QString &errorString) override;
    void requestFailed(const QString &requestId, RequestFailure failure) override;
    Announcement announcement() const override { return Announcement::Never; }

    KavroReply *const q;
    const QString requestId;
    std::shared_ptr<SenderLink> link;
    //! The dispatcher the request went to; reached only from its own calls.
    const CommandSender *dispatcher = nullptr;
    //! Known before the reply: a new group's guid and local directory.
    QString guid;
    QString path;
    //! Runs when the request ends with an error, before finished().
    std::function<void()> onFailure;

    bool finished = false;
    KavroError error = NoError;
    QString errorString;
    SoapMessage reply;
};

} // namespace Kavro

#endif
