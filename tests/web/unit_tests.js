// Unit tests of the page's modules, run in the browser. Results go to
// window.unitResults ({done, passed, failures}) for the Selenium runner.

import { Api, ApiError, EventStream } from '../../web/js/api.js';
import { diffAreaFiles, downloadName, entryText, readAreaFile, truncations } from '../../web/js/areafile.js';
import { AreaEditor, hitTest, handlePoint } from '../../web/js/editor.js';
import { Plane, RANGE, rectOfArea, snap, ticks, tickStep, wireMetres } from '../../web/js/geometry.js';
import { I18n, STRINGS, pickLanguage } from '../../web/js/i18n.js';
import { COLOURS, drawPlane, targetLabel } from '../../web/js/render.js';
import { FrameScheduler } from '../../web/js/scheduler.js';
import { Trails } from '../../web/js/trails.js';
import { WalkRecorder, keptPoints, proposeRect } from '../../web/js/walk.js';

const tests = [];
const test = (name, fn) => tests.push({ name, fn });

class Failure extends Error {}
function check(condition, what) {
    if (!condition)
        throw new Failure(what);
}
function equal(actual, expected, what = '') {
    const a = JSON.stringify(actual);
    const e = JSON.stringify(expected);
    if (a !== e)
        throw new Failure(`${what} expected ${e}, got ${a}`);
}
function near(actual, expected, tolerance, what = '') {
    if (!(Math.abs(actual - expected) <= tolerance))
        throw new Failure(`${what} expected ${expected} ± ${tolerance}, got ${actual}`);
}

// A plane 16 m x 8 m at 20 pixels a metre: plot from (30, 10) to (350, 170).
function testPlane() {
    const plane = new Plane();
    plane.layout(360, 194);
    return plane;
}

// Geometry -------------------------------------------------------------------

test('plane: equal scale, module at the bottom centre, round trip', () => {
    const plane = testPlane();
    equal(plane.scale, 20, 'scale');
    const m = plane.toPixel(0, 0);
    near(m.x, plane.plot.left + plane.plot.width / 2, 1e-9, 'module x');
    near(m.y, plane.plot.top + plane.plot.height, 1e-9, 'module y');
    const corner = plane.toPixel(-8, 8);
    equal([corner.x, corner.y], [plane.plot.left, plane.plot.top], 'upper left');
    for (const [x, y] of [[1.5, 3], [-7.9, 0.1], [8, 8]]) {
        const p = plane.toPixel(x, y);
        const back = plane.toMetres(p.x, p.y);
        near(back.x, x, 1e-9, 'x');
        near(back.y, y, 1e-9, 'y');
    }
    const wide = new Plane();
    wide.layout(1000, 200);
    near(wide.plot.width / wide.plot.height, 2, 1e-9, '2:1 on a wide canvas');
    equal(Plane.heightFor(360), 194, 'height for a 360-pixel width');
});

test('geometry: decimetres as the module keeps them', () => {
    equal(snap(1.26), 1.3);
    equal(snap(-0.04), 0);
    equal(wireMetres(1.55), 1.5);
    equal(wireMetres(-1.55), -1.5, 'toward zero');
    equal(wireMetres(0.29), 0.2);
    // Every value a drag gives is kept as it is.
    for (let d = -80; d <= 80; ++d)
        equal(wireMetres(snap(d / 10 + 0.04)), d / 10, `drag value ${d / 10}`);
});

test('geometry: rectangles and ticks', () => {
    equal(rectOfArea({ from: [1.5, 1], to: [-1.5, 3] }), { left: -1.5, right: 1.5, top: 3, bottom: 1 });
    equal(rectOfArea({ type: 'unset' }), null);
    equal(tickStep(20), 2);
    equal(tickStep(50), 1);
    equal(ticks(-8, 8, 4), [-8, -4, 0, 4, 8]);
    equal(ticks(0, 8, 2), [0, 2, 4, 6, 8]);
});

