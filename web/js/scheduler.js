// Drawing at most once per display frame: any number of invalidate() calls
// between two frames lead to one draw, in the next animation frame.

export class FrameScheduler {
    constructor(draw, requestFrame = (fn) => window.requestAnimationFrame(fn)) {
        this.draw = draw;
        this.requestFrame = requestFrame;
        this.pending = false;
        this.draws = 0;
    }

    invalidate() {
        if (this.pending)
            return;
        this.pending = true;
        this.requestFrame((time) => {
            this.pending = false;
            ++this.draws;
            this.draw(time);
        });
    }
}
