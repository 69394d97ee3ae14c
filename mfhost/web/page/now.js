// The page "Now": alarms, then a tile for each driver, what is wrong first.

import {actionButton, ask, attempt, emptyNote, facts, forAction, h, KeyedList, mark, openDialog, put, setSign, sign} from "./dom.js";
import {LatelyPart} from "./lately.js";
import {isOfLinks, LinkPart, linksOf} from "./links.js";
import {runsOf} from "./past.js";
import {advice, ageOrHeard, byTrouble, driverSign, isCalm, isInSight, isUnsteady} from "./signs.js";
import "./spark.js";
import {ageText, clockTextExact, counted, dateText, hostTime, rateText} from "./text.js";

// For how long an alarm can be shelved here.
const shelvings = [["10 min", 600], ["1 h", 3600], ["8 h", 8 * 3600], ["24 h", 24 * 3600]];
// Of more drivers than these, those that are well take little room.
const mostLarge = 12;

export class NowPage {
    title = "Now";
    element;
    #context;
    #summary = h("p", {class: "summary"});
    #alarmTitle = h("h2", {});
    #alarms = h("ul", {class: "alarms"});
    #shelf = h("ul", {class: "alarms"});
    #shelfTitle = h("summary");
    #shelfPart = h("details", {hidden: true}, this.#shelfTitle, this.#shelf);
    #links;
    #lately;
    #tiles = h("ul", {class: "tiles"});
    #empty = emptyNote("There is no driver in this workplace.");
    #acknowledgeAll;
    /** The keys of the alarms that are shown: one that comes meanwhile is not acknowledged with them. */
    #seen = [];
    #alarmList;
    #shelfList;
    #tileList;
    /** The open details of a driver: {id, dialog, write}. */
    #detail = null;

