// What the page says of a value and of a driver: one sign, one word, and what to do.

import {ageText, clockText, counted} from "./text.js";

/** {kind, text} of a value: live, stale with its cause, or not known. Nothing is live while the host is not heard. */
export function valueSign(value, link) {
    if (!value)
        return {kind: "unknown", text: "not known"};
    if (value.cause)
        return {kind: "stale", text: `stale: ${value.cause}`};
    if (!link.isLive)
        return {kind: "unknown", text: "not heard"};
    return {kind: "live", text: "live"};
}

// Ends that somebody wanted.
const wantedEnd = /^(unloaded|parked|removed|exit code 0)/;

/** Whether a driver's end with this cause is nobody's fault. */
export function isWanted(cause) {
    return wantedEnd.test(cause);
}

// A driver that was started again and has run for so long is well.
const steadyAfterUs = 600e6;

const kinds = {
    "running": "live",
    "starting": "wait",
    "unloading": "wait",
    "parking": "wait",
    "waiting": "wait",
    "due": "wait",
    "parked": "parked",
    "hung": "bad",
    "ended": "bad",
    "not loaded": "bad",
};

/** {kind, text}: as the host told it, or that it was so. */
export function driverSign(driver, link) {
    if (!link.isLive)
        return {kind: "unknown", text: `was ${driver.status}`};
    return {kind: kindOf(driver), text: driver.status};
}

/** For sorting drivers: those of which something is wrong first, or was a moment ago. */
export function byTrouble(nowUs) {
    return (one, other) => rank(one, nowUs) - rank(other, nowUs) || (one.id < other.id ? -1 : 1);
}

/** Whether it runs only since a moment, after it has ended by itself: one that ends again and again is not taken for well. */
export function isUnsteady(driver, nowUs) {
    return driver.state === "running" && driver.restarts > 0 && !isWanted(driver.cause) && driver.sinceUs !== null && nowUs - driver.sinceUs < steadyAfterUs;
}

/** Whether nothing is to be said of it, nor done. */
export function isCalm(driver, nowUs) {
    return rank(driver, nowUs) > 2;
}

function kindOf(driver) {
    return driver.state === "not loaded" && driver.alive ? "live" : kinds[driver.state] ?? "unknown";
}

function rank(driver, nowUs) {
    const kind = kindOf(driver);
    // In the same place while it runs and while it waits for its next start.
    if (isUnsteady(driver, nowUs))
        return 1;
    if (kind === "live" && driver.valuesLost > 0)
        return 2;
    return {bad: 0, wait: 1, unknown: 1, live: 3, parked: 4}[kind];
}

/** An alarm that nobody has put out of sight for a while. */
export function isInSight(alarm) {
    return alarm.shelvedForMs === null;
}

/** What an operator may do about a driver; empty when all is well. */
export function advice(driver, nowUs) {
    const cause = driver.cause ? `: ${driver.cause}` : "";
    switch (driver.state) {
        case "running":
            if (driver.valuesLost > 0)
                return `${counted(driver.valuesLost, "new value")} found no room. Have it report fewer values.`;
            if (isUnsteady(driver, nowUs))
                return `It has ended ${driver.restarts === 1 ? "once" : `${driver.restarts} times`} and runs again${driver.cause ? `; the last time: ${driver.cause}` : ""}. Its last words may say why.`;
            return "";
        case "waiting":
        case "due": {
            const rest = driver.nextTryUs === null ? 0 : (driver.nextTryUs - nowUs) / 1000;
            return `It has ended${cause}. ${rest > 500 ? `The host starts it again in ${ageText(rest + 500)}.` : "The host starts it again now."}`;
        }
        case "ended":
            return `It has ended${cause}. It is not started again by itself: read its last words in the details, then start it.`;
        case "hung":
            return "It does not answer. Its log in the details may say why; a reload ends it and starts it anew.";
        case "not loaded":
            return driver.alive ? "" : `It was not loaded${cause}. The log says why; mend that, then reload it.`;
        case "parked":
            return "It stays unloaded until it is started.";
        case "starting":
            return "It starts.";
        default:
            return "It is being unloaded.";
    }
}

/** An age by the host's clock, or when the host was heard last: nothing grows old by guessing. */
export function ageOrHeard(link, us) {
    if (link.isLive)
        return ageText((link.nowUs() - us) / 1000);
    return heardText(link);
}

export function heardText(link) {
    return link.heardUs === null ? "never heard" : `last heard ${clockText(link.heardUs / 1000)}`;
}
