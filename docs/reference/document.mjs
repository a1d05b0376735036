// The API document as an object, with unresolved references and the project's version.
import { readFileSync } from "node:fs";
import { bundle, createConfig } from "@redocly/openapi-core";

export async function loadDocument() {
    const config = await createConfig({});
    const { bundle: document } = await bundle({ ref: "../openapi.yaml", config });
    const [, version] = readFileSync("../../CMakeLists.txt", "utf8").match(/VERSION ([\d.]+) LANG/);
    document.parsed.info.version = version;
    return document.parsed;
}