    constructor(context) {
        this.#context = context;
        this.#acknowledgeAll = actionButton("Acknowledge all", "operate", () => this.#acknowledge("all", this.#seen));
        this.#alarmList = new KeyedList(this.#alarms, (alarm) => this.#makeAlarm(alarm), (part, alarm) => this.#writeAlarm(part, alarm));
        this.#shelfList = new KeyedList(this.#shelf, (alarm) => this.#makeShelved(alarm), (part, alarm) => this.#writeShelved(part, alarm));
        this.#tileList = new KeyedList(this.#tiles, (driver) => this.#makeTile(driver), (part, driver) => this.#writeTile(part, driver));
        this.#links = new LinkPart(context);
        this.#lately = new LatelyPart(context);
        this.element = h("div", {class: "page now"}, this.#summary,
            h("section", {class: "alarm-part", "aria-label": "Alarms"},
                h("header", {class: "part"}, this.#alarmTitle, this.#acknowledgeAll), this.#alarms, this.#shelfPart),
            this.#links.element,
            h("section", {"aria-label": "Drivers"}, h("h2", {class: "unseen"}, "Drivers"), this.#tiles, this.#empty), this.#lately.element);
    }

    show(parameters) {
        this.#drawAlarms();
        this.#links.draw();
        this.#drawTiles();
        this.#lately.draw();
        const driver = parameters.get("driver");
        if (this.#detail && this.#detail.id === driver)
            return;
        this.#detail?.dialog.close();
        if (driver)
            this.#details(driver);
    }

    hide() {
        this.#detail?.dialog.close();
    }

    news(changes) {
        if (changes.alarms)
            this.#drawAlarms();
        if (isOfLinks(changes, this.#context.model))
            this.#links.draw();
        if (changes.drivers.size > 0)
            this.#drawTiles();
        if (changes.records > 0)
            this.#lately.draw();
        if (changes.drivers.has(this.#detail?.id))
            this.#detail.write();
    }

    second() {
        this.#drawShelf();
        this.#links.draw();
        this.#detail?.write();
        for (const driver of this.#context.model.drivers.values()) {
            const part = this.#tileList.get(driver.id);
            if (!part)
                continue;
            this.#writeTimes(part, driver);
            part.spark.draw(driver.history, {fromZero: true,
                words: ({high}) => `messages in the last minute, at most ${rateText(high)} a second`});
        }
        this.#drawSummary();
    }

    #drawSummary() {
        const {model} = this.#context;
        let running = 0;
        let parked = 0;
        for (const driver of model.drivers.values()) {
            running += driver.state === "running" || driver.alive && driver.state === "not loaded" ? 1 : 0;
            parked += driver.state === "parked" ? 1 : 0;
        }
        let stale = 0;
        for (const value of model.values.values())
            stale += value.cause ? 1 : 0;
        const parts = [`${running} of ${counted(model.drivers.size - parked, "driver")} ${running === 1 ? "runs" : "run"}`];
        if (parked > 0)
            parts.push(`${parked} parked`);
        const links = linksOf(model);
        if (links.length > 0)
            parts.push(`${links.filter((each) => each.isUp).length} of ${counted(links.length, "link")} up`);
        parts.push(counted(model.values.size, "value"));
        if (stale > 0)
            parts.push(`${stale} stale`);
        put(this.#summary, model.complete || model.drivers.size > 0 ? parts.join(" · ") : "Nothing is known yet.");
    }

    // --- alarms ---

    #makeAlarm(alarm) {
        const part = {sign: sign(), name: h("strong"), text: h("span", {class: "alarm-text"}), times: h("span", {class: "quiet-text"})};
        part.element = h("li", {class: "alarm"}, part.sign, h("div", {}, part.name, part.text, part.times),
            h("div", {class: "line"}, actionButton("Acknowledge", "operate", () => this.#acknowledge(alarm.key, [alarm.key]), {"aria-label": `Acknowledge ${alarm.key}`}),
                forAction(h("button", {type: "button", "aria-label": `Shelve ${alarm.key}`, onclick: () => this.#askShelving(alarm.key)}, "Shelve"), "operate")));
        return part;
    }

    #makeShelved(alarm) {
        const part = {text: h("span", {class: "alarm-text"}), who: h("span", {class: "quiet-text"})};
        part.element = h("li", {class: "alarm"}, sign("parked", "shelved"), h("div", {}, h("strong", {}, alarm.key), part.text, part.who),
            actionButton("Put back", "operate", () => this.#shelve(alarm.key, 0), {"aria-label": `Put ${alarm.key} back`}));
        return part;
    }

    #writeShelved(part, alarm) {
        const {link} = this.#context;
        const rest = link.isLive ? `, for ${ageText((alarm.backUs - link.nowUs()) / 1000)} more` : "";
        put(part.text, alarm.text);
        put(part.who, `shelved${alarm.shelvedBy ? ` by ${alarm.shelvedBy}` : ""}${rest}`);
    }

    #drawShelf() {
        const shelved = this.#context.model.alarms.filter((alarm) => !isInSight(alarm));
        this.#shelfPart.hidden = shelved.length === 0;
        put(this.#shelfTitle, `${shelved.length} shelved`);
        this.#shelfList.set(shelved, (alarm) => alarm.key);
    }

    #askShelving(key) {
        const buttons = shelvings.map(([label, seconds]) => forAction(h("button", {type: "button", onclick: () => {
            dialog.close();
            this.#shelve(key, seconds);
        }}, label), "operate"));
        const dialog = openDialog(`Shelve ${key}`, h("p", {}, "It is out of sight for so long, even when it is raised again; everybody sees that it is, and who has done it."),
            h("footer", {}, h("button", {type: "button", onclick: () => dialog.close()}, "Leave it"), buttons));
        buttons[0].focus();
    }

    /** No time puts it back in sight. */
    async #shelve(key, seconds) {
        await attempt(`Shelve ${key}`, () => this.#context.api.act("/shelve", {keys: [key], ...(seconds > 0 ? {seconds} : {})}), null);
    }

    #writeAlarm(part, alarm) {
        setSign(part.sign, alarm.over ? "wait" : "bad", alarm.over ? "over" : "on");
        mark(part.element, "data-over", alarm.over ? "yes" : null);
        put(part.name, alarm.key);
        put(part.text, alarm.text);
        put(part.times, `${alarm.count > 1 ? `${alarm.count} times, since ` : ""}${dateText(hostTime(alarm.raised) / 1000)}`);
    }

    #drawAlarms() {
        const alarms = this.#context.model.alarms.filter(isInSight);
        const shelved = this.#context.model.alarms.length - alarms.length;
        put(this.#alarmTitle, alarms.length === 0 ? "No alarms" : counted(alarms.length, "alarm"));
        if (shelved > 0)
            put(this.#alarmTitle, `${this.#alarmTitle.textContent}, ${shelved} shelved`);
        mark(this.element.querySelector(".alarm-part"), "data-some", alarms.length > 0 ? "yes" : null);
        this.#acknowledgeAll.hidden = alarms.length < 2;
        this.#seen = alarms.map((alarm) => alarm.key);
        // What still is so first, then the newest.
        this.#drawShelf();
        this.#alarmList.set([...alarms].reverse().sort((one, other) => one.over - other.over), (alarm) => alarm.key);
    }

    async #acknowledge(what, keys) {
        await attempt(`Acknowledge ${what}`, () => this.#context.api.act("/acknowledge", {keys}), null);
    }

    // --- tiles ---

    #makeTile(driver) {
        const {id} = driver;
        const part = {
            sign: sign(), kind: h("span", {class: "quiet-text"}), advice: h("p", {class: "advice"}),
            facts: {}, spark: h("mf-spark"), fill: h("span", {class: "fill"}), rate: h("span", {class: "figure"}), actions: this.#makeActions(id),
        };
        part.bar = h("div", {class: "bar", "aria-hidden": "true"}, part.fill);
        const fact = (name, label) => {
            part.facts[name] = h("dd", {class: name === "since" ? "when" : null});
            return [h("dt", {}, label), part.facts[name]];
        };
        part.element = h("li", {class: "tile", "data-driver": id},
            h("header", {}, h("h3", {}, h("a", {href: `#now?driver=${encodeURIComponent(id)}`}, id)), part.sign),
            part.kind, part.advice,
            h("dl", {class: "facts"}, fact("since", "for"), fact("restarts", "restarts"), fact("queue", "queued in / out")),
            h("div", {class: "traffic"}, h("span", {class: "rate"}, part.rate, h("span", {class: "unit"}, " msg/s")), part.spark), part.bar,
            part.actions.element);
        return part;
    }

    /** What can be done about a driver; which of it, write(driver) says. */
    #makeActions(id) {
        const button = (verb, run) => actionButton(verb, "admin", run, {"aria-label": `${verb} ${id}`});
        const start = button("Start", () => this.#start(id));
        const reload = button("Reload", () => this.#reload(id));
        const park = button("Park", () => this.#park(id));
        return {element: h("footer", {class: "actions"}, start, reload, park), write: (driver) => {
            start.hidden = driver.alive || !["parked", "ended"].includes(driver.state);
            park.hidden = ["parked", "parking"].includes(driver.state);
            reload.hidden = driver.state === "parked";
        }};
    }

    #writeTile(part, driver) {
        const mode = {direct: "in the host", queue: driver.alive && driver.pid ? `process ${driver.pid}` : "no process", socket: "socket", none: "no link"}[driver.mode] ?? driver.mode;
        put(part.kind, `${driver.type} ${driver.version} · ${mode}`);
        put(part.facts.restarts, driver.restarts > 0 && driver.cause ? `${driver.restarts}, last: ${driver.cause}` : String(driver.restarts));
        const capacities = this.#context.capacities(driver.id);
        const queued = driver.queuedIn === null && driver.queuedOut === null ? "no queue" : `${of(driver.queuedIn, capacities.in)} / ${of(driver.queuedOut, capacities.out)}`;
        put(part.facts.queue, queued);
        const share = Math.max(capacities.in ? (driver.queuedIn ?? 0) / capacities.in : 0, capacities.out ? (driver.queuedOut ?? 0) / capacities.out : 0);
        part.fill.style.setProperty("width", `${Math.min(100, Math.round(share * 100))}%`);
        part.bar.hidden = queued === "no queue";
        mark(part.fill, "data-full", share >= 0.75 ? "yes" : null);
        put(part.rate, `in ${rateText(driver.receivedPerSecond)} · out ${rateText(driver.sentPerSecond)}`);
        part.actions.write(driver);
        this.#writeTimes(part, driver);
    }

    #writeTimes(part, driver) {
        const {link} = this.#context;
        const {kind, text} = driverSign(driver, link);
        setSign(part.sign, kind, text);
        mark(part.element, "data-kind", kind);
        put(part.facts.since, driver.sinceUs === null ? "-" : ageOrHeard(link, driver.sinceUs));
        put(part.advice, advice(driver, link.nowUs()));
        mark(part.element, "data-unsteady", isUnsteady(driver, link.nowUs()) ? "yes" : null);
        mark(part.element, "data-calm", isCalm(driver, link.nowUs()) ? "yes" : null);
    }

    #drawTiles() {
        const drivers = [...this.#context.model.drivers.values()];
        drivers.sort(byTrouble(this.#context.link.nowUs()));
        mark(this.#tiles, "data-many", drivers.length > mostLarge ? "yes" : null);
        this.#tileList.set(drivers, (driver) => driver.id);
        this.#empty.hidden = drivers.length > 0 || !this.#context.model.complete;
        this.#drawSummary();
    }

    // --- actions ---

    #path(id, verb) {
        return `/drivers/${encodeURIComponent(id)}/${verb}`;
    }

    async #reload(id) {
        if (await ask(`Reload ${id}?`, `${id} is unloaded and loaded with what the workplace file says now. Until it is back, what is sent to it waits or is refused.`, `Reload ${id}`))
            await attempt(`Reload ${id}`, () => this.#context.api.act(this.#path(id, "reload")));
    }

    async #park(id) {
        if (await ask(`Park ${id}?`, `${id} is unloaded and stays so, over restarts of the host too, until somebody starts it.`, `Park ${id}`))
            await attempt(`Park ${id}`, () => this.#context.api.act(this.#path(id, "park")));
    }

    async #start(id) {
        await attempt(`Start ${id}`, () => this.#context.api.act(this.#path(id, "unpark")));
    }

    /** A card of the driver: how it is as it changes, and what the host tells of it, asked for anew whenever it has another state. */
    #details(id) {
        const shown = sign();
        const text = h("p", {class: "advice"});
        const actions = this.#makeActions(id);
        const body = h("div", {class: "card", "aria-busy": "true"});
        const dialog = openDialog(id, h("div", {class: "line"}, shown, actions.element), text, body);
        let read = "";
        const write = () => {
            const {model, link} = this.#context;
            const driver = model.drivers.get(id);
            const {kind, text: word} = driver ? driverSign(driver, link) : {kind: "unknown", text: model.complete ? "no such driver" : "not known"};
            setSign(shown, kind, word);
            put(text, driver ? advice(driver, link.nowUs()) : "");
            actions.element.hidden = !driver;
            if (!driver)
                return;
            actions.write(driver);
            const now = `${model.host.instance} ${driver.state} ${driver.start}`;
            if (now === read || !link.isLive)
                return;
            read = now;
            this.#read(id, body);
        };
        this.#detail = {id, dialog, write};
        dialog.addEventListener("close", () => {
            if (this.#detail?.dialog === dialog)
                this.#detail = null;
            if (this.#context.route().get("driver") === id)
                this.#context.go("#now");
        });
        write();
    }

    async #read(id, body) {
        let card;
        try {
            card = await this.#context.api.get(`/drivers/${encodeURIComponent(id)}`);
        } catch (error) {
            body.replaceChildren(h("p", {}, error.message));
            return;
        }
        const queue = (each) => `${each.depth} of ${each.capacity} waiting, ${each.highWater} at most so far, ${each.messages} in all`;
        const log = card.log.map((line) => `${clockTextExact(hostTime(line.time) / 1000)} ${line.output}: ${line.text}`);
        body.replaceChildren(h("p", {}, h("a", {href: `#values?filter=${encodeURIComponent(`${id}.`)}`}, "Its values"), " · ",
            h("a", {href: `#stream?driver=${encodeURIComponent(id)}`}, "What happens to it")),
        facts([["last cause", card.cause || "-"]]),
        h("h3", {}, "Last words"), h("pre", {tabindex: "0"}, card.lastWords.join("\n") || "none"),
        h("h3", {}, "Its life"), runsOf(this.#context, id),
        h("h3", {}, "Log"), h("pre", {tabindex: "0"}, log.join("\n") || "none"),
        h("h3", {}, "Files and queues, when this was opened"), facts([
            ["module", card.module], ["descriptor", card.descriptor], ["directory", card.directory], ["network adapter", card.networkAdapter || "-"],
            ...card.queues.map((each) => [each.name, queue(each)]), ["values lost", String(card.valuesLost)]]));
        body.removeAttribute("aria-busy");
    }
}

function of(depth, capacity) {
    if (depth === null)
        return "-";
    return depth > 0 && capacity > 0 ? `${depth} of ${capacity}` : String(depth);
}
