// Editing one area on the plane: drag out a new rectangle, move it, resize
// it by its eight handles, or type its corners. Works in metres; pointer
// positions come in as canvas pixels and go through the plane's mapping.
// Every value is held on the decimetre grid and inside the plane.

import { RANGE, clamp, rectFromCorners, sameRect, snap } from './geometry.js';

export const HANDLES = ['nw', 'n', 'ne', 'e', 'se', 's', 'sw', 'w'];

// Pixel position of a handle of a rectangle in metres.
export function handlePoint(plane, rect, handle) {
    const p = plane.pixelRect(rect);
    const cx = p.x + p.w / 2;
    const cy = p.y + p.h / 2;
    const x = handle.includes('w') ? p.x : handle.includes('e') ? p.x + p.w : cx;
    const y = handle.includes('n') ? p.y : handle.includes('s') ? p.y + p.h : cy;
    return { x, y };
}

// What a pointer at (px, py) would grab of rect: a handle name, "move"
// (inside), or null. reach is the grab distance in pixels (larger on touch).
export function hitTest(plane, rect, px, py, reach = 10) {
    if (!rect)
        return null;
    // Inside a small area the handles reach less far, so that a finger can
    // still grab the area itself to move it.
    const r = plane.pixelRect(rect);
    const inside = px >= r.x && px <= r.x + r.w && py >= r.y && py <= r.y + r.h;
    let best = null;
    let bestDistance = inside ? Math.min(reach, Math.min(r.w, r.h) / 4) : reach;
    for (const h of HANDLES) {
        const p = handlePoint(plane, rect, h);
        const d = Math.hypot(p.x - px, p.y - py);
        if (d <= bestDistance) {
            best = h;
            bestDistance = d;
        }
    }
    if (best)
        return best;
    return inside ? 'move' : null;
}

export class AreaEditor {
    // plane maps pointer pixels; limits are what the module accepts (the
    // plane may show less of it).
    constructor(plane, limits = RANGE) {
        this.plane = plane;
        this.limits = limits;
        this.number = 1;
        this.type = 'detect';
        this.rect = null;      // the draft, metres, or null when none
        this.dirty = false;    // the draft differs from what the module holds
        this.drag = null;
        this.listeners = [];
    }

    onChange(fn) {
        this.listeners.push(fn);
    }

    changed() {
        for (const fn of this.listeners)
            fn(this);
    }

    // Starts from what the module holds for area number (an area-file entry).
    load(number, entry) {
        this.number = number;
        this.drag = null;
        this.dirty = false;
        if (entry && entry.type !== 'unset' && entry.from && entry.to) {
            this.type = entry.type;
            this.rect = rectFromCorners(entry.from[0], entry.from[1], entry.to[0], entry.to[1]);
        } else {
            this.type = entry && entry.type === 'exclude' ? 'exclude' : 'detect';
            this.rect = null;
        }
        this.changed();
    }

    setType(type) {
        if (type === this.type)
            return;
        this.type = type;
        this.dirty = true;
        this.changed();
    }

    metresAt(px, py) {
        const m = this.plane.toMetres(px, py);
        const r = this.limits;
        m.x = clamp(m.x, r.xMin, r.xMax);
        m.y = clamp(m.y, r.yMin, r.yMax);
        return { x: snap(m.x), y: snap(m.y) };
    }

    // Pointer pressed at canvas pixel (px, py). Returns what it grabbed:
    // a handle name, "move" or "new".
    pointerDown(px, py, reach = 10) {
        const grab = this.type === 'unset' ? null : hitTest(this.plane, this.rect, px, py, reach);
        const at = this.metresAt(px, py);
        if (grab) {
            this.drag = { mode: grab, start: at, origin: { ...this.rect }, before: this.rect };
        } else {
            this.drag = { mode: 'new', start: at, origin: null, before: this.rect, beforeType: this.type };
            if (this.type === 'unset')
                this.type = 'detect';
            this.rect = rectFromCorners(at.x, at.y, at.x, at.y);
        }
        this.changed();
        return this.drag.mode;
    }

