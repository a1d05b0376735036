// Lints the API document; prints every problem and fails on any, including warnings.
import { createConfig, formatProblems, lint } from "@redocly/openapi-core";

const config = await createConfig({
    extends: ["recommended-strict"],
    rules: { "info-license": "off" },
});
const problems = await lint({ ref: "../openapi.yaml", config });
if (problems.length > 0) {
    formatProblems(problems, { format: "codeframe", totals: { errors: problems.length } });
    process.exit(1);
}
