// Holds the recorded exchanges of the tests, the API document and the tables in docs/api.md against
// each other: exchanges.mjs FILE, where each line of FILE is {"method", "body", "answer"}.
import { readFileSync } from "node:fs";
import Ajv from "ajv/dist/2020.js";
import { loadDocument } from "./document.mjs";
import { loadTables } from "./tables.mjs";

const JSON_TYPE = "application/json";
const RESPONSE_HEADERS = ["Status", "Content-type"];
const RULE_PATH = "/paths/~1rule";

const api = await loadDocument();
const tables = loadTables();
const ajv = new Ajv({ strict: false, formats: { int32: true } }).addSchema(api, "api");
const failures = [];

const fits = (pointer, value) => ajv.validate({ $ref: `api#${pointer}` }, value);

function parse(text) {
    try {
        return JSON.parse(text);
    } catch {
        return undefined;
    }
}

// The documented responses: by method (or "other") and status.
function documentedResponses() {
    const { "x-other-methods": other, ...operations } = api.paths["/rule"];
    const responses = { "other 200": [`${RULE_PATH}/x-other-methods`, other] };
    for (const [method, { responses: byStatus }] of Object.entries(operations)) {
        for (const [status, response] of Object.entries(byStatus)) {
            const name = response.$ref?.split("/").at(-1);
            responses[`${method.toUpperCase()} ${status}`] = name
                ? [`/components/responses/${name}`, api.components.responses[name]]
                : [`${RULE_PATH}/${method}/responses/${status}`, response];
        }
    }
    return Object.entries(responses).map(([name, [pointer, { content }]]) => {
        const media = content?.[JSON_TYPE];
        const examples = Object.values(media?.examples ?? {}).map(({ value }) => value);
        return {
            name,
            schema: media && `${pointer}/content/application~1json/schema`,
            examples,
            refusals: new Set(examples.filter((value) => value.ret_code).map(tables.nameOf)),
            seen: false,
        };
    });
}

const responses = documentedResponses();
const operations = ["GET", "PUT", "POST", "DELETE"];

function readAnswer(answer) {
    if (answer === "") {
        return { status: "500" };  // the program left it to the web server
    }
    const [head, ...rest] = answer.split("\r\n\r\n");
    const [first, ...lines] = head.split("\r\n");
    const status = /^(?:Status:|HTTP\/1\.1) (\d{3}) /.exec(first)?.[1];
    return {
        status,
        overHttp: first.startsWith("HTTP/"),
        headers: new Map(lines.map((line) => line.split(/: (.*)/s, 2))),
        text: rest.join("\r\n\r\n"),
    };
}

// Why the answer is not the documented one, or undefined.
function faultOfAnswer(response, { overHttp, headers, text }) {
    if (!response.schema) {
        return undefined;
    }
    if (headers.get("Content-type") !== JSON_TYPE) {
        return "another content type";
    }
    if (!overHttp && [...headers.keys()].some((name) => !RESPONSE_HEADERS.includes(name))) {
        return "an undocumented header";
    }
    const body = parse(text);
    if (body === undefined || !text.endsWith("\n\n")) {
        return "the body is not JSON and two line feeds";
    }
    if (!fits(response.schema, body)) {
        return `the body is not as documented: ${ajv.errorsText()}`;
    }
    if (body?.ret_code && !response.refusals.has(tables.nameOf(body))) {
        return "the document has no example of this refusal";
    }
    return undefined;
}

// A request that fits the document is not refused for its shape; one that a client sends and that
// succeeds fits it.
function faultOfRequest({ method, body }, answer) {
    if (!["POST", "DELETE"].includes(method)) {
        return undefined;
    }
    const schema = `${RULE_PATH}/${method.toLowerCase()}/requestBody/content/application~1json/schema`;
    const document = parse(body);
    const asDocumented = document !== undefined && fits(schema, document);
    const reply = parse(answer.text);
    if (asDocumented && tables.isAboutShape(reply)) {
        return "a request as documented is refused for its shape";
    }
    if (!asDocumented && answer.overHttp && reply.ret_code === 0) {
        return "a request that is not as documented succeeds";
    }
    return undefined;
}

const produced = new Set();

function check(exchange) {
    const answer = readAnswer(exchange.answer);
    const method = operations.includes(exchange.method) ? exchange.method : "other";
    const name = answer.status === "401" || answer.status === "500" ? answer.status : undefined;
    const response = responses.find((each) =>
        name ? each.name.endsWith(name) : each.name === `${method} ${answer.status}`);
    if (!response) {
        return `status ${answer.status} is not documented for this method`;
    }
    response.seen = true;
    const reply = parse(answer.text ?? "");
    if (reply?.ret_code) {
        produced.add(tables.nameOf(reply));
    }
    return faultOfAnswer(response, answer) ?? (answer.text && faultOfRequest(exchange, answer));
}

for (const response of responses) {
    for (const example of response.examples) {
        if (!fits(response.schema, example)) {
            failures.push(`${response.name}: ${JSON.stringify(example)}: ${ajv.errorsText()}`);
        }
    }
}

const exchanges = readFileSync(process.argv[2], "utf8").trimEnd().split("\n").map(JSON.parse);
for (const exchange of exchanges) {
    const fault = check(exchange);
    if (fault) {
        failures.push(`${fault}: ${JSON.stringify(exchange)}`);
    }
}

failures.push(...tables.unmatched.map((text) => `in the sources or the table of refusals only: ${text}`));
const documented = new Set(responses.flatMap((response) => [...response.refusals]));
const compare = (names, others, text) =>
    [...names].filter((name) => !others.has(name)).forEach((name) => failures.push(`${text}: ${name}`));
compare(tables.refusals, documented, "in the table of refusals only");
compare(documented, tables.refusals, "not in the table of refusals");
compare(documented, produced, "documented, but produced by no test");
const events = api.components.schemas.Event.properties.eventID.enum.map(String);
compare(events, tables.events, "not in the table of events");
compare(tables.events, new Set(events), "in the table of events only");
const enumerated = ["AddRuleRefusal", "DeleteRulesRefusal"].flatMap((name) => {
    const { anyOf, properties } = api.components.schemas[name];
    return (anyOf?.[0].properties ?? properties).ret_code.enum.map(String);
});
compare(enumerated, new Set([...documented].map((name) => name.split(" ")[0])), "without example");
for (const response of responses.filter(({ name, seen }) => !seen && !/ (401|500)$/.test(name))) {
    // -4 is the only refusal of PUT, and one test throws at every call of a POST.
    if (response.name !== "PUT 400") {
        failures.push(`answered by no test: ${response.name}`);
    }
}

failures.forEach((failure) => console.error(failure));
console.log(`${exchanges.length} exchanges, ` +
    `${produced.size} refusals of ${documented.size} documented`);
process.exit(failures.length === 0 ? 0 : 1);
