#pragma once

#include <QFont>
#include <QFontMetrics>
#include <QGlyphRun>
#include <QPointF>
#include <QRawFont>
#include <QString>

class QPainter;
class QPaintDevice;

// Short numeric labels ("12:(-1.5,3.0)") measured and drawn without shaping
// each one anew. Shaping a text (itemising, running HarfBuzz) costs far more
// than drawing its few glyphs, and the plot draws a label for every target
// on every paint. The glyphs and advances of the few characters such labels
// use are looked up once per font and device resolution; a label is then
// placed by adding advances and drawn as one glyph run.
//
// The results equal QFontMetrics::horizontalAdvance and QPainter::drawText
// to the pixel. That holds only when shaping does not move or replace these
// glyphs (no kerning or ligature among them), which is checked once against
// a real layout of every pair; a font that fails the check, a label with any
// other character, or a painter with another font, another resolution or
// more than a translation goes the usual way.
class LabelGlyphs
{
public:
    LabelGlyphs() = default;
    Q_DISABLE_COPY(LabelGlyphs)

    // Prepares for `font` as resolved on `device` (its logical resolution);
    // nothing to do when already prepared for them.
    void prepare(const QFont &font, QPaintDevice *device);
    bool isPreparedFor(const QFont &font, const QPaintDevice *device) const;
    // True when labels of the known characters take the fast way.
    bool isUsable() const { return usable; }

    // The width QFontMetrics(font, device).horizontalAdvance(text) gives.
    int horizontalAdvance(const QString &text) const;
    // Exactly painter->drawText(baseline, text).
    void drawText(QPainter *painter, QPoint baseline, const QString &text);

    // The characters labels may use on the fast way.
    static const QString &knownCharacters();

private:
    static constexpr int kMaxLength = 64;

    // Glyph slot of a character, or -1 when it is not known.
    int slotOf(QChar c) const;
    bool layoutMatches(QPaintDevice *device) const;

    QFont preparedFont;
    QFontMetrics metrics{QFont()};
    int dpiX = 0;
    int dpiY = 0;
    bool prepared = false;
    bool usable = false;
    QRawFont rawFont;
    quint32 glyphs[32] = {};
    qreal advances[32] = {};
    // Scratch for the run being drawn.
    quint32 runGlyphs[kMaxLength] = {};
    QPointF runPositions[kMaxLength];
    QGlyphRun run;
};
