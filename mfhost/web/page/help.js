// What the keys and the signs mean.

import {h, openDialog, sign} from "./dom.js";

const keys = [
    ["1 to 6", "Now, Values, Stream, Send, Plan, Wall"],
    ["Ctrl-K", "Send, from anywhere"],
    ["/", "the filter of Values and Stream"],
    ["arrow keys, Enter", "in a table: choose a row, open it"],
    ["p", "in Values: pin the row; in Stream: pause"],
    ["t", "dark, light, as the system has it"],
    ["Escape", "close a dialog; leave the wall"],
    ["?", "this help"],
];

const signs = [
    ["live", "live", "it holds, and the host is heard"],
    ["stale", "stale: cause", "it was reported last by an instance that is gone or silent"],
    ["unknown", "not known", "the host has no such value"],
    ["bad", "hung, ended, failed", "it needs somebody"],
    ["wait", "starting, waiting", "it changes by itself"],
    ["parked", "parked", "somebody wanted it so"],
];

/** single says whether keys without Ctrl do something; setSingle changes that. */
export function openHelp(single, setSingle) {
    const box = h("input", {type: "checkbox", checked: single, onchange: () => setSingle(box.checked)});
    openDialog("Keys and signs",
        h("table", {class: "keys"}, h("tbody", {}, keys.map(([key, text]) => h("tr", {}, h("th", {scope: "row"}, h("kbd", {}, key)), h("td", {}, text))))),
        h("label", {class: "check"}, box, "Keys without Ctrl do something"),
        h("table", {class: "keys"}, h("tbody", {}, signs.map(([kind, word, text]) => h("tr", {}, h("th", {scope: "row"}, sign(kind, word)), h("td", {}, text))))),
        h("p", {class: "quiet-text"}, "Grey, with values struck through: the host has not been heard for 2.5 s. Nothing that is shown then is taken for true, and nothing can be done."));
}
