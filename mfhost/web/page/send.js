// The page "Send": a FID with completion, and how far it has come; values, events, macros.

import {Combobox, errorLine} from "./combobox.js";
import {completions} from "./complete.js";
import {actionButton, attempt, emptyNote, forAction, h, mark, put, setSign, sign} from "./dom.js";
import {clockText, durationText, fidText, parseFid} from "./text.js";

const mostSent = 30;
// For so long after its outcome a FID's card takes over what its driver logs; and how many lines of it.
const heardOutMs = 3000;
const mostLogged = 5;
const mostFormer = 50;
// How far a FID can come, by the driver's mode, and what each rung means.
const inProcess = ["accepted", "dispatched", "delivered"];
const byQueue = ["accepted", "dispatched", "written", "taken"];
const meanings = {
    accepted: "it waits for its driver",
    dispatched: "the module has it",
    delivered: "the driver has returned",
    written: "it is in the driver's queue",
    taken: "the driver's process has taken it",
};

export class SendPage {
    title = "Send";
    element;
    #context;
    #line;
    #error = errorLine();
    #sent = h("ol", {class: "sent", tabindex: "0", "aria-label": "What was sent, newest first"});
    /** Below the line, where it is seen on a phone as well. */
    #sentPart = h("section", {class: "sent-part", "aria-labelledby": "sent-title", hidden: true}, h("h2", {id: "sent-title"}, "Sent"), this.#sent);
    #macros = h("div", {class: "macros"});
    /** The macros that have a button, as text. */
    #listed = "";
    #former = [];
    #place = -1;
    /** Cards of FIDs that may still be answered in the log: {card, driver, place, until}. */
    #watches = new Set();

