// The service's JSON API and its event stream. The page is served by the
// service, so every URL is on the page's own origin and the cookie set by the
// token link goes with every request.

export class ApiError extends Error {
    constructor(status, message, body) {
        super(message);
        this.status = status;
        this.body = body;
    }
}

export class Api {
    constructor(base = '', fetchImpl = (...a) => window.fetch(...a)) {
        this.base = base;
        this.fetch = fetchImpl;
    }

    moduleUrl(id, rest = '') {
        return `${this.base}/api/modules/${encodeURIComponent(id)}${rest}`;
    }

    // Resolves to {status, body, etag}; rejects with ApiError on a status
    // other than 2xx (its message the service's "error" text).
    async request(method, url, body, etag) {
        const headers = { Accept: 'application/json' };
        if (body !== undefined)
            headers['Content-Type'] = 'application/json';
        if (etag)
            headers['If-Match'] = etag;
        let response;
        try {
            response = await this.fetch(url, {
                method,
                headers,
                body: body === undefined ? undefined : JSON.stringify(body),
                credentials: 'same-origin',
                cache: 'no-store',
            });
        } catch (e) {
            throw new ApiError(0, String(e && e.message ? e.message : e), null);
        }
        const text = await response.text();
        let json = null;
        try {
            json = text ? JSON.parse(text) : null;
        } catch (e) {
            json = null;
        }
        if (!response.ok) {
            const message = json && typeof json.error === 'string' ? json.error : `HTTP ${response.status}`;
            throw new ApiError(response.status, message, json);
        }
        return { status: response.status, body: json, etag: response.headers.get('ETag') };
    }

    async modules() {
        const r = await this.request('GET', `${this.base}/api/modules`);
        const list = Array.isArray(r.body) ? r.body : (r.body && r.body.modules) || [];
        return list;
    }

    module(id) {
        return this.request('GET', this.moduleUrl(id));
    }

    areas(id) {
        return this.request('GET', this.moduleUrl(id, '/areas'));
    }

    downloadUrl(id) {
        return this.moduleUrl(id, '/areas?download=1');
    }

    putAreas(id, file, etag) {
        return this.request('PUT', this.moduleUrl(id, '/areas'), file, etag);
    }

    putArea(id, number, area, etag) {
        return this.request('PUT', this.moduleUrl(id, `/areas/${number}`), area, etag);
    }

    cancelArea(id, number, etag) {
        return this.request('DELETE', this.moduleUrl(id, `/areas/${number}`), undefined, etag);
    }

    cancelAll(id, etag) {
        return this.request('DELETE', this.moduleUrl(id, '/areas'), undefined, etag);
    }

    putDisplay(id, display, etag) {
        return this.request('PUT', this.moduleUrl(id, '/display'), { display }, etag);
    }
}

// The event stream of one module, reconnecting by itself: after an error
// (network drop, service restart, an answer other than a stream) it closes
// the EventSource and opens a new one after a delay that doubles from
// minDelay up to maxDelay, and back to minDelay once a connection opens.
// handlers: {status, config, targets, areas} get the parsed data; onState
// gets "connecting", "open" or "reconnecting" (with the delay in ms).
export class EventStream {
    constructor(url, handlers, options = {}) {
        this.url = url;
        this.handlers = handlers;
        this.onState = options.onState || (() => {});
        this.EventSourceImpl = options.EventSource || window.EventSource;
        this.setTimer = options.setTimeout || ((fn, ms) => window.setTimeout(fn, ms));
        this.clearTimer = options.clearTimeout || ((t) => window.clearTimeout(t));
        this.minDelay = options.minDelay || 500;
        this.maxDelay = options.maxDelay || 5000;
        this.delay = this.minDelay;
        this.source = null;
        this.timer = null;
        this.state = 'closed';
        this.reconnects = 0;
    }

    setState(state, detail) {
        this.state = state;
        this.onState(state, detail);
    }

    start() {
        this.stopped = false;
        this.open();
    }

    open() {
        this.timer = null;
        this.setState(this.reconnects ? 'reconnecting' : 'connecting', 0);
        const source = new this.EventSourceImpl(this.url, { withCredentials: true });
        this.source = source;
        source.onopen = () => {
            if (this.source !== source)
                return;
            this.delay = this.minDelay;
            this.setState('open');
        };
        source.onerror = () => {
            if (this.source !== source)
                return;
            this.retry();
        };
        for (const name of ['status', 'config', 'targets', 'areas']) {
            source.addEventListener(name, (event) => {
                if (this.source !== source || !this.handlers[name])
                    return;
                let data;
                try {
                    data = JSON.parse(event.data);
                } catch (e) {
                    return;
                }
                this.handlers[name](data);
            });
        }
    }

    retry() {
        if (this.source) {
            this.source.close();
            this.source = null;
        }
        if (this.stopped || this.timer !== null)
            return;
        const delay = this.delay;
        this.delay = Math.min(this.maxDelay, this.delay * 2);
        ++this.reconnects;
        this.setState('reconnecting', delay);
        this.timer = this.setTimer(() => this.open(), delay);
    }

    stop() {
        this.stopped = true;
        if (this.timer !== null)
            this.clearTimer(this.timer);
        this.timer = null;
        if (this.source)
            this.source.close();
        this.source = null;
        this.setState('closed');
    }
}
