// Links to other workplaces: what each link driver reports of itself, as one line for Now and as one word for the wall.

import {h, KeyedList, mark, put, setSign, sign} from "./dom.js";
import {ageOrHeard} from "./signs.js";
import "./spark.js";
import {ageText, rateText} from "./text.js";

const driverType = "Link";
const names = ["LINK", "LINK_SITE", "LINK_TO", "LINK_BROKER", "LINK_DELAY", "LINK_IN", "LINK_OUT", "LINK_ERROR"];

/** Whether a driver is a link. */
export function isLink(driver) {
    return driver.type === driverType;
}


/** What is known of one link; figures are null where they do not hold. */
function linkOf(driver, model) {
    const find = (name) => model.values.get(`${driver.id}.${name}`);
    const text = (name) => find(name)?.text ?? "";
    const figure = (name) => (find(name) && !find(name).cause ? find(name).value : null);
    const state = find("LINK");
    const isUp = state?.text === "up" && !state.cause;
    let cause = "";
    if (state && !isUp)
        cause = state.cause || state.text;
    else if (!state)
        cause = driver.cause || driver.status;
    return {id: driver.id, isKnown: Boolean(state), isUp, cause, us: state?.cause ? state.staleUs : state?.us ?? null,
        site: text("LINK_SITE"), to: text("LINK_TO"), broker: text("LINK_BROKER"), delay: figure("LINK_DELAY"), curve: find("LINK_DELAY")?.history ?? null,
        into: figure("LINK_IN"), out: figure("LINK_OUT"), error: find("LINK_ERROR") ?? null};
}

/** The links of a workplace, those that are not up first; none where no driver is one. */
export function linksOf(model) {
    const links = [...model.drivers.values()].filter(isLink).map((driver) => linkOf(driver, model));
    return links.sort((one, other) => one.isUp - other.isUp || (one.id < other.id ? -1 : 1));
}

/** Whether a change of these values and drivers is one of a link. */
export function isOfLinks(changes, model) {
    if (changes.drivers.size > 0)
        return true;
    for (const driver of model.drivers.values()) {
        if (isLink(driver) && names.some((name) => changes.values.has(`${driver.id}.${name}`)))
            return true;
    }
    return false;
}

/** {kind, text}: up, away with the cause, or not known. Nothing is up while the host is not heard. */
export function linkSign(link, connection) {
    const told = link.isUp ? "up" : `away: ${link.cause}`;
    if (!connection.isLive)
        return {kind: "unknown", text: link.isKnown ? `was ${told}` : "not heard"};
    if (!link.isKnown)
        return {kind: "unknown", text: `not known: ${link.cause}`};
    return {kind: link.isUp ? "live" : "stale", text: told};
}

function delayText(milliseconds) {
    return milliseconds >= 10 ? `${Math.round(milliseconds)} ms` : `${milliseconds.toFixed(1)} ms`;
}

/** The part of Now with a line for each link; it takes no place where there are none. */
export class LinkPart {
    element;
    #context;
    #list;

    constructor(context) {
        this.#context = context;
        const rows = h("ul", {class: "links"});
        this.element = h("section", {class: "link-part", "aria-label": "Links to other workplaces"}, h("h2", {}, "Links"), rows);
        this.element.hidden = true;
        this.#list = new KeyedList(rows, (link) => this.#make(link), (part, link) => this.#write(part, link));
    }

    draw() {
        const links = linksOf(this.#context.model);
        this.element.hidden = links.length === 0;
        this.#list.set(links, (link) => link.id);
    }

    #make(link) {
        const part = {sign: sign(), ends: h("span", {class: "quiet-text"}), age: h("span", {class: "when"}), delay: h("span", {class: "figure"}), curve: h("mf-spark"),
            rate: h("span", {class: "figure"}), error: h("p", {class: "link-error"})};
        part.element = h("li", {class: "link-row", "data-link-id": link.id},
            h("header", {}, h("h3", {}, h("a", {href: `#now?driver=${encodeURIComponent(link.id)}`}, link.id)), part.sign, part.age),
            h("div", {class: "link-figures"}, part.ends, part.delay, part.curve, part.rate), part.error);
        return part;
    }

    #write(part, link) {
        const {link: connection} = this.#context;
        const {kind, text} = linkSign(link, connection);
        mark(part.element, "data-kind", kind);
        setSign(part.sign, kind, text);
        let age = "";
        if (link.us !== null)
            age = connection.isLive ? `for ${ageOrHeard(connection, link.us)}` : ageOrHeard(connection, link.us);
        put(part.age, age);
        put(part.ends, link.to ? `${link.site} to ${link.to}` : "It has not said where it leads.");
        mark(part.ends, "title", link.broker ? `over ${link.broker}` : null);
        put(part.delay, link.delay === null ? "" : `delay ${delayText(link.delay)}`);
        part.curve.hidden = link.delay === null;
        part.curve.draw(link.curve, {fromZero: true, words: ({high}) => `delay in the last minute, at most ${delayText(high)}`});
        put(part.rate, link.into === null || link.out === null ? "" : `in ${rateText(link.into)} · out ${rateText(link.out)} msg/s`);
        part.error.hidden = !link.error;
        if (link.error)
            put(part.error, `Last error${connection.isLive ? `, ${ageText((connection.nowUs() - link.error.us) / 1000)} ago` : ""}: ${link.error.text}`);
    }
}
