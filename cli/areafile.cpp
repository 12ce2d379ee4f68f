#include "cli/areafile.h"

#include "cli/streamwrite.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QSaveFile>
#include <QSet>

#include <cmath>
#include <cstdio>

namespace
{

class Reader
{
public:
    explicit Reader(const QString &name) : name(name) {}

    bool fail(const QString &field, const QString &why)
    {
        message = field.isEmpty() ? QString("%1: %2").arg(name, why)
                                  : QString("%1: %2: %3").arg(name, field, why);
        return false;
    }

    bool onlyKnownKeys(const QJsonObject &object, const QStringList &known, const QString &where)
    {
        for (auto it = object.begin(); it != object.end(); ++it) {
            if (!known.contains(it.key()))
                return fail(where.isEmpty() ? it.key() : where + "." + it.key(),
                            QString("unknown field (known: %1)").arg(known.join(", ")));
        }
        return true;
    }

    bool integer(const QJsonValue &value, const QString &field, int *out)
    {
        if (!value.isDouble())
            return fail(field, "must be a whole number");
        const double d = value.toDouble();
        if (!std::isfinite(d) || std::floor(d) != d || std::abs(d) > 1e9)
            return fail(field, QString("must be a whole number, not %1").arg(d));
        *out = int(d);
        return true;
    }

    bool corner(const QJsonObject &area, const QString &key, const QString &where, QPointF *out)
    {
        const QString field = where + "." + key;
        if (!area.contains(key))
            return fail(field, "missing (a corner [x, y] in metres)");
        const QJsonValue value = area.value(key);
        if (!value.isArray() || value.toArray().size() != 2)
            return fail(field, "must be a corner [x, y] in metres");
        const QJsonArray xy = value.toArray();
        if (!xy.at(0).isDouble())
            return fail(field + "[0]", "x must be a number (metres)");
        if (!xy.at(1).isDouble())
            return fail(field + "[1]", "y must be a number (metres)");
        const double x = xy.at(0).toDouble();
        const double y = xy.at(1).toDouble();
        if (!std::isfinite(x) || !AreaFile::xInRange(x))
            return fail(field + "[0]", QString("x %1 is outside -8..8 m").arg(x));
        if (!std::isfinite(y) || !AreaFile::yInRange(y))
            return fail(field + "[1]", QString("y %1 is outside 0..8 m").arg(y));
        *out = QPointF(x, y);
        return true;
    }

    QString name;
    QString message;
};

QJsonArray cornerJson(const QPointF &p)
{
    return QJsonArray{p.x(), p.y()};
}

} // namespace

QString AreaEntry::kindName(Kind kind)
{
    switch (kind) {
    case Detect:
        return QStringLiteral("detect");
    case Exclude:
        return QStringLiteral("exclude");
    case Unset:
        break;
    }
    return QStringLiteral("unset");
}

int AreaFile::displayValue(const QString &name)
{
    if (name == QLatin1String("area"))
        return 2;
    if (name == QLatin1String("track"))
        return 1;
    return -1;
}

QString AreaFile::displayName(int value)
{
    if (value == 2)
        return QStringLiteral("area");
    if (value == 1)
        return QStringLiteral("track");
    return QString::number(value);
}

void AreaFile::lineAndColumn(const QByteArray &text, int offset, int *line, int *column)
{
    offset = qBound(0, offset, text.size());
    int l = 1;
    int lineStart = 0;
    for (int i = 0; i < offset; ++i) {
        if (text.at(i) == '\n') {
            ++l;
            lineStart = i + 1;
        }
    }
    // Columns count characters, not bytes: UTF-8 continuation bytes are skipped.
    int c = 1;
    for (int i = lineStart; i < offset; ++i)
        if ((quint8(text.at(i)) & 0xC0) != 0x80)
            ++c;
    *line = l;
    *column = c;
}

