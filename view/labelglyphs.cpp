#include "view/labelglyphs.h"

#include <QPaintDevice>
#include <QPainter>
#include <QTextLayout>
#include <QVector>

namespace
{

// Every ordered pair of known characters side by side, so one layout shows
// whether shaping changes any glyph or advance between neighbours.
QString everyPair(const QString &chars)
{
    QString text;
    for (QChar a : chars) {
        for (QChar b : chars) {
            text.append(a);
            text.append(b);
        }
    }
    return text;
}

} // namespace

const QString &LabelGlyphs::knownCharacters()
{
    static const QString chars = QStringLiteral("0123456789-+.,:()");
    return chars;
}

int LabelGlyphs::slotOf(QChar c) const
{
    const ushort u = c.unicode();
    if (u >= '0' && u <= '9')
        return u - '0';
    switch (u) {
    case '-':
        return 10;
    case '+':
        return 11;
    case '.':
        return 12;
    case ',':
        return 13;
    case ':':
        return 14;
    case '(':
        return 15;
    case ')':
        return 16;
    default:
        return -1;
    }
}

bool LabelGlyphs::isPreparedFor(const QFont &font, const QPaintDevice *device) const
{
    return prepared && device != nullptr && dpiX == device->logicalDpiX() &&
           dpiY == device->logicalDpiY() && preparedFont == font;
}

void LabelGlyphs::prepare(const QFont &font, QPaintDevice *device)
{
    if (isPreparedFor(font, device))
        return;
    prepared = true;
    usable = false;
    preparedFont = font;
    metrics = device ? QFontMetrics(font, device) : QFontMetrics(font);
    dpiX = device ? device->logicalDpiX() : 0;
    dpiY = device ? device->logicalDpiY() : 0;
    if (!device)
        return;

    const QFont resolved(font, device);
    rawFont = QRawFont::fromFont(resolved);
    if (!rawFont.isValid())
        return;
    const QString &chars = knownCharacters();
    const QVector<quint32> indexes = rawFont.glyphIndexesForString(chars);
    if (indexes.size() != chars.size() || indexes.contains(0))
        return; // a character the font lacks: leave it all to shaping
    const QVector<QPointF> steps = rawFont.advancesForGlyphIndexes(indexes);
    for (int k = 0; k < chars.size(); ++k) {
        const int slot = slotOf(chars.at(k));
        glyphs[slot] = indexes.at(k);
        advances[slot] = steps.at(k).x();
    }
    usable = layoutMatches(device);
}

// Lays the pairs out as drawText would and compares glyph by glyph.
bool LabelGlyphs::layoutMatches(QPaintDevice *device) const
{
    const QString text = everyPair(knownCharacters());
    QTextLayout layout(text, preparedFont, device);
    layout.beginLayout();
    layout.createLine();
    layout.endLayout();
    const QList<QGlyphRun> runs = layout.glyphRuns();
    if (runs.size() != 1 || runs.first().rawFont() != rawFont)
        return false;
    const QVector<quint32> laidGlyphs = runs.first().glyphIndexes();
    const QVector<QPointF> laidPositions = runs.first().positions();
    if (laidGlyphs.size() != text.size())
        return false;
    const qreal x0 = laidPositions.first().x();
    qreal x = 0;
    for (int k = 0; k < text.size(); ++k) {
        const int slot = slotOf(text.at(k));
        if (laidGlyphs.at(k) != glyphs[slot] || laidPositions.at(k).x() - x0 != x)
            return false;
        x += advances[slot];
    }
    return true;
}

int LabelGlyphs::horizontalAdvance(const QString &text) const
{
    if (usable && text.size() <= kMaxLength) {
        qreal width = 0;
        bool known = true;
        for (QChar c : text) {
            const int slot = slotOf(c);
            if (slot < 0) {
                known = false;
                break;
            }
            width += advances[slot];
        }
        if (known)
            return qRound(width);
    }
    return metrics.horizontalAdvance(text);
}

void LabelGlyphs::drawText(QPainter *painter, QPoint baseline, const QString &text)
{
    const int n = text.size();
    bool fast = usable && n > 0 && n <= kMaxLength &&
                isPreparedFor(painter->font(), painter->device()) &&
                painter->deviceTransform().type() <= QTransform::TxTranslate;
    qreal x = 0;
    for (int k = 0; fast && k < n; ++k) {
        const int slot = slotOf(text.at(k));
        if (slot < 0) {
            fast = false;
            break;
        }
        runGlyphs[k] = glyphs[slot];
        runPositions[k] = QPointF(x, 0);
        x += advances[slot];
    }
    if (!fast) {
        painter->drawText(baseline, text);
        return;
    }
    run.setRawFont(rawFont);
    run.setRawData(runGlyphs, runPositions, n);
    painter->drawGlyphRun(QPointF(baseline), run);
}
