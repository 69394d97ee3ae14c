// The page "Stream": what happens, in one list in its order.

import {h, KeyedList, mark, openDialog, put, facts, sign, setSign, tell} from "./dom.js";
import "./rows.js";
import {clockTextExact, counted, dateText, durationText, fidText, filterOf} from "./text.js";

// What the choices are called; the kinds of records that each lets pass.
const groups = [
    ["fid", "FIDs", ["fid", "fid-end"]],
    ["event", "Events", ["event", "mark"]],
    ["value", "Values", ["value", "stale"]],
    ["start", "Starts", ["start", "exit", "hang", "restart", "configuration"]],
    ["command", "Commands", ["command", "command-end"]],
    ["log", "Log", ["log", "output"]],
];
// What is missing is shown whatever is chosen.
const always = new Set(["missed", "gap"]);

function from(record) {
    if (!record.origin || record.origin === "driver")
        return "";
    return ` from ${record.origin}${record.who ? ` ${record.who}` : ""}`;
}

/** {text, kind}: a record in words, and whether it is bad, a warning or nothing of both. */
export function describe(record) {
    switch (record.kind) {
        case "value":
            return {text: record.value === null ? `${record.key} unset` : `${record.key} = ${typeof record.value === "string" ? `"${record.value}"` : record.value}`};
        case "event":
            return {text: `${record.key} ${record.value}`};
        case "fid": {
            const isRefused = !["begins", "written"].includes(record.outcome);
            return {text: `${fidText(record.fid, record.parameters)}${from(record)}${isRefused ? `: ${record.outcome}` : ""}`, kind: isRefused ? "bad" : ""};
        }
        case "fid-end":
            return {text: `#${record.of} ${record.outcome} after ${durationText(record.took_us)}${record.text ? `: ${record.text}` : ""}`,
                kind: ["refused", "threw"].includes(record.outcome) ? "bad" : ""};
        case "command":
            return {text: `${record.line}${from(record)}`};
        case "command-end":
            return {text: `#${record.of} ${record.ok ? "done" : "failed"} after ${durationText(record.took_us)}${record.text ? `: ${record.text}` : ""}`, kind: record.ok ? "" : "bad"};
        case "start":
            return {text: `${record.process ? `process ${record.process}` : "in the host's process"}${record.text ? `: ${record.text}` : ""}`};
        case "exit":
            return {text: record.text, kind: record.status === 0 ? "" : "bad"};
        case "hang":
            return {text: record.text, kind: "bad"};
        case "configuration":
            return {text: `${record.operation} ${record.ok ? "done" : "failed"} after ${durationText(record.took_us)}`, kind: record.ok ? "" : "bad"};
        case "log":
            return {text: `${record.output}: ${record.text}`, kind: record.level <= 2 ? "bad" : record.level === 3 ? "stale" : ""};
        case "stale":
            return {text: `${counted(record.values, "value")}: ${record.text}`, kind: "stale"};
        case "missed":
            return {text: `${counted(record.count, "record")} left out: they came faster than the page takes them`, kind: "stale"};
        case "gap":
            return {text: `${record.count ? counted(record.count, "record") : "an unknown number of records"} missing (${record.reason})`, kind: "stale"};
        case "mark":
            return {text: `${record.text}${from(record)}`};
        default:
            return {text: record.text ?? ""};
    }
}

function words(record) {
    record.words ??= describe(record);
    return record.words;
}

export class StreamPage {
    title = "Stream";
    element;
    filter = h("input", {type: "search", id: "stream-filter", placeholder: "text", autocomplete: "off", spellcheck: "false"});
    #context;
    #rows = document.createElement("mf-rows");
    #kinds = new Map();
    #driver = h("select", {id: "stream-driver"});
    #count = h("p", {class: "quiet-text", role: "status"});
    #pause = h("button", {type: "button", "aria-pressed": "false", onclick: () => this.togglePause()}, "Pause");
    #driverList;
    #items = [];
    #last = 0;
    #isPaused = false;
    #passes = () => true;

