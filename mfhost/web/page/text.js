// Texts out of numbers, and words out of typed lines. Nothing here knows of the page or of the host.

/** The age of something in its largest unit that leaves at least two: "90 s", "5 min", "30 h", "3 d". */
export function ageText(milliseconds) {
    const seconds = Math.max(0, Math.floor(milliseconds / 1000));
    if (seconds < 120)
        return `${seconds} s`;
    if (seconds < 120 * 60)
        return `${Math.floor(seconds / 60)} min`;
    if (seconds < 48 * 3600)
        return `${Math.floor(seconds / 3600)} h`;
    return `${Math.floor(seconds / 86400)} d`;
}

function two(number) {
    return String(number).padStart(2, "0");
}

/** The time of day where the page is looked at, of milliseconds since 1970. */
export function clockText(milliseconds) {
    const time = new Date(milliseconds);
    return `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}`;
}

export function clockTextExact(milliseconds) {
    return `${clockText(milliseconds)}.${String(Math.floor(milliseconds) % 1000).padStart(3, "0")}`;
}

export function dateText(milliseconds) {
    const time = new Date(milliseconds);
    return `${time.getFullYear()}-${two(time.getMonth() + 1)}-${two(time.getDate())} ${clockText(milliseconds)}`;
}

/** A rate as short as it stays readable: "0", "0.4", "12", "3.4 k". */
export function rateText(perSecond) {
    if (perSecond >= 9950)
        return `${Math.round(perSecond / 1000)} k`;
    if (perSecond >= 1000)
        return `${(perSecond / 1000).toFixed(1)} k`;
    if (perSecond >= 10 || perSecond === 0)
        return String(Math.round(perSecond));
    return perSecond.toFixed(1);
}

export function counted(number, one, many = `${one}s`) {
    return `${number} ${number === 1 ? one : many}`;
}

/** A word as a console line takes it: in quotes where it has to be. */
export function quoted(word) {
    if (/^[^\s'"\\#]+$/.test(word))
        return word;
    return `"${word.replace(/[\\"]/g, "\\$&")}"`;
}

/** The words of a line as a shell takes it apart: {words, error}. */
export function splitWords(line) {
    const words = [];
    let word = null;
    let quote = "";
    for (let index = 0; index < line.length; ++index) {
        const char = line[index];
        if (quote === "'") {
            if (char === "'")
                quote = "";
            else
                word += char;
        } else if (quote === '"') {
            if (char === '"')
                quote = "";
            else if (char === "\\" && (line[index + 1] === '"' || line[index + 1] === "\\"))
                word += line[++index];
            else
                word += char;
        } else if (char === "'" || char === '"') {
            quote = char;
            word ??= "";
        } else if (char === "\\" && index + 1 < line.length) {
            word = (word ?? "") + line[++index];
        } else if (/\s/.test(char)) {
            if (word !== null)
                words.push(word);
            word = null;
        } else {
            word = (word ?? "") + char;
        }
    }
    if (quote)
        return {words: [], error: `There is a ${quote} without its second one.`};
    if (word !== null)
        words.push(word);
    return {words, error: ""};
}

/** A FID as it is typed, "AXIS1.MOVE to=10 fast=true": {fid, parameters, error}. */
export function parseFid(line) {
    const {words, error} = splitWords(line);
    const nothing = {fid: "", parameters: []};
    if (error)
        return {...nothing, error};
    if (words.length === 0)
        return {...nothing, error: "Type a driver's ID, a dot and a function."};
    const fid = words[0];
    if (!/^[^.]+\../.test(fid))
        return {...nothing, error: `"${fid}" names no function: a FID is a driver's ID, a dot and a function.`};
    const parameters = [];
    for (const word of words.slice(1)) {
        const equals = word.indexOf("=");
        if (equals < 1)
            return {...nothing, error: `"${word}" is no parameter: write name=value, with quotes round blanks.`};
        parameters.push([word.slice(0, equals), word.slice(equals + 1)]);
    }
    return {fid, parameters, error: ""};
}

export function fidText(fid, parameters) {
    return [fid, ...parameters.map(([name, value]) => `${name}=${value === "" ? '""' : quoted(value)}`)].join(" ");
}

function globPattern(glob) {
    const escaped = glob.replace(/[.+^${}()|\\[\]]/g, "\\$&").replace(/\*/g, ".*").replace(/\?/g, ".");
    return new RegExp(`^${escaped}$`, "i");
}

/**
 * What a filter's text lets pass: each of its words has to be in one of the texts. A word with * or ? is a pattern
 * for a whole one; one that begins with - must be in none.
 */
export function filterOf(text) {
    const words = text.trim().toLowerCase().split(/\s+/).filter((word) => word && word !== "-");
    const tests = words.map((word) => {
        const not = word.startsWith("-");
        const wanted = not ? word.slice(1) : word;
        const pattern = /[*?]/.test(wanted) ? globPattern(wanted) : null;
        return {not, has: (each) => (pattern ? pattern.test(each) : each.toLowerCase().includes(wanted))};
    });
    return (...texts) => tests.every(({not, has}) => texts.some(has) !== not);
}

/** Microseconds since 1970 of a time as the host writes it; null for none. */
export function hostTime(text) {
    const match = /^(.*:\d\d)(?:\.(\d+))?Z$/.exec(text ?? "");
    if (!match)
        return null;
    return Date.parse(`${match[1]}Z`) * 1000 + Number((match[2] ?? "").slice(0, 6).padEnd(6, "0"));
}

/** Microseconds that something took, in words. */
export function durationText(microseconds) {
    if (microseconds < 1000)
        return `${microseconds} µs`;
    if (microseconds < 1e6)
        return `${(microseconds / 1000).toFixed(1)} ms`;
    return `${(microseconds / 1e6).toFixed(1)} s`;
}

/** An ID that nobody else chooses, for a request that must be done once. */
export function requestId() {
    const bytes = crypto.getRandomValues(new Uint8Array(12));
    return `page-${[...bytes].map((byte) => byte.toString(16).padStart(2, "0")).join("")}`;
}
