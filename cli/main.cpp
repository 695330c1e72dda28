// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// kavro: the archive server from the command line.
#include "commands.h"

#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTextStream>

#include <pwd.h>
#include <unistd.h>

using namespace Kavro;

namespace
{

QList<QCommandLineOption> globalOptions()
{
    return {
        valueOption("host", "The server's host (default: ServerHost of [KAVRO], else localhost).", "HOST"),
        valueOption("port", "The server's port (default: XmlPort of [KAVRO], else 5223).", "PORT"),
        valueOption("user", "The user to act as (default: the common name of --cert, else the login name).", "NAME"),
        valueOption("app", "The application to act as (default: kavro).", "NAME"),
        valueOption("team", "The team to act for.", "NAME"),
        valueOption("connect-timeout", "Seconds to wait for the connection (default: 10).", "SECONDS"),
        valueOption("cacert", "CA certificates to trust (PEM; default: the system's); switches TLS on.", "FILE"),
        valueOption("cert", "A client certificate (PEM); switches TLS on.", "FILE"),
        valueOption("key", "The client certificate's unencrypted key (PEM).", "FILE"),
        flag("json", "Print exactly one JSON object on stdout."),
        flag("v", "Trace the library's work on stderr."),
        flag("no-progress", "Draw no progress bar."),
        QCommandLineOption({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show help and exit.")),
        flag("version", "Show the version and exit."),
    };
}

//! For the shell's completion: the words that may follow.
const QCommandLineOption completions(QStringLiteral("completions"), QString());

//! "-v", "--json", "-o, --output": as typed.
QStringList typedNames(const QCommandLineOption &option)
{
    QStringList names;
    for (const QString &name : option.names())
        names.append((name.size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) + name);
    return names;
}

QString optionName(const QCommandLineOption &option)
{
    const QStringList names = typedNames(option);
    const QString value = option.valueName().isEmpty() ? QString() : QLatin1Char(' ') + option.valueName();
    return names.join(QStringLiteral(", ")) + value;
}

QString optionsHelp(const QList<QCommandLineOption> &options)
{
    QString text;
    for (const QCommandLineOption &option : options)
        text += QStringLiteral("  %1%2\n").arg(optionName(option).leftJustified(28), option.description());
    return text;
}

const char exitCodes[] = "Exit codes:\n"
                         "  0  success\n"
                         "  1  the server reported an error\n"
                         "  2  the command line is wrong\n"
                         "  3  no connection, or no reply in time\n";

QString generalHelp()
{
    QString text = QStringLiteral("Usage: kavro [global options] COMMAND [arguments]\n\n"
                                  "Stores files in and fetches them from an archive server.\n\nCommands:\n");
    for (const Command &command : commands())
        text += QStringLiteral("  %1%2\n").arg(command.name.leftJustified(14), command.summary);
    text += QStringLiteral("\nGlobal options:\n") + optionsHelp(globalOptions());
    text += QStringLiteral("\nErrors go to stderr as \"error CODE: TEXT\"; with --json stdout holds\n"
                           "{\"error\": CODE, \"errorString\": TEXT} instead.\n\n")
        + QLatin1String(exitCodes);
    text += QStringLiteral("\nExamples:\n  kavro ping\n  kavro put report.pdf\n  kavro --json query --name report\n"
                           "\n'kavro help COMMAND' or 'kavro COMMAND --help' tells more of one command.\n");
    return text;
}

QString commandHelp(const Command &command)
{
    QString text = QStringLiteral("Usage: kavro [global options] %1%2%3\n\n%4\n")
                       .arg(command.name, command.synopsis.isEmpty() ? QString() : QLatin1Char(' ') + command.synopsis,
                            command.options.isEmpty() ? QString() : QStringLiteral(" [options]"), command.summary);
    if (!command.options.isEmpty())
        text += QStringLiteral("\nOptions:\n") + optionsHelp(command.options);
    text += QStringLiteral("\nExamples:\n");
    for (const QString &example : command.examples)
        text += QStringLiteral("  %1\n").arg(example);
    text += QStringLiteral("\nGlobal options: see 'kavro --help'.\n") + QLatin1String(exitCodes);
    return text;
}

QStringList completionWords(const Command *command)
{
    QStringList words;
    if (!command) {
        for (const Command &candidate : commands())
            words.append(candidate.name);
        words.append(QStringLiteral("help"));
    }
    for (const QCommandLineOption &option :
         (command ? command->options : QList<QCommandLineOption>()) + globalOptions()) {
        for (const QString &name : option.names())
            words.append((name.size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) + name);
    }
    return words;
}

QString loginName()
{
    const passwd *entry = getpwuid(getuid());
    return entry ? QString::fromLocal8Bit(entry->pw_name) : qEnvironmentVariable("USER");
}

bool ownsOption(const Command &command, const QString &name)
{
    for (const QCommandLineOption &option : command.options) {
        if (option.names().contains(name))
            return true;
    }
    return false;
}

int runCommand(const Command &command, const QCommandLineParser &before, const QCommandLineParser &after,
               const QStringList &arguments, Output &output)
{
    // A global option is taken from after the command too, unless the command has one of that name.
    const auto afterHas = [&](const QString &name) {
        return !ownsOption(command, name) && after.isSet(name);
    };
    const auto flag = [&](const QString &name) {
        return before.isSet(name) || afterHas(name);
    };
    const auto valueOf = [&](const QString &name, const QString &fallback = QString()) {
        if (afterHas(name))
            return after.value(name);
        return before.isSet(name) ? before.value(name) : fallback;
    };
    // The library's trace lines go to stderr with -v only; errors are reported in plain words anyway.
    qputenv("KAVRO_TRACE_MASK", flag(QStringLiteral("v")) ? "0x60" : "0");
    bool portOk = true;
    const QString portText = valueOf(QStringLiteral("port"), QStringLiteral("0"));
    const uint port = portText.toUInt(&portOk);
    bool timeoutOk = true;
    const double timeout = valueOf(QStringLiteral("connect-timeout"), QStringLiteral("10")).toDouble(&timeoutOk);
    if (!portOk || port > 65535 || !timeoutOk || timeout < 0)
        return output.usage(QStringLiteral("--port takes a port number and --connect-timeout seconds"), command.name);
    // Any of the TLS options switches TLS on; without them the configuration file decides.
    QSslConfiguration tls;
    if (flag(QStringLiteral("cacert")) || flag(QStringLiteral("cert")) || flag(QStringLiteral("key"))) {
        QString problem;
        tls = KavroClient::sslConfigurationFromFiles(valueOf(QStringLiteral("cacert")), valueOf(QStringLiteral("cert")),
                                                     valueOf(QStringLiteral("key")), &problem);
        if (tls.isNull())
            return output.usage(QStringLiteral("cannot use the files of --cacert, --cert and --key: %1").arg(problem),
                                command.name);
    }
    // A server that asks for client certificates takes no other user than the certificate's.
    const QString certificateUser = tls.localCertificate().subjectInfo(QSslCertificate::CommonName).value(0);

    KavroClient client(valueOf(QStringLiteral("host")), quint16(port),
                       valueOf(QStringLiteral("app"), QStringLiteral("kavro")),
                       valueOf(QStringLiteral("user"), certificateUser.isEmpty() ? loginName() : certificateUser),
                       valueOf(QStringLiteral("team")));
    if (!tls.isNull())
        client.setSslConfiguration(tls);
    QString connectionError;
    QObject::connect(&client, &KavroClient::errorOccurred, &client, [&](KavroError, const QString &text) {
        connectionError = text;
    });
    if (!client.waitForConnected(int(timeout * 1000))) {
        QCoreApplication::processEvents(); // delivers errorOccurred(): why there is no connection
        if (connectionError.isEmpty())
            connectionError = QStringLiteral("no archive server answered at %1:%2 within %3 s")
                                  .arg(client.GetHost())
                                  .arg(client.GetPort())
                                  .arg(timeout);
        return output.error(ErrorNotConnected, connectionError, ExitNoConnection);
    }
    Session session(client, output);
    return command.run(session, after, arguments);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kavro"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KAVRO_VERSION));

    // The global options come before the command; everything from the command on is the command's.
    QCommandLineParser before;
    before.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    before.addOptions(globalOptions());
    before.addOption(completions);
    Output output(false);
    if (!before.parse(app.arguments()))
        return output.usage(before.errorText());
    output.setJson(before.isSet(QStringLiteral("json")));
    // Whatever ends the run, with --json stdout holds its one object; help and version are text only.
    const struct Finish {
        Output &output;
        ~Finish() { output.finish(); }
    } finish{output};
    QStringList words = before.positionalArguments();
    QTextStream out(stdout);
    if (before.isSet(QStringLiteral("help")) || before.isSet(QStringLiteral("version")) || before.isSet(completions)
        || words.value(0) == QLatin1String("help"))
        output.setJson(false);
    if (before.isSet(QStringLiteral("version"))) {
        out << "kavro " << KAVRO_VERSION << '\n';
        return ExitSuccess;
    }
    if (before.isSet(completions)) {
        out << completionWords(findCommand(words.value(0))).join(QLatin1Char('\n')) << '\n';
        return ExitSuccess;
    }
    if (words.isEmpty() || words.first() == QLatin1String("help")) {
        const QString topic = words.value(1);
        const Command *command = findCommand(topic);
        if (!topic.isEmpty() && !command)
            return output.usage(QStringLiteral("no command %1").arg(topic));
        if (words.isEmpty() && !before.isSet(QStringLiteral("help")))
            return output.usage(QStringLiteral("no command given"));
        out << (command ? commandHelp(*command) : generalHelp());
        return ExitSuccess;
    }
    const Command *command = findCommand(words.first());
    if (!command)
        return output.usage(QStringLiteral("no command %1").arg(words.first()));

    QCommandLineParser after;
    // After the command its own options win: "query --user" searches a creator, "create --version" sets one.
    after.addOptions(command->options);
    for (const QCommandLineOption &option : globalOptions()) {
        if (!ownsOption(*command, option.names().first()))
            after.addOption(option);
    }
    if (!after.parse(QStringList{app.arguments().first()} + words.mid(1)))
        return output.usage(after.errorText(), command->name);
    if (before.isSet(QStringLiteral("help")) || after.isSet(QStringLiteral("help"))) {
        output.setJson(false);
        out << commandHelp(*command);
        return ExitSuccess;
    }
    output.setJson(output.isJson() || after.isSet(QStringLiteral("json")));
    const QStringList arguments = after.positionalArguments();
    const qsizetype count = arguments.size();
    if (count < command->minArguments || (command->maxArguments >= 0 && count > command->maxArguments))
        return output.usage(
            QStringLiteral("%1 takes %2")
                .arg(command->name, command->synopsis.isEmpty() ? QStringLiteral("no arguments") : command->synopsis),
            command->name);
    return runCommand(*command, before, after, arguments, output);
}
