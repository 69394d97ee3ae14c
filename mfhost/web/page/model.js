// What the page knows of the host, as the live channel told it. It draws nothing: pages ask it what has changed.

import {History} from "./history.js";
import {hostTime} from "./text.js";

const mostRecords = 5000;
// Trimmed by so many at once: a page that stays open holds about the same at any time.
const trimmed = 100;

export class Model {
    values = new Map();
    drivers = new Map();
    alarms = [];
    /** Who is at the controls: {name, from, session, since}; null for nobody. */
    controls = null;
    /** Oldest first; each has a place, counted by the page. */
    records = [];
    /** Functions that were seen or named, by driver: Map of name to the set of parameter names. */
    functions = new Map();
    host = {workplace: "", instance: "", role: "view", user: "", session: ""};
    version = 0;
    /** Whether everything was told since the connection was made. */
    complete = false;
    /** Another one whenever a key comes or goes. */
    keySet = 0;
    #places = 0;
    #changes = emptyChanges();

    /** A connection begins. What is shown stays, but holds no longer until a whole chunk has come. */
    begin(hello) {
        if (hello.instance !== this.host.instance)
            this.#forget();
        this.host = hello;
        this.complete = false;
        this.version = 0;
    }

    /** False when the chunk does not follow what is here, so that the page has to ask for everything. */
    apply(chunk) {
        if (chunk.from > this.version || (chunk.from !== 0 && !this.complete))
            return false;
        if (chunk.from === 0)
            this.#keepOnly(chunk);
        for (const value of chunk.values ?? [])
            this.#setValue(value, chunk.time);
        for (const key of chunk.gone ?? [])
            this.#unsetValue(key);
        for (const driver of chunk.drivers ?? [])
            this.#setDriver(driver, chunk.time);
        for (const id of chunk.driversGone ?? []) {
            this.drivers.delete(id);
            this.#changes.drivers.add(id);
        }
        if (chunk.alarms) {
            this.alarms = chunk.alarms.map((alarm) => ({...alarm, backUs: alarm.shelvedForMs === null ? null : chunk.time + alarm.shelvedForMs * 1000}));
            this.#changes.alarms = true;
        }
        if (chunk.controls !== undefined)
            this.setControls(chunk.controls);
        if (chunk.missed)
            this.#addRecord({kind: "missed", driver: "", count: chunk.missed, us: chunk.time});
        for (const record of chunk.records ?? [])
            this.#addRecord({...record, us: hostTime(record.time ?? record.to) ?? chunk.time});
        this.version = chunk.to;
        this.complete = true;
        return true;
    }

    setControls(holder) {
        this.controls = holder;
        this.#changes.controls = true;
    }

    /** What has changed since the last time that this was asked. */
    takeChanges() {
        const changes = this.#changes;
        this.#changes = emptyChanges();
        return changes;
    }

    /** Once a second: takes a sample of every number, none while nothing is heard. */
    sample(isLive) {
        for (const value of this.values.values()) {
            if (value.history)
                value.history.add(isLive && !value.cause ? Number(value.value) : NaN);
        }
        for (const driver of this.drivers.values())
            driver.history.add(isLive ? driver.receivedPerSecond + driver.sentPerSecond : NaN);
    }

    /** Remembers that a driver takes this function, for completion. */
    rememberFunction(driver, name, parameters = []) {
        if (!driver || !name)
            return;
        if (!this.functions.has(driver))
            this.functions.set(driver, new Map());
        const functions = this.functions.get(driver);
        if (!functions.has(name) && functions.size < 500)
            functions.set(name, new Set());
        for (const parameter of parameters)
            functions.get(name)?.add(parameter);
    }

    #forget() {
        for (const key of this.values.keys())
            this.#changes.values.add(key);
        for (const id of this.drivers.keys())
            this.#changes.drivers.add(id);
        this.values.clear();
        this.drivers.clear();
        this.alarms = [];
        this.#changes.alarms = true;
        this.setControls(null);
        ++this.keySet;
    }

    #keepOnly(chunk) {
        const keys = new Set((chunk.values ?? []).map((value) => value.key));
        for (const key of [...this.values.keys()]) {
            if (!keys.has(key))
                this.#unsetValue(key);
        }
        const ids = new Set((chunk.drivers ?? []).map((driver) => driver.id));
        for (const id of [...this.drivers.keys()]) {
            if (!ids.has(id)) {
                this.drivers.delete(id);
                this.#changes.drivers.add(id);
            }
        }
        if (chunk.controls === undefined)
            this.setControls(null);
        if (!chunk.alarms && this.alarms.length > 0) {
            this.alarms = [];
            this.#changes.alarms = true;
        }
    }

    #setValue(told, time) {
        let value = this.values.get(told.key);
        if (!value) {
            value = {key: told.key, history: null};
            this.values.set(told.key, value);
            ++this.keySet;
        }
        const isNumber = typeof told.value === "number";
        if (isNumber && !value.history)
            value.history = new History();
        else if (!isNumber)
            value.history = null;
        const wasStale = value.cause;
        value.type = told.type;
        value.value = told.value;
        value.text = told.text;
        value.owner = told.owner;
        value.version = told.version;
        value.us = time - told.ageMs * 1000;
        value.cause = told.stale ? told.stale.cause : "";
        value.staleUs = told.stale ? time - told.stale.forMs * 1000 : null;
        this.#changes.values.add(told.key);
        if (Boolean(wasStale) !== Boolean(value.cause))
            this.#changes.staleness = true;
    }

    #unsetValue(key) {
        if (!this.values.delete(key))
            return;
        ++this.keySet;
        this.#changes.values.add(key);
    }

    #setDriver(told, time) {
        const known = this.drivers.get(told.id);
        const driver = known ?? {history: new History()};
        Object.assign(driver, told);
        driver.sinceUs = hostTime(told.since);
        driver.nextTryUs = told.nextTryMs === null ? null : time + told.nextTryMs * 1000;
        this.drivers.set(told.id, driver);
        this.#changes.drivers.add(told.id);
    }

    #addRecord(record) {
        record.place = ++this.#places;
        this.records.push(record);
        if (this.records.length >= mostRecords + trimmed)
            this.records.splice(0, trimmed);
        ++this.#changes.records;
        this.#learnFunctions(record);
    }

    #learnFunctions(record) {
        if (record.kind === "fid" && ["begins", "written"].includes(record.outcome)) {
            const dot = record.fid.indexOf(".");
            this.rememberFunction(record.receiver ?? record.fid.slice(0, dot), record.fid.slice(dot + 1),
                record.parameters.map(([name]) => name));
        }
        const named = record.kind === "log" && /unknown FID ".*"; known are (.*)$/.exec(record.text);
        for (const name of named ? named[1].split(", ") : [])
            this.rememberFunction(record.driver, name);
    }
}

function emptyChanges() {
    return {values: new Set(), drivers: new Set(), alarms: false, controls: false, records: 0, staleness: false};
}
