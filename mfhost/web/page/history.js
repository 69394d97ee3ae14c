// The last minute of a number, one sample a second.

export const length = 60;

export class History {
    #samples = new Float32Array(length).fill(NaN);
    #next = 0;

    add(sample) {
        this.#samples[this.#next] = sample;
        this.#next = (this.#next + 1) % length;
    }

    /** Oldest first; NaN where nothing was known. */
    at(index) {
        return this.#samples[(this.#next + index) % length];
    }

    get size() {
        return length;
    }

    /** The smallest and the largest sample, or null when there is none. */
    range() {
        let low = Infinity;
        let high = -Infinity;
        for (const sample of this.#samples) {
            if (sample < low)
                low = sample;
            if (sample > high)
                high = sample;
        }
        return low > high ? null : {low, high};
    }
}
