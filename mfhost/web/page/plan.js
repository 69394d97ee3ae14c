// The page "Plan": what applying the files would change, apply, what was applied before, undo.

import {actionButton, ask, attempt, emptyNote, h, mark, openDialog, put, sign, tell} from "./dom.js";
import {lineDiff} from "./diff.js";
import {counted, dateText, hostTime} from "./text.js";

const actionWords = {
    "reload": "reloads",
    "load": "loads",
    "remove": "unloads",
    "rescan": "searches anew for",
    "restart-host": "needs a restart of the host for",
    "none": "leaves",
};

function table(label, heads, rows) {
    return h("div", {class: "scroll", tabindex: "0", role: "region", "aria-label": label}, h("table", {},
        h("thead", {}, h("tr", {}, heads.map((head) => (head ? h("th", {scope: "col"}, head) : h("td", {}))))),
        h("tbody", {}, rows.map((cells) => h("tr", {}, cells.map((cell) => h("td", {}, cell)))))));
}

export class PlanPage {
    title = "Plan";
    element;
    #context;
    #plan = null;
    #result = h("div", {class: "result", "aria-live": "polite"});
    #history = h("div", {});
    /** What the table of the history says, as text. */
    #listed = "";
    #apply;

    constructor(context) {
        this.#context = context;
        this.#apply = actionButton("Apply", "admin", () => this.#applyPlan(), {class: "primary"});
        this.element = h("div", {class: "page plan"},
            h("section", {"aria-labelledby": "plan-title"}, h("h2", {id: "plan-title"}, "What the files would change"),
                h("p", {class: "quiet-text"}, "A plan changes nothing. Apply does what it says, and is refused when the files have changed since."),
                h("div", {class: "line"}, actionButton("Make a plan", "operate", () => this.#makePlan()), this.#apply), this.#result),
            h("section", {"aria-labelledby": "history-title"}, h("h2", {id: "history-title"}, "Applied so far"), this.#history));
        this.#show(null);
    }

    show() {
        this.#listHistory();
    }

    hide() {}
    news() {}
    second() {}

    /** A plan of another start of the host means nothing to this one. */
    hostRestarted() {
        if (this.#plan)
            this.#show(null);
        this.#listHistory();
    }

    #show(plan) {
        this.#plan = plan;
        const canApply = plan && !plan.refusal && plan.changes.some((change) => change.action !== "none");
        this.#apply.hidden = !canApply;
        if (!plan) {
            this.#result.replaceChildren();
            return;
        }
        const parts = [];
        if (plan.refusal)
            parts.push(h("p", {class: "error"}, sign("bad", `It would be refused: ${plan.refusal}`)));
        if (plan.findings.length > 0) {
            parts.push(table("Findings", ["", "Where", "What"], plan.findings.map((finding) => [sign(finding.severity === "error" ? "bad" : "stale", finding.severity),
                finding.line ? `${finding.file}:${finding.line}` : finding.file, finding.text])));
        }
        if (plan.changes.length === 0)
            parts.push(emptyNote("No changes: what runs is what the files say."));
        else
            parts.push(table("Changes", ["Driver", "Apply", "Because"], plan.changes.map((change) => [change.driver || "the host", `${actionWords[change.action] ?? change.action} it`, change.reason])));
        this.#result.replaceChildren(...parts);
    }

    async #makePlan() {
        const plan = await attempt("Plan", () => this.#context.api.act("/plan"), null);
        if (plan)
            this.#show(plan);
    }

    async #applyPlan() {
        const plan = this.#plan;
        const touched = plan.changes.filter((change) => change.action !== "none");
        if (!await ask("Apply this plan?", `${counted(touched.length, "change")}: ${touched.map((change) => `${change.action} ${change.driver}`).join(", ")}.`, "Apply"))
            return;
        const applied = await attempt("Apply", () => this.#context.api.act("/apply", {plan: plan.plan}), null);
        this.#showApplied(applied);
    }

    #showApplied(applied) {
        if (!applied)
            return;
        this.#show(null);
        const failed = applied.changes.filter((change) => !change.done).length;
        tell(failed > 0 ? `Applied, but ${counted(failed, "change")} failed.` : applied.changes.length === 0 ? "There was nothing to change." : "Applied.", failed > 0);
        if (applied.changes.length > 0) {
            this.#result.replaceChildren(table("What was done", ["Driver", "", "Because", "Why not"], applied.changes.map((change) =>
                [change.driver || "the host", sign(change.done ? "live" : "bad", `${change.action}${change.done ? "" : ": not done"}`), change.reason, change.why])));
        }
        this.#listHistory();
    }

    async #listHistory() {
        let history;
        try {
            ({history} = await this.#context.api.get("/history"));
        } catch (error) {
            this.#listed = "";
            this.#history.replaceChildren(emptyNote(error.message));
            return;
        }
        const listed = JSON.stringify(history);
        if (listed === this.#listed)
            return;
        this.#listed = listed;
        if (history.length === 0) {
            this.#history.replaceChildren(emptyNote("Nothing was applied yet."));
            return;
        }
        const entries = [...history].sort((one, other) => other.number - one.number);
        this.#history.replaceChildren(table("History", ["Number", "When", "Who", "Outcome", ""], entries.map((entry, index) => {
            const older = entries[index + 1];
            const buttons = h("span", {class: "line"}, h("button", {type: "button", "aria-label": `View what number ${entry.number} changed`, onclick: () => this.#view(entry, older)}, "View"));
            if (index > 0)
                buttons.append(actionButton("Go back to it", "admin", () => this.#undo(entry), {"aria-label": `Go back to it, number ${entry.number}`}));
            return [String(entry.number), dateText(hostTime(entry.when) / 1000), entry.who, entry.outcome, buttons];
        })));
    }

    async #undo(entry) {
        if (!await ask(`Go back to number ${entry.number}?`, `The workplace file and its signature become those of ${dateText(hostTime(entry.when) / 1000)} again, and are applied.`, `Go back to ${entry.number}`))
            return;
        this.#showApplied(await attempt(`Undo to number ${entry.number}`, () => this.#context.api.act("/undo", {number: entry.number}), null));
    }

    async #view(entry, older) {
        const file = (number) => this.#context.api.get(`/history/${number}`).then((answer) => answer.file);
        try {
            const [now, former] = await Promise.all([file(entry.number), older ? file(older.number) : ""]);
            const lines = lineDiff(former, now).map(({sign: each, text}) => {
                const line = h("span", {class: "diff-line", "data-diff": each === " " ? null : each});
                put(line, `${each} ${text}`);
                return line;
            });
            const pre = h("pre", {class: "diff", tabindex: "0"}, lines);
            mark(pre, "aria-label", older ? `Lines of number ${older.number} begin with -, those of number ${entry.number} with +` : "The workplace file");
            openDialog(older ? `Number ${entry.number}, beside ${older.number}` : `Number ${entry.number}`, pre);
        } catch (error) {
            tell(error.message, true);
        }
    }
}
