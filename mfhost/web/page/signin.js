// The page before all others: six digits, or the code of a link.

import {errorLine} from "./combobox.js";
import {h, put} from "./dom.js";
import {isLoopback, signIn} from "./session.js";

export class SignInPage {
    title = "Sign in";
    element;
    #why = h("p", {class: "error", role: "status"});
    #error = errorLine();
    #code = h("input", {id: "code", autocomplete: "one-time-code", inputmode: "numeric", spellcheck: "false", required: true, "aria-describedby": "code-help"});
    #done;

    /** done is called when a session is open. */
    constructor(done) {
        this.#done = done;
        const form = h("form", {class: "sign-in"}, h("h2", {}, "Sign in"), this.#why,
            h("label", {for: "code"}, "Code"), this.#code, this.#error.element, h("button", {type: "submit", class: "primary"}, "Sign in"),
            h("p", {id: "code-help", class: "quiet-text"}, isLoopback
                ? "mfctl panel at this machine prints a link with a code in it; mfctl pair prints six digits for this field."
                : "mfctl pair at the host's machine prints six digits. They hold for two minutes."));
        form.addEventListener("submit", (event) => {
            event.preventDefault();
            this.open(this.#code.value.trim());
        });
        this.element = h("div", {class: "page"}, form);
    }

    show(why) {
        put(this.#why, why);
        this.#why.hidden = why === "";
        this.#code.value = "";
        this.#code.focus();
    }

    async open(code) {
        this.#error.say("");
        const error = await signIn(code);
        this.#error.say(error);
        if (error === "")
            this.#done();
        else
            this.#code.select();
    }
}
