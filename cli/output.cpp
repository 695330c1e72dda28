// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "output.h"

#include <QJsonDocument>
#include <QTextStream>

#include <algorithm>

Output::Output(bool json)
    : m_json(json)
{
}

void Output::line(const QString &text)
{
    if (!m_json)
        QTextStream(stdout) << text << '\n';
}

void Output::table(const QStringList &headers, const QList<QStringList> &rows)
{
    if (m_json)
        return;
    const QList<QStringList> lines = headers.isEmpty() ? rows : QList<QStringList>{headers} + rows;
    QList<qsizetype> widths;
    for (const QStringList &line : lines) {
        widths.resize(std::max(widths.size(), line.size()), 0);
        for (qsizetype column = 0; column < line.size(); ++column)
            widths[column] = std::max(widths[column], line.at(column).size());
    }
    QTextStream out(stdout);
    for (const QStringList &line : lines) {
        QString text;
        for (qsizetype column = 0; column < line.size(); ++column)
            text += column + 1 == line.size() ? line.at(column) : line.at(column).leftJustified(widths.at(column) + 2);
        out << text << '\n';
    }
}

void Output::insert(const QString &key, const QJsonValue &value)
{
    m_object.insert(key, value);
}

void Output::append(const QString &key, const QJsonValue &value)
{
    QJsonArray array = m_object.value(key).toArray();
    array.append(value);
    m_object.insert(key, array);
}

int Output::error(int code, const QString &text, int exitCode)
{
    QTextStream(stderr) << "error " << code << ": " << text << '\n';
    if (m_json && !m_failed)
        m_object = QJsonObject{{QStringLiteral("error"), code}, {QStringLiteral("errorString"), text}};
    m_failed = true;
    return exitCode;
}

int Output::usage(const QString &text, const QString &command)
{
    QTextStream(stderr) << "kavro: " << text << "\nTry 'kavro help"
                        << (command.isEmpty() ? QString() : QLatin1Char(' ') + command) << "'.\n";
    if (m_json)
        m_object =
            QJsonObject{{QStringLiteral("error"), QStringLiteral("usage")}, {QStringLiteral("errorString"), text}};
    m_failed = true;
    return 2;
}

void Output::finish()
{
    if (m_json)
        QTextStream(stdout) << QJsonDocument(m_object).toJson(QJsonDocument::Compact) << '\n';
}
