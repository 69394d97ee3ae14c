// <mf-spark>: the last minute of a number as a small curve. It says its range in words to who cannot see it.

export class SparkLine extends HTMLElement {
    #canvas = document.createElement("canvas");
    #context = null;
    #said = "";

    connectedCallback() {
        if (!this.#canvas.isConnected)
            this.append(this.#canvas);
        this.setAttribute("role", "img");
        this.setAttribute("aria-label", this.#said || "no curve yet");
    }

    /** Draws it; from zero where it is a rate. Nothing is drawn where nothing is known. */
    draw(history, {fromZero = false, words = null} = {}) {
        const width = this.clientWidth;
        const height = this.clientHeight;
        const scale = Math.min(3, window.devicePixelRatio || 1);
        if (this.#canvas.width !== Math.round(width * scale) || this.#canvas.height !== Math.round(height * scale)) {
            this.#canvas.width = Math.round(width * scale);
            this.#canvas.height = Math.round(height * scale);
        }
        this.#context ??= this.#canvas.getContext("2d");
        const context = this.#context;
        context.setTransform(scale, 0, 0, scale, 0, 0);
        context.clearRect(0, 0, width, height);
        const range = history?.range();
        this.#say(range && words ? words(range) : "no curve yet");
        if (!range || width === 0)
            return;
        const low = fromZero ? Math.min(0, range.low) : range.low;
        const span = range.high - low || 1;
        const step = width / (history.size - 1);
        const isFlat = range.high === low && !fromZero;
        context.strokeStyle = getComputedStyle(this).color;
        context.lineWidth = 1.5;
        context.lineJoin = "round";
        context.beginPath();
        let isDrawn = false;
        for (let index = 0; index < history.size; ++index) {
            const sample = history.at(index);
            if (Number.isNaN(sample)) {
                isDrawn = false;
                continue;
            }
            const y = isFlat ? height / 2 : height - 2 - ((sample - low) / span) * (height - 4);
            if (isDrawn)
                context.lineTo(index * step, y);
            else
                context.moveTo(Math.min(index * step, width - 2), y);
            // A single sample is a short stroke.
            if (!isDrawn)
                context.lineTo(Math.min(index * step, width - 2) + 1, y);
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
