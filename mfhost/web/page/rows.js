// <mf-rows>: a table of any length of which only the visible rows exist. Their cells are written in place.

import {h} from "./dom.js";

const spare = 4;
let instances = 0;

export class VirtualRows extends HTMLElement {
    #items = [];
    #rows = [];
    #columns = [];
    #write = () => {};
    #keyOf = () => "";
    #open = () => {};
    #body = h("div", {class: "rows-body", role: "rowgroup"});
    #grid = h("div", {class: "rows-scroll", role: "grid", tabindex: "0"});
    #rowHeight = 32;
    #height = 0;
    #active = -1;
    #activeKey = null;
    #first = 0;
    #id = ++instances;
    #isFollowing = false;
    #observer = new ResizeObserver(() => this.#layout());

    /**
     * columns: [{name, label}]; write(row, item) fills row.cells[name] and may set marks on row.element; keyOf(item) is
     * what an item is known by; open(item) is what Enter and a click do.
     */
    setup({label, columns, write, keyOf, open = () => {}, keys = () => {}}) {
        this.#columns = columns;
        this.#write = write;
        this.#keyOf = keyOf;
        this.#open = open;
        this.#grid.setAttribute("aria-label", label);
        this.#grid.setAttribute("aria-colcount", columns.length);
        const heads = columns.map((column, index) => h("span", {role: "columnheader", class: `cell ${column.name}`, "aria-colindex": index + 1},
            h("span", {class: column.hidden ? "unseen" : null}, column.label)));
        this.#grid.append(h("div", {role: "rowgroup", class: "rows-head-group"}, h("div", {role: "row", class: "rows-head", "aria-rowindex": 1}, heads)), this.#body);
        this.append(this.#grid);
        this.#grid.addEventListener("scroll", () => {
            this.#isFollowing = this.#grid.scrollTop + this.#grid.clientHeight >= this.#grid.scrollHeight - this.#rowHeight / 2;
            this.#draw();
        }, {passive: true});
        this.#grid.addEventListener("keydown", (event) => this.#key(event, keys));
        this.#body.addEventListener("click", (event) => this.#click(event));
        this.#observer.observe(this.#grid);
    }

    disconnectedCallback() {
        this.#observer.disconnect();
    }

    connectedCallback() {
        this.#observer.observe(this.#grid);
    }

    get items() {
        return this.#items;
    }

    get isAtEnd() {
        return this.#isFollowing;
    }

    get active() {
        return this.#items[this.#active] ?? null;
    }

    focusGrid() {
        this.#grid.focus();
    }

    /** Other items, or the same in another order. What was chosen stays so. */
    set(items) {
        this.#items = items;
        this.#active = this.#activeKey === null ? -1 : items.findIndex((item) => this.#keyOf(item) === this.#activeKey);
        this.#grid.setAttribute("aria-rowcount", items.length + 1);
        this.#layout();
    }

    /** Like set, for items of which some have gone at the beginning and others have come at the end. */
    extend(items, gone) {
        if (this.#active >= 0)
            this.#active -= gone;
        const isAtEnd = this.#isFollowing;
        this.#items = items;
        this.#grid.setAttribute("aria-rowcount", items.length + 1);
        this.#fit();
        if (isAtEnd)
            this.toEnd();
        else if (gone > 0)
            this.#grid.scrollTop -= gone * this.#rowHeight;
        this.#draw();
    }

    toEnd() {
        this.#isFollowing = true;
        this.#grid.scrollTop = this.#grid.scrollHeight;
    }

    /** Writes those of the visible rows whose items are meant; all without keys. */
    touch(keys = null) {
        for (const row of this.#rows) {
            if (row.item !== undefined && (!keys || keys.has(this.#keyOf(row.item))))
                this.#write(row, row.item);
        }
    }

    #layout() {
        const height = parseFloat(getComputedStyle(this).getPropertyValue("--row")) || 32;
        if (height !== this.#rowHeight) {
            this.#rowHeight = height;
            // Each row has to find its place anew.
            for (const row of this.#rows)
                row.index = -1;
        }
        this.#height = this.#grid.clientHeight;
        this.#fit();
        if (this.#isFollowing)
            this.#grid.scrollTop = this.#grid.scrollHeight;
        this.#draw();
    }

    /** As many rows as are seen at a time. */
    #fit() {
        const height = this.#rowHeight;
        this.#body.style.setProperty("height", `${this.#items.length * height}px`);
        const needed = Math.min(this.#items.length, Math.ceil(this.#height / height) + 2 * spare);
        while (this.#rows.length < needed)
            this.#addRow();
        while (this.#rows.length > needed)
            this.#rows.pop().element.remove();
    }

    #addRow() {
        const cells = {};
        const element = h("div", {role: "row", class: "row", id: `row-${this.#id}-${this.#rows.length}`});
        this.#columns.forEach((column, index) => {
            cells[column.name] = h("span", {role: "gridcell", class: `cell ${column.name}`, "aria-colindex": index + 1});
            element.append(cells[column.name]);
        });
        this.#body.append(element);
        this.#rows.push({element, cells, item: undefined, index: -1});
    }

    #draw() {
        const most = Math.max(0, this.#items.length - this.#rows.length);
        this.#first = Math.min(most, Math.max(0, Math.floor(this.#grid.scrollTop / this.#rowHeight) - spare));
        // A row keeps its item while it stays visible, so that scrolling writes only what comes into sight.
        for (let offset = 0; offset < this.#rows.length; ++offset) {
            const index = this.#first + offset;
            const row = this.#rows[index % this.#rows.length];
            const item = this.#items[index];
            if (row.index !== index) {
                row.index = index;
                row.element.style.setProperty("transform", `translateY(${index * this.#rowHeight}px)`);
                row.element.setAttribute("aria-rowindex", index + 2);
            }
            row.item = item;
            this.#write(row, item);
        }
        this.#showActive();
    }

    #showActive() {
        let id = null;
        for (const row of this.#rows) {
            const isActive = row.index === this.#active;
            row.element.toggleAttribute("data-active", isActive);
            row.element.setAttribute("aria-selected", isActive);
            if (isActive)
                id = row.element.id;
        }
        if (id)
            this.#grid.setAttribute("aria-activedescendant", id);
        else
            this.#grid.removeAttribute("aria-activedescendant");
    }

    #choose(index) {
        this.#active = Math.max(0, Math.min(this.#items.length - 1, index));
        this.#activeKey = this.active === null ? null : this.#keyOf(this.active);
        const head = this.#body.offsetTop;
        const top = this.#active * this.#rowHeight;
        const room = this.#grid.clientHeight - head;
        if (top < this.#grid.scrollTop)
            this.#grid.scrollTop = top;
        else if (top + this.#rowHeight > this.#grid.scrollTop + room)
            this.#grid.scrollTop = top + this.#rowHeight - room;
        this.#draw();
    }

    #key(event, keys) {
        const page = Math.max(1, Math.floor(this.#grid.clientHeight / this.#rowHeight) - 2);
        const steps = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page};
        if (event.key in steps)
            this.#choose(this.#active + steps[event.key]);
        else if (event.key === "Home")
            this.#choose(0);
        else if (event.key === "End")
            this.#choose(this.#items.length - 1);
        else if (event.key === "Enter" && this.active)
            this.#open(this.active);
        else if (!this.active || !keys(event.key, this.active))
            return;
        event.preventDefault();
        event.stopPropagation();
    }

    #click(event) {
        const row = this.#rows.find((each) => each.element.contains(event.target));
        if (!row || row.item === undefined)
            return;
        this.#active = row.index;
        this.#activeKey = this.#keyOf(row.item);
        this.#showActive();
        if (!event.target.closest("button, a"))
            this.#open(row.item);
    }
}

customElements.define("mf-rows", VirtualRows);