// Editor ---------------------------------------------------------------------

function px(plane, x, y) {
    return plane.toPixel(x, y);
}

test('editor: drag out a new area, snapped to decimetres', () => {
    const plane = testPlane();
    const e = new AreaEditor(plane);
    e.load(2, { number: 2, type: 'unset' });
    check(!e.dirty && e.rect === null, 'starts empty');
    const a = px(plane, 2.03, 1.02);
    const b = px(plane, -1.04, 3.47);
    equal(e.pointerDown(a.x, a.y), 'new');
    e.pointerMove((a.x + b.x) / 2, (a.y + b.y) / 2);
    e.pointerUp(b.x, b.y);
    equal(e.rect, { left: -1, right: 2, top: 3.5, bottom: 1 });
    equal(e.type, 'detect', 'a new area on an unset one is a detection area');
    check(e.dirty, 'dirty');
    equal(e.request(), { type: 'detect', from: [-1, 3.5], to: [2, 1] });
});

test('editor: a tap keeps the earlier area', () => {
    const plane = testPlane();
    const e = new AreaEditor(plane);
    e.load(1, { number: 1, type: 'exclude', from: [-1, 3], to: [1, 1] });
    const p = px(plane, 5, 6);
    e.pointerDown(p.x, p.y);
    e.pointerUp(p.x, p.y);
    equal(e.rect, { left: -1, right: 1, top: 3, bottom: 1 });
    equal(e.type, 'exclude');
});

test('editor: move keeps the size and stays inside the plane', () => {
    const plane = testPlane();
    const e = new AreaEditor(plane);
    e.load(1, { number: 1, type: 'detect', from: [-1, 3], to: [1, 1] });
    const inside = px(plane, 0, 2);
    equal(e.pointerDown(inside.x, inside.y), 'move');
    const to = px(plane, 2.5, 4);
    e.pointerUp(to.x, to.y);
    equal(e.rect, { left: 1.5, right: 3.5, top: 5, bottom: 3 });
    // Far beyond the corner: held at the plane's edge, size kept.
    const from = px(plane, 2.5, 4);
    e.pointerDown(from.x, from.y);
    e.pointerUp(plane.width + 500, plane.height + 500);
    equal(e.rect, { left: 6, right: 8, top: 2, bottom: 0 });
});

test('editor: each of the eight handles moves its sides only', () => {
    const plane = testPlane();
    const start = { number: 1, type: 'detect', from: [-2, 4], to: [2, 2] };
    const expected = {
        nw: { left: -3, right: 2, top: 5, bottom: 2 },
        n: { left: -2, right: 2, top: 5, bottom: 2 },
        ne: { left: -2, right: 3, top: 5, bottom: 2 },
        e: { left: -2, right: 3, top: 4, bottom: 2 },
        se: { left: -2, right: 3, top: 4, bottom: 1 },
        s: { left: -2, right: 2, top: 4, bottom: 1 },
        sw: { left: -3, right: 2, top: 4, bottom: 1 },
        w: { left: -3, right: 2, top: 4, bottom: 2 },
    };
    for (const [handle, rect] of Object.entries(expected)) {
        const e = new AreaEditor(plane);
        e.load(1, start);
        const h = handlePoint(plane, e.rect, handle);
        equal(hitTest(plane, e.rect, h.x + 2, h.y - 2), handle, `hit ${handle}`);
        equal(e.pointerDown(h.x, h.y), handle, `grab ${handle}`);
        // One metre outward on the sides the handle names.
        const dx = handle.includes('w') ? -20 : handle.includes('e') ? 20 : 0;
        const dy = handle.includes('n') ? -20 : handle.includes('s') ? 20 : 0;
        e.pointerUp(h.x + dx + (dx ? 0 : 7), h.y + dy + (dy ? 0 : 7));
        equal(e.rect, rect, `resize ${handle}`);
    }
});

