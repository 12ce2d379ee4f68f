#pragma once

// The figures of a session (SessionFigures) as text for people or as JSON.

#include "session/sessionscan.h"

#include <QJsonObject>
#include <QString>

QString sessionSummaryText(const SessionFigures &f);
QJsonObject sessionSummaryJson(const SessionFigures &f);
