// Walk an area: the installer walks along the edges of the space an area
// should cover; the page follows one person and proposes the rectangle that
// holds the walked path, with stray points (ghost reports, a jump to another
// person) left out.

import { RANGE, clamp } from './geometry.js';

function median(values) {
    const s = [...values].sort((a, b) => a - b);
    const n = s.length;
    return n % 2 ? s[(n - 1) / 2] : (s[n / 2 - 1] + s[n / 2]) / 2;
}

// The points kept from a walked path: a point is a stray when fewer than
// `neighbours` other points lie within `radius` metres of it, or when it lies
// far outside the bulk of the path (beyond the median by more than `spread`
// times the median absolute deviation plus `radius`, on either axis).
export function keptPoints(points, { radius = 0.8, neighbours = 2, spread = 4 } = {}) {
    const dense = points.filter((p, i) => {
        let count = 0;
        for (let j = 0; j < points.length && count < neighbours; ++j) {
            if (j !== i && Math.hypot(points[j].x - p.x, points[j].y - p.y) <= radius)
                ++count;
        }
        return count >= neighbours;
    });
    if (dense.length === 0)
        return [];
    const mx = median(dense.map((p) => p.x));
    const my = median(dense.map((p) => p.y));
    const madX = median(dense.map((p) => Math.abs(p.x - mx))) * 1.4826;
    const madY = median(dense.map((p) => Math.abs(p.y - my))) * 1.4826;
    return dense.filter((p) => Math.abs(p.x - mx) <= spread * madX + radius &&
                               Math.abs(p.y - my) <= spread * madY + radius);
}

// The proposed rectangle {left, top, right, bottom} in metres, on the
// decimetre grid, inside range; null when too few points remain.
export function proposeRect(points, options = {}, range = RANGE) {
    const kept = keptPoints(points, options);
    if (kept.length < 3)
        return null;
    const xs = kept.map((p) => p.x);
    const ys = kept.map((p) => p.y);
    const out = (v, f) => f(Math.round(v * 1e6) / 1e5) / 10; // decimetre grid, outward
    const rect = {
        left: clamp(out(Math.min(...xs), Math.floor), range.xMin, range.xMax),
        right: clamp(out(Math.max(...xs), Math.ceil), range.xMin, range.xMax),
        top: clamp(out(Math.max(...ys), Math.ceil), range.yMin, range.yMax),
        bottom: clamp(out(Math.min(...ys), Math.floor), range.yMin, range.yMax),
    };
    if (rect.left === rect.right || rect.top === rect.bottom)
        return null;
    return rect;
}

// Follows one person through target reports: the first target seen, then in
// each report the target nearest to the last point taken, if it is within
// `maxStep` metres (otherwise the report adds nothing).
export class WalkRecorder {
    constructor({ maxStep = 1.5 } = {}) {
        this.maxStep = maxStep;
        this.points = [];
        this.walking = false;
    }

    start() {
        this.points = [];
        this.walking = true;
    }

    // targets: [[x, y], ...] as in a targets record.
    add(targets) {
        if (!this.walking || !targets || targets.length === 0)
            return false;
        const last = this.points[this.points.length - 1];
        let best = null;
        let bestDistance = Infinity;
        for (const t of targets) {
            const d = last ? Math.hypot(t[0] - last.x, t[1] - last.y) : 0;
            if (d < bestDistance) {
                best = t;
                bestDistance = d;
            }
        }
        if (last && bestDistance > this.maxStep)
            return false;
        this.points.push({ x: best[0], y: best[1] });
        return true;
    }

    stop(options, range) {
        this.walking = false;
        return proposeRect(this.points, options, range);
    }
}
