// The API document as an object, with unresolved references.
import { bundle, createConfig } from "@redocly/openapi-core";

export async function loadDocument() {
    const config = await createConfig({});
    const { bundle: document } = await bundle({ ref: "../openapi.yaml", config });
    return document.parsed;
}
