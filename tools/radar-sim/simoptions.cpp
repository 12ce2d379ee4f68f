#include "tools/radar-sim/simoptions.h"

#include <QCommandLineParser>
#include <QHash>

#include <cmath>

namespace
{

// Every option with the name of its value (empty for a flag). What they mean
// is said once, in usage().
struct OptionSpec {
    const char *name;
    const char *valueName;
};

const OptionSpec kOptions[] = {
    {"port", "NAME"},
    {"baud", "N"},
    {"any-baud", ""},
    {"rate", "HZ"},
    {"targets", "N"},
    {"fixed", "X,Y"},
    {"area", "N,TYPE,X1,Y1,X2,Y2"},
    {"seed", "N"},
    {"noise", "N"},
    {"bad-checksum", "P"},
    {"split", ""},
    {"gap", "MS"},
    {"settle", "MS"},
    {"disconnect-after", "S"},
    {"baud-ng", ""},
    {"replay", "FILE"},
    {"link", "PATH"},
    {"verbose", ""},
};

// Options that shape the generated stream; a replay plays recorded bytes
// unchanged, so they make no sense together with it.
const QStringList kGeneratorOptions = {"rate",         "targets", "fixed", "seed",  "noise",
                                       "bad-checksum", "split",   "gap",   "settle"};

bool toInt(const QString &text, qint64 minimum, qint64 maximum, qint64 *value)
{
    bool ok = false;
    const qint64 v = text.trimmed().toLongLong(&ok, 10);
    if (!ok || v < minimum || v > maximum)
        return false;
    *value = v;
    return true;
}

bool toDouble(const QString &text, double minimum, double maximum, double *value)
{
    bool ok = false;
    const double v = text.trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(v) || v < minimum || v > maximum)
        return false;
    *value = v;
    return true;
}

void addOptions(QCommandLineParser &parser)
{
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsCompactedShortOptions);
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    parser.addOption({{"h", "help"}, QString()});
    for (const OptionSpec &option : kOptions)
        parser.addOption({option.name, QString(), option.valueName});
}

// The parser's own findings, in radar-sim's words: unknown options as typed,
// a missing value, a value given to a flag.
QString syntaxError(const QCommandLineParser &parser, const QStringList &args)
{
    const QStringList unknown = parser.unknownOptionNames();
    if (!unknown.isEmpty()) {
        const QString name = unknown.first();
        for (const QString &arg : args) {
            if (arg == "--" + name || arg.startsWith("--" + name + '='))
                return QString("unknown option --%1").arg(name);
            // A single-dash word is read as letters; name the whole word.
            if (!arg.startsWith("--") && arg.startsWith('-') && arg.indexOf(name, 1) > 0)
                return QString("unknown option %1").arg(arg);
        }
        return QString("unknown option %1").arg(name);
    }
    const QString text = parser.errorText();
    const int open = text.indexOf('\'');
    const int close = text.lastIndexOf('\'');
    const QString option = close > open && open >= 0 ? text.mid(open + 1, close - open - 1) : text;
    if (text.startsWith("Missing value"))
        return QString("option %1 needs a value").arg(option);
    if (text.startsWith("Unexpected value"))
        return QString("option %1 takes no value").arg(option.section('=', 0, 0));
    return text;
}

bool takeFixed(const QString &value, SimOptions *o, QString *error)
{
    const QStringList xy = value.split(',');
    double x = 0.0;
    double y = 0.0;
    if (xy.size() != 2 || !toDouble(xy.at(0), -12.8, 12.7, &x) ||
        !toDouble(xy.at(1), -12.8, 12.7, &y)) {
        *error =
            QString("--fixed: \"%1\" is not a point X,Y in metres (each -12.8..12.7)").arg(value);
        return false;
    }
    if (o->fixed.size() >= 128) {
        *error = "--fixed: at most 128 points";
        return false;
    }
    o->fixed.append(QPointF(x, y));
    return true;
}

bool takeArea(const QString &value, SimOptions *o, QString *error)
{
    const QStringList f = value.split(',');
    qint64 number = 0;
    qint64 type = 0;
    double c[4] = {0.0, 0.0, 0.0, 0.0};
    bool ok = f.size() == 6 && toInt(f.at(0), 1, 3, &number) && toInt(f.at(1), 0, 1, &type);
    for (int k = 0; ok && k < 4; ++k)
        ok = toDouble(f.at(2 + k), -12.8, 12.7, &c[k]);
    if (!ok) {
        *error = QString("--area: \"%1\" is not N,TYPE,X1,Y1,X2,Y2 (N 1..3, TYPE 0 or 1, corners "
                         "in metres, each -12.8..12.7)")
                     .arg(value);
        return false;
    }
    // The module expects the first corner at the upper left.
    if (!(c[0] < c[2]) || !(c[1] > c[3])) {
        *error = QString("--area: \"%1\": the first corner must be the upper-left one (X1 < X2, "
                         "Y1 > Y2)")
                     .arg(value);
        return false;
    }
    SimOptions::AreaPreset a;
    a.number = int(number);
    a.type = int(type);
    a.rect = QRectF(QPointF(c[0], c[1]), QPointF(c[2], c[3]));
    o->areas.append(a);
    return true;
}

