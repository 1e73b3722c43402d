// Opens pages with charts in Chromium and uses the charts as a reader does:
//   node charts.mjs PROGRAM CHROMIUM PACKAGES PICTURES
// Exits with 77, which means skipped, when the program was built without its drawing of charts.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import { pathToFileURL } from "node:url";
import { browser, pictures, program, quoted, root, scratch, script } from "./harness.mjs";

function run(name, args) {
  const file = path.join(scratch, `${name}.html`);
  execFileSync(program, [...args, "--quiet", "--show", "viewer", "--format", "html", "-o", file],
    { cwd: root, stdio: "inherit" });
  return file;
}

// 300 levels, a label of 500 characters, names and values that try to be markup, one level, a missing mean.
function hostileData() {
  const rows = ["y,many,evil,one"];
  const evil = [`${script}"'&lt;`, "y".repeat(500), "{image: 'x'}", "</svg><b>&amp;"];
  for (let i = 0; i < 1200; i += 1) {
    rows.push([10 + (i * 7) % 11 + (i % 5), `l${i % 300}`, quoted(evil[(i >> 1) % 4]), "only"].join(","));
  }
  fs.writeFileSync(path.join(scratch, "hostile.csv"), rows.join("\n") + "\n");
  fs.writeFileSync(path.join(scratch, "schema.json"),
    JSON.stringify({ fields: [{ name: "y", title: `${script} ${"L".repeat(500)}` }, { name: "evil", title: script }] }));
  return ["fit", "y ~ evil + many + one", "--data", path.join(scratch, "hostile.csv"), "--data-schema",
    path.join(scratch, "schema.json"), "--emmeans", "evil,many,one", "--contrast", "deviation", "--df", "residual"];
}

// A factor whose pairs are too many for a picture.
function crowdedData() {
  const rows = ["y,many"];
  for (let i = 0; i < 900; i += 1) rows.push([10 + (i * 7) % 11 + (i % 5), `l${i % 300}`].join(","));
  fs.writeFileSync(path.join(scratch, "crowded.csv"), rows.join("\n") + "\n");
  return ["fit", "y ~ many", "--data", path.join(scratch, "crowded.csv"), "--emmeans", "many", "--contrast", "pairwise",
    "--df", "residual"];
}

// Levels of exactly equal means, so that every significance is 1, and a combination of levels without data.
function equalData() {
  const rows = ["y,g,h"];
  for (let i = 0; i < 96; i += 1) {
    const [g, h] = [Math.floor(i / 8) % 3, Math.floor(i / 24) % 2];
    if (g !== 2 || h !== 1) rows.push([[8, 9, 11, 12][i % 4], `g${g}`, `h${h}`].join(","));
  }
  fs.writeFileSync(path.join(scratch, "equal.csv"), rows.join("\n") + "\n");
  return ["fit", "y ~ g*h", "--data", path.join(scratch, "equal.csv"), "--emmeans", "g*h,h", "--contrast", "pairwise",
    "--adjust", "seqsidak", "--df", "residual"];
}

// Opens a page and waits until its charts stand; console, requests and policy must stay silent.
async function open(file, scheme = "light") {
  const context = await browser.newContext({ viewport: { width: 1280, height: 900 }, colorScheme: scheme });
  const page = await context.newPage();
  const said = [];
  page.on("console", (message) => said.push(message.text()));
  page.on("pageerror", (error) => said.push(error.message));
  page.on("request", (request) => {
    if (!/^(file|data|blob):/.test(request.url())) said.push(`request to ${request.url()}`);
  });
  const started = Date.now();
  await page.goto(pathToFileURL(file).href);
  if (await page.evaluate(() => typeof window.hierfitCharts) === "undefined") {
    console.log("this build has no drawing of charts: its packages could not be had when it was built");
    process.exit(77);
  }
  const undrawn = page.locator("figure.chart:not(.drawn, .failed)");
  while (await undrawn.count() > 0 && Date.now() - started < 120000) await page.waitForTimeout(20);
  const name = path.basename(file, ".html");
  console.log(`${name}: ${fs.statSync(file).size} bytes, ${Date.now() - started} ms`);
  assert.equal(await page.locator("figure.chart:not(.drawn)").count(), 0, `${name}: a chart was not drawn`);
  assert.deepEqual(said.filter((text) => !text.startsWith("WARN")), [], `${name}: the page said something`);
  return { page, context, said };
}

async function gallery(name) {
  const file = run(name, ["run", `examples/gallery/${name}.hierfit`]);
  assert.ok(fs.statSync(file).size < 2 * 1024 * 1024, `${name} is 2 MiB or more`);
  const { page, context, said } = await open(file);
  const figures = page.locator("figure.chart");
  const n = await figures.count();
  assert.ok(n >= 3, `${name} has ${n} charts`);
  for (let i = 0; i < n; i += 1) {
    const figure = figures.nth(i);
    const title = await figure.locator("figcaption").innerText();
    const marks = await figure.locator("svg .mark-symbol path, svg .mark-rect path, svg .mark-rule line").count();
    assert.ok(marks > 0, `${name}: ${title} has no marks`);
    assert.ok(await figure.locator(".drawing").getAttribute("aria-label"), `${name}: ${title} has no description`);
    assert.ok(await figure.locator("details.rows tbody tr").count() > 0, `${name}: ${title} has no rows`);
    await figure.screenshot({ path: path.join(pictures, `${name}-${i + 1}.png`) });
  }
  assert.deepEqual(said, [], `${name}: the charts said something`);
  return { page, context };
}

