#include "tools/radar-sim/targetmotion.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr double kPi = 3.14159265358979323846;

double wrapAngle(double a)
{
    while (a > kPi)
        a -= 2.0 * kPi;
    while (a <= -kPi)
        a += 2.0 * kPi;
    return a;
}

} // namespace

TargetMotion::TargetMotion(int count, quint32 seed, Bounds b) : bounds(b), rng(seed)
{
    walkers.reserve(std::max(0, count));
    const double inset = std::min(
        {kEdgeMargin, (bounds.xMax - bounds.xMin) / 4.0, (bounds.yMax - bounds.yMin) / 4.0});
    for (int i = 0; i < count; ++i) {
        Walker w;
        w.pos = QPointF(uniform(bounds.xMin + inset, bounds.xMax - inset),
                        uniform(bounds.yMin + inset, bounds.yMax - inset));
        w.heading = uniform(-kPi, kPi);
        w.cruiseSpeed = uniform(kMinSpeed + 0.1, kMaxSpeed - 0.1);
        w.speed = w.cruiseSpeed;
        walkers.append(w);
    }
}

TargetMotion::TargetMotion(const QVector<QPointF> &fixedPoints) : fixed(true), rng(0)
{
    for (const QPointF &p : fixedPoints) {
        Walker w;
        w.pos = p;
        walkers.append(w);
    }
}

double TargetMotion::uniform(double lo, double hi)
{
    // Own mapping of the generator's output, so a seed gives the same paths
    // with any standard library.
    const double unit = double(rng()) / 4294967296.0;
    return lo + (hi - lo) * unit;
}

double TargetMotion::gaussian()
{
    const double u1 = (double(rng()) + 1.0) / 4294967297.0; // (0, 1]
    const double u2 = double(rng()) / 4294967296.0;
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * kPi * u2);
}

void TargetMotion::step(double dt)
{
    if (fixed || dt <= 0.0)
        return;
    const double cx = (bounds.xMin + bounds.xMax) / 2.0;
    const double cy = (bounds.yMin + bounds.yMax) / 2.0;
    for (Walker &w : walkers) {
        // The turn rate wanders and drifts back towards walking straight.
        w.turnRate += -0.7 * w.turnRate * dt + 0.8 * std::sqrt(dt) * gaussian();

        // Near an edge and heading out: turn towards the middle as fast as allowed.
        const double hx = std::cos(w.heading);
        const double hy = std::sin(w.heading);
        const bool outward = (w.pos.x() < bounds.xMin + kEdgeMargin && hx < 0.0) ||
                             (w.pos.x() > bounds.xMax - kEdgeMargin && hx > 0.0) ||
                             (w.pos.y() < bounds.yMin + kEdgeMargin && hy < 0.0) ||
                             (w.pos.y() > bounds.yMax - kEdgeMargin && hy > 0.0);
        if (outward) {
            const double wanted = std::atan2(cy - w.pos.y(), cx - w.pos.x());
            w.turnRate = wrapAngle(wanted - w.heading) >= 0.0 ? kMaxTurnRate : -kMaxTurnRate;
        }
        w.turnRate = std::clamp(w.turnRate, -kMaxTurnRate, kMaxTurnRate);
        w.heading = wrapAngle(w.heading + w.turnRate * dt);

        // Now and then a person speeds up or slows down.
        if (uniform(0.0, 1.0) < 0.15 * dt)
            w.cruiseSpeed = uniform(kMinSpeed + 0.1, kMaxSpeed - 0.1);
        w.speed += (w.cruiseSpeed - w.speed) * std::min(1.0, 0.8 * dt);
        w.speed = std::clamp(w.speed, kMinSpeed, kMaxSpeed);

        // Should a turn not suffice, the person slides along the edge.
        const double x = w.pos.x() + w.speed * dt * std::cos(w.heading);
        const double y = w.pos.y() + w.speed * dt * std::sin(w.heading);
        w.pos = QPointF(std::clamp(x, bounds.xMin, bounds.xMax),
                        std::clamp(y, bounds.yMin, bounds.yMax));
    }
}

QVector<QPointF> TargetMotion::positions() const
{
    QVector<QPointF> out;
    out.reserve(walkers.size());
    for (const Walker &w : walkers)
        out.append(w.pos);
    return out;
}

QVector<double> TargetMotion::headings() const
{
    QVector<double> out;
    out.reserve(walkers.size());
    for (const Walker &w : walkers)
        out.append(w.heading);
    return out;
}
