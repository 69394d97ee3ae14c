// The page "Values": all values by driver, filtered while typing; those that are pinned come first.

import {attempt, actionButton, facts, forAction, h, mark, openDialog, put, setSign, sign} from "./dom.js";
import {lastHour} from "./past.js";
import "./rows.js";
import {ageOrHeard, valueSign} from "./signs.js";
import "./spark.js";
import {counted, dateText, filterOf} from "./text.js";

const shows = [["all", "All"], ["live", "Live"], ["stale", "Stale"], ["pinned", "Pinned"]];

export class ValuesPage {
    title = "Values";
    element;
    filter = h("input", {type: "search", id: "value-filter", placeholder: "AXIS* position", autocomplete: "off", spellcheck: "false"});
    #context;
    #rows = document.createElement("mf-rows");
    #count = h("p", {class: "quiet-text", role: "status"});
    #choices = new Map();
    #show = "all";
    #drawnKeys = -1;
    #isDue = false;
    #detail = null;

    constructor(context) {
        this.#context = context;
        this.#rows.setup({
            label: "Values",
            columns: [{name: "pin", label: "Pinned", hidden: true}, {name: "key", label: "Value of"}, {name: "text", label: "Value"},
                {name: "curve", label: "Last minute"}, {name: "holds", label: "Holds"}, {name: "age", label: "Age"}, {name: "owner", label: "Set by"}],
            keyOf: (item) => item.key,
            write: (row, item) => this.#write(row, item),
            open: (item) => this.#go(item.key),
            keys: (key, item) => this.#key(key, item),
        });
        this.filter.addEventListener("input", () => this.#changeFilter());
        this.filter.addEventListener("keydown", (event) => {
            if (event.key === "ArrowDown" || event.key === "Enter") {
                event.preventDefault();
                this.#rows.focusGrid();
            }
        });
        const choices = h("fieldset", {class: "choices"}, h("legend", {class: "unseen"}, "Which values"));
        for (const [name, label] of shows) {
            const input = h("input", {type: "radio", name: "show", value: name, onchange: () => this.#context.setParameter("show", name === "all" ? "" : name)});
            this.#choices.set(name, input);
            choices.append(h("label", {}, input, label));
        }
        this.element = h("div", {class: "page values"}, h("div", {class: "tools"},
            h("label", {class: "search", for: "value-filter"}, h("span", {}, "Filter"), this.filter), choices, this.#count), this.#rows);
    }

    show(parameters) {
        const filter = parameters.get("filter") ?? "";
        if (this.filter.value.trim() !== filter)
            this.filter.value = filter;
        this.#show = this.#choices.has(parameters.get("show")) ? parameters.get("show") : "all";
        this.#choices.get(this.#show).checked = true;
        this.#list();
        const key = parameters.get("value");
        if (this.#detail?.key === key)
            return;
        this.#detail?.dialog.close();
        if (key)
            this.#open(key);
    }

    hide() {
        this.#detail?.dialog.close();
    }

    news(changes) {
        const isAffected = this.#drawnKeys !== this.#context.model.keySet || (changes.staleness && ["live", "stale"].includes(this.#show));
        if (isAffected)
            this.#listSoon();
        if (changes.values.size > 0)
            this.#rows.touch(changes.values);
        if (this.#detail && changes.values.has(this.#detail.key))
            this.#detail.write();
    }

    second() {
        this.#rows.touch();
        this.#detail?.write();
    }

    #changeFilter() {
        this.#context.setParameter("filter", this.filter.value.trim());
    }

    /** A workplace that starts brings thousands of keys in many chunks: not each of them is sorted for. */
    #listSoon() {
        if (this.#isDue)
            return;
        this.#isDue = true;
        setTimeout(() => {
            this.#isDue = false;
            this.#list();
        }, 150);
    }

    #list() {
        const {model, pins} = this.#context;
        const passes = filterOf(this.filter.value);
        const items = [];
        for (const value of model.values.values()) {
            if (this.#isShown(value) && passes(value.key, value.owner))
                items.push(value);
        }
        items.sort((one, other) => pins.has(other.key) - pins.has(one.key) || (one.key < other.key ? -1 : 1));
        // A pinned key that there is no value of is not known, which is worth a row.
        const unknown = this.#show === "live" || this.#show === "stale" ? [] : [...pins].filter((key) => !model.values.has(key) && passes(key));
        this.#drawnKeys = model.keySet;
        this.#rows.set([...unknown.sort().map((key) => ({key})), ...items]);
        const shown = items.length === model.values.size ? counted(items.length, "value") : `${items.length} of ${counted(model.values.size, "value")}`;
        put(this.#count, unknown.length > 0 ? `${shown}, ${unknown.length} not known` : shown);
    }

    #isShown(value) {
        switch (this.#show) {
            case "live":
                return !value.cause;
            case "stale":
                return Boolean(value.cause);
            case "pinned":
                return this.#context.pins.has(value.key);
            default:
                return true;
        }
    }

    #write(row, item) {
        const {model, link, pins} = this.#context;
        const value = model.values.get(item.key) ?? null;
        const {cells} = row;
        if (!row.pin) {
            row.pin = h("button", {type: "button", class: "pin", tabindex: "-1"}, "");
            row.pin.addEventListener("click", () => this.#pin(row.item.key));
            cells.pin.append(row.pin);
            row.sign = sign();
            cells.holds.append(row.sign);
            row.spark = h("mf-spark");
            cells.curve.append(row.spark);
            row.age = h("span", {class: "age-text"});
            cells.age.append(row.age);
        }
        const isPinned = pins.has(item.key);
        mark(row.pin, "aria-pressed", isPinned);
        mark(row.pin, "aria-label", `Pin ${item.key}`);
        put(row.pin, isPinned ? "★" : "☆");
        put(cells.key, item.key);
        mark(cells.key, "title", item.key);
        put(cells.text, value ? value.text : "");
        mark(row.element, "data-type", value?.type);
        const {kind, text} = valueSign(value, link);
        setSign(row.sign, kind, text);
        mark(cells.holds, "title", text);
        put(row.age, value ? ageOrHeard(link, value.us) : "");
        put(cells.owner, value?.owner ?? "");
        // Drawn once a second: the curve has no more samples.
        const tick = this.#context.tick;
        if (row.drawnTick !== tick || row.drawnKey !== item.key) {
            row.drawnTick = tick;
            row.drawnKey = item.key;
            row.spark.hidden = !value?.history;
            if (value?.history)
                row.spark.draw(value.history, {words: ({low, high}) => `between ${low} and ${high} in the last minute`});
        }
    }

    #pin(key) {
        this.#context.pins.toggle(key);
        this.#list();
    }

    #key(key, item) {
        if (key !== "p" && key !== " ")
            return false;
        this.#pin(item.key);
        return true;
    }

    // --- one value ---

    /** Its address is this page's with the value in it: the way back leads to the table. */
    #go(key) {
        const parameters = new URLSearchParams(this.#context.route());
        parameters.set("value", key);
        this.#context.go(`#values?${parameters}`);
    }

    #open(key) {
        const parts = {text: h("p", {class: "large value"}), sign: sign(), curve: h("mf-spark", {class: "wide"})};
        const terms = {type: h("span"), owner: h("span"), age: h("span", {class: "when"}), at: h("span")};
        const input = h("input", {id: "new-value", autocomplete: "off"});
        const type = h("select", {id: "new-type"}, ["string", "int", "float", "bool"].map((each) => h("option", {}, each)));
        let isOffered = false;
        const form = h("form", {class: "line"}, h("label", {for: "new-value"}, "Set to"), input, h("label", {class: "unseen", for: "new-type"}, "Type"), type,
            forAction(h("button", {type: "submit"}, "Set"), "operate"),
            actionButton("Forget", "operate", () => attempt(`Forget ${key}`, () => this.#context.api.act("/unset", {key})), {"aria-label": `Forget ${key}`}));
        form.addEventListener("submit", (event) => {
            event.preventDefault();
            attempt(`Set ${key}`, () => this.#context.setValue(key, type.value, input.value));
        });
        const past = lastHour(this.#context, key);
        const dialog = openDialog(key, h("div", {class: "value-now"}, parts.text, parts.sign, parts.curve),
            facts([["type", terms.type], ["set by", terms.owner], ["age", terms.age], ["changed", terms.at]]),
            h("p", {}, h("a", {href: `#stream?filter=${encodeURIComponent(key)}`}, "What happened to it"), " · ",
                h("button", {type: "button", class: "link", onclick: () => this.#pin(key)}, "Pin or unpin it")), form, past.element);
        const write = () => {
            const now = this.#context.model.values.get(key);
            // At its own address it is opened before anything is known.
            if (now && !isOffered) {
                isOffered = true;
                input.value ||= now.text;
                type.value = now.type;
            }
            const {kind, text} = valueSign(now, this.#context.link);
            setSign(parts.sign, kind, text);
            put(parts.text, now ? now.text : "not known");
            put(terms.type, now?.type ?? "-");
            put(terms.owner, now?.owner ?? "-");
            put(terms.age, now ? ageOrHeard(this.#context.link, now.us) : "-");
            put(terms.at, now ? dateText(now.us / 1000) : "-");
            parts.curve.hidden = !now?.history;
            if (now?.history)
                parts.curve.draw(now.history, {words: ({low, high}) => `between ${low} and ${high} in the last minute`});
        };
        this.#detail = {key, dialog, write};
        mark(dialog, "class", "value-card");
        dialog.addEventListener("close", () => {
            if (this.#detail?.dialog === dialog)
                this.#detail = null;
            if (this.#context.route().get("value") === key)
                this.#context.setParameter("value", "");
        });
        write();
        past.read();
    }
}
