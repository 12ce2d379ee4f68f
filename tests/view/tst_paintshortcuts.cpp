// The plot's two drawing shortcuts must give exactly what the plain Qt calls
// give: target labels drawn as pre-shaped glyph runs against
// QPainter::drawText and QFontMetrics::horizontalAdvance, and straight lines
// filled as rectangles against QPainter::drawLine. Each row draws both ways
// into images and compares them pixel for pixel.

#include "view/labelglyphs.h"
#include "view/straightline.h"

#include <QFontMetrics>
#include <QImage>
#include <QPainter>
#include <QtTest>

Q_DECLARE_METATYPE(Qt::PenCapStyle)

namespace
{

QImage canvas()
{
    QImage image(260, 90, QImage::Format_ARGB32_Premultiplied);
    image.fill(QColor(30, 60, 90));
    return image;
}

QFont pointFont(int points, bool bold = false)
{
    QFont font;
    font.setPointSize(points);
    font.setBold(bold);
    return font;
}

QFont pixelFont(int pixels)
{
    QFont font;
    font.setPixelSize(pixels);
    return font;
}

} // namespace

class TestPaintShortcuts : public QObject
{
    Q_OBJECT

private slots:
    void labelsAsDrawText_data();
    void labelsAsDrawText();
    void fastWayIsTakenForTheDefaultFont();
    void scaledPainterGoesTheUsualWay();
    void otherFontOrResolutionGoesTheUsualWay();
    void preparationFollowsFontAndResolution();

    void straightLinesAsDrawLine_data();
    void straightLinesAsDrawLine();
};

void TestPaintShortcuts::labelsAsDrawText_data()
{
    QTest::addColumn<QFont>("font");
    QTest::addColumn<QString>("text");
    const QFont plain;
    QTest::newRow("target label") << plain << QString("1:(0.0,0.0)");
    QTest::newRow("negative x") << plain << QString("17:(-4.3,7.9)");
    QTest::newRow("three-digit index") << plain << QString("128:(-12.5,-0.1)");
    QTest::newRow("axis label") << plain << QString("-0.5");
    QTest::newRow("crosshair text") << plain << QString("(1.25,3.4)");
    QTest::newRow("every known character")
        << plain << QString("0123456789-+.,:()()+-:,.9876543210");
    QTest::newRow("empty") << plain << QString();
    QTest::newRow("letters go the usual way") << plain << QString("Area1");
    QTest::newRow("Chinese goes the usual way") << plain << QString::fromUtf8("区域1");
    QTest::newRow("space goes the usual way") << plain << QString("1: (2,3)");
    QTest::newRow("longer than the run buffer") << plain << QString("12345.6789,").repeated(7);
    QTest::newRow("14 points") << pointFont(14) << QString("3:(2.5,-1.0)");
    QTest::newRow("14 points bold") << pointFont(14, true) << QString("3:(2.5,-1.0)");
    QTest::newRow("12 pixels") << pixelFont(12) << QString("0.5");
    QTest::newRow("9 points") << pointFont(9) << QString("99:(9.9,9.9)");
}

void TestPaintShortcuts::labelsAsDrawText()
{
    QFETCH(QFont, font);
    QFETCH(QString, text);

    QImage expected = canvas();
    QImage actual = canvas();
    LabelGlyphs glyphs;
    for (int dx = 0; dx < 4; ++dx) { // a few origins, so no placement is special
        const QPoint baseline(5 + dx * 3, 20 + dx * 17);
        {
            QPainter painter(&expected);
            painter.setFont(font);
            painter.setPen(Qt::white);
            painter.drawText(baseline, text);
        }
        {
            QPainter painter(&actual);
            painter.setFont(font);
            painter.setPen(Qt::white);
            if (!glyphs.isPreparedFor(painter.font(), painter.device()))
                glyphs.prepare(painter.font(), painter.device());
            glyphs.drawText(&painter, baseline, text);
        }
    }
    QVERIFY(expected == actual);
    QCOMPARE(glyphs.horizontalAdvance(text), QFontMetrics(font, &expected).horizontalAdvance(text));
}

// Without this the rows above would pass on the usual way alone.
void TestPaintShortcuts::fastWayIsTakenForTheDefaultFont()
{
    QImage image = canvas();
    QPainter painter(&image);
    LabelGlyphs glyphs;
    glyphs.prepare(painter.font(), painter.device());
    QVERIFY2(glyphs.isUsable(), qPrintable(QFontInfo(painter.font()).family()));
    glyphs.prepare(pointFont(14), painter.device());
    QVERIFY(glyphs.isUsable());
}

void TestPaintShortcuts::scaledPainterGoesTheUsualWay()
{
    QImage expected = canvas();
    QImage actual = canvas();
    const QString text("5:(1.5,2.5)");
    {
        QPainter painter(&expected);
        painter.scale(1.5, 1.5);
        painter.setPen(Qt::white);
        painter.drawText(QPoint(4, 30), text);
    }
    {
        QPainter painter(&actual);
        painter.scale(1.5, 1.5);
        painter.setPen(Qt::white);
        LabelGlyphs glyphs;
        glyphs.prepare(painter.font(), painter.device());
        glyphs.drawText(&painter, QPoint(4, 30), text);
    }
    QVERIFY(expected == actual);
}