    pointerMove(px, py) {
        const d = this.drag;
        if (!d)
            return false;
        const at = this.metresAt(px, py);
        const r = this.limits;
        if (d.mode === 'new') {
            this.rect = rectFromCorners(d.start.x, d.start.y, at.x, at.y);
        } else if (d.mode === 'move') {
            const o = d.origin;
            const dx = clamp(at.x - d.start.x, r.xMin - o.left, r.xMax - o.right);
            const dy = clamp(at.y - d.start.y, r.yMin - o.bottom, r.yMax - o.top);
            this.rect = {
                left: snap(o.left + dx),
                right: snap(o.right + dx),
                top: snap(o.top + dy),
                bottom: snap(o.bottom + dy),
            };
        } else {
            const o = d.origin;
            let { left, right, top, bottom } = o;
            if (d.mode.includes('w'))
                left = at.x;
            if (d.mode.includes('e'))
                right = at.x;
            if (d.mode.includes('n'))
                top = at.y;
            if (d.mode.includes('s'))
                bottom = at.y;
            this.rect = rectFromCorners(left, top, right, bottom);
        }
        if (!sameRect(this.rect, d.before))
            this.dirty = true;
        this.changed();
        return true;
    }

    // Pointer released. A new rectangle without width or height (a tap) is
    // dropped and the earlier draft kept.
    pointerUp(px, py) {
        const d = this.drag;
        if (!d)
            return false;
        if (px !== undefined)
            this.pointerMove(px, py);
        this.drag = null;
        if (d.mode === 'new' && (this.rect.left === this.rect.right || this.rect.top === this.rect.bottom)) {
            this.rect = d.before;
            this.type = d.beforeType;
        }
        this.changed();
        return true;
    }

    cancelDrag() {
        if (!this.drag)
            return;
        this.rect = this.drag.before;
        if (this.drag.mode === 'new')
            this.type = this.drag.beforeType;
        this.drag = null;
        this.changed();
    }

    // Typed corners (metres, as typed). Values outside the plane are
    // refused with a reason; the rectangle is put in order.
    setCorners(x1, y1, x2, y2) {
        const r = this.limits;
        for (const [v, lo, hi, name] of [[x1, r.xMin, r.xMax, 'x'], [x2, r.xMin, r.xMax, 'x'],
                                         [y1, r.yMin, r.yMax, 'y'], [y2, r.yMin, r.yMax, 'y']]) {
            if (typeof v !== 'number' || !Number.isFinite(v))
                return { ok: false, field: name, reason: 'number' };
            if (v < lo || v > hi)
                return { ok: false, field: name, reason: 'range', lo, hi };
        }
        if (x1 === x2 || y1 === y2)
            return { ok: false, field: x1 === x2 ? 'x' : 'y', reason: 'empty' };
        this.rect = rectFromCorners(x1, y1, x2, y2);
        if (this.type === 'unset')
            this.type = 'detect';
        this.dirty = true;
        this.changed();
        return { ok: true };
    }

    // Uses a proposed rectangle (from a walk), held inside the plane.
    setRect(rect) {
        const r = this.limits;
        this.rect = rectFromCorners(clamp(rect.left, r.xMin, r.xMax), clamp(rect.top, r.yMin, r.yMax),
                                    clamp(rect.right, r.xMin, r.xMax), clamp(rect.bottom, r.yMin, r.yMax));
        if (this.type === 'unset')
            this.type = 'detect';
        this.dirty = true;
        this.changed();
    }

    // The body of PUT /api/modules/ID/areas/N for the draft.
    request() {
        if (this.type === 'unset' || !this.rect)
            return { type: 'unset' };
        return {
            type: this.type,
            from: [this.rect.left, this.rect.top],
            to: [this.rect.right, this.rect.bottom],
        };
    }
}
