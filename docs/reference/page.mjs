// Builds the page of the API reference in a directory: page.mjs DIRECTORY
import { copyFileSync, mkdirSync, writeFileSync } from "node:fs";
import { loadDocument } from "./document.mjs";

const RENDERER = "node_modules/swagger-ui-dist";
const RENDERER_FILES = [
    "swagger-ui-bundle.js",
    "swagger-ui-bundle.js.LICENSE.txt",
    "swagger-ui.css",
    "LICENSE",
    "NOTICE",
];

const directory = process.argv[2];
mkdirSync(directory, { recursive: true });
copyFileSync("index.html", `${directory}/index.html`);
RENDERER_FILES.forEach((name) => copyFileSync(`${RENDERER}/${name}`, `${directory}/${name}`));
writeFileSync(`${directory}/openapi.json`, JSON.stringify(await loadDocument()));