test('editor: a finger grabs a small area itself, its handles from nearby', () => {
    const plane = testPlane();
    // 1 m x 0.5 m: 20 x 10 pixels, every handle within a finger's reach.
    const rect = { left: 0, right: 1, top: 2, bottom: 1.5 };
    const centre = plane.toPixel(0.5, 1.75);
    equal(hitTest(plane, rect, centre.x, centre.y, 24), 'move');
    const se = handlePoint(plane, rect, 'se');
    equal(hitTest(plane, rect, se.x - 1, se.y - 1, 24), 'se');
    equal(hitTest(plane, rect, se.x + 15, se.y + 15, 24), 'se', 'outside, the full reach');
    equal(hitTest(plane, rect, se.x + 30, se.y + 30, 24), null);
});

test('editor: a plane showing less of the range still edits within the module\'s limits', () => {
    const plane = new Plane({ ...RANGE, xMin: -4, xMax: 4 });
    plane.layout(360, 194);
    equal(plane.scale, 20, 'scale'); // 8 m wide: the height limits it
    const e = new AreaEditor(plane);
    e.load(1, null);
    equal(e.setCorners(6, 2, 7.5, 1), { ok: true }, 'beyond the shown range, within the module\'s');
    equal(e.setCorners(9, 2, 7.5, 1).reason, 'range');
    const a = plane.toPixel(3, 2);
    e.pointerDown(a.x, a.y);
    e.pointerUp(plane.width + 200, a.y + 20); // dragged off the canvas to the right
    check(e.rect.right > 4 && e.rect.right <= 8, `right edge ${e.rect.right}`);
});

test('editor: resizing past the opposite side turns the rectangle over', () => {
    const plane = testPlane();
    const e = new AreaEditor(plane);
    e.load(1, { number: 1, type: 'detect', from: [-2, 4], to: [2, 2] });
    const h = handlePoint(plane, e.rect, 'e');
    e.pointerDown(h.x, h.y);
    const to = px(plane, -3, 3);
    e.pointerUp(to.x, to.y);
    equal(e.rect, { left: -3, right: -2, top: 4, bottom: 2 });
});

test('editor: typed corners are checked against the plane', () => {
    const plane = testPlane();
    const e = new AreaEditor(plane);
    e.load(3, null);
    equal(e.setCorners(1.55, 2, -1, 0.5), { ok: true });
    equal(e.rect, { left: -1, right: 1.55, top: 2, bottom: 0.5 });
    equal(e.setCorners(9, 2, -1, 0.5).reason, 'range');
    equal(e.setCorners(1, -0.1, -1, 0.5).field, 'y');
    equal(e.setCorners(1, 2, 1, 0.5).reason, 'empty');
    equal(e.setCorners(NaN, 2, 1, 0.5).reason, 'number');
    equal(e.rect, { left: -1, right: 1.55, top: 2, bottom: 0.5 }, 'a refused value changes nothing');
    e.setType('unset');
    equal(e.request(), { type: 'unset' });
});

// Walk an area ---------------------------------------------------------------

// Points every 0.2 m along the edges of a rectangle, with a little jitter.
function perimeter(left, top, right, bottom) {
    const out = [];
    let seed = 7;
    const jitter = () => {
        seed = (seed * 16807) % 2147483647;
        return (seed / 2147483647 - 0.5) * 0.1;
    };
    for (let x = left; x <= right + 1e-9; x += 0.2)
        out.push({ x: x + jitter(), y: top + jitter() }, { x: x + jitter(), y: bottom + jitter() });
    for (let y = bottom; y <= top + 1e-9; y += 0.2)
        out.push({ x: left + jitter(), y: y + jitter() }, { x: right + jitter(), y: y + jitter() });
    return out;
}

