// Uses the page as a person would, in a headless browser: browser.mjs PAGE_URL USER PASSWORD
// The page loads without errors, creates a rule, and shows that the same request is then refused.
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { chromium } from "playwright-core";

const [url, user, password] = process.argv.slice(2);
const profile = mkdtempSync(join(tmpdir(), "reference-browser-"));
const browser = await chromium.launchPersistentContext(profile, {
    executablePath: "/usr/bin/chromium",
    args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
        "--disable-background-networking", "--disable-component-update", "--disable-sync"],
});

async function logIn(page) {
    await page.click("button.authorize");
    await page.fill('[aria-label="auth-basic-username"]', user);
    await page.fill('[aria-label="auth-basic-password"]', password);
    await page.click(".auth-btn-wrapper .authorize");
    await page.click(".auth-btn-wrapper .btn-done");
}

// Sends the example request of the operation and returns the status and the body shown.
async function execute(operation) {
    await operation.locator(".execute").click();
    const answer = operation.locator(".live-responses-table .response").first();
    const shown = await answer.locator(".response-col_status").innerText();
    return { status: shown.trim(), body: await answer.locator(".highlight-code").innerText() };
}

function expect(found, status, text) {
    if (!found.status.startsWith(status) || !found.body.includes(text)) {
        throw new Error(`shown: ${found.status} ${found.body}; expected: ${status} ${text}`);
    }
}

try {
    const page = await browser.newPage();
    const errors = [];
    page.on("pageerror", (error) => errors.push(error.message));
    page.on("console", (message) => message.type() === "error" && errors.push(message.text()));
    await page.goto(url);
    const operation = page.locator("#operations-Rules-addRule");
    await operation.locator(".opblock-summary").click();
    await logIn(page);
    expect(await execute(operation), "200", "Add Rule successful");
    if (errors.length > 0) {
        throw new Error(`errors on the page: ${errors.join("; ")}`);
    }
    await operation.locator(".btn-clear").click();
    expect(await execute(operation), "400", "already added in quick mode rule list");
    console.log("a rule was created from the page, and its duplicate shown refused");
} finally {
    await browser.close();
    rmSync(profile, { recursive: true, force: true });
}
