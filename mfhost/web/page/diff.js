// The lines in which two texts differ.

const mostCells = 4e6;

/** [{sign, text}]: " " in both, "-" only in the first, "+" only in the second. */
export function lineDiff(former, latter) {
    const before = former.split("\n");
    const after = latter.split("\n");
    let head = 0;
    while (head < before.length && head < after.length && before[head] === after[head])
        ++head;
    let tail = 0;
    while (tail < before.length - head && tail < after.length - head && before.at(-1 - tail) === after.at(-1 - tail))
        ++tail;
    const same = (texts) => texts.map((text) => ({sign: " ", text}));
    return [...same(before.slice(0, head)),
        ...middle(before.slice(head, before.length - tail), after.slice(head, after.length - tail)),
        ...same(before.slice(before.length - tail))];
}

function middle(before, after) {
    const rows = [];
    let left = 0;
    let right = 0;
    // Too large to compare: all of the one, then all of the other.
    if ((before.length + 1) * (after.length + 1) <= mostCells) {
        const width = after.length + 1;
        const common = new Uint32Array((before.length + 1) * width);
        for (let i = before.length - 1; i >= 0; --i) {
            for (let j = after.length - 1; j >= 0; --j) {
                common[i * width + j] = before[i] === after[j] ? common[(i + 1) * width + j + 1] + 1
                    : Math.max(common[(i + 1) * width + j], common[i * width + j + 1]);
            }
        }
        while (left < before.length && right < after.length) {
            if (before[left] === after[right])
                rows.push({sign: " ", text: before[left++]}), ++right;
            else if (common[(left + 1) * width + right] >= common[left * width + right + 1])
                rows.push({sign: "-", text: before[left++]});
            else
                rows.push({sign: "+", text: after[right++]});
        }
    }
    for (; left < before.length; ++left)
        rows.push({sign: "-", text: before[left]});
    for (; right < after.length; ++right)
        rows.push({sign: "+", text: after[right]});
    return rows;
}
