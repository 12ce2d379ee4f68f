#pragma once

#include <QPointF>
#include <QVector>

#include <random>

// The rectangle of the plane in which people walk, in metres.
struct WalkBounds {
    double xMin = -5.0;
    double xMax = 5.0;
    double yMin = 0.3;
    double yMax = 8.0;
};

// People walking in front of the module: smooth paths (the heading turns at
// a bounded, slowly changing rate; the speed drifts between a slow stroll
// and a brisk walk) that stay inside a rectangle of the plane, steering
// away from its edges. Fully determined by the seed and the steps taken.
class TargetMotion
{
public:
    using Bounds = WalkBounds;

    static constexpr double kMinSpeed = 0.3;    // m/s
    static constexpr double kMaxSpeed = 1.5;    // m/s
    static constexpr double kMaxTurnRate = 1.2; // rad/s
    static constexpr double kEdgeMargin = 0.8;  // m: start turning back inside this band

    // count walkers with random starting points and headings.
    TargetMotion(int count, quint32 seed, Bounds bounds = Bounds());
    // People standing still at these points; step() does not move them.
    explicit TargetMotion(const QVector<QPointF> &fixedPoints);

    // Advances every walker by dt seconds.
    void step(double dt);

    QVector<QPointF> positions() const;
    // Headings in radians, for checks of smoothness.
    QVector<double> headings() const;
    int count() const { return walkers.size(); }
    const Bounds &area() const { return bounds; }

private:
    struct Walker {
        QPointF pos;
        double heading = 0.0;
        double speed = 0.0;
        double cruiseSpeed = 0.0;
        double turnRate = 0.0;
    };

    double uniform(double lo, double hi);
    double gaussian();

    Bounds bounds;
    bool fixed = false;
    QVector<Walker> walkers;
    std::mt19937 rng;
};
