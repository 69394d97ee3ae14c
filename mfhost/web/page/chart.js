// A value over a span of time, as lines and hatched gaps. It says the same in words to who cannot see it.

import {clockText, counted, hostTime} from "./text.js";

const space = "http://www.w3.org/2000/svg";
const height = 170;
// For the lines of text above and below.
const margin = 22;

function s(name, attributes, ...children) {
    const element = document.createElementNS(space, name);
    for (const [key, value] of Object.entries(attributes))
        element.setAttribute(key, value);
    element.append(...children);
    return element;
}

/** The number that is drawn; null for what is none, an unset value among it. */
function numberOf(change) {
    if (change === null || change.value === null || typeof change.value === "string")
        return null;
    return Number(change.value);
}

function shortText(number) {
    return String(Number(number.toPrecision(6)));
}

/**
 * The pieces of the line: {from, to, value}, in microseconds. A value holds until it changes; from where a gap begins to the
 * next change nothing is known of it.
 */
export function piecesOf(history) {
    const from = hostTime(history.from);
    const to = hostTime(history.to);
    const gaps = history.gaps.map((gap) => hostTime(gap.from)).sort((one, other) => one - other);
    const changes = history.points.map((point) => ({us: hostTime(point.time), value: numberOf(point)}));
    // What has not changed in all the span is what it is now, unless it may have changed unseen.
    const isConstant = changes.length === 0 && history.held === null && gaps.length === 0;
    const held = isConstant && history.now && !history.now.stale ? history.now : history.held;
    const all = [{us: from, value: numberOf(held)}, ...changes];
    const pieces = [];
    for (const [index, change] of all.entries()) {
        if (change.value === null)
            continue;
        const next = all[index + 1]?.us ?? to;
        const gap = gaps.find((each) => each >= change.us && each < next);
        // What is only there for a moment is seen all the same.
        pieces.push({from: change.us, to: gap ?? next, value: change.value});
    }
    return pieces;
}

/** An element with the chart of what GET /state/KEY/history has answered; null where there are no numbers in it. */
export function chartOf(history, width) {
    const pieces = piecesOf(history);
    if (pieces.length === 0)
        return null;
    const from = hostTime(history.from);
    const span = hostTime(history.to) - from || 1;
    const low = Math.min(...pieces.map((piece) => piece.value));
    const high = Math.max(...pieces.map((piece) => piece.value));
    const x = (us) => (Math.min(Math.max(0, us - from), span) / span * width).toFixed(1);
    const y = (value) => (high === low ? height / 2 : height - margin - (value - low) / (high - low) * (height - 2 * margin)).toFixed(1);
    let path = "";
    let end = null;
    for (const piece of pieces) {
        path += `${end === piece.from ? "L" : "M"}${x(piece.from)} ${y(piece.value)}H${Math.max(x(piece.to), Number(x(piece.from)) + 1)}`;
        end = piece.to;
    }
    const isBool = typeof (history.points[0] ?? history.held ?? history.now).value === "boolean";
    const text = (value) => (isBool ? String(value === 1) : shortText(value));
    const times = [history.from, history.to].map((time) => clockText(hostTime(time) / 1000));
    const words = `${low === high ? `always ${text(low)}` : `between ${text(low)} and ${text(high)}`} from ${times[0]} to ${times[1]}`;
    return s("svg", {class: "chart", viewBox: `0 0 ${width} ${height}`, width, height, role: "img",
        "aria-label": history.gaps.length > 0 ? `${words}, with ${counted(history.gaps.length, "gap")}` : words},
    s("pattern", {id: "chart-gap", width: 8, height: 8, patternUnits: "userSpaceOnUse", patternTransform: "rotate(45)"},
        s("rect", {class: "gap-back", width: 8, height: 8}), s("rect", {class: "gap-line", width: 3, height: 8})),
    ...history.gaps.map((gap) => s("rect", {x: x(hostTime(gap.from)), y: margin, height: height - 2 * margin, fill: "url(#chart-gap)",
        width: Math.max(2, x(hostTime(gap.to)) - x(hostTime(gap.from)))})),
    s("path", {d: path}),
    s("text", {x: 0, y: 14}, high === low ? text(low) : `${text(high)} at most`),
    ...(high === low ? [] : [s("text", {x: width, y: 14, "text-anchor": "end"}, `${text(low)} at least`)]),
    s("text", {x: 0, y: height - 4}, times[0]), s("text", {x: width, y: height - 4, "text-anchor": "end"}, times[1]));
}
