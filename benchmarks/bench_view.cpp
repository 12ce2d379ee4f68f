// Plot view benchmarks: a full paint with 128 targets and three areas, the
// target update (which must not allocate), and one axis recomputation.
//
// Heap allocations are counted by wrapping malloc/calloc/realloc (glibc's
// __libc_* entry points), which sees both operator new and Qt's own
// container allocations; counting is switched on only around the measured
// call, on the measuring thread.
#include "view/xyaxis.h"
#include "view/xyview.h"

#include <QApplication>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *ptr, size_t size);
void __libc_free(void *ptr);
}

namespace
{
thread_local bool t_counting = false;
thread_local std::uint64_t t_allocations = 0;
} // namespace

extern "C" {
void *malloc(size_t size)
{
    if (t_counting)
        ++t_allocations;
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    if (t_counting)
        ++t_allocations;
    return __libc_calloc(count, size);
}

void *realloc(void *ptr, size_t size)
{
    if (t_counting)
        ++t_allocations;
    return __libc_realloc(ptr, size);
}

void free(void *ptr)
{
    __libc_free(ptr);
}
}

namespace
{

void discardMessages(QtMsgType, const QMessageLogContext &, const QString &) {}

QList<QPointF> makeTargets(int count)
{
    // Spread over the default plane (x -5..5, y 0..8), deterministic.
    QList<QPointF> list;
    std::uint32_t seed = 12345;
    auto next = [&seed]() {
        seed = seed * 1664525u + 1013904223u;
        return (seed >> 8) / double(1u << 24);
    };
    for (int i = 0; i < count; ++i)
        list.append(QPointF(-5.0 + 10.0 * next(), 8.0 * next()));
    return list;
}

AreaRecord makeArea(int index, int type, QPointF topLeft, QPointF bottomRight)
{
    AreaRecord r;
    r.index = index;
    r.type = type;
    r.rect = QRectF(topLeft, bottomRight);
    r.status = 1;
    return r;
}

void setUpPlot(XYView &view)
{
    view.resize(1267, 863);
    view.show();
    QApplication::processEvents();
    view.setAreaInfo(0, makeArea(0, 0, QPointF(-4, 7), QPointF(-1.5, 4.5)));
    view.setAreaInfo(1, makeArea(1, 1, QPointF(0.5, 7.5), QPointF(4.5, 5.2)));
    view.setAreaInfo(2, makeArea(2, 0, QPointF(-2.3, 3.1), QPointF(2.7, 0.4)));
    view.setAreaOccupancy(0x05);
    view.setTargets(makeTargets(XYView::kMaxTargets));
    // Crosshair in the middle of the plot.
    const QPoint mouse = view.plotRectangle().center();
    QMouseEvent move(QEvent::MouseMove, QPointF(mouse), QPointF(view.mapToGlobal(mouse)),
                     Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(&view, &move);
    QApplication::processEvents();
}

void BM_PaintFullPlot(benchmark::State &state)
{
    XYView view(nullptr);
    setUpPlot(view);
    QImage image(view.size(), QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state) {
        QPainter painter(&image);
        view.render(&painter);
        painter.end();
        benchmark::DoNotOptimize(image.constBits());
    }
    state.counters["targets"] = view.targetCountShown();
    state.counters["width"] = view.width();
    state.counters["height"] = view.height();
}
// On a shared machine the minimum over repetitions is the steadiest figure.
double minimumOf(const std::vector<double> &values)
{
    return values.empty() ? 0.0 : *std::min_element(values.begin(), values.end());
}

BENCHMARK(BM_PaintFullPlot)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", minimumOf);

// state.range(0): 0 = hidden view, 1 = shown view (update() schedules a repaint).
void BM_SetTargets128(benchmark::State &state)
{
    XYView view(nullptr);
    view.resize(1267, 863);
    if (state.range(0) != 0) {
        view.show();
        QApplication::processEvents();
    }
    // Built by the caller, outside the measurement.
    const QList<QPointF> list = makeTargets(XYView::kMaxTargets);
    view.setTargets(list);
    std::uint64_t allocations = 0;
    for (auto _ : state) {
        t_allocations = 0;
        t_counting = true;
        view.setTargets(list);
        t_counting = false;
        allocations += t_allocations;
    }
    QApplication::processEvents();
    state.counters["allocs_per_call"] =
        benchmark::Counter(double(allocations) / double(state.iterations()));
    state.counters["targets"] = view.targetCountShown();
    if (view.targetCountShown() != XYView::kMaxTargets)
        state.SkipWithError("target count wrong");
}
BENCHMARK(BM_SetTargets128)->Arg(0)->Arg(1);

// Control for the counter: a call that does allocate must be seen.
void BM_CounterControl(benchmark::State &state)
{
    const QList<QPointF> list = makeTargets(XYView::kMaxTargets);
    std::uint64_t allocations = 0;
    for (auto _ : state) {
        t_allocations = 0;
        t_counting = true;
        QList<QPointF> copy = list;
        copy.detach();
        benchmark::DoNotOptimize(copy.constBegin());
        t_counting = false;
        allocations += t_allocations;
    }
    state.counters["allocs_per_call"] =
        benchmark::Counter(double(allocations) / double(state.iterations()));
}
BENCHMARK(BM_CounterControl);

void BM_AxisRecompute(benchmark::State &state)
{
    XYAxis axis(nullptr);
    axis.configure(XYAxis::Bottom, -5.0, 5.0, 1.0, -5.0, 5.0);
    axis.setAxisRect(QRect(60, 802, 1187, 51));
    for (auto _ : state) {
        axis.updateAxis();
        benchmark::DoNotOptimize(axis.tickPositionList().constData());
    }
    state.counters["ticks"] = axis.tickPositionList().size();
}
BENCHMARK(BM_AxisRecompute)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // The paint writes "TargetPos" for every target.
    qInstallMessageHandler(discardMessages);
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
