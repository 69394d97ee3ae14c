// The page "Wall": how the drivers are and what the pinned values say, large, for a screen that nobody touches.

import {h, KeyedList, mark, put, setSign, sign} from "./dom.js";
import {isLink, isOfLinks, linkSign, linksOf} from "./links.js";
import {ageOrHeard, byTrouble, driverSign, isInSight, valueSign} from "./signs.js";
import {clockText, counted} from "./text.js";

export class WallPage {
    title = "Wall";
    element;
    #context;
    #clock = h("span", {class: "clock"});
    #alarms = h("p", {class: "wall-alarms"});
    #controls = h("p", {class: "quiet-text"});
    #drivers = h("ul", {class: "wall-drivers"});
    #links = h("ul", {class: "wall-drivers"});
    #linkPart = h("section", {"aria-label": "Links to other workplaces"}, this.#links);
    #values = h("ul", {class: "wall-values"});
    #driverList;
    #linkList;
    #valueList;

    constructor(context) {
        this.#context = context;
        this.#driverList = new KeyedList(this.#drivers, (driver) => {
            const part = {sign: sign(), cause: h("p")};
            part.element = h("li", {}, h("h2", {}, driver.id), part.sign, part.cause);
            return part;
        }, (part, driver) => this.#writeDriver(part, driver));
        this.#linkList = new KeyedList(this.#links, (link) => {
            const part = {sign: sign()};
            part.element = h("li", {}, h("h2", {}, `Link ${link.id}`), part.sign);
            return part;
        }, (part, link) => this.#writeLink(part, link));
        this.#valueList = new KeyedList(this.#values, (key) => {
            const part = {text: h("p", {class: "large value"}), sign: sign(), age: h("span", {class: "quiet-text"})};
            part.element = h("li", {}, h("h2", {}, key), part.text, h("p", {}, part.sign, " ", part.age));
            return part;
        }, (part, key) => this.#writeValue(part, key));
        this.element = h("div", {class: "page wall"},
            h("header", {}, h("h1", {}, "Wall"), this.#alarms, this.#controls, this.#clock, h("a", {href: "#now", class: "leave"}, "Leave the wall")),
            h("section", {"aria-label": "Drivers"}, this.#drivers), this.#linkPart,
            h("section", {"aria-label": "Pinned values"}, this.#values));
    }

    show() {
        this.#draw();
    }

    hide() {}

    news(changes) {
        if (changes.alarms || changes.controls || isOfLinks(changes, this.#context.model))
            this.#draw();
        for (const key of changes.values) {
            const part = this.#valueList.get(key);
            if (part)
                this.#writeValue(part, key);
        }
    }

    second() {
        this.#draw();
    }

    #draw() {
        const {model, link, pins} = this.#context;
        put(this.#clock, clockText(link.nowUs() / 1000));
        put(this.#controls, `controls: ${this.#context.controls.text}`);
        const alarms = model.alarms.filter(isInSight);
        put(this.#alarms, alarms.length === 0 ? "no alarms" : `${counted(alarms.length, "alarm")}: ${alarms.map((alarm) => `${alarm.key} ${alarm.text}`).join(" · ")}`);
        mark(this.#alarms, "data-some", alarms.length > 0 ? "yes" : null);
        // A link driver says more as a link.
        const drivers = [...model.drivers.values()].filter((driver) => !isLink(driver)).sort(byTrouble(link.nowUs()));
        this.#driverList.set(drivers, (driver) => driver.id);
        const links = linksOf(model);
        this.#linkPart.hidden = links.length === 0;
        this.#linkList.set(links, (each) => each.id);
        this.#valueList.set([...pins].sort(), (key) => key);
        const count = drivers.length + links.length + [...pins].length;
        mark(this.element, "data-size", count > 40 ? "many" : count <= 20 ? "few" : null);
    }

    #writeLink(part, link) {
        const {kind, text} = linkSign(link, this.#context.link);
        setSign(part.sign, kind, text);
        mark(part.element, "data-kind", kind);
    }

    #writeDriver(part, driver) {
        const {kind, text} = driverSign(driver, this.#context.link);
        setSign(part.sign, kind, text);
        mark(part.element, "data-kind", kind);
        put(part.cause, kind === "live" || kind === "parked" ? "" : driver.cause);
    }

    #writeValue(part, key) {
        const value = this.#context.model.values.get(key);
        const {kind, text} = valueSign(value, this.#context.link);
        setSign(part.sign, kind, text);
        mark(part.element, "data-kind", kind === "live" ? null : kind);
        put(part.text, value ? value.text : "?");
        put(part.age, value ? ageOrHeard(this.#context.link, value.us) : "");
    }
}
