// The live channel: keeps a WebSocket to the host, tells the model what comes, and says at any time whether what is
// shown still holds.

import {headers, isLoopback, token} from "./session.js";

/** Without a heartbeat for longer than this, nothing that is shown is taken for live. */
export const silenceLimit = 2500;
/** A connection that is silent for so long is given up. */
const deadLimit = 10000;
const pauses = [300, 1000, 2000, 3000];

export class LiveLink extends EventTarget {
    /** "connecting", "live", "silent", "signed-out" */
    state = "connecting";
    /** Why it is not live, in words. */
    cause = "";
    /** The host's time of the last message, in microseconds. */
    heardUs = null;
    /** When the host was started, as it told; null for not known. */
    started = null;

    #model;
    #socket = null;
    #page = "now";
    #heardAt = 0;
    #heardWall = 0;
    #attempts = 0;
    #timer = 0;
    #retry = 0;
    #isAsking = false;
    #bye = null;
    #isStopped = true;

    constructor(model) {
        super();
        this.#model = model;
        // A page that was hidden, asleep or frozen looks before anything is drawn.
        for (const [target, name] of [[document, "visibilitychange"], [document, "resume"], [window, "pageshow"],
            [window, "focus"], [window, "online"]])
            target.addEventListener(name, () => this.#look());
    }

    start(page) {
        this.#page = page;
        this.#isStopped = false;
        this.#setState("connecting", "Connecting to the host.");
        this.#connect();
    }

    stop() {
        this.#isStopped = true;
        clearTimeout(this.#retry);
        this.#drop();
    }

    /** Tries at once, whatever pause there is. */
    hurry() {
        if (!this.#socket && !this.#isStopped)
            this.#connect();
    }

    get isLive() {
        return this.state === "live";
    }

    /** The host's clock. It stands still while nothing is heard: ages are never guessed. */
    nowUs() {
        if (this.heardUs === null)
            return Date.now() * 1000;
        return this.isLive ? this.heardUs + (performance.now() - this.#heardAt) * 1000 : this.heardUs;
    }

    async #connect() {
        clearTimeout(this.#retry);
        // One at a time: a page that comes into sight while it asks does not ask twice.
        if (this.#isAsking)
            return;
        this.#isAsking = true;
        try {
            await this.#open();
        } finally {
            this.#isAsking = false;
        }
    }

    async #open() {
        if (isLoopback && !token()) {
            this.signedOut("");
            return;
        }
        // A WebSocket that is refused does not say why; this does.
        let answer;
        let host;
        try {
            answer = await fetch("/api/v1", {headers: headers(), cache: "no-store", signal: AbortSignal.timeout(5000)});
            host = await answer.json();
        } catch {
            this.#again("The host does not answer.");
            return;
        }
        if (this.#isStopped)
            return;
        if (answer.status === 401 || answer.status === 403) {
            this.signedOut(host.error?.text ?? "");
            return;
        }
        if (!answer.ok) {
            this.#again(`The host answered ${answer.status}.`);
            return;
        }
        this.started = host.started ?? null;
        const scheme = location.protocol === "https:" ? "wss" : "ws";
        const socket = new WebSocket(`${scheme}://${location.host}/api/v1/live`);
        this.#socket = socket;
        this.#bye = null;
        const first = {page: this.#page};
        if (token())
            first.authorize = token();
        socket.addEventListener("open", () => socket.send(JSON.stringify(first)));
        socket.addEventListener("message", (event) => this.#message(socket, event.data));
        socket.addEventListener("close", () => this.#closed(socket));
        this.#arm();
    }

    signedOut(text) {
        this.#isStopped = true;
        this.#drop();
        this.#setState("signed-out", text);
    }

    #message(socket, data) {
        if (socket !== this.#socket)
            return;
        const message = JSON.parse(data);
        switch (message.kind) {
            case "hello":
                this.#attempts = 0;
                this.#hello(message);
                break;
            case "chunk":
                if (!this.#model.apply(message)) {
                    // A hole: only everything anew is true again.
                    this.#again("A part of the news was lost.");
                    return;
                }
                this.#heard(message.time);
                this.dispatchEvent(new Event("news"));
                break;
            case "heartbeat":
                this.#heard(message.time);
                break;
            case "bye":
                this.#bye = message;
                break;
            default:
        }
    }

    #hello(message) {
        const former = this.#model.host.instance;
        const isRestarted = former !== "" && former !== message.instance;
        const isReturn = former !== "" && !isRestarted;
        const lastUs = this.heardUs;
        this.#model.begin(message);
        this.#note(message.time);
        this.#arm();
        this.dispatchEvent(new CustomEvent("hello", {detail: {isRestarted, isReturn, lastUs}}));
    }

    #note(us) {
        this.heardUs = us;
        this.#heardAt = performance.now();
        this.#heardWall = Date.now();
    }

    #heard(us) {
        this.#note(us);
        if (this.#model.complete)
            this.#setState("live", "");
        // How long the next silence may be is a matter of the state that it has by now.
        this.#arm();
    }

    /** Both clocks: one stands still while the machine sleeps, the other may be set. */
    #silentFor() {
        return Math.max(performance.now() - this.#heardAt, Date.now() - this.#heardWall);
    }

    #arm() {
        clearTimeout(this.#timer);
        if (!this.#socket)
            return;
        if (this.heardUs === null)
            this.#heardAt ||= performance.now();
        const limit = this.state === "live" ? silenceLimit : deadLimit;
        this.#timer = setTimeout(() => this.#look(), Math.max(20, limit - this.#silentFor() + 5));
    }

    #look() {
        if (this.#isStopped)
            return;
        if (!this.#socket) {
            if (document.visibilityState === "visible")
                this.hurry();
            return;
        }
        const silent = this.#silentFor();
        if (this.state === "live" && silent > silenceLimit)
            this.#setState("silent", "The host is not heard.");
        if (this.state !== "live" && silent > deadLimit && this.#socket.readyState !== WebSocket.CONNECTING) {
            this.#again("The host is not heard.");
            return;
        }
        this.#arm();
    }

    #closed(socket) {
        if (socket !== this.#socket)
            return;
        this.#socket = null;
        const bye = this.#bye;
        if (bye?.code === "revoked") {
            this.signedOut(bye.text);
            return;
        }
        this.#again(bye?.text || "The connection to the host is lost.");
    }

    #again(cause) {
        this.#drop();
        if (this.#isStopped)
            return;
        this.#setState(this.heardUs === null ? "connecting" : "silent", cause);
        const pause = this.#bye?.code === "limit" ? 10000 : pauses[Math.min(this.#attempts, pauses.length - 1)];
        ++this.#attempts;
        clearTimeout(this.#retry);
        this.#retry = setTimeout(() => this.#connect(), pause * (0.8 + 0.4 * Math.random()));
    }

    #drop() {
        clearTimeout(this.#timer);
        const socket = this.#socket;
        this.#socket = null;
        socket?.close();
    }

    #setState(state, cause) {
        if (state === this.state && cause === this.cause)
            return;
        this.state = state;
        this.cause = cause;
        this.dispatchEvent(new Event("state"));
    }
}
