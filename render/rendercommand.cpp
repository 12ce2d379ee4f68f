#include "render/rendercommand.h"

#include "cli/cliapp.h"
#include "cli/exitcode.h"
#include "cli/interrupt.h"
#include "render/pictureareas.h"
#include "render/sessionpicture.h"

#include <QGuiApplication>
#include <QRegularExpression>

#include <cmath>

namespace
{

QtMessageHandler previousHandler = nullptr;

// Starting a GUI application without a runtime folder set warns about it;
// render writes no runtime files, so that warning is only noise.
void quietRuntimeWarning(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (text.startsWith(QLatin1String("QStandardPaths: XDG_RUNTIME_DIR")))
        return;
    if (previousHandler)
        previousHandler(type, context, text);
}

bool parseNumbers(const QString &text, const QString &separator, int count, QVector<double> *out)
{
    const QStringList parts = text.split(separator);
    if (parts.size() != count)
        return false;
    for (const QString &p : parts) {
        bool ok = false;
        const double v = p.trimmed().toDouble(&ok);
        if (!ok || !std::isfinite(v))
            return false;
        out->append(v);
    }
    return true;
}

} // namespace

RenderCommand::RenderCommand()
    : CliCommand({"render", "a picture of a session: heat map, trails, areas, caption"})
{
}

QString RenderCommand::synopsis() const
{
    return QStringLiteral("-o PICTURE [--svg] [--from T] [--to T] [--areas FILE] [--size WxH]\n"
                          "       [--range X1,X2,Y1,Y2] [--trail-minutes N] [--quiet] LOG...");
}

QString RenderCommand::details() const
{
    return QStringLiteral(
        "Reads the \"RecvData:\" lines of diagnostic log files (log/<yyyymmdd>/logfile_<n>.txt)\n"
        "or orv-cli record files and draws one picture of the session: the plane seen from\n"
        "above (x across, y away from the module, the module at the origin, metres on both\n"
        "axes alike) with a grid every metre; a heat map of presence (seconds per 0.1 m cell,\n"
        "log-scaled colour, legend in seconds); the trails of the reported targets, thin and\n"
        "fading with age; the areas, in the window's colours with their numbers and the share\n"
        "of time each was occupied; a caption with the time span, reports, the most people at\n"
        "once and the bad frames (checksum failures).\n"
        "\n"
        "The areas are the module's last read-area answer in the log, or those of --areas.\n"
        "\n"
        "LOG is a file, or a folder standing for its logfile_<n>.txt files in the order of n,\n"
        "or the log folder itself standing for all its day folders (yyyymmdd) in date order.\n"
        "Several LOGs are read in the order given, as one stream.\n"
        "\n"
        "The picture is PNG, or SVG with --svg or a name ending in .svg. Without --range the\n"
        "window's default plane (x -5..5 m, y 0..8 m) is shown, widened to whole metres to\n"
        "hold every reported point and area.");
}

QString RenderCommand::exitCodes() const
{
    return exitCodeTable({{ExitDone, "done"},
                          {ExitUsage, "bad command line, a file or folder that cannot be read, a "
                                      "bad area file,\nor a picture that cannot be written"},
                          {ExitInterrupted, "interrupted (Ctrl-C or SIGTERM); no picture is "
                                            "written, an old one stays"}});
}

void RenderCommand::addOptions(QCommandLineParser &parser)
{
    parser.addOption({{"o", "output"}, "Writes the picture to FILE (required).", "FILE"});
    parser.addOption({"svg", "Writes SVG instead of PNG."});
    parser.addOption(
        {"areas", "Draws the areas of this area file instead of the logged ones.", "FILE"});
    parser.addOption({"size", "Picture size in pixels (default 1200x900).", "WxH"});
    parser.addOption({"range", "Plane shown, in metres (default: fitted).", "X1,X2,Y1,Y2"});
    parser.addOption(
        {"trail-minutes", "Draws only the trails of the last N minutes (default: all).", "N"});
    addSessionOptions(parser);
}

