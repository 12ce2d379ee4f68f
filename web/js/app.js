// The page: wires the plane, the editor, the walk, trails, the API and the
// event stream of the chosen module to the document.

import { Api, EventStream } from './api.js';
import { diffAreaFiles, downloadName, entryOf, entryText, readAreaFile, truncations } from './areafile.js';
import { AreaEditor, hitTest } from './editor.js';
import { Plane, RANGE } from './geometry.js';
import { I18n, pickLanguage } from './i18n.js';
import { drawPlane, targetLabel } from './render.js';
import { FrameScheduler } from './scheduler.js';
import { Trails } from './trails.js';
import { WalkRecorder } from './walk.js';

const $ = (id) => document.getElementById(id);

// Choices kept in the browser; a browser that keeps nothing still works.
const kept = {
    get(key) {
        try {
            return localStorage.getItem(key);
        } catch (e) {
            return null;
        }
    },
    set(key, value) {
        try {
            localStorage.setItem(key, value);
        } catch (e) {
            // Not kept: the choice lasts while the page is open.
        }
    },
};

const api = new Api();
const plane = new Plane();
const editor = new AreaEditor(plane);
const trails = new Trails(5);
const walk = new WalkRecorder();
const i18n = new I18n(kept.get('orv-language') || pickLanguage(navigator.languages));

const state = {
    modules: [],
    id: null,
    status: null,
    config: null,    // the area file the module holds
    etag: null,      // its ETag
    baseEtag: null,  // the ETag the current edit started from
    targets: [],
    occupied: [false, false, false],
};

let stream = null;
const canvas = $('plane');
const ctx = canvas.getContext('2d');
let touchSeen = window.matchMedia('(pointer: coarse)').matches;
let fadeTimer = null;

function draw() {
    const now = performance.now();
    ctx.setTransform(window.devicePixelRatio || 1, 0, 0, window.devicePixelRatio || 1, 0, 0);
    drawPlane(ctx, plane, {
        areas: state.config ? state.config.areas : [],
        occupied: state.occupied,
        targets: state.targets,
        trails: $('trails').checked ? (trails.prune(now), trails.pieces(now)) : null,
        editor,
        labels: { detect: i18n.t('detect'), exclude: i18n.t('exclude') },
        touch: touchSeen,
    });
    $('targets').textContent = state.targets.length
        ? `${i18n.t('targets')}: ${state.targets.map((t, k) => targetLabel(k, t)).join('  ')}`
        : i18n.t('noTargets');
    // Fading trails need redraws while they last, ten a second is enough.
    if ($('trails').checked && trails.tracks.some((t) => t && t.length) && !fadeTimer)
        fadeTimer = setTimeout(() => {
            fadeTimer = null;
            scheduler.invalidate();
        }, 100);
}

const scheduler = new FrameScheduler(draw);

function resize() {
    const box = $('plane-box');
    const width = Math.max(200, box.clientWidth);
    const height = Math.min(Plane.heightFor(width, plane.range), Math.round(window.innerHeight * 0.8));
    const dpr = window.devicePixelRatio || 1;
    canvas.style.height = `${height}px`;
    canvas.width = Math.round(width * dpr);
    canvas.height = Math.round(height * dpr);
    plane.layout(width, height);
    scheduler.invalidate();
}

// Messages ------------------------------------------------------------------

function words() {
    return { detect: i18n.t('detect'), exclude: i18n.t('exclude'), unset: i18n.t('unset'), to: '–' };
}

function areaText(entry) {
    return entryText(entry, words());
}

function message(text, kind = '') {
    const el = $('message');
    el.textContent = text;
    el.className = `message ${kind}`;
}

function showStale(key) {
    $('stale-text').textContent = i18n.t(key);
    $('stale').hidden = false;
}

function hideStale() {
    $('stale').hidden = true;
}

function failure(error) {
    if (error.status === 412) {
        showStale('stale');
        message('');
    } else if (error.status === 503) {
        message(i18n.t('notOpen'), 'error');
    } else {
        // A refusal (409) names what the module holds instead.
        const differences = error.body && Array.isArray(error.body.differences)
            ? error.body.differences.map((d) => (typeof d === 'string' ? d : JSON.stringify(d))) : [];
        message(i18n.t('failed', [error.message, ...differences].join('; ')), 'error');
        if (error.body && error.body.areas && error.body.areas.format)
            setConfig(error.body.areas);
    }
}

// Module state, config and targets -------------------------------------------

