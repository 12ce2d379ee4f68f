// Trails: where each target was over the last seconds. Targets are matched
// by their place in the report (the label the plane shows); a jump longer
// than maxJump metres starts a new piece of trail.

export class Trails {
    constructor(seconds = 5, maxJump = 2) {
        this.seconds = seconds;
        this.maxJump = maxJump;
        this.tracks = []; // per target index: [{x, y, t, start}]
    }

    setSeconds(seconds) {
        this.seconds = seconds;
    }

    clear() {
        this.tracks = [];
    }

    // targets: [[x, y], ...]; t: milliseconds.
    add(targets, t) {
        targets.forEach((p, k) => {
            const track = this.tracks[k] || (this.tracks[k] = []);
            const last = track[track.length - 1];
            const start = !last || Math.hypot(last.x - p[0], last.y - p[1]) > this.maxJump;
            track.push({ x: p[0], y: p[1], t, start });
        });
        this.prune(t);
    }

    prune(now) {
        const oldest = now - this.seconds * 1000;
        for (const track of this.tracks) {
            let drop = 0;
            while (drop < track.length && track[drop].t < oldest)
                ++drop;
            if (drop)
                track.splice(0, drop);
        }
    }

    // Pieces of trail to draw: [{points: [{x, y, age}]}], age 0 (now) .. 1
    // (about to go).
    pieces(now) {
        const span = this.seconds * 1000;
        const out = [];
        for (const track of this.tracks) {
            if (!track)
                continue;
            let piece = null;
            for (const p of track) {
                const age = Math.min(1, Math.max(0, (now - p.t) / span));
                if (p.start || !piece) {
                    piece = { points: [] };
                    out.push(piece);
                }
                piece.points.push({ x: p.x, y: p.y, age });
            }
        }
        return out;
    }
}