// Glyphs prepared for one font and resolution, a painter with another:
// the text must still come out as drawText draws it.
void TestPaintShortcuts::otherFontOrResolutionGoesTheUsualWay()
{
    const QString text("7:(-2.5,6.0)");
    QImage plain = canvas();
    LabelGlyphs glyphs;
    glyphs.prepare(QFont(), &plain);
    QVERIFY(glyphs.isUsable());

    QImage denser = canvas();
    denser.setDotsPerMeterX(plain.dotsPerMeterX() * 2);
    denser.setDotsPerMeterY(plain.dotsPerMeterY() * 2);
    const QFont larger = pointFont(14);
    const struct {
        QImage *device;
        QFont font;
    } cases[] = {{&plain, larger}, {&denser, QFont()}};
    for (const auto &c : cases) {
        QImage expected = *c.device;
        QImage actual = *c.device;
        {
            QPainter painter(&expected);
            painter.setFont(c.font);
            painter.setPen(Qt::white);
            painter.drawText(QPoint(6, 40), text);
        }
        {
            QPainter painter(&actual);
            painter.setFont(c.font);
            painter.setPen(Qt::white);
            glyphs.drawText(&painter, QPoint(6, 40), text);
        }
        QVERIFY(expected == actual);
        QVERIFY(expected != *c.device);
    }
}

void TestPaintShortcuts::preparationFollowsFontAndResolution()
{
    QImage image = canvas();
    LabelGlyphs glyphs;
    QVERIFY(!glyphs.isPreparedFor(QFont(), &image));
    glyphs.prepare(QFont(), &image);
    QVERIFY(glyphs.isPreparedFor(QFont(), &image));
    QVERIFY(!glyphs.isPreparedFor(pointFont(14), &image));

    QImage denser = canvas();
    denser.setDotsPerMeterX(image.dotsPerMeterX() * 2);
    denser.setDotsPerMeterY(image.dotsPerMeterY() * 2);
    QVERIFY(!glyphs.isPreparedFor(QFont(), &denser));

    // Prepared for the denser device, widths follow its metrics.
    glyphs.prepare(QFont(), &denser);
    const QString text("12:(3.4,5.6)");
    QCOMPARE(glyphs.horizontalAdvance(text),
             QFontMetrics(QFont(), &denser).horizontalAdvance(text));
    QVERIFY(glyphs.horizontalAdvance(text) > QFontMetrics(QFont(), &image).horizontalAdvance(text));
}

void TestPaintShortcuts::straightLinesAsDrawLine_data()
{
    QTest::addColumn<QLine>("line");
    QTest::addColumn<QColor>("colour");
    QTest::addColumn<int>("width");
    QTest::addColumn<Qt::PenCapStyle>("cap");
    QTest::addColumn<bool>("antialiased");
    QTest::addColumn<QPoint>("translation");

    const QColor grid(0, 0, 0, 100);
    const QColor axis(0, 0, 0, 200);
    const QColor red(255, 0, 0, 255);
    const QPoint none(0, 0);
    QTest::newRow("vertical grid line")
        << QLine(40, 5, 40, 80) << grid << 1 << Qt::SquareCap << false << none;
    QTest::newRow("horizontal grid line")
        << QLine(3, 44, 250, 44) << grid << 1 << Qt::SquareCap << false << none;
    QTest::newRow("drawn upwards")
        << QLine(12, 70, 12, 9) << axis << 1 << Qt::SquareCap << false << none;
    QTest::newRow("drawn leftwards")
        << QLine(200, 7, 20, 7) << axis << 1 << Qt::SquareCap << false << none;
    QTest::newRow("one point") << QLine(50, 50, 50, 50) << grid << 1 << Qt::SquareCap << false
                               << none;
    QTest::newRow("opaque crosshair")
        << QLine(130, 0, 130, 89) << red << 1 << Qt::SquareCap << false << none;
    QTest::newRow("cosmetic pen") << QLine(60, 5, 60, 60) << grid << 0 << Qt::SquareCap << false
                                  << none;
    QTest::newRow("translated painter")
        << QLine(60, 5, 60, 60) << grid << 1 << Qt::SquareCap << false << QPoint(7, 3);
    QTest::newRow("partly outside")
        << QLine(-20, 30, 300, 30) << grid << 1 << Qt::SquareCap << false << none;
    QTest::newRow("diagonal goes to drawLine")
        << QLine(5, 5, 80, 60) << grid << 1 << Qt::SquareCap << false << none;
    QTest::newRow("flat cap goes to drawLine")
        << QLine(40, 5, 40, 80) << grid << 1 << Qt::FlatCap << false << none;
    QTest::newRow("wide pen goes to drawLine")
        << QLine(40, 5, 40, 80) << grid << 3 << Qt::SquareCap << false << none;
    QTest::newRow("antialiased goes to drawLine")
        << QLine(40, 5, 40, 80) << grid << 1 << Qt::SquareCap << true << none;
}

void TestPaintShortcuts::straightLinesAsDrawLine()
{
    QFETCH(QLine, line);
    QFETCH(QColor, colour);
    QFETCH(int, width);
    QFETCH(Qt::PenCapStyle, cap);
    QFETCH(bool, antialiased);
    QFETCH(QPoint, translation);

    QImage expected = canvas();
    QImage actual = canvas();
    for (QImage *image : {&expected, &actual}) {
        QPainter painter(image);
        painter.translate(translation);
        QPen pen(colour);
        pen.setWidth(width);
        pen.setCapStyle(cap);
        painter.setPen(pen);
        painter.setRenderHint(QPainter::Antialiasing, antialiased);
        // Twice, so overlapping translucent pixels blend the same way too.
        for (int k = 0; k < 2; ++k) {
            if (image == &expected)
                painter.drawLine(line);
            else
                drawStraightLine(&painter, line.x1(), line.y1(), line.x2(), line.y2());
        }
    }
    QVERIFY(expected == actual);
    QVERIFY(expected != canvas()); // the line is there
}

QTEST_MAIN(TestPaintShortcuts)
#include "tst_paintshortcuts.moc"