// A touch shows the value with its limits; a click on the legend fades the other colours; the picture can be taken.
async function use() {
  const { page, context } = await gallery("oats");
  const estimates = page.locator("figure.chart", { hasText: "Estimates" }).first();
  await estimates.scrollIntoViewIfNeeded();
  await estimates.locator("svg .mark-symbol.role-mark path").first().hover();
  const tooltip = page.locator("#vg-tooltip-element.visible");
  await tooltip.waitFor();
  const text = await tooltip.innerText();
  for (const word of ["variety", "nitro", "Estimated Mean", "Lower limit", "Upper limit"]) {
    assert.ok(text.includes(word), `the tooltip lacks ${word}: ${text}`);
  }
  // The means of each nitrogen level are joined over the varieties; the legend has the marks' full colours.
  const lines = await estimates.locator("svg .mark-line path").evaluateAll((paths) =>
    paths.map((mark) => mark.getAttribute("d").split("L").length));
  assert.deepEqual(lines, [3, 3, 3, 3]);
  const symbols = await estimates.locator("svg .role-legend-symbol path").evaluateAll((paths) =>
    paths.map((mark) => [mark.getAttribute("opacity") ?? "1", mark.getAttribute("fill-opacity") ?? "1"].join()));
  assert.deepEqual(new Set(symbols), new Set(["1,1"]));
  const opacities = () => estimates.locator("svg .mark-symbol.role-mark path").evaluateAll((paths) =>
    paths.map((mark) => mark.getAttribute("opacity") ?? "1"));
  assert.equal(new Set(await opacities()).size, 1);
  await estimates.locator("svg .role-legend-symbol path").first().click();
  await page.waitForTimeout(200);
  const faded = await opacities();
  assert.equal(faded.filter((value) => Number(value) < 0.5).length, faded.length * 3 / 4);
  for (const [kind, start] of [["SVG", "<svg"], ["PNG", "\u0089PNG"]]) {
    const waiting = page.waitForEvent("download");
    await estimates.hover();
    await estimates.getByRole("button", { name: kind }).click();
    const download = await waiting;
    assert.equal(download.suggestedFilename(), `Estimates.${kind.toLowerCase()}`);
    assert.ok(fs.readFileSync(await download.path(), "latin1").startsWith(start), `${kind} isn't one`);
  }
  await page.emulateMedia({ media: "print" });
  assert.equal(await page.locator("figure.chart svg").first().isVisible(), true);
  await page.screenshot({ path: path.join(pictures, "print.png"), fullPage: true });
  await context.close();
  const dark = await open(path.join(scratch, "oats.html"), "dark");
  const colour = await dark.page.locator("figure.chart svg .role-axis-title text").first()
    .evaluate((element) => getComputedStyle(element).fill);
  assert.equal(colour, "rgb(227, 232, 238)");
  await dark.page.screenshot({ path: path.join(pictures, "dark.png"), fullPage: true });
  await dark.context.close();
}

async function hostile() {
  const file = run("hostile", hostileData());
  const { page, context } = await open(file);
  assert.notEqual(await page.title(), "hacked");
  assert.equal(await page.locator("main b, main svg script").count(), 0);
  const overflow = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
  assert.ok(overflow <= 0, `the page is ${overflow} px too wide`);
  await page.screenshot({ path: path.join(pictures, "hostile.png"), fullPage: true });
  await context.close();
}

async function extremes() {
  const crowded = await open(run("crowded", crowdedData()));
  const network = crowded.page.locator("figure.chart", { hasText: "Pairwise Contrasts" });
  assert.ok((await network.innerText()).includes("A network of 300 levels"));
  assert.equal(await network.locator("svg").count(), 0);
  assert.ok(await crowded.page.locator("section.block tr").count() < 5000, "a table of all pairs is too long to open");
  await crowded.context.close();
  const equal = await open(run("equal", equalData()));
  await equal.page.screenshot({ path: path.join(pictures, "equal.png"), fullPage: true });
  const overflow = await equal.page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
  assert.ok(overflow <= 0, `the page is ${overflow} px too wide`);
  await equal.context.close();
}

// Without its script a page tells each chart as its table.
async function scriptless() {
  const context = await browser.newContext({ javaScriptEnabled: false });
  const page = await context.newPage();
  await page.goto(pathToFileURL(path.join(scratch, "oats.html")).href);
  assert.equal(await page.locator("figure.chart details.rows[open] table").first().isVisible(), true);
  assert.equal(await page.locator("figure.chart svg").count(), 0);
  await context.close();
}

await use();
for (const name of ["repeated", "seizures", "bacteria"]) await (await gallery(name)).context.close();
await hostile();
await extremes();
await scriptless();
await browser.close();
