// What the page tests share, from their command line PROGRAM CHROMIUM PACKAGES PICTURES: PACKAGES is the folder where npm
// has installed what package.json names; PICTURES takes the screenshots, which are for eyes. Exits with 77, which means
// skipped, when the packages aren't there.
import fs from "node:fs";
import { createRequire } from "node:module";
import os from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";

const [named, chromium, packages, folder] = process.argv.slice(2);
export const program = named;
export const pictures = folder;
export const root = path.resolve(path.dirname(fileURLToPath(import.meta.url)), "../..");
export const scratch = fs.mkdtempSync(path.join(os.tmpdir(), "hierfit-browser-"));
process.on("exit", () => fs.rmSync(scratch, { recursive: true, force: true }));
fs.mkdirSync(pictures, { recursive: true });

let playwright;
try {
  playwright = createRequire(path.join(packages, "package.json"))("playwright-core");
} catch {
  console.log("playwright-core is not installed; scripts/test installs it");
  process.exit(77);
}

export const browser = await playwright.chromium.launch({
  executablePath: chromium,
  args: ["--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"],
});

export const script = "<script>document.title='hacked'</script>";
export const quoted = (text) => '"' + text.replaceAll('"', '""') + '"';