    constructor(context) {
        this.#context = context;
        this.#line = new Combobox({
            label: "Function ID",
            placeholder: "AXIS1.MOVE to=10.5 fast=true",
            suggest: (line, caret) => completions(line, caret, this.#context.model),
            submit: (line) => this.#send(line),
            former: (step) => this.#another(step),
        });
        const send = forAction(h("button", {type: "button", class: "primary", onclick: () => this.#send(this.#line.input.value)}, "Send"), "operate");
        this.element = h("div", {class: "page send"},
            h("section", {"aria-labelledby": "send-title"}, h("h2", {id: "send-title"}, "Send a function ID"),
                h("div", {class: "line"}, this.#line.element, send), this.#error.element,
                h("p", {class: "quiet-text hint"}, "Tab completes, Enter sends, the arrow keys bring former lines back.")),
            this.#sentPart,
            h("div", {class: "two"}, this.#valueForm(), this.#eventForm(),
                h("section", {"aria-labelledby": "macro-title"}, h("h2", {id: "macro-title"}, "Macros"), this.#macros)));
    }

    show(parameters) {
        this.#former = this.#context.stored("sent", []);
        this.#place = -1;
        const line = parameters.get("fid");
        if (line !== null)
            this.#line.set(line);
        this.#listMacros();
    }

    hide() {
        this.#line.close();
    }

    news(changes) {
        if (changes.records > 0)
            this.#hearOut();
    }

    second() {
        this.#hearOut();
    }

    /** What a driver refuses by itself it only logs: a process is done with a FID when it has taken it. */
    #hearOut() {
        for (const watch of this.#watches) {
            const lines = [];
            const {records} = this.#context.model;
            for (let index = records.length - 1; index >= 0 && records[index].place > watch.place; --index) {
                const {kind, driver, level, text} = records[index];
                if (kind === "log" && driver === watch.driver && level <= 3)
                    lines.unshift(text);
            }
            watch.card.log(watch.driver, lines.slice(0, mostLogged));
            if (performance.now() > watch.until)
                this.#watches.delete(watch);
        }
    }

    focus() {
        this.#line.input.focus();
        this.#line.input.select();
    }

    #another(step) {
        const place = this.#place + step;
        if (place < 0 || place >= this.#former.length)
            return null;
        this.#place = place;
        return this.#former[place];
    }

    #remember(line) {
        this.#former = [line, ...this.#former.filter((each) => each !== line)].slice(0, mostFormer);
        this.#place = -1;
        this.#context.store("sent", this.#former);
    }

    async #send(line) {
        const {fid, parameters, error} = parseFid(line);
        this.#error.say(error);
        if (error || !this.#context.allows("operate"))
            return;
        this.#remember(fidText(fid, parameters));
        await this.#fid(fid, parameters);
        // Where it failed, the line stays to be mended.
        if (this.#line.input.value === line)
            this.#line.input.select();
    }

    async #fid(fid, parameters) {
        const id = fid.slice(0, fid.indexOf("."));
        const card = this.#addCard(fidText(fid, parameters), this.#context.model.drivers.get(id)?.mode === "queue" ? byQueue : inProcess);
        const watch = {card, driver: id, place: this.#context.model.records.at(-1)?.place ?? 0, until: Infinity};
        this.#watches.add(watch);
        const text = fidText(fid, parameters);
        card.buttons.append(actionButton("Again", "operate", () => this.#fid(fid, parameters), {"aria-label": `Send ${text} again`}),
            h("button", {type: "button", onclick: () => this.#line.set(text)}, "Edit"));
        try {
            const body = {fid, parameters, wait: "taken"};
            const outcome = await this.#context.api.act("/fid", body, {step: 250, onProgress: (answer) => card.reach(answer)});
            card.reach(outcome);
            card.end(outcome);
        } catch (error) {
            card.fail(error, (nearest) => {
                const mended = fidText(fid.includes(".") && !nearest.includes(".") ? this.#mended(fid, nearest, error.reason) : nearest, parameters);
                this.#line.set(mended);
            });
        } finally {
            watch.until = performance.now() + heardOutMs;
        }
    }

    /** What was meant instead, a driver or a function, within the FID. */
    #mended(fid, nearest, reason) {
        const dot = fid.indexOf(".");
        return reason === "unknown-function" ? fid.slice(0, dot + 1) + nearest : nearest + fid.slice(dot);
    }

    #addCard(title, rungs) {
        const card = new SentCard(title, rungs);
        this.#sentPart.hidden = false;
        this.#sent.prepend(card.element);
        this.#sent.scrollTop = 0;
        card.element.scrollIntoView({block: "nearest"});
        while (this.#sent.children.length > mostSent)
            this.#sent.lastChild.remove();
        return card;
    }

    // --- values, events, macros ---

    #valueForm() {
        const key = h("input", {id: "value-key", autocomplete: "off", spellcheck: "false", placeholder: "AXIS1.LABEL"});
        const type = h("select", {id: "value-type"}, ["string", "int", "float", "bool"].map((each) => h("option", {}, each)));
        const text = h("input", {id: "value-text", autocomplete: "off"});
        return this.#form("Set a value", [["value-key", "Value of", key], ["value-type", "Type", type], ["value-text", "Becomes", text]], "Set",
            () => this.#setValue(key.value.trim(), type.value, text.value));
    }

    #eventForm() {
        const id = h("input", {id: "event-id", autocomplete: "off", spellcheck: "false", placeholder: "AXIS1.HOMED"});
        const text = h("input", {id: "event-text", autocomplete: "off"});
        return this.#form("Trigger an event", [["event-id", "Event", id], ["event-text", "With", text]], "Trigger",
            () => this.#plain(`Event ${id.value.trim()} ${text.value}`, "/event", {id: id.value.trim(), value: text.value}));
    }

    #form(title, fields, verb, run) {
        const rows = fields.map(([id, label, input]) => h("div", {class: "field"}, h("label", {for: id}, label), input));
        const form = h("form", {}, h("h2", {}, title), rows, forAction(h("button", {type: "submit"}, verb), "operate"));
        form.addEventListener("submit", (event) => {
            event.preventDefault();
            run();
        });
        return h("section", {"aria-label": title}, form);
    }

    async #setValue(key, type, text) {
        const former = this.#context.model.values.get(key);
        const undo = former ? {label: `Set back to ${former.text}`, run: () => this.#setValue(key, former.type, former.text)} : null;
        await this.#plain(`${key} = ${text}`, () => this.#context.setValue(key, type, text), null, undo);
    }

    /** Something that is done or not, without stages between. */
    async #plain(title, path, body, undo = null) {
        const card = this.#addCard(title, ["done"]);
        try {
            const answer = await (typeof path === "function" ? path() : this.#context.api.act(path, body));
            card.reach({stage: "done"});
            put(card.note, answer.output?.trim() ?? "");
            if (undo)
                card.buttons.append(actionButton(undo.label, "operate", undo.run));
        } catch (error) {
            card.fail(error);
        }
    }

    async #listMacros() {
        let macros;
        try {
            ({macros} = await this.#context.api.get("/macros"));
        } catch (error) {
            this.#listed = "";
            this.#macros.replaceChildren(emptyNote(error.message));
            return;
        }
        const listed = JSON.stringify(macros);
        if (listed === this.#listed)
            return;
        this.#listed = listed;
        const buttons = macros.map(({name}) => actionButton(name, "operate", () =>
            this.#plain(`Macro ${name}`, `/macros/${encodeURIComponent(name)}/play`, {}), {"aria-label": `Play the macro ${name}`}));
        this.#macros.replaceChildren(...(buttons.length > 0 ? buttons : [emptyNote("The panel driver has no macro.")]));
    }
}

/** What was sent, and each rung that it has reached. */
class SentCard {
    element;
    note = h("p", {class: "outcome", role: "status"});
    buttons = h("footer", {});
    #logged = h("div", {class: "logged", role: "status"});
    #rungs = new Map();
    #names;
    #reached = -1;

    constructor(title, names) {
        this.#names = names;
        const list = h("ol", {class: "ladder"});
        for (const name of names) {
            const part = {sign: sign("wait", name), when: h("span", {class: "quiet-text"})};
            part.element = h("li", {title: meanings[name] ?? ""}, part.sign, part.when);
            this.#rungs.set(name, part);
            list.append(part.element);
        }
        this.element = h("li", {class: "tile"}, h("header", {}, h("h3", {}, title), h("span", {class: "quiet-text"}, clockText(Date.now()))),
            list, this.note, this.#logged, this.buttons);
        this.#draw("wait");
    }

    reach({stage, tookUs}) {
        // A stage that this ladder does not have: the driver's mode is another than the page knew.
        const index = this.#names.indexOf(stage);
        if (index < 0)
            return;
        this.#reached = Math.max(this.#reached, index);
        if (tookUs !== undefined)
            put(this.#rungs.get(stage).when, durationText(tookUs));
        this.#draw("wait");
    }

    end({stage, result, tookUs}) {
        this.#draw("none");
        mark(this.element, "data-kind", result === false || this.#logged.hasChildNodes() ? "stale" : "live");
        const answered = result === undefined ? "" : `, and answered ${result}`;
        put(this.note, `${stage[0].toUpperCase()}${stage.slice(1)} after ${durationText(tookUs)}${answered}: ${meanings[stage]}.`);
    }

    fail(error, take = null) {
        const isUnknown = ["not-known", "goes-on"].includes(error.code);
        this.#draw(isUnknown ? "unknown" : "bad");
        mark(this.element, "data-kind", isUnknown ? "unknown" : "bad");
        put(this.note, error.message);
        for (const nearest of take ? error.nearest ?? [] : [])
            this.buttons.append(h("button", {type: "button", onclick: () => take(nearest)}, `Did you mean ${nearest}?`));
    }

    /** What the driver has logged since: it may say that it has not done it. */
    log(driver, lines) {
        if (lines.length === this.#logged.querySelectorAll("li").length)
            return;
        this.#logged.replaceChildren(sign("stale", `${driver} has logged since:`), h("ul", {}, lines.map((line) => h("li", {}, line))));
        if (this.element.dataset.kind !== "bad")
            mark(this.element, "data-kind", "stale");
    }

    /** next is the sign of the first rung that is not reached. */
    #draw(next) {
        this.#names.forEach((name, index) => {
            const {sign: shown, element} = this.#rungs.get(name);
            const isNext = index === this.#reached + 1;
            const kind = index <= this.#reached ? "live" : isNext && next !== "none" ? next : "off";
            setSign(shown, kind, name);
            const word = {live: "reached", wait: "not yet", bad: "failed", unknown: "not known", off: "not reached"}[kind];
            mark(element, "aria-label", `${name}: ${word}`);
            mark(element, "data-reached", index <= this.#reached ? "yes" : null);
        });
    }
}
