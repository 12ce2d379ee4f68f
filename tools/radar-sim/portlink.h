#pragma once

#include <QString>

// A symbolic link at a fixed path to the port the simulator plays on, so a
// test or a user can unplug and replug a simulated module at one path:
// each run replaces the link, and removes it again when it ends.
class PortLink
{
public:
    PortLink() = default;
    ~PortLink() { remove(); }
    PortLink(const PortLink &) = delete;
    PortLink &operator=(const PortLink &) = delete;

    // Points linkPath at target, replacing a link that is already there (a
    // left-over of an earlier run). Refuses to replace anything that is not a
    // symbolic link. false with *error set when it cannot.
    bool create(const QString &linkPath, const QString &target, QString *error);
    // Removes the link, unless another run has replaced it meanwhile.
    void remove();

private:
    QString path;
    QString pointsTo;
};