function showStatus() {
    const s = state.status;
    const name = s && s.state ? s.state : 'unknown';
    $('state').dataset.state = name;
    $('state').textContent = i18n.t(`state.${name}`) === `state.${name}` ? name : i18n.t(`state.${name}`);
    const display = (state.config && state.config.display) || (s && s.display);
    for (const b of document.querySelectorAll('#display button'))
        b.setAttribute('aria-pressed', String(b.dataset.display === display));
}

function showStream(streamState) {
    const el = $('stream');
    el.dataset.stream = streamState;
    el.textContent = i18n.t(`stream.${streamState}`);
}

function fillCorners() {
    const r = editor.rect;
    const fields = { x1: r && r.left, y1: r && r.top, x2: r && r.right, y2: r && r.bottom };
    for (const [id, v] of Object.entries(fields))
        $(id).value = v === null || v === undefined ? '' : String(v);
    $('area-type').value = editor.rect ? editor.type : 'unset';
    for (const b of document.querySelectorAll('#area-number button'))
        b.setAttribute('aria-pressed', String(Number(b.dataset.number) === editor.number));
}

function loadEditor(number = editor.number) {
    editor.load(number, entryOf(state.config, number));
    state.baseEtag = null;
    hideStale();
}

// A new area file from the module (stream, read-back or reload).
function setConfig(file, etag) {
    const before = state.config;
    state.config = file;
    if (etag)
        state.etag = etag;
    if (!editor.dirty) {
        loadEditor();
    } else if (before && JSON.stringify(entryOf(before, editor.number)) !==
               JSON.stringify(entryOf(file, editor.number)) && !state.applying) {
        showStale('changedElsewhere');
    }
    showStatus();
    scheduler.invalidate();
}

// Reads the area file with its ETag, so that the page always holds a file
// and the tag that goes with it (an edit's If-Match is the tag of what the
// user saw). Answers that come back out of order are dropped.
let refreshes = 0;
async function refreshAreas(fallback) {
    const id = state.id;
    const n = ++refreshes;
    try {
        const r = await api.areas(id);
        if (id === state.id && n === refreshes)
            setConfig(r.body, r.etag);
    } catch (e) {
        if (fallback && id === state.id && n === refreshes)
            setConfig(fallback);
    }
}

function selectModule(id) {
    if (stream)
        stream.stop();
    state.id = id;
    state.status = state.modules.find((m) => m.id === id) || null;
    state.config = null;
    state.etag = null;
    state.targets = [];
    state.occupied = [false, false, false];
    trails.clear();
    editor.load(editor.number, null);
    kept.set('orv-module', id);
    $('download').href = api.downloadUrl(id);
    $('download').setAttribute('download', downloadName(id));
    showStatus();
    stream = new EventStream(api.moduleUrl(id, '/events'), {
        status(s) {
            state.status = s;
            showStatus();
        },
        config(file) {
            refreshAreas(file);
        },
        targets(record) {
            ++page.reports;
            state.targets = Array.isArray(record.targets) ? record.targets : [];
            const now = performance.now();
            trails.add(state.targets, now);
            if (walk.walking && walk.add(state.targets))
                $('walk-status').textContent = i18n.t('walkHint', walk.points.length);
            scheduler.invalidate();
        },
        areas(record) {
            if (Array.isArray(record.occupied))
                state.occupied = record.occupied.map(Boolean);
            scheduler.invalidate();
        },
    }, { onState: showStream });
    page.stream = stream;
    stream.start();
    scheduler.invalidate();
}

async function loadModules() {
    try {
        state.modules = await api.modules();
    } catch (e) {
        showStream('reconnecting');
        if (e.status === 401)
            message(i18n.t('unauthorised'), 'error');
        setTimeout(loadModules, 2000);
        return;
    }
    message('');
    // The token link has set the cookie; keep the token out of the address bar.
    if (location.search.includes('token='))
        history.replaceState(null, '', location.pathname);
    const select = $('module');
    select.textContent = '';
    for (const m of state.modules) {
        const o = document.createElement('option');
        o.value = m.id;
        o.textContent = m.id;
        select.appendChild(o);
    }
    if (state.modules.length === 0) {
        message(i18n.t('noModules'), 'error');
        return;
    }
    const saved = kept.get('orv-module');
    const id = state.modules.some((m) => m.id === saved) ? saved : state.modules[0].id;
    select.value = id;
    selectModule(id);
}

// Writes ---------------------------------------------------------------------

