// A line of text with a list of what may follow, as the combobox pattern of ARIA has it.

import {h, mark, put} from "./dom.js";

let instances = 0;

export class Combobox {
    element;
    input;
    #list;
    #suggest;
    #found = {start: 0, end: 0, items: []};
    #chosen = -1;
    #submit;
    #former;

    /** suggest(line, caret) gives {start, end, items}; former(step) another line that was typed, or null. */
    constructor({label, placeholder, suggest, submit, former}) {
        this.#suggest = suggest;
        this.#submit = submit;
        this.#former = former;
        const id = `list-${++instances}`;
        this.#list = h("ul", {role: "listbox", id, "aria-label": "What may follow", hidden: true});
        this.input = h("input", {type: "text", id: `line-${instances}`, role: "combobox", "aria-expanded": "false", "aria-controls": id,
            "aria-autocomplete": "list", autocomplete: "off", autocapitalize: "off", spellcheck: "false", placeholder, "aria-label": label});
        this.element = h("div", {class: "combobox"}, this.input, this.#list);
        this.input.addEventListener("input", () => this.open());
        this.input.addEventListener("focus", () => this.open());
        this.input.addEventListener("blur", () => this.close());
        this.input.addEventListener("keydown", (event) => this.#key(event));
        this.#list.addEventListener("pointerdown", (event) => {
            event.preventDefault();
            const option = event.target.closest("[role=option]");
            if (option)
                this.#take(Number(option.dataset.index));
        });
    }

    set(line) {
        this.input.value = line;
        this.input.focus();
        this.input.setSelectionRange(line.length, line.length);
        this.open();
    }

    open() {
        this.#found = this.#suggest(this.input.value, this.input.selectionStart);
        this.#chosen = -1;
        const options = this.#found.items.map(({text, hint}, index) => h("li", {role: "option", id: `${this.#list.id}-${index}`, "data-index": index, "aria-selected": "false"},
            h("span", {}, text), h("span", {class: "quiet-text"}, hint)));
        this.#list.replaceChildren(...options);
        this.#show(options.length > 0);
    }

    close() {
        this.#show(false);
    }

    #show(isOpen) {
        this.#list.hidden = !isOpen;
        mark(this.input, "aria-expanded", isOpen);
        if (!isOpen)
            mark(this.input, "aria-activedescendant", null);
    }

    #key(event) {
        const isOpen = !this.#list.hidden;
        const step = {ArrowDown: 1, ArrowUp: -1}[event.key];
        if (step && isOpen && (this.#chosen >= 0 || step > 0)) {
            this.#choose(this.#chosen + step);
        } else if (step) {
            const line = this.#former(-step);
            if (line !== null) {
                this.set(line);
                this.close();
            }
        } else if (event.key === "Tab" && isOpen && !event.shiftKey) {
            this.#take(Math.max(0, this.#chosen));
        } else if (event.key === "Enter" && isOpen && this.#chosen >= 0) {
            this.#take(this.#chosen);
        } else if (event.key === "Enter") {
            this.close();
            this.#submit(this.input.value);
        } else if (event.key === "Escape" && isOpen) {
            this.close();
            event.stopPropagation();
        } else {
            return;
        }
        event.preventDefault();
    }

    #choose(index) {
        const options = [...this.#list.children];
        this.#chosen = Math.max(-1, Math.min(options.length - 1, index));
        options.forEach((option, each) => mark(option, "aria-selected", each === this.#chosen));
        options[this.#chosen]?.scrollIntoView({block: "nearest"});
        mark(this.input, "aria-activedescendant", options[this.#chosen]?.id);
    }

    #take(index) {
        const {start, end, items} = this.#found;
        const line = this.input.value;
        const {text} = items[index];
        this.input.value = line.slice(0, start) + text + line.slice(end).replace(/^ /, "");
        const caret = start + text.length;
        this.input.setSelectionRange(caret, caret);
        this.open();
    }
}

/** An error of what was typed, below it; empty when there is none. */
export function errorLine() {
    const element = h("p", {class: "error", role: "alert", hidden: true});
    return {element, say(text) {
        element.hidden = text === "";
        put(element, text);
    }};
}
