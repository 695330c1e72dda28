// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TESTS_SERVERPROCESS_H
#define KAVRO_TESTS_SERVERPROCESS_H

#include "testdatabase.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QStringList>
#include <QTest>
#include <QtDebug>

#include <sys/resource.h>

/*!
 * The archive server as a child process on 127.0.0.1, its catalogue in testDatabase(). start() waits for the port
 * it prints first, stop() is true only for a clean exit; either shows what the server wrote to stderr when it
 * fails.
 */
class ServerProcess
{
public:
    ServerProcess() { m_process.setProgram(QString::fromUtf8(KAVRO_SERVER_BINARY)); }
    ~ServerProcess()
    {
        m_process.kill(); // does nothing once the server has stopped
        m_process.waitForFinished(10000);
    }
    Q_DISABLE_COPY_MOVE(ServerProcess)

    //! Starts the server on \a storeDir, on \a port or a free one; false when it did not report its port.
    bool start(const QString &storeDir, const QStringList &extraArguments = QStringList(), quint16 port = 0)
    {
        m_port = 0;
        m_stderr.clear();
        m_process.setArguments(QStringList{QStringLiteral("--store"), storeDir, QStringLiteral("--database"),
                                           testDatabase(storeDir), QStringLiteral("--listen"),
                                           QStringLiteral("127.0.0.1:%1").arg(port)}
                               + extraArguments);
        m_process.start();
        const QDeadlineTimer deadline(20000);
        while (!m_process.canReadLine()) {
            if (deadline.hasExpired() || !m_process.waitForReadyRead(int(deadline.remainingTime())))
                return fail("the server reported no port: " + m_process.errorString().toLocal8Bit());
        }
        m_port = static_cast<quint16>(m_process.readLine().trimmed().toUInt());
        return m_port != 0 && (port == 0 || m_port == port) ? true : fail("the server reported no valid port");
    }

    //! Terminates the server; true when it exited by itself with code 0.
    bool stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return fail("the server was not running");
        m_process.terminate();
        if (!m_process.waitForFinished(20000)) {
            m_process.kill();
            m_process.waitForFinished(10000);
            return fail("the server did not stop on SIGTERM");
        }
        if (m_process.exitStatus() != QProcess::NormalExit || m_process.exitCode() != 0)
            return fail("the server exited with status " + QByteArray::number(m_process.exitCode()));
        return true;
    }

    //! Kills the server as a crash would, and waits until it is gone.
    void kill()
    {
        m_process.kill();
        m_process.waitForFinished(10000);
    }

    //! Waits for the server to exit by itself; its exit code, or -1 when it did not in time.
    int waitForExit()
    {
        const bool exited = (m_process.state() == QProcess::NotRunning || m_process.waitForFinished(20000))
            && m_process.exitStatus() == QProcess::NormalExit;
        return exited ? m_process.exitCode() : -1;
    }

    quint16 port() const { return m_port; }
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    qint64 processId() const { return m_process.processId(); }

    //! Starts the server with at most \a descriptors open files (for the next start()).
    void setFileLimit(rlim_t descriptors)
    {
        m_process.setChildProcessModifier([descriptors] {
            const rlimit limit = {descriptors, descriptors};
            ::setrlimit(RLIMIT_NOFILE, &limit);
        });
    }

    //! Waits, running the caller's events, until the server has written \a text to stderr; false when not in time.
    bool waitForLog(const QByteArray &text, int msecs = 20000)
    {
        const auto written = [&] {
            return errorOutput().contains(text) || m_process.state() != QProcess::Running;
        };
        return QTest::qWaitFor(written, msecs) && errorOutput().contains(text)
            ? true
            : fail("the server did not write \"" + text + '"');
    }

    //! Everything the server wrote to stderr since it was started.
    QByteArray errorOutput()
    {
        m_stderr += m_process.readAllStandardError();
        return m_stderr;
    }

private:
    bool fail(const QByteArray &reason)
    {
        qWarning().noquote() << "ServerProcess:" << reason << "\n--- server stderr ---\n"
                             << QString::fromLocal8Bit(errorOutput()) << "\n---";
        return false;
    }

    QProcess m_process;
    QByteArray m_stderr;
    quint16 m_port = 0;
};

#endif