test('walk: the rectangle holding the path, strays left out', () => {
    const path = perimeter(-2, 5, 1.5, 2);
    const clean = proposeRect(path);
    check(clean, 'a proposal');
    near(clean.left, -2, 0.15, 'left');
    near(clean.right, 1.5, 0.15, 'right');
    near(clean.top, 5, 0.15, 'top');
    near(clean.bottom, 2, 0.15, 'bottom');
    const strays = [{ x: 7.5, y: 7.8 }, { x: -6, y: 0.4 }, { x: 0, y: 7.9 }, { x: 1.6, y: 6.6 }];
    const withStrays = proposeRect([...path.slice(0, 20), ...strays, ...path.slice(20)]);
    equal(withStrays, clean, 'strays change nothing');
    equal(keptPoints(strays.concat(path)).length, path.length, 'every stray dropped, nothing else');
    // On the decimetre grid and outward.
    for (const v of Object.values(clean))
        near(v * 10, Math.round(v * 10), 1e-9, 'decimetre grid');
    check(clean.left <= Math.min(...path.map((p) => p.x)), 'holds the path');
});

test('walk: too few points give no proposal; the plane bounds it', () => {
    equal(proposeRect([{ x: 0, y: 1 }, { x: 0.1, y: 1 }]), null);
    equal(proposeRect([]), null);
    const edge = perimeter(6, 8, 8, 7);
    const r = proposeRect(edge.map((p) => ({ x: p.x + 0.3, y: p.y + 0.3 })), {}, RANGE);
    check(r.right <= 8 && r.top <= 8, `inside the plane: ${JSON.stringify(r)}`);
});

test('walk: the recorder follows one person', () => {
    const w = new WalkRecorder();
    check(!w.add([[0, 1]]), 'nothing before start');
    w.start();
    const bystander = [5, 5];
    for (let i = 0; i < 10; ++i)
        w.add(i === 0 ? [[0, 1], bystander] : [bystander, [i * 0.2, 1]]);
    equal(w.points.length, 10);
    check(w.points.every((p) => p.y === 1), 'never the bystander');
    check(!w.add([bystander]), 'a jump to someone else is not taken');
    w.stop();
    check(!w.walking, 'stopped');
});

// Trails ---------------------------------------------------------------------

test('trails: fade by age, pruned after their length, broken on a jump', () => {
    const t = new Trails(2, 2);
    t.add([[0, 1], [3, 3]], 0);
    t.add([[0.2, 1], [3, 3.1]], 1000);
    t.add([[0.4, 1], [-3, 3.1]], 1500); // the second target jumps 6 m
    let pieces = t.pieces(2000);
    equal(pieces.length, 3, 'pieces');
    equal(pieces[0].points.map((p) => p.age), [1, 0.5, 0.25]);
    t.add([[0.6, 1]], 2600);
    pieces = t.pieces(2600);
    equal(pieces[0].points.map((p) => p.x), [0.2, 0.4, 0.6], 'older than 2 s gone');
    t.setSeconds(0.5);
    t.prune(2600);
    equal(t.pieces(2600).map((p) => p.points.length), [1], 'shorter trails');
});

// Scheduler ------------------------------------------------------------------

test('scheduler: one draw per frame whatever the number of reports', () => {
    const frames = [];
    let draws = 0;
    const s = new FrameScheduler(() => ++draws, (fn) => frames.push(fn));
    for (let i = 0; i < 1600; ++i)
        s.invalidate();
    equal(frames.length, 1, 'one frame asked for');
    frames.shift()(0);
    equal(draws, 1);
    s.invalidate();
    s.invalidate();
    equal(frames.length, 1);
    frames.shift()(16);
    equal(draws, 2);
    equal(s.draws, 2);
});