    constructor(context) {
        this.#context = context;
        this.#rows.setup({
            label: "What happened, oldest first",
            columns: [{name: "time", label: "Time"}, {name: "driver", label: "Driver"}, {name: "kind", label: "Kind"}, {name: "text", label: "What"}],
            keyOf: (record) => record.place,
            write: (row, record) => this.#write(row, record),
            open: (record) => this.#open(record),
        });
        this.filter.addEventListener("input", () => this.#context.setParameter("filter", this.filter.value.trim()));
        this.#driver.addEventListener("change", () => this.#context.setParameter("driver", this.#driver.value));
        this.#driverList = new KeyedList(this.#driver, ([value, label]) => ({element: h("option", {value}, label)}), () => {});
        const kinds = h("fieldset", {class: "choices"}, h("legend", {class: "unseen"}, "Kinds"));
        for (const [name, label] of groups) {
            const input = h("input", {type: "checkbox", value: name, onchange: () => this.#changeKinds()});
            this.#kinds.set(name, input);
            kinds.append(h("label", {}, input, label));
        }
        this.element = h("div", {class: "page stream"}, h("div", {class: "tools"},
            h("label", {class: "search", for: "stream-filter"}, h("span", {}, "Filter"), this.filter),
            h("label", {for: "stream-driver"}, h("span", {}, "Driver"), this.#driver), kinds, this.#pause,
            h("button", {type: "button", onclick: () => this.#link()}, "Link from here on"), this.#count), this.#rows);
    }

    show(parameters) {
        const filter = parameters.get("filter") ?? "";
        if (this.filter.value.trim() !== filter)
            this.filter.value = filter;
        const kinds = parameters.get("kinds")?.split(",") ?? groups.map(([name]) => name).filter((name) => name !== "value");
        for (const [name, input] of this.#kinds)
            input.checked = kinds.includes(name);
        this.#listDrivers(parameters.get("driver") ?? "");
        this.#choose();
        this.#rows.toEnd();
    }

    hide() {}

    second() {}

    news(changes) {
        if (changes.drivers.size > 0)
            this.#listDrivers(this.#driver.value);
        if (changes.records > 0 && !this.#isPaused)
            this.#append();
    }

    togglePause() {
        this.#isPaused = !this.#isPaused;
        mark(this.#pause, "aria-pressed", this.#isPaused);
        put(this.#pause, this.#isPaused ? "Go on" : "Pause");
        if (!this.#isPaused) {
            this.#append();
            this.#rows.toEnd();
        }
        this.#tellCount();
    }

    #listDrivers(chosen) {
        const ids = [...this.#context.model.drivers.keys()].sort();
        if (chosen && !ids.includes(chosen))
            ids.push(chosen);
        this.#driverList.set([["", "all"], ...ids.map((id) => [id, id])], ([value]) => value);
        this.#driver.value = chosen;
    }

    #changeKinds() {
        const chosen = [...this.#kinds].filter(([, input]) => input.checked).map(([name]) => name);
        this.#context.setParameter("kinds", chosen.join(","), {keepEmpty: true});
    }

    #choose() {
        const kinds = new Set(groups.filter(([name]) => this.#kinds.get(name).checked).flatMap(([, , each]) => each));
        const matches = filterOf(this.filter.value);
        const driver = this.#driver.value;
        const start = this.#start();
        this.#passes = (record) => always.has(record.kind)
            || (kinds.has(record.kind) && (!driver || record.driver === driver || record.receiver === driver)
                && (record.number === undefined || record.number >= start) && matches(words(record).text, record.driver, record.kind, `${record.driver}.${record.key}`));
        this.#items = this.#context.model.records.filter(this.#passes);
        this.#last = this.#context.model.records.at(-1)?.place ?? 0;
        this.#rows.set(this.#items);
        this.#tellCount();
    }

    /** "from=INSTANCE:both:NUMBER"; of another start of the host all that is here counts. */
    #start() {
        const [instance, , number] = (this.#context.route().get("from") ?? "").split(":");
        return instance === this.#context.model.host.instance ? Number(number) || 0 : 0;
    }

    #append() {
        const {records} = this.#context.model;
        const first = records[0]?.place ?? 0;
        let begin = records.length;
        while (begin > 0 && records[begin - 1].place > this.#last)
            --begin;
        this.#last = records.at(-1)?.place ?? this.#last;
        let gone = 0;
        while (gone < this.#items.length && this.#items[gone].place < first)
            ++gone;
        if (gone > 0)
            this.#items.splice(0, gone);
        this.#items.push(...records.slice(begin).filter(this.#passes));
        this.#rows.extend(this.#items, gone);
        this.#tellCount();
    }

    #tellCount() {
        put(this.#count, this.#isPaused ? `paused at ${counted(this.#items.length, "record")}` : counted(this.#items.length, "record"));
    }

    #write(row, record) {
        if (!row.sign) {
            row.sign = sign();
            row.cells.kind.append(row.sign);
        }
        const {text, kind} = words(record);
        put(row.cells.time, clockTextExact(record.us / 1000));
        put(row.cells.driver, record.driver ?? "");
        setSign(row.sign, kind || "plain", record.kind);
        put(row.cells.text, text);
        mark(row.cells.text, "title", text);
        mark(row.element, "data-kind", kind || null);
    }

    #open(record) {
        const {place, us, words: told, ...members} = record;
        openDialog(`${record.kind} ${record.driver}`, h("p", {class: "value"}, told.text),
            facts(Object.entries(members).map(([name, value]) => [name, typeof value === "object" ? JSON.stringify(value) : String(value)])),
            h("p", {class: "quiet-text"}, `${dateText(us / 1000)} where this page is; row ${place} of it`));
    }

    async #link() {
        const record = this.#rows.active ?? this.#items.at(-1);
        if (record?.number === undefined) {
            tell("There is no record to begin with.", true);
            return;
        }
        this.#context.setParameter("from", `${this.#context.model.host.instance}:both:${record.number}`);
        try {
            await navigator.clipboard.writeText(location.href);
            tell("The address of this view, from that record on, is in the clipboard.");
        } catch {
            tell("The address bar has the link to this view, from that record on.");
        }
    }
}
