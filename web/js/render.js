// Drawing the plane on a canvas as the window draws it: grid on whole
// metres, axes in metres, the module at the bottom centre, the three areas
// in their type's colour (filled in the occupied colour while the module
// reports someone in them), targets as discs labelled "N:(x,y)", trails
// fading out, and the area being edited with its eight handles.

import { ticks, tickStep, rectOfArea } from './geometry.js';
import { HANDLES, handlePoint } from './editor.js';

export const COLOURS = {
    background: '#f0f0f0',
    grid: 'rgba(0, 0, 0, 0.39)',
    axis: 'rgba(0, 0, 0, 0.78)',
    outline: 'rgba(255, 255, 0, 0.39)',
    occupied: 'rgba(100, 0, 138, 0.59)',
    detect: 'rgba(0, 0, 138, 0.39)',
    exclude: 'rgba(0, 100, 138, 0.39)',
    targetPen: 'rgb(200, 255, 100)',
    target: 'rgb(0, 255, 100)',
    label: 'rgba(0, 0, 0, 0.63)',
    trail: [0, 160, 70],
    draft: '#0096d6',
    handle: 'rgb(0, 174, 255)',
    module: '#333',
};

function metres(v) {
    return (Math.round(v * 10) / 10).toFixed(1);
}

export function targetLabel(k, p) {
    return `${k + 1}:(${metres(p[0])},${metres(p[1])})`;
}

function drawAxes(ctx, plane) {
    const r = plane.range;
    const p = plane.plot;
    const step = tickStep(plane.scale);
    ctx.fillStyle = COLOURS.background;
    ctx.fillRect(p.left, p.top, p.width, p.height);
    ctx.lineWidth = 1;
    ctx.strokeStyle = COLOURS.grid;
    ctx.beginPath();
    for (const x of ticks(r.xMin, r.xMax, step)) {
        const px = Math.round(plane.toPixel(x, 0).x) + 0.5;
        ctx.moveTo(px, p.top);
        ctx.lineTo(px, p.top + p.height);
    }
    for (const y of ticks(r.yMin, r.yMax, step)) {
        const py = Math.round(plane.toPixel(0, y).y) + 0.5;
        ctx.moveTo(p.left, py);
        ctx.lineTo(p.left + p.width, py);
    }
    ctx.stroke();
    ctx.strokeStyle = COLOURS.axis;
    ctx.strokeRect(Math.round(p.left) + 0.5, Math.round(p.top) + 0.5, Math.round(p.width), Math.round(p.height));

    ctx.fillStyle = COLOURS.axis;
    ctx.font = '11px sans-serif';
    ctx.textAlign = 'center';
    ctx.textBaseline = 'top';
    for (const x of ticks(r.xMin, r.xMax, step))
        ctx.fillText(String(x), plane.toPixel(x, 0).x, p.top + p.height + 4);
    ctx.textAlign = 'right';
    ctx.textBaseline = 'middle';
    for (const y of ticks(r.yMin, r.yMax, step))
        ctx.fillText(String(y), p.left - 4, plane.toPixel(0, y).y);
    ctx.textAlign = 'left';
    ctx.textBaseline = 'top';
    ctx.fillText('m', p.left + p.width - 10, p.top + p.height + 14 > plane.height - 11 ? plane.height - 11 : p.top + p.height + 14);

    // The module: a small block at the bottom centre, facing up.
    const m = plane.toPixel(0, 0);
    ctx.fillStyle = COLOURS.module;
    ctx.fillRect(m.x - 7, m.y - 4, 14, 5);
}

function drawArea(ctx, plane, entry, occupied, labels) {
    const rect = rectOfArea(entry);
    if (!rect)
        return;
    const b = plane.pixelRect(rect);
    ctx.fillStyle = occupied ? COLOURS.occupied : (entry.type === 'exclude' ? COLOURS.exclude : COLOURS.detect);
    ctx.strokeStyle = COLOURS.outline;
    ctx.lineWidth = 1;
    ctx.fillRect(b.x, b.y, b.w, b.h);
    ctx.strokeRect(b.x + 0.5, b.y + 0.5, b.w - 1, b.h - 1);
    ctx.fillStyle = '#fff';
    ctx.font = '12px sans-serif';
    ctx.textAlign = 'center';
    ctx.textBaseline = 'middle';
    // The window's label ("Detection1"), or the number alone where the area
    // is too narrow for it.
    const label = `${labels[entry.type] || entry.type}${entry.number}`;
    const text = ctx.measureText(label).width <= b.w - 4 ? label : String(entry.number);
    ctx.fillText(text, b.x + b.w / 2, b.y + b.h / 2);
}