test('scheduler: with the browser\'s animation frames', async () => {
    let draws = 0;
    const s = new FrameScheduler(() => ++draws);
    let frames = 0;
    const deadline = performance.now() + 500;
    // Reports at far more than the frame rate: 16 people x 100/s for 0.5 s.
    await new Promise((resolve) => {
        const countFrame = () => {
            ++frames;
            if (performance.now() < deadline)
                requestAnimationFrame(countFrame);
            else
                resolve();
        };
        requestAnimationFrame(countFrame);
        const feed = () => {
            for (let i = 0; i < 16; ++i)
                s.invalidate();
            if (performance.now() < deadline)
                setTimeout(feed, 1);
        };
        feed();
    });
    check(draws > 0, 'drew');
    check(draws <= frames + 1, `draws ${draws} within frames ${frames}`);
});

// Text -----------------------------------------------------------------------

test('i18n: language from the browser, every word in both languages', () => {
    equal(pickLanguage(['zh-CN', 'en']), 'zh');
    equal(pickLanguage(['fr-FR', 'en-GB', 'zh']), 'en');
    equal(pickLanguage(['de']), 'en');
    equal(pickLanguage([]), 'en');
    equal(Object.keys(STRINGS.zh).sort(), Object.keys(STRINGS.en).sort(), 'same keys');
    const i = new I18n('zh');
    equal(i.t('detect'), '检测区域');
    equal(i.t('walkHint', 12).includes('12'), true);
    i.setLanguage('en');
    equal(i.t('badRange', 'X', -8, 8), 'X must be between -8 and 8 m.');
    i.setLanguage('xx');
    equal(i.language, 'en', 'unknown language ignored');
});

test('i18n: every word the page names exists in both languages and is filled in', async () => {
    const html = await (await fetch('../../web/index.html')).text();
    const doc = new DOMParser().parseFromString(html, 'text/html');
    const keys = new Set();
    for (const el of doc.querySelectorAll('[data-i18n]'))
        keys.add(el.dataset.i18n);
    for (const el of doc.querySelectorAll('[data-i18n-label]'))
        keys.add(el.dataset.i18nLabel);
    check(keys.size > 20, `only ${keys.size} words found`);
    for (const key of keys)
        check(STRINGS.en[key] && STRINGS.zh[key], `"${key}" missing`);
    const i = new I18n('zh');
    i.apply(doc);
    equal(doc.querySelector('#apply').textContent, '应用');
    equal(doc.querySelector('#module').getAttribute('aria-label'), '模块');
    equal(doc.documentElement.lang, 'zh-CN');
});

test('area file: reading, changes, names, truncation', () => {
    const current = {
        format: 'orv-areas', version: 1, display: 'area',
        areas: [{ number: 1, type: 'detect', from: [-1.5, 3], to: [1.5, 1] }, { number: 2, type: 'unset' },
                { number: 3, type: 'exclude', from: [2, 7], to: [4, 5] }],
    };
    const incoming = {
        format: 'orv-areas', version: 1, display: 'track',
        areas: [{ number: 1, type: 'detect', from: [-1.5, 3], to: [1.5, 1] },
                { number: 2, type: 'exclude', from: [0, 2], to: [1, 1] }],
    };
    equal(diffAreaFiles(current, incoming), [
        { what: 'display', from: 'area', to: 'track' },
        { what: 2, from: 'unset', to: 'exclude (0, 2) to (1, 1)' },
    ]);
    equal(diffAreaFiles(current, current), []);
    check(readAreaFile('{').error.startsWith('not valid JSON'), 'syntax');
    check(readAreaFile('{"format":"x","version":1,"areas":[]}').error.includes('format'), 'format');
    check(readAreaFile('{"format":"orv-areas","version":2,"areas":[]}').error.includes('version 2'), 'version');
    equal(readAreaFile(JSON.stringify(incoming)).file, incoming);
    equal(downloadName('pts-3', new Date(Date.UTC(2026, 10, 5, 23, 59))), 'orv-pts-3-2026-11-05.json');
    equal(entryText({ type: 'unset' }), 'unset');
    equal(entryText({ type: 'exclude', from: [0, 2], to: [1, 1] }, { exclude: '屏蔽区域', to: '–' }),
          '屏蔽区域 (0, 2) – (1, 1)');
    const asked = { type: 'detect', from: [-1, 1.55], to: [2.3, 0.5] };
    const held = { type: 'detect', from: [-1, 1.5], to: [2.3, 0.5] };
    equal(truncations(asked, held), [{ name: 'y1', asked: 1.55, held: 1.5 }]);
});

