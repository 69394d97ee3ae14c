// The page "Sessions", for who administers: who is connected, and the end of a session.

import {actionButton, ask, attempt, emptyNote, h} from "./dom.js";
import {dateText, hostTime} from "./text.js";

export class SessionsPage {
    title = "Sessions";
    element;
    #context;
    #list = h("div", {});

    constructor(context) {
        this.#context = context;
        this.element = h("div", {class: "page sessions"}, h("section", {"aria-labelledby": "sessions-title"},
            h("h2", {id: "sessions-title"}, "Who is connected"),
            h("p", {class: "line"}, h("button", {type: "button", onclick: () => this.show()}, "Look again")), this.#list));
    }

    async show() {
        let sessions;
        try {
            ({sessions} = await this.#context.api.get("/sessions"));
        } catch (error) {
            this.#list.replaceChildren(emptyNote(error.message));
            return;
        }
        const heads = ["Number", "User", "Role", "From", "Since", "Requests", ""];
        this.#list.replaceChildren(h("div", {class: "scroll", tabindex: "0", role: "region", "aria-label": "Sessions"}, h("table", {},
            h("thead", {}, h("tr", {}, heads.map((head) => h("th", {scope: "col"}, head || h("span", {class: "unseen"}, "End it"))))),
            h("tbody", {}, sessions.map((session) => this.#row(session))))));
    }

    hide() {}
    news() {}
    second() {}

    #row(session) {
        const isOwn = String(session.id) === String(this.#context.model.host.session);
        const from = session.address || (session.pid ? `process ${session.pid}` : "-");
        // Connections to the control socket are no sessions of the web panel: nobody ends them from here.
        const isWeb = !session.pid;
        const end = isWeb && !isOwn ? actionButton("End", "admin", () => this.#end(session), {"aria-label": `End session ${session.id}`}) : isOwn ? "this page" : "";
        return h("tr", {}, [String(session.id), session.user, session.role, from, dateText(hostTime(session.since) / 1000), String(session.requests ?? "-"), end]
            .map((cell) => h("td", {}, cell)));
    }

    async #end(session) {
        if (!await ask(`End session ${session.id}?`, `${session.user} has to sign in again at ${session.address || "that screen"}.`, "End it"))
            return;
        await attempt(`End session ${session.id}`, () => this.#context.api.act(`/sessions/${session.id}/revoke`));
        this.show();
    }
}
