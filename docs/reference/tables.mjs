// The tables of refusals and of events in docs/api.md, and the refusals in the sources.
import { readdirSync, readFileSync } from "node:fs";

const ROW = /^\| ([^|]+) \| ([^|]+) \| ([^|]+) \| ([^|]+) \| [^|]+ \|$/gm;
const EVENT = /0x[0-9A-F]{8} = (\d+)/g;
const LONGEST_TEXT = 1023;
const SOURCES = "../../rule_operation/";
const REFUSALS = [
    /REFUSE\(\s*err,\s*(?<code>-?\w+),\s*"(?<text>(?:[^"]|"\s*")*)"/g,
    /err = "(?<text>[^"]+)";\s*return (?<code>-?\w+);/g,
];
const SHAPE_PRODUCERS = ["request document", "rule deletion"];
const SHAPE_CODES = /^-(1[0-2]\d|30[1-3])$/;

function patternOf(text) {
    const escaped = text.replace(/[[\]().?*+|]/g, "\\$&");
    const filled = escaped.replace(/%d/g, "-?\\d+").replace(/%X/g, "[0-9A-F]+").replace(/%s/g, ".*");
    return new RegExp(`^${filled}$`, "s");
}

function readRow([, codes, producer, text, cause]) {
    const handedOn = !/^-\d/.test(codes);
    return {
        codes: handedOn ? [codes] : codes.split(", "),
        handedOn,
        producer,
        text,
        occurs: !cause.endsWith("does not occur"),
        pattern: patternOf(text),
        start: text.split("%")[0],
    };
}

// What the sources refuse with: a code, or the name of a result that is handed on, and a text.
function refusalsOfTheSources() {
    const sources = readdirSync(SOURCES, { recursive: true }).filter((name) => name.endsWith(".cpp"))
        .map((name) => readFileSync(SOURCES + name, "utf8")).join("\n");
    return REFUSALS.flatMap((pattern) => [...sources.matchAll(pattern)])
        .map(({ groups: { code, text } }) => ({ code, text: text.replace(/"\s*"/g, "") }));
}

export function loadTables() {
    const document = readFileSync("../api.md", "utf8");
    const rows = [...document.matchAll(ROW)].map(readRow)
        .filter(({ text }) => text !== "text" && !/^-+$/.test(text));
    const says = (row, message) => row.pattern.test(message) ||
        (message.length === LONGEST_TEXT && message.startsWith(row.start));
    const rowOf = ({ ret_code: code, ret_mesg: message }) =>
        rows.find((row) => row.codes.includes(String(code)) && says(row, message)) ??
        rows.find((row) => row.handedOn && says(row, message));
    const isFor = (row, { code, text }) => row.text === text &&
        (row.codes.includes(code) || (!/^-/.test(code) && (row.handedOn || row.codes.length > 1)));
    const inSources = refusalsOfTheSources();
    return {
        // Refusals of the sources without a row, and rows of a guard that the sources lack. Whether
        // they lack another row shows where no test produces it.
        unmatched: [
            ...inSources.filter((refusal) => !rows.some((row) => isFor(row, refusal))),
            ...rows.filter((row) => !row.occurs &&
                !inSources.some((refusal) => isFor(row, refusal))),
        ].map(({ text }) => text),
        // The event IDs in decimal.
        events: new Set([...document.matchAll(EVENT)].map(([, event]) => event)),
        // A refusal's code and text as the table has them.
        refusals: new Set(rows.filter(({ occurs }) => occurs)
            .flatMap(({ codes, text }) => codes.map((code) => `${code} ${text}`))),
        nameOf(reply) {
            const row = rowOf(reply);
            const code = row?.handedOn ? row.codes[0] : reply.ret_code;
            return `${code} ${row?.text ?? reply.ret_mesg}`;
        },
        // Whether the request was refused for its JSON alone.
        isAboutShape: (reply) => Boolean(reply.ret_code) && SHAPE_CODES.test(reply.ret_code) &&
            SHAPE_PRODUCERS.includes(rowOf(reply)?.producer),
    };
}
