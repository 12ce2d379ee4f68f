// The picture of a small known session, checked pixel by pixel at known plane
// positions (heat colour, area colour, a trail, the module), and the same
// session as SVG.

#include "render/pictureareas.h"
#include "render/sessionpicture.h"
#include "tests/session/sessionlog.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace sessionlog;

namespace
{

// c drawn with its alpha over white.
QColor overWhite(const QColor &c)
{
    const double a = c.alphaF();
    return QColor(int(std::lround(c.red() * a + 255 * (1 - a))),
                  int(std::lround(c.green() * a + 255 * (1 - a))),
                  int(std::lround(c.blue() * a + 255 * (1 - a))));
}

bool near(const QColor &a, const QColor &b, int tolerance = 3)
{
    return qAbs(a.red() - b.red()) <= tolerance && qAbs(a.green() - b.green()) <= tolerance &&
           qAbs(a.blue() - b.blue()) <= tolerance;
}

QString describe(const QColor &got, const QColor &want)
{
    return QString("got %1, want %2").arg(got.name(), want.name());
}

} // namespace

class TestSessionPicture : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void pixelsAtKnownPlaces();
    void svgHoldsTheSameParts();
    void fittedRangeHoldsFarPoints();
    void areaFile_data();
    void areaFile();

private:
    QTemporaryDir dir;
    SessionFigures figures;
    HeatMap heat;
    TrailStore trails;
};

void TestSessionPicture::initTestCase()
{
    // Area 1 (detection) from (-3, 6) to (-1, 3), area 2 (exclusion) from
    // (1, 7) to (3, 5). A person stands at (1.5, 2.5) for 10 s; another walks
    // along y = 1.5 from x = -4.5 to 0.5 in 0.5 m steps in the last second. Area 1 is reported
    // occupied in a quarter of the area reports.
    const Area areas[3] = {{0, {-3, 6}, {-1, 3}}, {1, {1, 7}, {3, 5}}, {2, {}, {}}};
    QByteArray log = recvLine(baseMs() - 500, readAreaFrame(areas));
    for (int i = 0; i < 100; ++i) {
        QVector<QPointF> people{{1.5, 2.5}};
        if (i >= 89)
            people.append({-4.5 + 0.5 * (i - 89), 1.5});
        log += recvLine(baseMs() + 100 * i, targetFrame(people) + flagsFrame(i % 4 == 0 ? 1 : 0));
    }
    const QString path = dir.filePath("known.log");
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(log);
    f.close();
    SessionScan scan(SessionFilter(), &heat, &trails);
    QVERIFY(scan.addFile(path, nullptr));
    scan.finish();
    figures = scan.figures();
    QCOMPARE(figures.occupiedShare(0), 0.25);
}

void TestSessionPicture::pixelsAtKnownPlaces()
{
    QVector<PictureArea> areas = loggedPictureAreas(figures);
    QCOMPARE(areas.size(), 2);
    setOccupiedShares(&areas, figures);
    PictureOptions options;
    options.size = QSize(800, 600);
    const SessionPicture picture(figures, heat, trails, areas, options);
    QCOMPARE(picture.minX(), -5.0);
    QCOMPARE(picture.maxX(), 5.0);
    QCOMPARE(picture.minY(), 0.0);
    QCOMPARE(picture.maxY(), 8.0);
    const QString path = dir.filePath("known.png");
    QString error;
    QVERIFY2(savePicture(picture, path, false, &error), qPrintable(error));
    QImage img(path);
    QCOMPARE(img.size(), QSize(800, 600));

    auto at = [&](double x, double y) { return img.pixelColor(picture.toPixel(x, y).toPoint()); };
    // 0.03 m below the centre of a cell (cells are 5.7 pixels here, so about
    // 1.7 pixels), clear of the trail drawn through the centre.
    auto inCell = [&](double x, double y) {
        const QPointF p = picture.toPixel(x, y - 0.03);
        return img.pixelColor(int(p.x()), int(p.y()));
    };

    // Where the person stood: the hottest colour of the scale.
    const QColor hot = overWhite(picture.heatColour(heat.seconds(15, 25)));
    QCOMPARE(heat.seconds(15, 25), 10.0);
    QVERIFY2(near(inCell(1.5, 2.5), hot), qPrintable(describe(inCell(1.5, 2.5), hot)));
    QVERIFY(near(hot, overWhite(SessionPicture::heatRamp(1.0)), 1));
    // A cell the walker crossed once: the cool end of the scale.
    const QColor cool = overWhite(picture.heatColour(0.1));
    QVERIFY2(near(inCell(-3.5, 1.5), cool), qPrintable(describe(inCell(-3.5, 1.5), cool)));
    QVERIFY(cool.red() > 250 && cool.blue() < hot.blue() + 200);
    // Inside area 1, away from its label, the grid and the people.
    const QColor detect = overWhite(SessionPicture::areaFill(0));
    QVERIFY2(near(at(-2.5, 3.5), detect), qPrintable(describe(at(-2.5, 3.5), detect)));
    const QColor exclude = overWhite(SessionPicture::areaFill(1));
    QVERIFY2(near(at(2.5, 5.25), exclude), qPrintable(describe(at(2.5, 5.25), exclude)));
    // Between two reports of the walker: only the trail, green.
    const QPoint mid = picture.toPixel(-4.25, 1.5).toPoint();
    bool trail = false;
    for (int dy = -1; dy <= 1 && !trail; ++dy) {
        const QColor c = img.pixelColor(mid + QPoint(0, dy));
        trail = c.green() > c.red() + 40 && c.green() > c.blue() + 20 && c.red() < 160;
    }
    QVERIFY2(trail, qPrintable(img.pixelColor(mid).name()));
    // Nobody at (4.5, 7.5): white. The module at the origin: dark.
    QCOMPARE(at(4.5, 7.5), QColor(Qt::white));
    const QColor module = at(0, 0.05);
    QVERIFY2(module.lightness() < 60, qPrintable(module.name()));
}

