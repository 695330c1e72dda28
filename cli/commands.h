// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_CLI_COMMANDS_H
#define KAVRO_CLI_COMMANDS_H

#include "session.h"

#include <QCommandLineOption>
#include <QCommandLineParser>

#include <functional>

//! One command of the tool: what --help says of it, and what runs it.
struct Command {
    using Run = std::function<int(Session &session, const QCommandLineParser &parser, const QStringList &arguments)>;

    QString name;
    QString synopsis; //!< its arguments, as help shows them
    QString summary;
    QList<QCommandLineOption> options;
    QStringList examples;
    int minArguments;
    int maxArguments; //!< -1: any number
    Run run;
};

//! An option taking a value called \a valueName in help.
QCommandLineOption valueOption(const char *name, const char *description, const char *valueName);
//! An option without a value.
QCommandLineOption flag(const char *name, const char *description);

//! Every command, in the order help lists them.
const QList<Command> &commands();
//! The command called \a name; null when there is none.
const Command *findCommand(const QString &name);

#endif
