// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_ASYNCHANDLER_P_H
#define KAVRO_ASYNCHANDLER_P_H

#include "commandsender_p.h"
#include "soapmessage_p.h"

#include <QDeadlineTimer>
#include <QMutex>
#include <QWaitCondition>

#include <atomic>

namespace Kavro
{

/*!
 * \brief Lets a blocking call wait for the reply to its own request.
 *
 * The handler is registered with the dispatcher for requestId() before the
 * request is sent, so a reply that comes before wait() begins is not lost.
 * The dispatcher's thread tells it the outcome directly, under its mutex; no
 * thread is started per call. The wait ends when the reply has been handled
 * (its error), when the request is overdue (ErrorReplyTimeout: the timeout,
 * counted from the handler's construction, passed, or the connection's
 * watchdog found the reply overdue), or when the connection drops first
 * (ErrorNotConnected). A timeout of 0 waits without limit. Once the wait has
 * ended, later news of the request is ignored; destroying the handler
 * withdraws the request if it is still queued.
 *
 * \code
 * AsyncHandler handler(sender, timeout);
 * sender->GetUserList(handler.requestId());
 * if (handler.wait(handler.requestId()))
 *     use(handler.reply());
 * \endcode
 */
class AsyncHandler : public RequestWaiter
{
public:
    AsyncHandler(CommandSender *sender, quint32 timeout);
    ~AsyncHandler() override;
    Q_DISABLE_COPY_MOVE(AsyncHandler)

    //! The request id to send the awaited request with.
    QString requestId() const;
    //! True only when the reply to \a requestId was handled within the timeout.
    bool wait(const QString &requestId);

    //! How the wait ended: the reply's error, ErrorReplyTimeout or ErrorNotConnected.
    int error() const;
    QString errorString() const;
    //! The reply, once wait() returned true.
    const SoapMessage &reply() const;

    //! The caller takes only the guids of a query's records (set before sending).
    void setGuidsOnly(bool guidsOnly);

    bool requestHandled(const SoapMessage &reply, int error, const QString &errorString) override;
    void requestFailed(const QString &requestId, RequestFailure failure) override;
    bool needsRecords() const override;

private:
    void finish(int error, const QString &errorString);

    CommandSender *const m_sender;
    const QDeadlineTimer m_deadline;
    const QString m_requestId;
    mutable QMutex m_mutex;
    QWaitCondition m_waitCondition;
    bool m_done = false;
    bool m_handled = false;
    std::atomic<bool> m_guidsOnly{false};
    int m_error = NoError;
    QString m_errorString;
    SoapMessage m_reply;
};

} // namespace Kavro

#endif
