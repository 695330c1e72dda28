// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "asynchandler_p.h"

#include <kavro/kavroerrorstring.h>

#include <QDeadlineTimer>

namespace Kavro
{

AsyncHandler::AsyncHandler(CommandSender *sender, quint32 timeout)
    : m_sender(sender)
    , m_deadline(timeout == 0 ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(timeout, Qt::PreciseTimer))
    , m_requestId(CommandSender::newRequestId())
{
    m_sender->addWaiter(m_requestId, this);
}

AsyncHandler::~AsyncHandler()
{
    m_sender->removeWaiter(m_requestId);
}

QString AsyncHandler::requestId() const
{
    return m_requestId;
}

bool AsyncHandler::wait(const QString &requestId)
{
    if (requestId != m_requestId)
        return false;
    const QMutexLocker locker(&m_mutex);
    while (!m_done && m_waitCondition.wait(&m_mutex, m_deadline)) { }
    if (!m_done)
        finish(ErrorReplyTimeout, KavroErrorString::Get(ErrorReplyTimeout));
    return m_handled;
}

int AsyncHandler::error() const
{
    const QMutexLocker locker(&m_mutex);
    return m_error;
}

QString AsyncHandler::errorString() const
{
    const QMutexLocker locker(&m_mutex);
    return m_errorString;
}

const SoapMessage &AsyncHandler::reply() const
{
    return m_reply;
}

bool AsyncHandler::requestHandled(const SoapMessage &reply, int error, const QString &errorString)
{
    const QMutexLocker locker(&m_mutex);
    if (m_done)
        return false;
    m_reply = reply;
    m_handled = true;
    finish(error, errorString);
    return true;
}

void AsyncHandler::requestFailed(const QString &, RequestFailure failure)
{
    const QMutexLocker locker(&m_mutex);
    if (m_done)
        return;
    // A request whose time is up is overdue, whatever else happened to it.
    const int error = m_deadline.hasExpired() ? int(ErrorReplyTimeout) : errorOf(failure);
    finish(error, KavroErrorString::Get(static_cast<KavroError>(error)));
}

void AsyncHandler::finish(int error, const QString &errorString)
{
    m_error = error;
    m_errorString = errorString;
    m_done = true;
    m_waitCondition.wakeAll();
}

void AsyncHandler::setGuidsOnly(bool guidsOnly)
{
    m_guidsOnly.store(guidsOnly);
}

bool AsyncHandler::needsRecords() const
{
    return !m_guidsOnly.load();
}

} // namespace Kavro
