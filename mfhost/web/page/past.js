// What a value was in the last hour, and what was sent to its driver before it changed; what has become of a driver.

import {chartOf} from "./chart.js";
import {h, sign} from "./dom.js";
import {isWanted} from "./signs.js";
import {ageText, clockText, clockTextExact, counted, dateText, durationText, fidText, hostTime} from "./text.js";

const senders = {host: "the host", console: "the console", api: "a program", macro: "a macro", panel: "the web panel"};
const steps = {start: ["live", "started"], answer: ["live", "answered"], hang: ["bad", "hung"], end: ["bad", "ended"], failed: ["bad", "did not start"],
    restart: ["wait", "next try"], parked: ["parked", "parked"], unparked: ["wait", "given back"]};

function fidLine(fid) {
    const from = fid.origin === "driver" ? `by ${fid.driver}` : `from ${senders[fid.origin] ?? fid.origin}${fid.who ? ` by ${fid.who}` : ""}`;
    const outcome = ["begins", "written"].includes(fid.outcome) ? "" : `: ${fid.outcome}`;
    return h("li", {}, h("strong", {}, `${durationText(fid.beforeUs)} before it`), ` ${fidText(fid.fid, fid.parameters)}, sent ${from}${outcome}`);
}

function changeRow(change, driver) {
    const text = change.value === null && change.text === "" ? "unset" : change.text;
    const before = change.before.length === 0 ? `nothing was sent to ${driver}`
        : h("ul", {class: "before"}, change.before.map(fidLine));
    return h("tr", {}, h("td", {class: "when"}, clockTextExact(hostTime(change.time) / 1000)), h("td", {class: "was"}, text), h("td", {}, before));
}

function gapRow(gap) {
    const [from, to] = [gap.from, gap.to].map((time) => clockText(hostTime(time) / 1000));
    return h("li", {}, `${from === to ? from : `${from} to ${to}`}: ${gap.reason === "stale" ? `stale: ${gap.text}` : gap.text}`);
}

function drawn(history, width) {
    const driver = history.key.split(".")[0];
    const chart = chartOf(history, width);
    const parts = [];
    const asOf = clockText(hostTime(history.to) / 1000);
    const count = history.changes === 0 ? "no change" : counted(history.changes, "change");
    parts.push(h("p", {class: "quiet-text"}, `${count} in the hour before ${asOf}${history.thinned ? "; of what lies close together the lowest, the highest and the last are drawn" : ""}`));
    if (chart)
        parts.push(chart);
    if (history.gaps.length > 0)
        parts.push(h("h4", {}, "When nothing is known of it, or it did not hold"), h("ul", {class: "gaps"}, history.gaps.map(gapRow)));
    if (history.last.length > 0)
        parts.push(h("h4", {}, "Why"),
            h("p", {class: "quiet-text"}, `What was sent to ${driver} in the two seconds before each change. It came before it; whether it is the reason, nobody has recorded.`),
            h("div", {class: "wide-table", tabindex: "0", role: "region", "aria-label": "The last changes"}, h("table", {}, h("thead", {}, h("tr", {}, h("th", {}, "At"), h("th", {}, "It became"), h("th", {}, "Before it"))),
                h("tbody", {}, history.last.map((change) => changeRow(change, driver))))));
    return parts;
}

/** {element, read}: the last hour of a value, once read() has asked the host for it. */
export function lastHour(context, key) {
    const body = h("div", {class: "past-body", "aria-live": "polite"});
    const button = h("button", {type: "button", onclick: () => read()}, "Read it again");
    const element = h("section", {class: "past", "aria-label": "The last hour"}, h("header", {class: "part"}, h("h3", {}, "The last hour"), button), body);
    let history = null;
    let width = 0;
    const draw = () => {
        width = body.clientWidth;
        body.replaceChildren(...drawn(history, width));
    };
    // Letters would shrink with a picture that is only made smaller.
    new ResizeObserver(() => {
        if (history && body.clientWidth > 0 && body.clientWidth !== width)
            draw();
    }).observe(body);
    async function read() {
        history = null;
        body.replaceChildren(h("p", {class: "quiet-text"}, "It is being read."));
        try {
            history = await context.api.get(`/state/${encodeURIComponent(key)}/history`);
            draw();
        } catch (error) {
            body.replaceChildren(h("p", {}, error.message));
        }
    }
    return {element, read};
}

function lasted(step, runs) {
    if (step.step !== "end" && step.step !== "hang")
        return "";
    const start = runs.steps.slice(runs.steps.indexOf(step) + 1).find((each) => each.step === "start");
    return start ? `after ${ageText((hostTime(step.time) - hostTime(start.time)) / 1000)}` : "";
}

function stepRow(step, runs) {
    const [kind, word] = steps[step.step] ?? ["unknown", step.step];
    const wasWanted = step.step === "end" && isWanted(step.text);
    const details = [lasted(step, runs), step.step === "start" && step.pid ? `process ${step.pid}` : "", step.text].filter(Boolean).join(", ");
    return h("li", {}, h("span", {class: "when"}, dateText(hostTime(step.time) / 1000)), sign(wasWanted ? "off" : kind, word), h("span", {}, details));
}

/** What has become of a driver, newest first; an element that fills itself. */
export function runsOf(context, id) {
    const body = h("div", {}, h("p", {class: "quiet-text"}, "It is being read."));
    const fill = async () => {
        try {
            const runs = await context.api.get(`/drivers/${encodeURIComponent(id)}/runs`);
            const since = runs.since ? dateText(hostTime(runs.since) / 1000) : null;
            const rest = runs.more ? "There is more before that." : runs.recorded && since ? `Nothing was recorded before ${since}.`
                : `The host remembers what was since its start${since ? ` at ${since}` : ""}; it does not record (--record-off).`;
            body.replaceChildren(runs.steps.length > 0 ? h("ol", {class: "runs"}, runs.steps.map((step) => stepRow(step, runs))) : h("p", {}, "It has not been started."),
                ...(runs.gaps.length > 0 ? [h("h4", {}, "When steps may be missing"), h("ul", {class: "gaps"}, runs.gaps.map(gapRow))] : []),
                h("p", {class: "quiet-text"}, rest));
        } catch (error) {
            body.replaceChildren(h("p", {}, error.message));
        }
    };
    fill();
    return body;
}