// An option without a value.
void takeFlag(const QString &name, SimOptions *o)
{
    if (name == "split")
        o->split = true;
    else if (name == "baud-ng")
        o->baudNg = true;
    else if (name == "any-baud")
        o->anyBaud = true;
    else if (name == "verbose")
        o->verbose = true;
    else if (name == "h" || name == "help")
        o->help = true;
}

// Checks one option's value and stores it; false with *error naming the option.
bool takeValue(const QString &name, const QString &value, SimOptions *o, QString *error)
{
    auto fail = [error](const QString &message) {
        *error = message;
        return false;
    };
    qint64 n = 0;
    double d = 0.0;
    if (name == "port") {
        if (value.isEmpty())
            return fail("option --port needs a port name");
        o->port = value;
    } else if (name == "baud") {
        // The rate travels as a 24-bit number in the protocol.
        if (!toInt(value, 1, 0xFFFFFF, &n))
            return fail(QString("--baud: \"%1\" is not a baud rate (1..16777215)").arg(value));
        o->baud = int(n);
    } else if (name == "rate") {
        if (!toDouble(value, 0.0, 1000.0, &d))
            return fail(QString("--rate: \"%1\" is not a rate in Hz (0..1000)").arg(value));
        o->rate = d;
    } else if (name == "targets") {
        if (!toInt(value, 0, 128, &n))
            return fail(QString("--targets: \"%1\" is not a count (0..128)").arg(value));
        o->targets = int(n);
        o->targetsGiven = true;
    } else if (name == "fixed") {
        return takeFixed(value, o, error);
    } else if (name == "area") {
        return takeArea(value, o, error);
    } else if (name == "seed") {
        if (!toInt(value, 0, 0xFFFFFFFFLL, &n))
            return fail(QString("--seed: \"%1\" is not a number (0..4294967295)").arg(value));
        o->seed = quint32(n);
        o->seedGiven = true;
    } else if (name == "noise") {
        if (!toInt(value, 0, 4096, &n))
            return fail(QString("--noise: \"%1\" is not a byte count (0..4096)").arg(value));
        o->noise = int(n);
    } else if (name == "bad-checksum") {
        if (!toDouble(value, 0.0, 1.0, &d))
            return fail(QString("--bad-checksum: \"%1\" is not a probability (0..1)").arg(value));
        o->badChecksum = d;
    } else if (name == "disconnect-after") {
        if (!toDouble(value, 0.0, 1e6, &d) || d <= 0.0)
            return fail(QString("--disconnect-after: \"%1\" is not a positive number of seconds")
                            .arg(value));
        o->disconnectAfter = d;
    } else if (name == "replay") {
        if (value.isEmpty())
            return fail("option --replay needs a file name");
        o->replayFile = value;
    } else if (name == "link") {
        if (value.isEmpty())
            return fail("option --link needs a path");
        o->link = value;
    } else if (name == "settle") {
        if (!toInt(value, 0, 10000, &n))
            return fail(QString("--settle: \"%1\" is not a time in ms (0..10000)").arg(value));
        o->settleMs = int(n);
    } else if (name == "gap") {
        if (!toInt(value, 0, 1000, &n))
            return fail(QString("--gap: \"%1\" is not a pause in ms (0..1000)").arg(value));
        o->gapMs = int(n);
    }
    return true;
}

} // namespace

bool SimOptions::parse(const QStringList &args, SimOptions *out, QString *error)
{
    QString message;
    auto fail = [error, &message] {
        if (error)
            *error = message;
        return false;
    };
    QCommandLineParser parser;
    addOptions(parser);
    if (!parser.parse(QStringList{"radar-sim"} + args)) {
        message = syntaxError(parser, args);
        return fail();
    }

    // Values are checked in command-line order, so the first mistake is named.
    SimOptions o;
    QHash<QString, int> seen; // how many of each option were taken so far
    for (const QString &name : parser.optionNames()) {
        const QStringList values = parser.values(name);
        if (values.isEmpty()) {
            takeFlag(name, &o);
            continue;
        }
        if (!takeValue(name, values.at(seen[name]++), &o, &message))
            return fail();
    }
    if (!parser.positionalArguments().isEmpty()) {
        message = QString("unexpected argument \"%1\"").arg(parser.positionalArguments().first());
        return fail();
    }
    if (!o.fixed.isEmpty() && o.targetsGiven && o.targets != o.fixed.size()) {
        message = QString("--targets %1 does not match the %2 --fixed point(s)")
                      .arg(o.targets)
                      .arg(o.fixed.size());
        return fail();
    }
    if (!o.replayFile.isEmpty()) {
        for (const QString &g : kGeneratorOptions) {
            if (parser.isSet(g)) {
                message = QString("--replay plays the recorded bytes as they are; it cannot be "
                                  "combined with --%1")
                              .arg(g);
                return fail();
            }
        }
    }
    *out = o;
    return true;
}

