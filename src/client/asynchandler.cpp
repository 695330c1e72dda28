// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "asynchandler_p.h"

#include <kavro/kavroerrorstring.h>

#include <QDeadlineTimer>

namespace Kavro
{

AsyncHandler::AsyncHandler(CommandSender *sender, quint32 timeout)
    : m_sender(sender)
    , m_timeout(timeout)
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
    const QDeadlineTimer deadline(m_timeout, Qt::PreciseTimer);
    while (!m_done && m_waitCondition.wait(&m_mutex, deadline)) { }
    if (!m_done) {
        m_error = ErrorReplyTimeout;
        m_errorString = KavroErrorString::Get(ErrorReplyTimeout);
        return false;
    }
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

const SoapReply &AsyncHandler::reply() const
{
    return m_reply;
}

void AsyncHandler::requestHandled(const SoapReply &reply, int error, const QString &errorString)
{
    const QMutexLocker locker(&m_mutex);
    if (m_done)
        return;
    m_reply = reply;
    m_error = error;
    m_errorString = errorString;
    m_handled = true;
    m_done = true;
    m_waitCondition.wakeAll();
}

void AsyncHandler::connectionLost()
{
    const QMutexLocker locker(&m_mutex);
    if (m_done)
        return;
    m_error = ErrorNotConnected;
    m_errorString = KavroErrorString::Get(ErrorNotConnected);
    m_done = true;
    m_waitCondition.wakeAll();
}

} // namespace Kavro
