#include "service/module.h"

// Skeleton: the states and the API; the port work follows.

QString Module::stateName(State state)
{
    switch (state) {
    case State::Opening:
        return QStringLiteral("opening");
    case State::Open:
        return QStringLiteral("open");
    case State::Silent:
        return QStringLiteral("silent");
    case State::Lost:
        return QStringLiteral("lost");
    case State::Busy:
        return QStringLiteral("busy");
    case State::NoPermission:
        return QStringLiteral("no-permission");
    case State::WrongBaud:
        return QStringLiteral("wrong-baud");
    }
    return QString();
}

Module::Module(const QString &id, const QString &portName, const QString &baud, QObject *parent)
    : QObject(parent), moduleId(id), port(portName), requestedBaud(baud),
      stateSince(QDateTime::currentDateTimeUtc())
{
}

Module::~Module() = default;

void Module::start()
{
    setState(State::Opening);
}

void Module::setState(State state)
{
    if (state == current)
        return;
    current = state;
    stateSince = QDateTime::currentDateTimeUtc();
    emit statusChanged(status());
}

QJsonObject Module::status() const
{
    return QJsonObject{{"id", moduleId},
                       {"port", port},
                       {"baud", requestedBaud},
                       {"state", stateName(current)},
                       {"since", stateSince.toString(Qt::ISODateWithMs)}};
}

QJsonObject Module::areaFile() const
{
    return config;
}

QByteArray Module::etag() const
{
    return configTag;
}

qint64 Module::reconnects() const
{
    return 0;
}

namespace
{

void notOpen(const Module::Done &done)
{
    WriteResult r;
    r.kind = WriteResult::NotOpen;
    r.error = QStringLiteral("the module is not open");
    done(r);
}

} // namespace

void Module::setAreas(const QJsonObject &, Done done)
{
    notOpen(done);
}

void Module::setArea(int, const QJsonObject &, Done done)
{
    notOpen(done);
}

void Module::cancelArea(int, Done done)
{
    notOpen(done);
}

void Module::cancelAllAreas(Done done)
{
    notOpen(done);
}

void Module::setDisplay(const QString &, Done done)
{
    notOpen(done);
}