int RenderCommand::run(CliContext &context)
{
    QCommandLineParser &p = context.parser;
    if (!p.isSet("output"))
        return context.usageError("-o PICTURE is required");
    const QString output = p.value("output");
    const bool svg = p.isSet("svg") || output.endsWith(".svg", Qt::CaseInsensitive);

    PictureOptions options;
    if (p.isSet("size")) {
        static const QRegularExpression sizePattern("^(\\d{1,5})x(\\d{1,5})$");
        const QRegularExpressionMatch m = sizePattern.match(p.value("size"));
        const int w = m.hasMatch() ? m.captured(1).toInt() : 0;
        const int h = m.hasMatch() ? m.captured(2).toInt() : 0;
        if (w < 400 || h < 300 || w > 8000 || h > 8000)
            return context.usageError(
                QString("--size: \"%1\" is not WxH within 400x300 .. 8000x8000")
                    .arg(p.value("size")));
        options.size = QSize(w, h);
    }
    if (p.isSet("range")) {
        QVector<double> r;
        if (!parseNumbers(p.value("range"), ",", 4, &r) || r[0] >= r[1] || r[2] >= r[3] ||
            r[0] < -13 || r[1] > 13 || r[2] < -13 || r[3] > 13)
            return context.usageError(QString("--range: \"%1\" is not X1,X2,Y1,Y2 in metres with "
                                              "X1 < X2, Y1 < Y2, all within -13..13")
                                          .arg(p.value("range")));
        options.rangeGiven = true;
        options.minX = r[0];
        options.maxX = r[1];
        options.minY = r[2];
        options.maxY = r[3];
    }
    qint64 trailWindowMs = 0;
    if (p.isSet("trail-minutes")) {
        bool ok = false;
        const double minutes = p.value("trail-minutes").toDouble(&ok);
        if (!ok || !(minutes > 0) || minutes > 1e6)
            return context.usageError(
                QString("--trail-minutes: \"%1\" is not a number of minutes above 0")
                    .arg(p.value("trail-minutes")));
        trailWindowMs = qint64(minutes * 60000);
    }
    QVector<PictureArea> areas;
    bool areasFromFile = false;
    if (p.isSet("areas")) {
        QString error;
        if (!readPictureAreas(p.value("areas"), &areas, &error))
            return context.fail(ExitUsage, error);
        areasFromFile = true;
    }
    SessionFilter filter;
    if (!sessionFilter(context, &filter))
        return ExitUsage;

    HeatMap heat;
    TrailStore trails(60000, trailWindowMs);
    SessionScan scan(filter, &heat, &trails);
    const int code = readSession(context, scan);
    if (code != ExitDone)
        return code;
    const SessionFigures &figures = scan.figures();
    if (areasFromFile) {
        options.areaSource = p.value("areas");
    } else {
        areas = loggedPictureAreas(figures);
        options.areaSource = figures.haveAreas
                                 ? "read from the module " + formatLogTime(figures.areasMs).left(19)
                                 : QString("none in the log");
    }
    setOccupiedShares(&areas, figures);

    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return context.fail(ExitUsage, "drawing needs a GUI application object");
    SessionPicture picture(figures, heat, trails, areas, options);
    QString error;
    if (!savePicture(picture, output, svg, &error))
        return context.fail(Interrupt::requested() ? ExitInterrupted : ExitUsage, error);
    if (!p.isSet("quiet"))
        context.note(QString("wrote %1 (%2x%3, %4 reports)")
                         .arg(output)
                         .arg(options.size.width())
                         .arg(options.size.height())
                         .arg(figures.targetReports));
    return ExitDone;
}

void registerSessionCommands(CliApp &app)
{
    app.add<SummaryCommand>();
    app.add<RenderCommand>();
}

std::unique_ptr<QCoreApplication> createCliApplication(int &argc, char **argv)
{
    if (argc > 1 && QByteArray(argv[1]) == "render") {
        // Text needs fonts, fonts need a GUI application; no display is used.
        qputenv("QT_QPA_PLATFORM", "offscreen");
        previousHandler = qInstallMessageHandler(quietRuntimeWarning);
        auto app = std::make_unique<QGuiApplication>(argc, argv);
        qInstallMessageHandler(previousHandler);
        return app;
    }
    return std::make_unique<QCoreApplication>(argc, argv);
}
