// Who is at the controls: shown on the head of every page, and asked about before this page acts while it is another one.
// The host refuses nothing for it: it is a courtesy among those who look at the same workplace.

import {ApiError} from "./api.js";
import {actionButton, ask, attempt, facts, h, mark, openDialog, put} from "./dom.js";
import {clockText, dateText, hostTime} from "./text.js";

const path = "/controls";
// What leaves the workplace as it is.
const harmless = /^\/(controls|plan|sessions)(\/|$)/;

/** "14:03", or with the day where it was another one. */
function sinceText(holder) {
    const time = hostTime(holder.since) / 1000;
    const isToday = new Date(time).toDateString() === new Date().toDateString();
    return isToday ? clockText(time).slice(0, 5) : dateText(time).slice(0, 16);
}

export class Controls {
    #context;
    #button = document.getElementById("controls");
    #mark = h("span", {"aria-hidden": "true"});
    #who = h("span", {class: "controls-who"});
    #since = h("span", {class: "wide-only"});
    #said = document.getElementById("controls-said");
    /** One question for all actions that wait for it: the promise of its answer. */
    #question = null;
    /** Writes the open dialog anew. */
    #write = null;

    constructor(context) {
        this.#context = context;
        this.#button.append(this.#mark, " ", h("span", {class: "wide-only"}, "controls: "), this.#who, this.#since);
        this.#button.addEventListener("click", () => this.#open());
    }

    /** "nobody", "you" or "another": all pages of one session are one. */
    get state() {
        const holder = this.#holder;
        return !holder ? "nobody" : String(holder.session) === this.#context.model.host.session ? "you" : "another";
    }

    get text() {
        const holder = this.#holder;
        if (!this.#context.link.isLive)
            return "not heard";
        return !holder ? "nobody" : `${this.state === "you" ? "you" : holder.name}, since ${sinceText(holder)}`;
    }

    draw() {
        const holder = this.#holder;
        const [who, ...rest] = this.text.split(/(?=, since )/);
        const {isLive} = this.#context.link;
        put(this.#mark, !isLive ? "◌" : {nobody: "○", you: "●", another: "◐"}[this.state]);
        put(this.#who, who);
        put(this.#since, rest.join(""));
        mark(this.#button, "data-state", isLive ? this.state : null);
        mark(this.#button, "aria-label", `controls: ${this.text}`);
        mark(this.#button, "title", holder && isLive ? `${holder.name}, ${holder.from}` : null);
        put(this.#said, isLive ? `Controls: ${this.text}` : "");
        this.#write?.();
    }

    /**
     * Before an action: takes the controls where they are free, and asks where another one has them. An ApiError says that
     * the operator has left it.
     */
    async before(what) {
        if (harmless.test(what) || this.state === "you")
            return;
        if (this.state === "nobody" && await this.#takeFree())
            return;
        this.#question ??= this.#askFor().finally(() => {
            this.#question = null;
        });
        if (!await this.#question)
            throw new ApiError("left", `Nothing was done: ${this.#holder?.name ?? "another one"} is at the controls.`);
    }

    get #holder() {
        return this.#context.model.controls;
    }

    /** False where another one was faster. Whatever else is wrong stops no action: the controls are no lock. */
    async #takeFree() {
        try {
            await this.#change({take: true, unlessHeld: true});
        } catch (error) {
            if (error.code === "refused") {
                this.#know(await this.#context.api.get(path));
                return this.state !== "another";
            }
        }
        return true;
    }

    async #askFor() {
        const holder = this.#holder;
        const isWanted = await ask(`${holder.name} is at the controls since ${sinceText(holder)}. Take over?`,
            `${holder.from}. What you do is done then, and everybody is shown that the controls are yours.`, "Take over", "Cancel");
        return isWanted && await attempt("Take over", () => this.#change({take: true}), null) !== null;
    }

    async #change(body) {
        return this.#know(await this.#context.api.act(path, body));
    }

    /** Without waiting for the live channel. */
    #know(answer) {
        this.#context.model.setControls(answer.controls);
        this.draw();
        return answer;
    }

    #open() {
        const rows = {who: h("span"), from: h("span")};
        const take = actionButton("Take", "operate", () => attempt("Take the controls", () => this.#change({take: true}), null));
        const back = actionButton("Give back", "operate", () => attempt("Give the controls back", () => this.#change({take: false}), null));
        const dialog = openDialog("Controls", facts([["at the controls", rows.who], ["from", rows.from]]),
            h("p", {class: "quiet-text"}, "So that nobody acts past another one without knowing. It is no lock: the console, mfctl, scripts and macros are not asked."),
            h("footer", {}, back, take));
        this.#write = () => {
            put(rows.who, this.text);
            put(rows.from, this.#holder?.from ?? "-");
            put(take, this.state === "another" ? "Take over" : "Take");
            take.hidden = this.state === "you";
            back.hidden = this.state !== "you";
        };
        dialog.addEventListener("close", () => {
            this.#write = null;
        });
        this.#write();
    }
}