QString SimOptions::usage()
{
    return QStringLiteral(
        "Usage: radar-sim [options]\n"
        "\n"
        "Plays the radar module on a serial line. By default it creates a\n"
        "pseudo-terminal, prints the path of the port to open on one line of standard\n"
        "output, and speaks the module's protocol there: it answers every whole request\n"
        "(codes 1-6 and 10; header, length, sum and tail DD EE FF must be right), keeps\n"
        "three areas, the display type and the baud rate, and streams target reports\n"
        "(code 7) and area-presence reports (code 8) while the port is open on the other\n"
        "side.\n"
        "\n"
        "Options:\n"
        "  --port NAME           use this serial port instead of a pseudo-terminal\n"
        "  --baud N              the module's baud rate at start (default 9600); it\n"
        "                        changes when the module accepts a baud-rate change\n"
        "                        (code 1). Every write is paced to what the rate\n"
        "                        carries (10 bits a byte)\n"
        "  --any-baud            on a pseudo-terminal, talk to the other side whatever\n"
        "                        rate it opened the port at (see \"Baud rate\" below)\n"
        "  --rate HZ             report frames per second, 0 for none (default 10)\n"
        "  --targets N           people walking in x -5..5 m, y 0.3..8 m\n"
        "                        (0..128, default 3)\n"
        "  --fixed X,Y           a person standing still at X,Y metres; repeat for\n"
        "                        more; replaces the walking people\n"
        "  --area N,TYPE,X1,Y1,X2,Y2\n"
        "                        hold area N (1..3) of type TYPE (0 or 1) from the\n"
        "                        start, with its upper-left corner at X1,Y1 and its\n"
        "                        lower-right corner at X2,Y2 metres, as if the tool\n"
        "                        had set it; repeat for more\n"
        "  --seed N              seed of the walking paths (default: from the clock)\n"
        "  --noise N             N garbage bytes (never 0xFF) before every frame\n"
        "  --bad-checksum P      probability 0..1 that a frame carries a wrong sum\n"
        "  --split               write every frame in 2 to 4 random chunks, 2 ms apart\n"
        "  --gap MS              pause after each frame, 0..1000 ms (default 5;\n"
        "                        shortened at high rates so that a period's two\n"
        "                        reports fit in it)\n"
        "  --settle MS           quiet time after the port is opened before reports\n"
        "                        start, 0..10000 ms (default 200), so that the answers\n"
        "                        to the tool's first requests do not arrive inside a\n"
        "                        burst of reports\n"
        "  --disconnect-after S  S seconds after the port is first opened, close it\n"
        "                        and exit with 0\n"
        "  --baud-ng             answer every baud-rate change with NG\n"
        "  --replay FILE         play back the \"RecvData:\" lines of a diagnostic log\n"
        "                        file with their original timing instead of\n"
        "                        generating frames\n"
        "  --link PATH           make PATH a symbolic link to the port (replacing an\n"
        "                        earlier run's link) and remove it at exit, so that\n"
        "                        a module can be unplugged and plugged in again at\n"
        "                        one path by stopping and starting radar-sim\n"
        "  --verbose             print requests, answers and port events on standard\n"
        "                        error\n"
        "  --help                print this text and exit\n"
        "\n"
        "Baud rate: on a pseudo-terminal radar-sim sees the rate at which the other side\n"
        "opened the port and plays a real line: when it differs from the module's rate,\n"
        "the requests it sends are ignored and what the module sends arrives as garbage\n"
        "that never holds a frame header (fewer bytes when the other side is slower).\n"
        "The rate is looked at on every read and write, so the other side may reopen at\n"
        "another rate at any time. --any-baud turns this off. With --port the real line\n"
        "does it.\n"
        "A warning is printed when --rate and --targets ask for more than the rate\n"
        "carries; reports are then skipped.\n"
        "\n"
        "Exit codes:\n"
        "  0  after --help or --disconnect-after, or on Ctrl-C (SIGINT) or SIGTERM\n"
        "  1  the port or pseudo-terminal cannot be opened, the --link path cannot be\n"
        "     made (it exists and is not a symbolic link), or the --port device went\n"
        "     away while running\n"
        "  2  bad command line or an unreadable replay file\n");
}
