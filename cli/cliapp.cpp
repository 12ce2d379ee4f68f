#include "cli/cliapp.h"

#include "cli/exitcode.h"
#include "cli/portoptions.h"

#include <QCommandLineParser>

#ifndef ORV_VERSION
#define ORV_VERSION "0"
#endif

namespace
{

// Lines of help text are at most this long, so that they fit an 80-column
// terminal (Qt's option table keeps to the same width).
constexpr int kWidth = 79;

// Fills a paragraph's words into lines of at most kWidth columns.
QStringList fillParagraph(const QString &paragraph)
{
    QStringList lines;
    QString line;
    const QStringList words = paragraph.split(' ', Qt::SkipEmptyParts);
    for (const QString &word : words) {
        if (line.isEmpty())
            line = word;
        else if (line.size() + 1 + word.size() > kWidth) {
            lines.append(line);
            line = word;
        } else {
            line += ' ' + word;
        }
    }
    if (!line.isEmpty())
        lines.append(line);
    return lines;
}

// Lays out a command's description once: consecutive lines that start in
// the first column form a paragraph, whose words are filled into lines of at
// most kWidth columns whatever the line breaks of the source text; blank
// lines separate paragraphs; indented lines (examples, tables) stay as
// written.
QString fill(const QString &text)
{
    QStringList out;
    QString paragraph;
    const auto flush = [&]() {
        out.append(fillParagraph(paragraph));
        paragraph.clear();
    };
    const QStringList lines = text.split('\n');
    for (const QString &line : lines) {
        if (line.isEmpty() || line.front().isSpace()) {
            flush();
            out.append(line);
        } else {
            paragraph += ' ' + line;
        }
    }
    flush();
    return out.join('\n');
}

// Breaks a usage line longer than kWidth columns between its words, never inside
// a [bracketed] group nor between an option and its value; the rest goes on
// lines indented under the command.
QString wrapUsage(const QString &usage)
{
    QStringList words;
    QString word;
    int depth = 0;
    for (const QChar c : usage) {
        if (c == ' ' && depth == 0) {
            if (!word.isEmpty())
                words.append(word);
            word.clear();
            continue;
        }
        depth += c == '[' ? 1 : c == ']' ? -1 : 0;
        word += c;
    }
    if (!word.isEmpty())
        words.append(word);
    for (int i = 0; i + 1 < words.size(); ++i) {
        if (words[i].startsWith('-') && !words[i + 1].startsWith('-') &&
            !words[i + 1].startsWith('['))
            words[i] += ' ' + words.takeAt(i + 1); // "--from X1,Y1"
    }
    QStringList lines;
    QString line;
    for (const QString &w : words) {
        if (line.trimmed().isEmpty()) {
            line += w;
        } else if (line.size() + 1 + w.size() > kWidth) {
            lines.append(line);
            line = QString(7, ' ') + w;
        } else {
            line += ' ' + w;
        }
    }
    lines.append(line);
    return lines.join('\n');
}

QString nameWithSpaces(const QString &name, int width)
{
    return name.leftJustified(width);
}

} // namespace

CliApp::CliApp(FILE *out, FILE *err) : out(out), err(err) {}

CliApp::~CliApp() = default;

void CliApp::add(std::unique_ptr<CliCommand> command)
{
    commands.push_back(std::move(command));
}

QString CliApp::version()
{
    return QStringLiteral("orv-cli " ORV_VERSION);
}

void CliApp::write(FILE *stream, const QString &text) const
{
    writeAndFlush(stream, text.toUtf8());
}

CliCommand *CliApp::lookUp(const QString &name) const
{
    for (const auto &c : commands)
        if (c->name() == name)
            return c.get();
    return nullptr;
}

const CliCommand *CliApp::find(const QString &name) const
{
    return lookUp(name);
}

QStringList CliApp::commandNames() const
{
    QStringList names;
    for (const auto &c : commands)
        names.append(c->name());
    return names;
}

CliCommand *CliApp::match(const QStringList &arguments, int *used) const
{
    if (arguments.size() >= 2) {
        if (CliCommand *c = lookUp(arguments.at(0) + ' ' + arguments.at(1))) {
            *used = 2;
            return c;
        }
    }
    if (!arguments.isEmpty()) {
        if (CliCommand *c = lookUp(arguments.at(0))) {
            *used = 1;
            return c;
        }
    }
    *used = 0;
    return nullptr;
}

QList<const CliCommand *> CliApp::group(const QString &word) const
{
    QList<const CliCommand *> members;
    for (const auto &c : commands)
        if (c->name().startsWith(word + ' '))
            members.append(c.get());
    return members;
}

QString CliApp::overview() const
{
    int width = 0;
    for (const auto &c : commands)
        width = qMax(width, c->name().size());
    QString text = QStringLiteral(
        "Usage: orv-cli COMMAND [options]\n"
        "\n"
        "Configures, backs up, watches and records a radar module on a serial port.\n"
        "\n"
        "Commands:\n");
    for (const auto &c : commands)
        text += "  " + nameWithSpaces(c->name(), width) + "  " + c->summary() + "\n";
    text += QStringLiteral(
        "\n"
        "Options of every command that talks to a module:\n"
        "  -p, --port P      the serial port (as 'orv-cli ports' lists it, or a device\n"
        "                    path)\n"
        "  --baud N|auto     (all but probe) the module's baud rate, 1..16777215; auto\n"
        "                    (the default) probes it first\n"
        "\n"
        "Other options:\n"
        "  -h, --help        this text; 'orv-cli help COMMAND' or 'orv-cli COMMAND -h'\n"
        "                    describe one command\n"
        "  -v, --version     the program's version\n"
        "\n");
    text += moduleExitCodeTable();
    return text;
}