namespace
{

// "format" and "version": an orv-cli area file of the version this one reads.
bool readHeader(Reader &r, const QJsonObject &root)
{
    if (!root.contains("format"))
        return r.fail("format", QString("missing (must be \"%1\")").arg(AreaFile::kFormatName));
    if (root.value("format").toString() != QLatin1String(AreaFile::kFormatName))
        return r.fail(
            "format",
            QString("must be \"%1\": this is not an orv-cli area file").arg(AreaFile::kFormatName));
    if (!root.contains("version"))
        return r.fail("version", QString("missing (must be %1)").arg(AreaFile::kVersion));
    int version = 0;
    if (!r.integer(root.value("version"), "version", &version))
        return false;
    if (version != AreaFile::kVersion)
        return r.fail("version", QString("%1 is not supported (this orv-cli reads version %2)")
                                     .arg(version)
                                     .arg(AreaFile::kVersion));
    return true;
}

// "display": a name or a number 0..255.
bool readDisplay(Reader &r, const QJsonValue &d, int *display)
{
    if (d.isString()) {
        *display = AreaFile::displayValue(d.toString());
        if (*display < 0)
            return r.fail("display", QString("\"%1\" is not a display type (\"area\", "
                                             "\"track\" or a number 0..255)")
                                         .arg(d.toString()));
        return true;
    }
    int value = 0;
    if (!r.integer(d, "display", &value))
        return false;
    if (value < 0 || value > 255)
        return r.fail("display", QString("%1 is outside 0..255").arg(value));
    *display = value;
    return true;
}

// One entry of "areas"; seen holds the numbers of the entries before it.
bool readArea(Reader &r, const QJsonValue &value, const QString &where, QSet<int> &seen,
              AreaEntry *entry)
{
    if (!value.isObject())
        return r.fail(where, "must be an object {\"number\": ..., \"type\": ...}");
    const QJsonObject o = value.toObject();
    if (!r.onlyKnownKeys(o, {"number", "type", "from", "to"}, where))
        return false;
    if (!o.contains("number"))
        return r.fail(where + ".number", "missing (1, 2 or 3)");
    if (!r.integer(o.value("number"), where + ".number", &entry->number))
        return false;
    if (entry->number < 1 || entry->number > 3)
        return r.fail(where + ".number", QString("%1 is not 1, 2 or 3").arg(entry->number));
    if (seen.contains(entry->number))
        return r.fail(where + ".number", QString("area %1 appears twice").arg(entry->number));
    seen.insert(entry->number);

    if (!o.contains("type"))
        return r.fail(where + ".type", "missing (\"detect\", \"exclude\" or \"unset\")");
    const QString type = o.value("type").toString();
    if (type == QLatin1String("detect"))
        entry->kind = AreaEntry::Detect;
    else if (type == QLatin1String("exclude"))
        entry->kind = AreaEntry::Exclude;
    else if (type == QLatin1String("unset"))
        entry->kind = AreaEntry::Unset;
    else
        return r.fail(where + ".type", QString("must be \"detect\", \"exclude\" or \"unset\""));

    if (entry->kind == AreaEntry::Unset) {
        if (o.contains("from") || o.contains("to"))
            return r.fail(where, "an unset area has no corners (remove from/to)");
        return true;
    }
    return r.corner(o, "from", where, &entry->from) && r.corner(o, "to", where, &entry->to);
}

} // namespace

bool AreaFile::parse(const QByteArray &text, const QString &name, AreaFile *file, QString *error)
{
    Reader r(name);
    auto done = [&](bool ok) {
        if (!ok && error)
            *error = r.message;
        return ok;
    };

    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(text, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        int line = 0;
        int column = 0;
        lineAndColumn(text, parseError.offset, &line, &column);
        r.message = QString("%1:%2:%3: not valid JSON: %4")
                        .arg(name)
                        .arg(line)
                        .arg(column)
                        .arg(parseError.errorString());
        return done(false);
    }
    if (!doc.isObject())
        return done(r.fail(QString(), "the file must hold one JSON object ({...})"));
    const QJsonObject root = doc.object();
    if (!r.onlyKnownKeys(root, {"format", "version", "display", "areas"}, QString()) ||
        !readHeader(r, root))
        return done(false);

    AreaFile result;
    if (root.contains("display")) {
        if (!readDisplay(r, root.value("display"), &result.display))
            return done(false);
        result.hasDisplay = true;
    }

    if (!root.contains("areas"))
        return done(r.fail("areas", "missing (a list of areas numbered 1..3)"));
    if (!root.value("areas").isArray())
        return done(r.fail("areas", "must be a list of areas"));
    const QJsonArray list = root.value("areas").toArray();
    if (list.size() > 3)
        return done(r.fail("areas", QString("%1 areas; a module has three").arg(list.size())));
    QSet<int> seen;
    for (int i = 0; i < list.size(); ++i) {
        AreaEntry entry;
        if (!readArea(r, list.at(i), QString("areas[%1]").arg(i), seen, &entry))
            return done(false);
        result.areas.append(entry);
    }
    std::sort(result.areas.begin(), result.areas.end(),
              [](const AreaEntry &a, const AreaEntry &b) { return a.number < b.number; });
    *file = result;
    return done(true);
}

bool AreaFile::load(const QString &path, AreaFile *file, QString *error)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QString("%1: cannot read: %2").arg(path, f.errorString());
        return false;
    }
    if (f.size() > kMaxFileSize) {
        if (error)
            *error = QString("%1: %2 bytes; an area file is at most 1 MiB").arg(path).arg(f.size());
        return false;
    }
    const QByteArray text = f.read(kMaxFileSize + 1);
    if (text.size() > kMaxFileSize) {
        if (error)
            *error = QString("%1: larger than 1 MiB; not an area file").arg(path);
        return false;
    }
    return parse(text, path, file, error);
}

QByteArray AreaFile::toJson() const
{
    QJsonObject root;
    root["format"] = QLatin1String(kFormatName);
    root["version"] = kVersion;
    if (hasDisplay) {
        if (display == 1 || display == 2)
            root["display"] = displayName(display);
        else
            root["display"] = display;
    }
    QJsonArray list;
    for (const AreaEntry &a : areas) {
        QJsonObject o;
        o["number"] = a.number;
        o["type"] = AreaEntry::kindName(a.kind);
        if (a.kind != AreaEntry::Unset) {
            o["from"] = cornerJson(a.from);
            o["to"] = cornerJson(a.to);
        }
        list.append(o);
    }
    root["areas"] = list;
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

bool AreaFile::save(const QString &path, QString *error) const
{
    const QByteArray text = toJson();
    if (path == QLatin1String("-")) {
        const bool ok = writeAndFlush(stdout, text);
        if (!ok && error)
            *error = QStringLiteral("cannot write to standard output");
        return ok;
    }
    QSaveFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(text) != text.size() || !f.commit()) {
        if (error)
            *error = QString("cannot write %1: %2").arg(path, f.errorString());
        return false;
    }
    return true;
}
