// The area file as `orv-cli areas backup` writes it:
//   {"format": "orv-areas", "version": 1, "display": "area",
//    "areas": [{"number": 1, "type": "detect", "from": [x, y], "to": [x, y]},
//              {"number": 2, "type": "unset"}, ...]}
// The service checks every rule when a file is restored; the page reads a
// chosen file only far enough to show what would change.

export const FORMAT = 'orv-areas';
export const VERSION = 1;

function fixed(v) {
    return (Math.round(v * 1000) / 1000).toString();
}

export const WORDS = Object.freeze({ detect: 'detect', exclude: 'exclude', unset: 'unset', to: 'to' });

// "detect (-1.5, 3) to (1.5, 1)", "unset"; words gives the page's language.
export function entryText(entry, words = WORDS) {
    if (!entry || entry.type === 'unset' || !entry.from || !entry.to)
        return words.unset;
    return `${words[entry.type] || entry.type} (${fixed(entry.from[0])}, ${fixed(entry.from[1])}) ` +
        `${words.to} (${fixed(entry.to[0])}, ${fixed(entry.to[1])})`;
}

// The entry of area number, or null when the file does not name it.
export function entryOf(file, number) {
    if (!file || !Array.isArray(file.areas))
        return null;
    return file.areas.find((a) => a && a.number === number) || null;
}

function sameEntry(a, b) {
    return entryText(a) === entryText(b);
}

// Reads the text of a chosen file. Returns {file} or {error} (a short
// reason; the service's own check comes on apply).
export function readAreaFile(text) {
    let file;
    try {
        file = JSON.parse(text);
    } catch (e) {
        return { error: `not valid JSON: ${e.message}` };
    }
    if (!file || typeof file !== 'object' || Array.isArray(file))
        return { error: 'the file must hold one JSON object' };
    if (file.format !== FORMAT)
        return { error: `format must be "${FORMAT}": this is not an orv-cli area file` };
    if (file.version !== VERSION)
        return { error: `version ${file.version} is not supported (this page reads version ${VERSION})` };
    if (!Array.isArray(file.areas))
        return { error: 'areas: must be a list of areas' };
    return { file };
}

// What restoring incoming over current changes: [{what, from, to}], where
// what is "display" or an area number. Areas the incoming file leaves out
// stay as they are (as restore leaves them).
export function diffAreaFiles(current, incoming, words = WORDS) {
    const changes = [];
    if (incoming.display !== undefined && incoming.display !== (current && current.display))
        changes.push({ what: 'display', from: String(current ? current.display : ''), to: String(incoming.display) });
    for (let n = 1; n <= 3; ++n) {
        const next = entryOf(incoming, n);
        if (!next)
            continue;
        const now = entryOf(current, n) || { type: 'unset' };
        if (!sameEntry(now, next))
            changes.push({ what: n, from: entryText(now, words), to: entryText(next, words) });
    }
    return changes;
}

// orv-ID-YYYY-MM-DD.json, as the service names a download.
export function downloadName(id, date = new Date()) {
    const pad = (v) => String(v).padStart(2, '0');
    return `orv-${id}-${date.getUTCFullYear()}-${pad(date.getUTCMonth() + 1)}-${pad(date.getUTCDate())}.json`;
}

// Read-back against what was asked, per corner coordinate: [{name, asked,
// held}] for each value the module keeps differently (decimetre truncation).
export function truncations(asked, held) {
    const out = [];
    if (!asked || !held || asked.type === 'unset' || held.type === 'unset' || !held.from)
        return out;
    const names = [['from', 0, 'x1'], ['from', 1, 'y1'], ['to', 0, 'x2'], ['to', 1, 'y2']];
    for (const [key, i, name] of names) {
        const a = asked[key][i];
        const h = held[key][i];
        if (Math.abs(a - h) > 1e-9)
            out.push({ name, asked: a, held: h });
    }
    return out;
}