void CliApp::setUpParser(CliCommand &command, QCommandLineParser &parser) const
{
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsCompactedShortOptions);
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    parser.addOption({{"h", "help"}, "Describes this command."});
    if (command.usesPort()) {
        parser.addOption({{"p", "port"}, "The serial port to use.", "P"});
    }
    if (command.takesBaud()) {
        parser.addOption(
            {"baud",
             "The module's baud rate (1..16777215), or auto to probe it first (default auto).",
             "N|auto", "auto"});
    }
    command.addOptions(parser);
}

QString CliApp::commandHelp(const CliCommand &command) const
{
    QCommandLineParser parser;
    setUpParser(*lookUp(command.name()), parser);
    QString text = "Usage: orv-cli " + command.name();
    if (command.usesPort())
        text += command.takesBaud() ? " --port P [--baud N|auto]" : " --port P";
    if (!command.synopsis().isEmpty())
        text += ' ' + command.synopsis().simplified();
    text = wrapUsage(text);
    text += "\n\n" + command.summary() + "\n";
    if (!command.details().isEmpty())
        text += "\n" + fill(command.details().trimmed()) + "\n";

    // Qt's option table, without its own usage line.
    const QString table = parser.helpText();
    const int options = table.indexOf(QLatin1String("Options:"));
    if (options >= 0)
        text += "\n" + table.mid(options);
    QString codes = command.exitCodes();
    if (codes.isEmpty())
        codes = moduleExitCodeTable();
    else if (!codes.startsWith(QLatin1String("Exit codes:")))
        codes.prepend(QLatin1String("Exit codes:\n"));
    text += "\n" + codes;
    return text;
}

QString CliApp::groupHelp(const QString &word) const
{
    QString text = QString("Usage: orv-cli %1 SUBCOMMAND [options]\n\nSubcommands:\n").arg(word);
    int width = 0;
    for (const CliCommand *c : group(word))
        width = qMax(width, c->name().size());
    for (const CliCommand *c : group(word))
        text += "  " + nameWithSpaces(c->name(), width) + "  " + c->summary() + "\n";
    text += QString("\n'orv-cli help %1 SUBCOMMAND' describes one of them.\n").arg(word);
    return text;
}

int CliApp::unknownCommand(const QString &word) const
{
    write(err, QString("orv-cli: unknown command \"%1\"\nTry 'orv-cli --help'.\n").arg(word));
    return ExitUsage;
}

int CliApp::run(const QStringList &arguments)
{
    if (arguments.isEmpty()) {
        write(err, overview());
        return ExitUsage;
    }
    const QString first = arguments.first();
    if (first == "-h" || first == "--help") {
        write(out, overview());
        return ExitDone;
    }
    if (first == "--version" || first == "-v") {
        write(out, version() + "\n");
        return ExitDone;
    }
    if (first == "help") {
        const QStringList rest = arguments.mid(1);
        if (rest.isEmpty()) {
            write(out, overview());
            return ExitDone;
        }
        int used = 0;
        const CliCommand *command = match(rest, &used);
        if (command && used == rest.size()) {
            write(out, commandHelp(*command));
            return ExitDone;
        }
        if (!command && rest.size() == 1 && !group(rest.first()).isEmpty()) {
            write(out, groupHelp(rest.first()));
            return ExitDone;
        }
        return unknownCommand(rest.join(' '));
    }
    if (first.startsWith('-')) {
        write(err, QString("orv-cli: unknown option %1 (a command comes first)\n"
                           "Try 'orv-cli --help'.\n")
                       .arg(first));
        return ExitUsage;
    }

    int used = 0;
    CliCommand *command = match(arguments, &used);
    if (!command) {
        if (!group(first).isEmpty()) {
            const bool askedForHelp =
                arguments.size() >= 2 && (arguments.at(1) == "--help" || arguments.at(1) == "-h");
            if (askedForHelp) {
                write(out, groupHelp(first));
                return ExitDone;
            }
            if (arguments.size() >= 2)
                write(
                    err,
                    QString("orv-cli: unknown subcommand \"%1 %2\"\n").arg(first, arguments.at(1)));
            write(err, groupHelp(first));
            return ExitUsage;
        }
        return unknownCommand(first);
    }

    QCommandLineParser parser;
    setUpParser(*command, parser);
    CliContext context(command->name(), parser, out, err);
    const QStringList toParse = QStringList{"orv-cli"} + arguments.mid(used);
    if (!parser.parse(toParse)) {
        // A request for help wins over mistakes next to it.
        const QStringList rest = arguments.mid(used);
        if (rest.contains("--help") || rest.contains("-h")) {
            write(out, commandHelp(*command));
            return ExitDone;
        }
        return context.usageError(parser.errorText());
    }
    if (parser.isSet("help")) {
        write(out, commandHelp(*command));
        return ExitDone;
    }
    if (command->usesPort()) {
        QString why;
        if (!PortOptions::check(parser, command->takesBaud(), &why))
            return context.usageError(why);
    }
    return command->run(context);
}
