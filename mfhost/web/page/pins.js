// The keys that somebody has pinned at this screen, by workplace.

export class Pins {
    #keys = new Set();
    #context;

    constructor(context) {
        this.#context = context;
    }

    /** What is stored of the workplace that the page is connected to. */
    load() {
        this.#keys = new Set(this.#context.stored("pins", []));
    }

    has(key) {
        return this.#keys.has(key);
    }

    toggle(key) {
        if (!this.#keys.delete(key))
            this.#keys.add(key);
        this.#context.store("pins", [...this.#keys]);
    }

    [Symbol.iterator]() {
        return this.#keys[Symbol.iterator]();
    }
}