void TestSessionPicture::svgHoldsTheSameParts()
{
    QVector<PictureArea> areas = loggedPictureAreas(figures);
    setOccupiedShares(&areas, figures);
    const SessionPicture picture(figures, heat, trails, areas, PictureOptions());
    const QString path = dir.filePath("known.svg");
    QString error;
    QVERIFY2(savePicture(picture, path, true, &error), qPrintable(error));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray svg = f.readAll();
    QVERIFY(svg.startsWith("<?xml"));
    QVERIFY(
        svg.contains("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"1200\" height=\"900\""));
    QVERIFY(svg.contains("data:image/png;base64,"));
    QVERIFY(svg.contains(">Detection 1</text>"));
    QVERIFY(svg.contains(">Exclusion 2</text>"));
    QVERIFY(svg.contains(">occupied 25.0 %</text>"));
    QVERIFY(svg.contains(">occupied 0.0 %</text>"));
    QVERIFY(svg.contains("at most 2 people at once"));
    QVERIFY(svg.contains("100 reports"));
    QVERIFY(svg.contains("fill=\"#00008a\" fill-opacity=\"0.392\""));
    QVERIFY(svg.contains("<path fill=\"none\" stroke=\"#007832\""));
    QVERIFY(svg.trimmed().endsWith("</svg>"));
}

void TestSessionPicture::fittedRangeHoldsFarPoints()
{
    HeatMap far;
    far.add(-95, 115, 1.0); // (-9.5, 11.5)
    TrailStore none;
    SessionFigures nothing;
    const SessionPicture fitted(nothing, far, none, {}, PictureOptions());
    QCOMPARE(fitted.minX(), -10.0);
    QCOMPARE(fitted.maxX(), 5.0);
    QCOMPARE(fitted.maxY(), 12.0);
    PictureOptions given;
    given.rangeGiven = true;
    given.minX = -2;
    given.maxX = 2;
    given.minY = 1;
    given.maxY = 4;
    const SessionPicture fixed(nothing, far, none, {}, given);
    QCOMPARE(fixed.minX(), -2.0);
    QCOMPARE(fixed.maxY(), 4.0);
    // Equal metres on both axes.
    const QPointF a = fixed.toPixel(0, 1), b = fixed.toPixel(1, 2);
    QCOMPARE(b.x() - a.x(), a.y() - b.y());
}

void TestSessionPicture::areaFile_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("areas");
    QTest::addColumn<QString>("error");
    QTest::newRow("two areas")
        << QByteArray("{\"format\":\"orv-areas\",\"version\":1,\"areas\":["
                      "{\"number\":1,\"type\":\"detect\",\"from\":[-1.5,3],\"to\":[1.5,1]},"
                      "{\"number\":2,\"type\":\"unset\"},"
                      "{\"number\":3,\"type\":\"exclude\",\"from\":[2,6],\"to\":[4,5]}]}")
        << 2 << QString();
    QTest::newRow("not json") << QByteArray("{\n  \"areas\": [,]\n}") << 0
                              << QString("site.json:2:");
    // The file's own checks are the area file's tests; here only that the
    // picture refuses what the reader refuses.
    QTest::newRow("out of range")
        << QByteArray("{\"format\":\"orv-areas\",\"version\":1,\"areas\":["
                      "{\"number\":1,\"type\":\"detect\",\"from\":[-9,1],\"to\":[1,0]}]}")
        << 0 << QString("-8");
}

void TestSessionPicture::areaFile()
{
    QFETCH(QByteArray, json);
    QFETCH(int, areas);
    QFETCH(QString, error);
    const QString path = dir.filePath("site.json");
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(json);
    f.close();
    QVector<PictureArea> read;
    QString why;
    QCOMPARE(readPictureAreas(path, &read, &why), error.isEmpty());
    QCOMPARE(read.size(), areas);
    if (!error.isEmpty()) {
        QVERIFY2(why.contains(error), qPrintable(why));
        QVERIFY(why.contains(path));
    } else {
        QCOMPARE(read[0].rect, QRectF(QPointF(-1.5, 3), QPointF(1.5, 1)));
        QCOMPARE(read[1].number, 3);
        QCOMPARE(read[1].type, 1);
    }
}

QTEST_MAIN(TestSessionPicture)
#include "tst_sessionpicture.moc"