// API and stream ---------------------------------------------------------------

function fakeResponse(status, body, headers = {}) {
    return {
        ok: status >= 200 && status < 300,
        status,
        text: async () => (body === undefined ? '' : JSON.stringify(body)),
        headers: { get: (name) => headers[name] ?? null },
    };
}

test('api: requests, If-Match, read-back and errors', async () => {
    const calls = [];
    const answers = [
        fakeResponse(200, { format: 'orv-areas' }, { ETag: '"b"' }),
        fakeResponse(412, { error: 'the areas changed (ETag "c")' }),
        fakeResponse(200, [{ id: 'a' }, { id: 'b' }]),
    ];
    const api = new Api('', async (url, init) => {
        calls.push({ url, init });
        return answers.shift();
    });
    const r = await api.putArea('pts/3', 2, { type: 'unset' }, '"a"');
    equal(calls[0].url, '/api/modules/pts%2F3/areas/2');
    equal(calls[0].init.method, 'PUT');
    equal(calls[0].init.headers['If-Match'], '"a"');
    equal(JSON.parse(calls[0].init.body), { type: 'unset' });
    equal(r.etag, '"b"');
    let error = null;
    try {
        await api.cancelAll('x', '"a"');
    } catch (e) {
        error = e;
    }
    check(error instanceof ApiError, 'rejects');
    equal([error.status, error.message], [412, 'the areas changed (ETag "c")']);
    equal(calls[1].init.method, 'DELETE');
    equal((await api.modules()).map((m) => m.id), ['a', 'b']);
    equal(api.downloadUrl('m1'), '/api/modules/m1/areas?download=1');
});

class FakeSource {
    constructor(url) {
        this.url = url;
        this.listeners = {};
        this.closed = false;
        FakeSource.made.push(this);
    }
    addEventListener(name, fn) {
        this.listeners[name] = fn;
    }
    close() {
        this.closed = true;
    }
    emit(name, data) {
        this.listeners[name]({ data: JSON.stringify(data) });
    }
}

test('stream: events, and reconnecting with a growing delay', () => {
    FakeSource.made = [];
    const timers = [];
    const states = [];
    const got = [];
    const s = new EventStream('/api/modules/a/events', {
        status: (d) => got.push(['status', d.state]),
        targets: (d) => got.push(['targets', d.targets.length]),
    }, {
        EventSource: FakeSource,
        setTimeout: (fn, ms) => timers.push({ fn, ms }) && timers.length,
        clearTimeout: () => {},
        onState: (st, detail) => states.push(detail ? `${st} ${detail}` : st),
        minDelay: 500,
        maxDelay: 4000,
    });
    s.start();
    const first = FakeSource.made[0];
    first.onopen();
    first.emit('status', { state: 'open' });
    first.emit('targets', { targets: [[1, 2], [3, 4]] });
    equal(got, [['status', 'open'], ['targets', 2]]);
    // Drops: delays 500, 1000, 2000, 4000, 4000; an open resets to 500.
    const delays = [];
    for (let i = 0; i < 5; ++i) {
        FakeSource.made[FakeSource.made.length - 1].onerror();
        check(FakeSource.made[FakeSource.made.length - 1].closed, 'old source closed');
        const t = timers.shift();
        delays.push(t.ms);
        t.fn();
    }
    equal(delays, [500, 1000, 2000, 4000, 4000]);
    FakeSource.made[FakeSource.made.length - 1].onopen();
    FakeSource.made[FakeSource.made.length - 1].onerror();
    equal(timers.shift().ms, 500, 'reset after an open');
    check(states.includes('reconnecting 500') && states.includes('open'), states.join(','));
    // A late event from a closed source is ignored.
    first.emit('status', { state: 'lost' });
    equal(got.length, 2);
    s.stop();
    equal(s.state, 'closed');
    equal(FakeSource.made.length, 6, 'sources: the first and one per retry that ran');
});

