// Checks an OpenAPI document, and that answers of the API are those that it describes:
//
//   node check.js DOCUMENT < ANSWERS
//
// ANSWERS is a JSON list of {path, method, status, type, body}, the path as the document writes it.
// Every response of the document must be among them.
"use strict";

const fs = require("node:fs");
const Ajv = require("ajv");
const SwaggerParser = require("@apidevtools/swagger-parser");

// Of each documented response its schema, by what an answer is found with.
function documentedSchemas(api) {
    const schemas = new Map();
    for (const [path, item] of Object.entries(api.paths)) {
        for (const [method, operation] of Object.entries(item)) {
            for (const [status, response] of Object.entries(operation.responses ?? {})) {
                for (const [type, content] of Object.entries(response.content)) {
                    schemas.set([method, path, status, type].join(" "), content.schema);
                }
            }
        }
    }
    return schemas;
}

async function main(document, answers) {
    const schemas = documentedSchemas(await SwaggerParser.validate(document));
    const unseen = new Set(schemas.keys());
    const ajv = new Ajv({ strict: false });
    for (const { path, method, status, type, body } of answers) {
        const key = [method, path, status, type].join(" ");
        if (!schemas.has(key)) throw new Error(`not documented: ${key}`);
        if (!ajv.validate(schemas.get(key), body)) {
            throw new Error(`${key}: ${ajv.errorsText()}: ${JSON.stringify(body)}`);
        }
        unseen.delete(key);
    }
    if (unseen.size > 0) throw new Error(`never answered: ${[...unseen].join(", ")}`);
}

main(process.argv[2], JSON.parse(fs.readFileSync(0, "utf8"))).catch((error) => {
    console.error(error.message);
    process.exitCode = 1;
});