// Runs one write; on success takes the read-back area file and its ETag.
async function write(run, after) {
    message(i18n.t('sending'));
    state.applying = true;
    try {
        const r = await run(state.baseEtag || state.etag);
        state.applying = false;
        hideStale();
        editor.dirty = false;
        setConfig(r.body, r.etag);
        loadEditor();
        after(r.body);
    } catch (e) {
        state.applying = false;
        failure(e);
    }
}

function apply() {
    const number = editor.number;
    const body = editor.request();
    write((etag) => api.putArea(state.id, number, body, etag), (file) => {
        const held = entryOf(file, number) || { type: 'unset' };
        // Corners the module keeps otherwise than asked (decimetre truncation).
        const cut = truncations(body, held);
        const text = cut.map((c) => `${c.name} ${c.asked} → ${c.held}`).join(', ');
        message(`${i18n.t('held', number, areaText(held))}${cut.length ? ` ${i18n.t('truncated', text)}` : ''}`);
    });
}

function readCorners() {
    const values = ['x1', 'y1', 'x2', 'y2'].map((id) => $(id).value.trim());
    if (values.some((v) => v === ''))
        return;
    const [x1, y1, x2, y2] = values.map(Number);
    const r = editor.setCorners(x1, y1, x2, y2);
    if (!r.ok) {
        if (r.reason === 'range')
            message(i18n.t('badRange', r.field.toUpperCase(), r.lo, r.hi), 'error');
        else if (r.reason === 'empty')
            message(i18n.t('emptyRect'), 'error');
        else
            message(i18n.t('badNumber'), 'error');
    } else {
        message(i18n.t('notApplied'));
    }
}

let cancelAllArmed = null;

function cancelAll() {
    const button = $('cancel-all');
    if (!cancelAllArmed) {
        button.textContent = i18n.t('confirmAll');
        cancelAllArmed = setTimeout(() => {
            cancelAllArmed = null;
            button.textContent = i18n.t('cancelAll');
        }, 4000);
        return;
    }
    clearTimeout(cancelAllArmed);
    cancelAllArmed = null;
    button.textContent = i18n.t('cancelAll');
    write((etag) => api.cancelAll(state.id, etag),
          (file) => message(i18n.t('cancelled', [1, 2, 3].map((n) => `${n}: ${areaText(entryOf(file, n))}`).join('; '))));
}

// Restore ----------------------------------------------------------------------

let restoreFile = null;

async function chooseRestore(file) {
    const text = await file.text();
    const r = readAreaFile(text);
    $('restore').hidden = false;
    $('restore-changes').textContent = '';
    if (r.error) {
        restoreFile = null;
        $('restore-text').textContent = i18n.t('fileError', r.error);
        $('restore-apply').disabled = true;
        return;
    }
    restoreFile = r.file;
    const changes = diffAreaFiles(state.config, r.file, words());
    $('restore-text').textContent = i18n.t(changes.length ? 'restoreChanges' : 'restoreSame');
    for (const c of changes) {
        const li = document.createElement('li');
        const what = c.what === 'display' ? i18n.t('display') : `${i18n.t('area')} ${c.what}`;
        li.textContent = `${what}: ${c.from} → ${c.to}`;
        $('restore-changes').appendChild(li);
    }
    $('restore-apply').disabled = false;
}

function endRestore() {
    restoreFile = null;
    $('restore').hidden = true;
    $('restore-file').value = '';
}

// Events -------------------------------------------------------------------------

function pointerPosition(event) {
    const r = canvas.getBoundingClientRect();
    return { x: event.clientX - r.left, y: event.clientY - r.top };
}

canvas.addEventListener('pointerdown', (event) => {
    if (event.button !== 0)
        return;
    touchSeen = event.pointerType === 'touch';
    const p = pointerPosition(event);
    const wasDirty = editor.dirty;
    editor.pointerDown(p.x, p.y, touchSeen ? 24 : 10);
    canvas.setPointerCapture(event.pointerId);
    if (!wasDirty)
        state.baseEtag = state.etag;
    event.preventDefault();
});
canvas.addEventListener('pointermove', (event) => {
    const p = pointerPosition(event);
    if (editor.drag) {
        editor.pointerMove(p.x, p.y);
        event.preventDefault();
        return;
    }
    const grab = hitTest(plane, editor.rect, p.x, p.y, 10);
    const cursors = { move: 'move', n: 'ns-resize', s: 'ns-resize', e: 'ew-resize', w: 'ew-resize',
                      nw: 'nwse-resize', se: 'nwse-resize', ne: 'nesw-resize', sw: 'nesw-resize' };
    canvas.style.cursor = cursors[grab] || 'crosshair';
});
canvas.addEventListener('pointerup', (event) => {
    const p = pointerPosition(event);
    if (editor.pointerUp(p.x, p.y) && editor.dirty)
        message(i18n.t('notApplied'));
});
canvas.addEventListener('pointercancel', () => editor.cancelDrag());
document.addEventListener('keydown', (event) => {
    if (event.key === 'Escape')
        editor.cancelDrag();
});

