// Bundles charts.js into one script: node bundle.mjs ENTRY OUTPUT, run where the packages are installed.
import { createRequire } from "node:module";
import path from "node:path";

const require = createRequire(path.join(process.cwd(), "package.json"));
const esbuild = require("esbuild");
const [entry, output] = process.argv.slice(2);
await esbuild.build({
  entryPoints: [entry],
  outfile: output,
  bundle: true,
  minify: true,
  format: "iife",
  target: "es2020",
  legalComments: "none",
  nodePaths: [path.join(process.cwd(), "node_modules")],
  logLevel: "warning",
});
