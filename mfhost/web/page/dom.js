// What all pages are built from: elements, cells that are written only when they change, lists, questions.

/** An element with attributes, listeners ("onclick") and children. */
export function h(name, attributes = {}, ...children) {
    const element = document.createElement(name);
    for (const [key, value] of Object.entries(attributes)) {
        if (value === undefined || value === null || value === false)
            continue;
        if (typeof value === "function")
            element.addEventListener(key.slice(2), value);
        else
            element.setAttribute(key, value === true ? "" : value);
    }
    element.append(...children.flat().filter((child) => child !== null && child !== undefined));
    return element;
}

/** Writes a text only where it differs: writing costs a layout. */
export function put(element, text) {
    const node = element.firstChild;
    if (!node)
        element.append(document.createTextNode(text));
    else if (node.data !== text)
        node.data = text;
}

/** An attribute; null takes it off. */
export function mark(element, name, value) {
    if (value === null || value === undefined) {
        if (element.hasAttribute(name))
            element.removeAttribute(name);
    } else if (element.getAttribute(name) !== String(value)) {
        element.setAttribute(name, value);
    }
}

/** A shape and a word: live, stale, unknown, wait, parked, bad. The shape is drawn by the style sheet. */
export function sign(kind = "unknown", text = "not known") {
    const element = h("span", {class: "sign", "data-sign": kind});
    put(element, text);
    return element;
}

export function setSign(element, kind, text) {
    mark(element, "data-sign", kind);
    put(element, text);
}

/** A child for each item, kept as long as its key is there; only what stands in the wrong place is moved. */
export class KeyedList {
    #parts = new Map();
    #parent;
    #make;
    #write;
    #spare = null;

    /**
     * make(item) gives {element, ...}; write(part, item) fills it. With isReused, where write fills all of it, what one item leaves
     * another takes: a list that goes on and on makes no elements for the browser to collect.
     */
    constructor(parent, make, write, {isReused = false} = {}) {
        this.#parent = parent;
        this.#make = make;
        this.#write = write;
        if (isReused)
            this.#spare = [];
    }

    get(key) {
        return this.#parts.get(key);
    }

    set(items, keyOf) {
        const keys = new Set(items.map(keyOf));
        for (const [key, part] of this.#parts) {
            if (!keys.has(key)) {
                part.element.remove();
                this.#parts.delete(key);
                this.#spare?.push(part);
            }
        }
        let place = this.#parent.firstChild;
        for (const item of items) {
            const key = keyOf(item);
            let part = this.#parts.get(key);
            if (!part) {
                part = this.#spare?.pop() ?? this.#make(item);
                this.#parts.set(key, part);
            }
            this.#write(part, item);
            if (part.element === place) {
                place = place.nextSibling;
            } else {
                const focused = part.element.contains(document.activeElement) ? document.activeElement : null;
                this.#parent.insertBefore(part.element, place);
                focused?.focus();
            }
        }
    }
}

const roles = ["view", "operate", "admin"];
let actions = {isLive: false, role: "view"};

function setAction(button) {
    const needed = button.dataset.action;
    const isAllowed = roles.indexOf(actions.role) >= roles.indexOf(needed);
    mark(button, "disabled", actions.isLive && isAllowed && !button.dataset.busy ? null : "");
    let why = null;
    if (!isAllowed)
        why = `needs the role ${needed}; yours is ${actions.role}`;
    else if (!actions.isLive)
        why = "the host is not heard";
    mark(button, "title", why);
}

/** Whether actions can be done at all, and whose: every button of an action follows. */
export function allowActions(isLive, role) {
    actions = {isLive, role};
    refreshActions();
}

/** After something that was out of the document has come into it. */
export function refreshActions() {
    document.querySelectorAll("[data-action]").forEach(setAction);
}

/** Marks a control as one that does something: it is disabled without the role, and while the host is not heard. */
export function forAction(button, role) {
    button.dataset.action = role;
    setAction(button);
    return button;
}

/** A button that does something at the host; while that lasts it cannot be pressed again. */
export function actionButton(text, role, run, attributes = {}) {
    const button = h("button", {type: "button", ...attributes}, text);
    button.addEventListener("click", async () => {
        button.dataset.busy = "yes";
        setAction(button);
        try {
            await run();
        } finally {
            delete button.dataset.busy;
            setAction(button);
        }
    });
    return forAction(button, role);
}

/** Says it to who looks and to who listens; a failure stays until it is closed. */
export function tell(text, isFailure = false) {
    const notices = document.getElementById("notices");
    const notice = h("div", {class: "notice", "data-failure": isFailure || null}, h("p", {}, text));
    notice.append(h("button", {type: "button", class: "quiet", "aria-label": "Close this notice", onclick: () => notice.remove()}, "✕"));
    notices.append(notice);
    while (notices.children.length > 4)
        notices.firstChild.remove();
    if (!isFailure)
        setTimeout(() => notice.remove(), 8000);
}

/** Runs an action of a button and tells how it ended. */
export async function attempt(what, run, done = `${what}: done.`) {
    try {
        const answer = await run();
        if (done)
            tell(done);
        return answer;
    } catch (error) {
        // What the operator has left is no failure.
        tell(`${what}: ${error.message}${nearestText(error)}`, error.code !== "left");
        return null;
    }
}

export function nearestText(error) {
    return error.nearest?.length ? ` Did you mean ${error.nearest.join(" or ")}?` : "";
}

/** A dialog with a heading; it is gone when it is closed. */
export function openDialog(title, ...children) {
    const dialog = h("dialog", {"aria-label": title});
    const close = h("button", {type: "button", class: "quiet", "aria-label": "Close", onclick: () => dialog.close()}, "✕");
    dialog.append(h("header", {}, h("h2", {}, title), close), ...children);
    dialog.addEventListener("close", () => dialog.remove());
    document.body.append(dialog);
    dialog.showModal();
    return dialog;
}

/** True when the operator says yes. Enter and Escape both leave all as it is: the button has to be chosen. */
export function ask(title, text, yes, no = "Leave it") {
    return new Promise((resolve) => {
        const keep = h("button", {type: "button", autofocus: true, onclick: () => dialog.close()}, no);
        const go = forAction(h("button", {type: "button", class: "danger", onclick: () => {
            resolve(true);
            dialog.close();
        }}, yes), "view");
        const dialog = openDialog(title, h("p", {}, text), h("footer", {}, keep, go));
        dialog.addEventListener("close", () => resolve(false));
        keep.focus();
    });
}

/** A list of terms; texts may be elements. */
export function facts(rows) {
    return h("dl", {class: "facts"}, rows.flatMap(([term, text]) => [h("dt", {}, term), h("dd", {}, text ?? "")]));
}

export function emptyNote(text) {
    return h("p", {class: "empty"}, text);
}