// Drawing ----------------------------------------------------------------------

function pixel(ctx, x, y) {
    return Array.from(ctx.getImageData(Math.round(x), Math.round(y), 1, 1).data);
}

test('render: targets, areas in their colours, occupied filled', () => {
    const canvas = document.getElementById('canvas');
    const ctx = canvas.getContext('2d');
    const plane = new Plane();
    plane.layout(canvas.width, canvas.height);
    const areas = [
        { number: 1, type: 'detect', from: [-6, 6], to: [-3, 3] },
        { number: 2, type: 'exclude', from: [3, 6], to: [6, 3] },
        { number: 3, type: 'detect', from: [-1, 7.5], to: [1, 6.5] },
    ];
    drawPlane(ctx, plane, {
        areas, occupied: [false, false, true], targets: [[0, 2]], labels: { detect: 'D', exclude: 'E' },
    });
    const target = plane.toPixel(0, 2);
    const t = pixel(ctx, target.x + 3, target.y + 3);
    equal(t.slice(0, 3), [0, 255, 100], 'target disc');
    const inDetect = pixel(ctx, plane.toPixel(-5.5, 5.5).x, plane.toPixel(-5.5, 5.5).y);
    const inExclude = pixel(ctx, plane.toPixel(5.5, 5.5).x, plane.toPixel(5.5, 5.5).y);
    const inOccupied = pixel(ctx, plane.toPixel(-0.8, 7.3).x, plane.toPixel(-0.8, 7.3).y);
    const outside = pixel(ctx, plane.toPixel(-7.5, 0.5).x, plane.toPixel(-7.5, 0.5).y);
    check(inDetect[2] > inDetect[1] + 40 && inDetect[0] < 200, `detect colour ${inDetect}`);
    check(inExclude[1] > inDetect[1] + 20, `exclude colour ${inExclude}`);
    check(inOccupied[0] > inOccupied[1] + 30, `occupied colour ${inOccupied}`);
    equal(outside.slice(0, 3), [240, 240, 240], 'background');
    equal(targetLabel(0, [1.25, -0.04]), '1:(1.3,0.0)');

    // Shown -4..4 m: an area and a person beyond it stay off the axes.
    const narrow = new Plane({ ...RANGE, xMin: -4, xMax: 4 });
    narrow.layout(canvas.width, canvas.height);
    drawPlane(ctx, narrow, {
        areas: [{ number: 1, type: 'detect', from: [-8, 8], to: [-3, 0] }], occupied: [true], targets: [[-7, 4]],
    });
    const margin = pixel(ctx, narrow.plot.left - 5, narrow.toPixel(0, 3).y);
    equal(margin[3], 0, 'nothing painted left of the plot');
    const edge = pixel(ctx, narrow.plot.left + 3, narrow.toPixel(0, 3).y);
    check(edge[0] > edge[1] + 30, `the area inside the plot ${edge}`);
    check(COLOURS.target === 'rgb(0, 255, 100)', 'target colour');
});

// Runner ---------------------------------------------------------------------

(async () => {
    const results = { done: false, passed: 0, failures: [] };
    window.unitResults = results;
    for (const t of tests) {
        try {
            await t.fn();
            ++results.passed;
        } catch (e) {
            results.failures.push(`${t.name}: ${e && e.stack ? e.stack : e}`);
        }
    }
    document.getElementById('log').textContent =
        `${results.passed} passed, ${results.failures.length} failed\n${results.failures.join('\n')}`;
    results.done = true;
})();
