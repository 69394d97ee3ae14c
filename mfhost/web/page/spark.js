// <mf-spark>: the last minute of a number as a small curve. It says its range in words to who cannot see it.

import {length} from "./history.js";

/** Tells curves how large they are: to ask while texts are being written would lay out the page for each of them. */
const sizes = new ResizeObserver((entries) => {
    for (const {target, contentRect} of entries)
        target.resized(contentRect.width, contentRect.height);
});
const heights = new Float32Array(length);

export class SparkLine extends HTMLElement {
    #canvas = document.createElement("canvas");
    #context = null;
    #style = null;
    #said = "";
    #width = 0;
    #height = 0;
    #history = null;
    #fromZero = false;
    /** What the canvas shows; empty for nothing. */
    #drawn = "";
    #drawnHeights = new Float32Array(length);

    connectedCallback() {
        if (!this.#canvas.isConnected)
            this.append(this.#canvas);
        this.setAttribute("role", "img");
        this.setAttribute("aria-label", this.#said || "no curve yet");
        sizes.observe(this);
    }

    disconnectedCallback() {
        sizes.unobserve(this);
        this.#width = 0;
    }

    /** Draws it, where it would look otherwise than it does; from zero where it is a rate. Nothing is drawn where nothing is known. */
    draw(history, {fromZero = false, words = null} = {}) {
        this.#history = history;
        this.#fromZero = fromZero;
        const range = history?.range();
        this.#say(range && words ? words(range) : "no curve yet");
        this.#paint(range);
    }

    /** By the observer, before the frame is painted. */
    resized(width, height) {
        this.#width = width;
        this.#height = height;
        this.#paint(this.#history?.range());
    }

    #paint(range) {
        // Hidden or out of the document it keeps its picture.
        if (this.#width === 0)
            return;
        const scale = Math.min(3, window.devicePixelRatio || 1);
        const width = Math.round(this.#width * scale);
        const height = Math.round(this.#height * scale);
        let wanted = "";
        if (range) {
            this.#style ??= getComputedStyle(this);
            wanted = `${width} ${height} ${this.#style.color}`;
            this.#place(range);
        }
        if (wanted === this.#drawn && (!range || heights.every((each, index) => Object.is(each, this.#drawnHeights[index]))))
            return;
        this.#drawn = wanted;
        this.#drawnHeights.set(heights);
        if (this.#canvas.width !== width || this.#canvas.height !== height) {
            this.#canvas.width = width;
            this.#canvas.height = height;
        }
        this.#context ??= this.#canvas.getContext("2d");
        this.#context.setTransform(scale, 0, 0, scale, 0, 0);
        this.#context.clearRect(0, 0, this.#width, this.#height);
        if (range)
            this.#stroke(this.#style.color);
    }

    /** How far from the top each sample lies. */
    #place(range) {
        const low = this.#fromZero ? Math.min(0, range.low) : range.low;
        const span = range.high - low || 1;
        const isFlat = range.high === low && !this.#fromZero;
        for (let index = 0; index < length; ++index) {
            const sample = this.#history.at(index);
            heights[index] = isFlat && !Number.isNaN(sample) ? this.#height / 2 : this.#height - 2 - ((sample - low) / span) * (this.#height - 4);
        }
    }

    #stroke(color) {
        const context = this.#context;
        const step = this.#width / (length - 1);
        context.strokeStyle = color;
        context.lineWidth = 1.5;
        context.lineJoin = "round";
        context.beginPath();
        let isDrawn = false;
        for (let index = 0; index < length; ++index) {
            const y = heights[index];
            if (Number.isNaN(y)) {
                isDrawn = false;
                continue;
            }
            if (isDrawn)
                context.lineTo(index * step, y);
            else
                context.moveTo(Math.min(index * step, this.#width - 2), y);
            // A single sample is a short stroke.
            if (!isDrawn)
                context.lineTo(Math.min(index * step, this.#width - 2) + 1, y);
            isDrawn = true;
        }
        context.stroke();
    }

    #say(text) {
        if (text === this.#said)
            return;
        this.#said = text;
        this.setAttribute("aria-label", text);
    }
}

customElements.define("mf-spark", SparkLine);
