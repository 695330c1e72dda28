// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_TRACECAPTURE_H
#define KAVRO_TESTS_TRACECAPTURE_H

#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>

//! One line written into the logging category "kavro".
struct TraceLine {
    QtMsgType type;
    QString file;
    int line;
    QString text;
};

/*!
 * Records the trace lines written while it exists; messages of other
 * categories go on to the handler that was installed before.
 */
class TraceCapture
{
public:
    TraceCapture()
    {
        s_current = this;
        m_previous = qInstallMessageHandler(&TraceCapture::handle);
    }
    ~TraceCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }
    Q_DISABLE_COPY_MOVE(TraceCapture)

    //! A copy of its own, taken under the lock: lines keep coming from other threads.
    QList<TraceLine> lines() const
    {
        const QMutexLocker locker(&m_mutex);
        QList<TraceLine> copy = m_lines;
        copy.detach();
        return copy;
    }

    QStringList texts() const
    {
        QStringList result;
        for (const TraceLine &line : lines())
            result.append(line.text);
        return result;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        TraceCapture *capture = s_current;
        if (capture && context.category && qstrcmp(context.category, "kavro") == 0) {
            const QMutexLocker locker(&capture->m_mutex);
            capture->m_lines.append({type, QString::fromUtf8(context.file), context.line, message});
        } else if (capture && capture->m_previous) {
            capture->m_previous(type, context, message);
        }
    }

    static inline TraceCapture *s_current = nullptr;
    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex;
    QList<TraceLine> m_lines;
};

#endif
