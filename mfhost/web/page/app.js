// The page as a whole: which part is shown, keys, whether the host is heard.

import {Api} from "./api.js";
import {Controls} from "./controls.js";
import {allowActions, h, mark, put, refreshActions, setSign, tell} from "./dom.js";
import {openHelp} from "./help.js";
import {LiveLink} from "./live.js";
import {Model} from "./model.js";
import {NowPage} from "./now.js";
import {Pins} from "./pins.js";
import {PlanPage} from "./plan.js";
import {SendPage} from "./send.js";
import {forget, signOut} from "./session.js";
import {SessionsPage} from "./sessions.js";
import {SignInPage} from "./signin.js";
import {heardText, isInSight} from "./signs.js";
import {StreamPage} from "./stream.js";
import {ageText, clockText, hostTime} from "./text.js";
import {ValuesPage} from "./values.js";
import {WallPage} from "./wall.js";

const names = ["now", "values", "stream", "send", "plan", "wall", "sessions"];
const themes = ["system", "light", "dark"];
const roles = ["view", "operate", "admin"];
// Of so many requests the browser keeps how long each part of them took: enough for the page's own files, and nothing that goes on growing.
const mostTimings = 50;

function byId(id) {
    return document.getElementById(id);
}

class App {
    model = new Model();
    link = new LiveLink(this.model);
    controls = new Controls(this);
    api = new Api(this.link, this.model, (path) => this.controls.before(path));
    pins = new Pins(this);
    /** Counts the seconds. */
    tick = 0;

    #pages;
    #signIn = new SignInPage(() => this.#enter());
    #page = null;
    #name = "";
    #parameters = new URLSearchParams();
    #capacities = new Map();
    #capacityStarts = new Map();
    #frame = 0;