editor.onChange(() => {
    fillCorners();
    scheduler.invalidate();
});

for (const b of document.querySelectorAll('#area-number button'))
    b.addEventListener('click', () => {
        loadEditor(Number(b.dataset.number));
        message('');
    });
$('area-type').addEventListener('change', () => {
    if (!editor.dirty)
        state.baseEtag = state.etag;
    editor.setType($('area-type').value);
});
for (const id of ['x1', 'y1', 'x2', 'y2'])
    $(id).addEventListener('change', () => {
        if (!editor.dirty)
            state.baseEtag = state.etag;
        readCorners();
    });
$('apply').addEventListener('click', apply);
$('reset').addEventListener('click', () => {
    loadEditor();
    message('');
});
$('reload').addEventListener('click', async () => {
    editor.dirty = false;
    await refreshAreas();
    loadEditor();
    message('');
});
$('cancel-area').addEventListener('click', () => {
    const number = editor.number;
    write((etag) => api.cancelArea(state.id, number, etag),
          (file) => message(i18n.t('held', number, areaText(entryOf(file, number)))));
});
$('cancel-all').addEventListener('click', cancelAll);
for (const b of document.querySelectorAll('#display button'))
    b.addEventListener('click', () => write((etag) => api.putDisplay(state.id, b.dataset.display, etag),
                                            (file) => message(`${i18n.t('display')}: ${file.display}`)));
$('walk').addEventListener('click', () => {
    if (!walk.walking) {
        walk.start();
        $('walk').textContent = i18n.t('walkStop');
        $('walk').dataset.i18n = 'walkStop';
        $('walk-status').textContent = i18n.t('walkHint', 0);
        return;
    }
    const rect = walk.stop();
    $('walk').textContent = i18n.t('walkStart');
    $('walk').dataset.i18n = 'walkStart';
    if (!rect) {
        $('walk-status').textContent = i18n.t('walkNone');
        return;
    }
    if (!editor.dirty)
        state.baseEtag = state.etag;
    editor.setRect(rect);
    $('walk-status').textContent = i18n.t('walkProposed',
                                           `(${rect.left}, ${rect.top}) – (${rect.right}, ${rect.bottom})`);
});
$('trails').addEventListener('change', () => scheduler.invalidate());
// The shown width of the plane: all of -8..8 m, or less of it, larger.
function showRange(half) {
    plane.setRange({ ...RANGE, xMin: -half, xMax: half });
    $('x-range').value = String(half);
    kept.set('orv-x-range', String(half));
    resize();
}
$('x-range').addEventListener('change', () => showRange(Number($('x-range').value)));
$('trail-seconds').addEventListener('change', () => {
    trails.setSeconds(Number($('trail-seconds').value));
    scheduler.invalidate();
});
$('restore-file').addEventListener('change', () => {
    const f = $('restore-file').files[0];
    if (f)
        chooseRestore(f);
});
$('restore-discard').addEventListener('click', endRestore);
$('restore-apply').addEventListener('click', () => {
    if (!restoreFile)
        return;
    const file = restoreFile;
    write((etag) => api.putAreas(state.id, file, etag), (held) => {
        endRestore();
        message(i18n.t('cancelled', [1, 2, 3].map((n) => `${n}: ${areaText(entryOf(held, n))}`).join('; ')));
    });
});
$('module').addEventListener('change', () => selectModule($('module').value));
$('language').addEventListener('change', () => {
    i18n.setLanguage($('language').value);
    kept.set('orv-language', i18n.language);
    translate();
});

function translate() {
    i18n.apply(document);
    $('language').value = i18n.language;
    for (const o of $('trail-seconds').options)
        o.textContent = i18n.t('seconds', o.value);
    showStatus();
    showStream(stream ? stream.state : 'connecting');
    scheduler.invalidate();
}

// For tests and the curious: the page's live objects.
const page = { plane, editor, trails, walk, state, scheduler, i18n, api, stream: null, reports: 0 };
window.orvPage = page;

new ResizeObserver(resize).observe($('plane-box'));
showRange([8, 6, 4].includes(Number(kept.get('orv-x-range'))) ? Number(kept.get('orv-x-range')) : 8);
translate();
fillCorners();
loadModules();
