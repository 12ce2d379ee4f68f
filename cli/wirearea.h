#pragma once

// An area as the wire carries it: the module's type number and two corners
// in decimetres. Comparing areas in this form compares what can actually be
// stored, after the window's encoding of metres (truncation included).

#include "cli/areafile.h"
#include "radar/frameformat.h"

#include <QRectF>
#include <QString>

#include <array>

struct WireArea {
    static constexpr int kNoArea = 2; // type in the read answer: no area defined

    int type = kNoArea;
    // Decimetres, ordered: left <= right, top >= bottom.
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    bool defined() const { return type != kNoArea; }
    bool operator==(const WireArea &other) const;
    bool operator!=(const WireArea &other) const { return !(*this == other); }

    // The rectangle sent for an entry: corners put in order, upper left first
    // (the smaller x and the larger y), as the window expects.
    static QRectF requestRect(const AreaEntry &entry);
    // The set-area payload for an entry (frameformat's encoding).
    static QByteArray requestPayload(const AreaEntry &entry);
    // What the module holds after the entry has been set (or repealed).
    static WireArea expected(const AreaEntry &entry);
    // The three areas of a read-areas answer (code 6).
    static std::array<WireArea, 3> fromReadAnswer(frameformat::ByteView frame);
    // An entry that, sent again, gives exactly this area; *exact is false when
    // no metre values within range do (the entry then holds the nearest ones).
    static AreaEntry toEntry(int number, const WireArea &area, bool *exact = nullptr);

    // "detect (-1.5, 3.0) to (1.5, 1.0)", "unset", "type 5 (...)".
    QString text() const;
    // Decimetres as metres with one decimal, exactly: -15 -> "-1.5".
    static QString metres(int decimetres);
};