function drawDraft(ctx, plane, editor, touch) {
    if (!editor || !editor.rect || editor.type === 'unset')
        return;
    const b = plane.pixelRect(editor.rect);
    ctx.save();
    ctx.fillStyle = editor.type === 'exclude' ? COLOURS.exclude : COLOURS.detect;
    ctx.globalAlpha = 0.6;
    ctx.fillRect(b.x, b.y, b.w, b.h);
    ctx.globalAlpha = 1;
    ctx.strokeStyle = COLOURS.draft;
    ctx.lineWidth = 2;
    ctx.setLineDash([6, 4]);
    ctx.strokeRect(b.x, b.y, b.w, b.h);
    ctx.setLineDash([]);
    const size = touch ? 10 : 8;
    ctx.fillStyle = COLOURS.handle;
    for (const h of HANDLES) {
        const p = handlePoint(plane, editor.rect, h);
        ctx.fillRect(p.x - size / 2, p.y - size / 2, size, size);
    }
    ctx.restore();
}

function drawTrails(ctx, plane, pieces) {
    const [r, g, b] = COLOURS.trail;
    ctx.lineWidth = 2;
    ctx.lineCap = 'round';
    for (const piece of pieces) {
        for (let i = 1; i < piece.points.length; ++i) {
            const a = piece.points[i - 1];
            const c = piece.points[i];
            const pa = plane.toPixel(a.x, a.y);
            const pc = plane.toPixel(c.x, c.y);
            ctx.strokeStyle = `rgba(${r}, ${g}, ${b}, ${(0.8 * (1 - c.age)).toFixed(3)})`;
            ctx.beginPath();
            ctx.moveTo(pa.x, pa.y);
            ctx.lineTo(pc.x, pc.y);
            ctx.stroke();
        }
    }
}

function drawTargets(ctx, plane, targets) {
    ctx.font = '11px sans-serif';
    ctx.textAlign = 'center';
    ctx.textBaseline = 'middle';
    const r = plane.range;
    targets.forEach((t, k) => {
        // Someone beyond the shown range is left out (the list names them).
        if (t[0] < r.xMin || t[0] > r.xMax || t[1] < r.yMin || t[1] > r.yMax)
            return;
        const p = plane.toPixel(t[0], t[1]);
        ctx.beginPath();
        ctx.arc(p.x, p.y, 7, 0, Math.PI * 2);
        ctx.fillStyle = COLOURS.target;
        ctx.fill();
        ctx.strokeStyle = COLOURS.targetPen;
        ctx.lineWidth = 1;
        ctx.stroke();
        const text = targetLabel(k, t);
        const w = ctx.measureText(text).width + 8;
        const ly = p.y - 20;
        ctx.fillStyle = COLOURS.label;
        ctx.fillRect(p.x - w / 2, ly - 8, w, 16);
        ctx.fillStyle = '#fff';
        ctx.fillText(text, p.x, ly);
    });
}

// state: {areas: [area-file entries], occupied: [bool x3], targets: [[x, y]],
// trails: pieces or null, editor, labels: {detect, exclude}, touch}
export function drawPlane(ctx, plane, state) {
    ctx.clearRect(0, 0, plane.width, plane.height);
    drawAxes(ctx, plane);
    // What lies beyond the shown range stays off the axes.
    ctx.save();
    ctx.beginPath();
    ctx.rect(plane.plot.left, plane.plot.top, plane.plot.width, plane.plot.height);
    ctx.clip();
    const editing = state.editor && state.editor.dirty ? state.editor.number : 0;
    for (const entry of state.areas || []) {
        if (entry.type === 'unset' || entry.number === editing)
            continue;
        drawArea(ctx, plane, entry, state.occupied && state.occupied[entry.number - 1], state.labels || {});
    }
    if (state.trails)
        drawTrails(ctx, plane, state.trails);
    drawDraft(ctx, plane, state.editor, state.touch);
    ctx.restore();
    drawTargets(ctx, plane, state.targets || []);
}
