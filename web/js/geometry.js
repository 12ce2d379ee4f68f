// The plane in metres and its mapping to canvas pixels. The module sits at
// (0, 0), the bottom centre; x runs -8..8 m to the right, y 0..8 m away from
// the module (up on the screen), at the same scale on both axes.

export const RANGE = Object.freeze({ xMin: -8, xMax: 8, yMin: 0, yMax: 8 });

export function clamp(v, lo, hi) {
    return Math.min(hi, Math.max(lo, v));
}

// Rounded to the nearest decimetre (what a drag on the plane produces).
export function snap(v) {
    const r = Math.round(v * 10) / 10;
    return Object.is(r, -0) ? 0 : r;
}

// The decimetres the module keeps for a coordinate: the value times ten,
// truncated toward zero, computed in doubles as the service computes it. A
// whole number of decimetres (as the plane's drags give) is kept exactly.
export function wireDecimetres(metres) {
    return Math.trunc(metres * 10);
}

export function wireMetres(metres) {
    const r = wireDecimetres(metres) / 10;
    return Object.is(r, -0) ? 0 : r;
}

// A rectangle in metres, sides ordered: left < right, top > bottom.
export function rectFromCorners(x1, y1, x2, y2) {
    return {
        left: Math.min(x1, x2),
        right: Math.max(x1, x2),
        top: Math.max(y1, y2),
        bottom: Math.min(y1, y2),
    };
}

// The rectangle of an area-file entry ({"from": [x, y], "to": [x, y]}).
export function rectOfArea(area) {
    if (!area || !Array.isArray(area.from) || !Array.isArray(area.to))
        return null;
    return rectFromCorners(area.from[0], area.from[1], area.to[0], area.to[1]);
}

export function sameRect(a, b) {
    if (!a || !b)
        return a === b;
    return a.left === b.left && a.right === b.right && a.top === b.top && a.bottom === b.bottom;
}

// Tick step in metres so that labels stay at least minPixels apart.
export function tickStep(pixelsPerMetre, minPixels = 28) {
    for (const step of [1, 2, 4, 8])
        if (step * pixelsPerMetre >= minPixels)
            return step;
    return 8;
}

export function ticks(lo, hi, step) {
    const out = [];
    for (let v = Math.ceil(lo / step) * step; v <= hi + 1e-9; v += step)
        out.push(Object.is(v, -0) ? 0 : v);
    return out;
}

export class Plane {
    constructor(range = RANGE) {
        this.range = { ...range };
        this.margin = { left: 30, right: 10, top: 10, bottom: 24 };
        this.layout(320, 180);
    }

    // Shows range ({xMin, xMax, yMin, yMax}) from now on; layout() again.
    setRange(range) {
        this.range = { ...range };
        this.layout(this.width, this.height);
    }

    // Fits the plane into a canvas of width x height CSS pixels.
    layout(width, height) {
        const m = this.margin;
        const r = this.range;
        const w = Math.max(1, width - m.left - m.right);
        const h = Math.max(1, height - m.top - m.bottom);
        this.width = width;
        this.height = height;
        this.scale = Math.min(w / (r.xMax - r.xMin), h / (r.yMax - r.yMin));
        const pw = (r.xMax - r.xMin) * this.scale;
        const ph = (r.yMax - r.yMin) * this.scale;
        this.plot = { left: m.left + (w - pw) / 2, top: m.top + (h - ph) / 2, width: pw, height: ph };
    }

    // Height that shows the whole plane at this width.
    static heightFor(width, range = RANGE) {
        const p = new Plane(range);
        const w = width - p.margin.left - p.margin.right;
        return Math.round((w * (range.yMax - range.yMin)) / (range.xMax - range.xMin)) +
            p.margin.top + p.margin.bottom;
    }

    toPixel(x, y) {
        return {
            x: this.plot.left + (x - this.range.xMin) * this.scale,
            y: this.plot.top + (this.range.yMax - y) * this.scale,
        };
    }

    toMetres(px, py) {
        return {
            x: this.range.xMin + (px - this.plot.left) / this.scale,
            y: this.range.yMax - (py - this.plot.top) / this.scale,
        };
    }

    // Pixel rectangle {x, y, w, h} of a rectangle in metres.
    pixelRect(rect) {
        const a = this.toPixel(rect.left, rect.top);
        const b = this.toPixel(rect.right, rect.bottom);
        return { x: a.x, y: a.y, w: b.x - a.x, h: b.y - a.y };
    }
}
