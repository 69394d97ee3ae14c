// Requests to the host. An action bears an ID, so that asking again after a lost answer does it once.

import {headers} from "./session.js";
import {requestId} from "./text.js";

/** How long one answer is waited for before the page asks again, and for how long it goes on asking. */
const patience = {step: 2000, most: 60000, lost: 6};

export class ApiError extends Error {
    constructor(code, text, {nearest = [], reason = ""} = {}) {
        super(text);
        this.code = code;
        this.nearest = nearest;
        this.reason = reason;
    }
}

function pause(milliseconds) {
    return new Promise((resolve) => setTimeout(resolve, milliseconds));
}

export class Api {
    #link;
    #model;
    #before;

    /** before(path) is waited for before each action; what it throws is why the action is not done. */
    constructor(link, model, before) {
        this.#link = link;
        this.#model = model;
        this.#before = before;
    }

    async get(path) {
        return (await this.#ask("GET", path)).body;
    }

    /**
     * Does it once. onProgress is told of answers that say that it goes on. Where no answer comes, the error says that
     * nobody knows whether it was done.
     */
    async act(path, body = {}, {onProgress = () => {}, step = patience.step, method = "POST"} = {}) {
        this.#needHost();
        await this.#before(path);
        this.#needHost();
        const instance = this.#model.host.instance;
        const request = requestId();
        const begin = performance.now();
        for (let lost = 0; ;) {
            const rest = patience.most - (performance.now() - begin);
            try {
                const timeoutMs = Math.round(Math.max(0, Math.min(step, rest)));
                const answer = await this.#ask(method, path, {...body, request, timeoutMs});
                if (answer.status !== 202)
                    return answer.body;
                onProgress(answer.body);
                if (rest <= 0)
                    throw new ApiError("goes-on", "It goes on; the page does not wait any longer.");
            } catch (error) {
                if (error.code !== "no-answer")
                    throw error;
                if (++lost > patience.lost)
                    throw new ApiError("not-known", "No answer came: whether it was done is not known.");
                await pause(500);
                // Another host would do it a second time.
                if (!await this.#isStill(instance))
                    throw new ApiError("not-known", "The host was restarted meanwhile: whether it was done is not known.");
            }
        }
    }

    #needHost() {
        if (!this.#link.isLive)
            throw new ApiError("not-live", "Nothing is sent while the host is not heard.");
    }

    /** Also true while nobody answers. */
    async #isStill(instance) {
        try {
            return (await this.get("")).instance === instance;
        } catch (error) {
            return error.code === "no-answer";
        }
    }

    async #ask(method, path, body) {
        const settings = {method, headers: headers(), cache: "no-store", signal: AbortSignal.timeout(15000)};
        if (body) {
            settings.headers["Content-Type"] = "application/json";
            settings.body = JSON.stringify(body);
        }
        let answer;
        let told;
        try {
            answer = await fetch(`/api/v1${path}`, settings);
            told = await answer.json();
        } catch {
            throw new ApiError("no-answer", "The host does not answer.");
        }
        if (answer.ok)
            return {status: answer.status, body: told};
        const error = told.error ?? {code: "internal", text: `The host answered ${answer.status}.`};
        if (answer.status === 401)
            this.#link.signedOut(error.text);
        throw new ApiError(error.code, error.text, error);
    }
}
