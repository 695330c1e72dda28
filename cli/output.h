// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_CLI_OUTPUT_H
#define KAVRO_CLI_OUTPUT_H

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QStringList>

/*!
 * What a run prints: tables and lines for people, or, with --json, exactly
 * one JSON object on stdout, written when the run ends.
 */
class Output
{
public:
    explicit Output(bool json);

    bool isJson() const { return m_json; }
    void setJson(bool json) { m_json = json; }
    //! A line for people; nothing with --json.
    void line(const QString &text);
    //! Aligned columns under \a headers, for people; nothing with --json.
    void table(const QStringList &headers, const QList<QStringList> &rows);
    //! Sets \a key of the JSON object.
    void insert(const QString &key, const QJsonValue &value);
    //! Appends \a value to the array \a key of the JSON object.
    void append(const QString &key, const QJsonValue &value);
    /*!
     * Reports an error: "error CODE: TEXT" on stderr, and with --json
     * {"error": CODE, "errorString": TEXT} in place of the object. Returns \a exitCode.
     */
    int error(int code, const QString &text, int exitCode);
    /*!
     * Reports a wrong command line on stderr, with a pointer to the help of
     * \a command; with --json {"error": "usage", "errorString": TEXT}. Returns 2.
     */
    int usage(const QString &text, const QString &command = QString());
    //! Writes the JSON object, with --json.
    void finish();

private:
    bool m_json;
    QJsonObject m_object;
    bool m_failed = false;
};

#endif
