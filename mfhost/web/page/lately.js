// The part of Now that says what has happened last: what somebody has done, what drivers have come to, warnings.

import {h, KeyedList, mark, put, setSign, sign} from "./dom.js";
import {describe} from "./stream.js";
import {clockText} from "./text.js";

const most = 8;
const kinds = new Set(["event", "mark", "start", "exit", "hang", "restart", "command"]);

/** Whether an operator wants to see it without asking: what drivers say to each other is no news. */
export function isNews(record) {
    if (record.kind === "fid")
        return record.origin !== "driver";
    if (record.kind === "log")
        return record.level <= 3;
    return kinds.has(record.kind);
}

export class LatelyPart {
    element;
    #context;
    #list;
    #seen = 0;
    /** Newest first. */
    #news = [];

    constructor(context) {
        this.#context = context;
        const rows = h("ol", {class: "lately", "aria-label": "What happened last, newest first"});
        this.element = h("section", {"aria-labelledby": "lately-title", hidden: true},
            h("header", {class: "part"}, h("h2", {id: "lately-title"}, "Lately"), h("a", {href: "#stream"}, "All of it")), rows);
        this.#list = new KeyedList(rows, () => this.#make(), (part, record) => this.#write(part, record), {isReused: true});
    }

    draw() {
        const {records} = this.#context.model;
        const fresh = [];
        for (let index = records.length - 1; index >= 0 && records[index].place > this.#seen && fresh.length < most; --index) {
            if (isNews(records[index]))
                fresh.push(records[index]);
        }
        this.#seen = records.at(-1)?.place ?? this.#seen;
        if (fresh.length === 0)
            return;
        this.#news = [...fresh, ...this.#news].slice(0, most);
        this.element.hidden = false;
        this.#list.set(this.#news, (record) => record.place);
    }

    #make() {
        const part = {time: h("span", {class: "when"}), driver: h("strong"), sign: sign("plain"), text: h("span", {class: "what"})};
        part.element = h("li", {}, part.time, part.driver, part.sign, part.text);
        return part;
    }

    #write(part, record) {
        const {text, kind} = describe(record);
        put(part.time, clockText(record.us / 1000));
        put(part.driver, record.driver);
        setSign(part.sign, kind || "plain", record.kind);
        put(part.text, text);
        mark(part.element, "data-kind", kind || null);
    }
}
