#pragma once
#include <QObject>
class XYAxis : public QObject
{
    Q_OBJECT
};
