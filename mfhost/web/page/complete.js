// What may follow in a FID that is being typed: drivers, their functions, the parameters that were seen.

const most = 12;

function matching(names, typed) {
    const wanted = typed.toLowerCase();
    const starts = names.filter((name) => name.toLowerCase().startsWith(wanted));
    const has = names.filter((name) => !starts.includes(name) && name.toLowerCase().includes(wanted));
    return [...starts, ...has].slice(0, most);
}

/** {start, end, items: [{text, hint}]}: each item may stand instead of what lies between start and end. */
export function completions(line, caret, {drivers, functions}) {
    const before = line.slice(0, caret);
    const start = before.search(/\S*$/);
    const typed = before.slice(start);
    const nothing = {start, end: caret, items: []};
    const isFirst = before.slice(0, start).trim() === "";
    if (!isFirst) {
        const [driver, name] = splitFid(line.trim().split(/\s+/)[0]);
        if (typed.includes("=") || /["']/.test(before.slice(0, start)))
            return nothing;
        const given = new Set(line.split(/\s+/).map((word) => word.split("=")[0]));
        const parameters = [...functions.get(driver)?.get(name) ?? []].filter((each) => !given.has(each) || each === typed);
        return {...nothing, items: matching(parameters.sort(), typed).map((each) => ({text: `${each}=`, hint: "parameter"}))};
    }
    const dot = typed.indexOf(".");
    if (dot < 0) {
        const ids = [...drivers.keys()].sort();
        return {...nothing, items: matching(ids, typed).map((id) => ({text: `${id}.`, hint: drivers.get(id).status}))};
    }
    const [driver, name] = splitFid(typed);
    const names = [...functions.get(driver)?.keys() ?? []].sort();
    return {...nothing, items: matching(names, name).filter((each) => each !== name).map((each) => ({text: `${driver}.${each} `, hint: "function"}))};
}

function splitFid(fid) {
    const dot = fid.indexOf(".");
    return dot < 0 ? [fid, ""] : [fid.slice(0, dot), fid.slice(dot + 1)];
}