    constructor() {
        this.#pages = {now: new NowPage(this), values: new ValuesPage(this), stream: new StreamPage(this), send: new SendPage(this),
            plan: new PlanPage(this), wall: new WallPage(this), sessions: new SessionsPage(this)};
        this.link.addEventListener("state", () => this.#linkState());
        this.link.addEventListener("hello", (event) => this.#hello(event.detail));
        this.link.addEventListener("news", () => this.#news());
        window.addEventListener("hashchange", () => this.#route());
        document.addEventListener("keydown", (event) => this.#key(event));
        byId("theme").addEventListener("click", () => this.#nextTheme());
        byId("help").addEventListener("click", () => this.#help());
        byId("sign-out").addEventListener("click", () => this.#leave());
        byId("skip").addEventListener("click", (event) => {
            event.preventDefault();
            byId("main").focus();
        });
        byId("retry").addEventListener("click", () => this.link.hurry());
        this.#setTheme(localStorage.getItem("mfhost.theme") ?? "system");
        matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.#page?.second());
        setInterval(() => this.#second(), 1000);
        performance.setResourceTimingBufferSize(mostTimings);
    }

    start() {
        const code = /^#code=(.+)$/.exec(location.hash);
        if (code) {
            // Neither the history nor a copied address keeps it.
            history.replaceState(null, "", "#now");
            this.#showSignIn("");
            this.#signIn.open(decodeURIComponent(code[1]));
            return;
        }
        this.#enter();
    }

    // --- what pages ask for ---

    route() {
        return this.#parameters;
    }

    go(hash) {
        location.hash = hash;
    }

    /** Part of the address of this page; no step back is made of it. */
    setParameter(name, value, {keepEmpty = false} = {}) {
        const parameters = new URLSearchParams(this.#parameters);
        if (value === "" && !keepEmpty)
            parameters.delete(name);
        else
            parameters.set(name, value);
        const text = parameters.toString();
        history.replaceState(null, "", `#${this.#name}${text ? `?${text}` : ""}`);
        this.#parameters = parameters;
        this.#page?.show(parameters);
    }

    /** What this browser keeps of this workplace. */
    stored(name, otherwise) {
        try {
            return JSON.parse(localStorage.getItem(`mfhost.${name}.${this.model.host.workplace}`)) ?? otherwise;
        } catch {
            return otherwise;
        }
    }

    store(name, value) {
        localStorage.setItem(`mfhost.${name}.${this.model.host.workplace}`, JSON.stringify(value));
    }

    allows(role) {
        if (this.link.isLive && roles.indexOf(this.model.host.role) >= roles.indexOf(role))
            return true;
        tell(this.link.isLive ? `This needs the role ${role}; yours is ${this.model.host.role}.` : "The host is not heard.", true);
        return false;
    }

    /** How much the driver's queues hold: {in, out}; asked for once for each of its starts. */
    capacities(id) {
        const start = this.model.drivers.get(id)?.start;
        const hasQueue = this.model.drivers.get(id)?.queuedIn !== null;
        if (hasQueue && this.#capacityStarts.get(id) !== start && this.link.isLive) {
            for (const driver of this.model.drivers.values())
                this.#capacityStarts.set(driver.id, driver.start);
            this.#askCapacities();
        }
        return this.#capacities.get(id) ?? {in: 0, out: 0};
    }

    /** Sets a value of a type as it is typed. */
    async setValue(key, type, text) {
        let value = text;
        if (type === "bool") {
            if (!["true", "false"].includes(text))
                throw new Error(`"${text}" is neither true nor false.`);
            value = text === "true";
        } else if (type !== "string") {
            value = Number(text);
            if (text.trim() === "" || !Number.isFinite(value) || (type === "int" && !Number.isInteger(value)))
                throw new Error(`"${text}" is no ${type === "int" ? "whole number" : "number"}.`);
        }
        return this.api.act("/state", {key, type, value});
    }

    async #askCapacities() {
        let queues;
        try {
            ({queues} = await this.api.get("/queues"));
        } catch {
            return;
        }
        for (const queue of queues) {
            const known = this.#capacities.get(queue.driver) ?? {in: 0, out: 0};
            known[queue.name.endsWith("_INQ") ? "in" : "out"] = queue.capacity;
            this.#capacities.set(queue.driver, known);
        }
        this.#page?.news({...this.model.takeChanges(), drivers: new Set(this.model.drivers.keys())});
    }

    // --- the session ---

    #enter() {
        document.body.removeAttribute("data-signed-out");
        this.#route();
        this.link.start(this.#name);
    }

    #showSignIn(why) {
        mark(document.body, "data-signed-out", "yes");
        document.querySelectorAll("dialog").forEach((dialog) => dialog.close());
        this.#page?.hide();
        this.#page = null;
        byId("main").replaceChildren(this.#signIn.element);
        this.#signIn.show(why);
        document.title = "Sign in";
    }

    async #leave() {
        this.link.stop();
        await signOut();
        location.hash = "#now";
        location.reload();
    }

    // --- what comes from the host ---

    #hello({isRestarted, isReturn, lastUs}) {
        const {workplace, user, role} = this.model.host;
        put(byId("workplace"), workplace.split("/").pop().replace(/\.xml$/, "") || "no workplace");
        put(byId("who"), `${user} · ${role}`);
        mark(document.body, "data-role", role);
        this.controls.draw();
        this.pins.load();
        if (isRestarted) {
            const us = hostTime(this.link.started);
            this.#banner("restart", us === null ? "The host was restarted." : `The host was restarted at ${clockText(us / 1000)}.`);
            this.#pages.plan.hostRestarted();
            this.#capacityStarts.clear();
        } else if (isReturn && lastUs !== null) {
            tell(`The host is heard again, after ${ageText((this.link.heardUs - lastUs) / 1000)}.`);
        }
        this.#page?.show(this.#parameters);
    }

    #banner(name, text) {
        const banner = h("div", {class: "banner", "data-banner": name, role: "status"}, h("p", {}, text),
            h("button", {type: "button", class: "quiet", "aria-label": "Close", onclick: () => banner.remove()}, "✕"));
        byId("banners").replaceChildren(banner);
    }

    #linkState() {
        const {link} = this;
        if (link.state === "signed-out") {
            forget();
            this.#showSignIn(link.cause);
        }
        mark(document.body, "data-link", link.state);
        const texts = {live: ["live", "live"], silent: ["bad", heardText(link)], connecting: ["wait", "connecting"], "signed-out": ["unknown", "signed out"]};
        setSign(byId("link"), ...texts[link.state]);
        byId("silence").hidden = !["silent", "connecting"].includes(link.state);
        put(byId("silence-text"), link.state === "silent"
            ? `${link.cause} Nothing shown here is known to hold: ${heardText(link)}. Nothing can be done until the host is heard again.` : link.cause);
        allowActions(link.isLive, this.model.host.role);
        this.controls.draw();
        // Ages stop, or go on, at once.
        this.#page?.second();
        this.#title();
    }

    /** At most once a frame, whatever comes. */
    #news() {
        if (!this.#frame)
            this.#frame = requestAnimationFrame(() => this.#draw());
    }

    #draw() {
        this.#frame = 0;
        const changes = this.model.takeChanges();
        this.#page?.news(changes);
        if (changes.alarms)
            this.#title();
        if (changes.controls)
            this.controls.draw();
    }

    #second() {
        ++this.tick;
        this.model.sample(this.link.isLive);
        this.#page?.second();
    }

    #title() {
        const alarms = this.model.alarms.filter(isInSight).length;
        const workplace = byId("workplace").textContent;
        const part = this.#page?.title ?? "Sign in";
        const state = this.link.isLive ? (alarms > 0 ? `(${alarms}) ` : "") : "not heard · ";
        document.title = this.link.state === "signed-out" ? "Sign in" : `${state}${part} · ${workplace}`;
        put(byId("alarm-count"), alarms > 0 ? String(alarms) : "");
        mark(byId("alarm-count"), "aria-label", alarms > 0 ? `${alarms} alarms` : null);
        byId("alarm-count").hidden = alarms === 0;
    }

    // --- which part is shown ---

    #route() {
        if (document.body.hasAttribute("data-signed-out"))
            return;
        const [name, query] = location.hash.slice(1).split("?");
        const wanted = names.includes(name) ? name : "now";
        this.#parameters = new URLSearchParams(query ?? "");
        const page = this.#pages[wanted];
        if (page !== this.#page) {
            this.#page?.hide();
            this.#page = page;
            this.#name = wanted;
            mark(document.body, "data-page", wanted);
            byId("main").replaceChildren(page.element);
            refreshActions();
            for (const link of document.querySelectorAll("nav a"))
                mark(link, "aria-current", link.hash === `#${wanted}` ? "page" : null);
        }
        page.show(this.#parameters);
        page.second();
        this.#title();
    }

    // --- keys ---

    #key(event) {
        if (document.body.hasAttribute("data-signed-out"))
            return;
        if ((event.ctrlKey || event.metaKey) && event.key.toLowerCase() === "k") {
            event.preventDefault();
            document.querySelectorAll("dialog").forEach((dialog) => dialog.close());
            this.#show("send");
            this.#pages.send.focus();
            return;
        }
        const isTyped = event.target.closest?.("input, select, textarea, dialog");
        if (event.ctrlKey || event.metaKey || event.altKey || isTyped)
            return;
        if (event.key === "Escape" && this.#name === "wall")
            this.go("#now");
        else if (this.#single && this.#plainKey(event.key))
            event.preventDefault();
    }

    get #single() {
        return localStorage.getItem("mfhost.keys") !== "off";
    }

    #plainKey(key) {
        if (/^[1-6]$/.test(key))
            this.#show(names[key - 1]);
        else if (key === "/" && this.#page?.filter)
            this.#page.filter.focus();
        else if (key === "?")
            this.#help();
        else if (key === "t")
            this.#nextTheme();
        else if (key === "p" && this.#name === "stream")
            this.#page.togglePause();
        else
            return false;
        return true;
    }

    #show(name) {
        if (this.#name === name)
            return;
        history.pushState(null, "", `#${name}`);
        this.#route();
    }

    #help() {
        openHelp(this.#single, (isOn) => localStorage.setItem("mfhost.keys", isOn ? "on" : "off"));
    }

    // --- dark and light ---

    #setTheme(theme) {
        const known = themes.includes(theme) ? theme : "system";
        mark(document.documentElement, "data-theme", known);
        put(byId("theme"), {system: "◐", light: "☀", dark: "☾"}[known]);
        mark(byId("theme"), "aria-label", `Colours: ${known}. Change`);
        mark(byId("theme"), "title", `Colours: ${known}`);
        localStorage.setItem("mfhost.theme", known);
        // Curves are drawn in the colours of their time.
        this.#page?.second();
    }

    #nextTheme() {
        this.#setTheme(themes[(themes.indexOf(document.documentElement.dataset.theme) + 1) % themes.length]);
    }
}

new App().start();
