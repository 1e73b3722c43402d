// Opens pages of results in Chromium and holds them against the JSON rendering of the same runs:
//   node report.mjs PROGRAM CHROMIUM PACKAGES PICTURES
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import { pathToFileURL } from "node:url";
import { browser, pictures, program, quoted, root, scratch, script } from "./harness.mjs";

const examples = path.join(root, "examples");

const hostile = `${script}"'&lt;<img src=x onerror="document.title='hacked'">\u202Egnirts\u202C`;
const long = "x".repeat(10000);

// A target and a factor whose labels and values try to be markup, turn the text's direction or burst the page.
function writeHostileData() {
  const levels = [hostile, long, "plain"];
  const rows = ["y,level,unit"];
  for (let i = 0; i < 36; i += 1) {
    rows.push([10 + (i * 7) % 11 + (i % 3) * 2, quoted(levels[i % 3]), `u${Math.floor(i / 6)}`].join(","));
  }
  fs.writeFileSync(path.join(scratch, "hostile.csv"), rows.join("\n") + "\n");
  const fields = [{ name: "y", title: hostile }, { name: "level", title: long }];
  fs.writeFileSync(path.join(scratch, "hostile-schema.json"), JSON.stringify({ fields }));
  return ["y ~ level + (1 | unit)", "--data", path.join(scratch, "hostile.csv"), "--data-schema",
    path.join(scratch, "hostile-schema.json"), "--emmeans", "level"];
}

const runs = {
  sleepstudy: ["reaction ~ days + (days | subject)", "--data", `${examples}/sleepstudy.csv`],
  means: ["yield ~ variety*factor(nitro) + (1 | block/variety)", "--data", `${examples}/oats.csv`,
    "--emmeans", "variety*nitro,nitro", "--contrast", "pairwise"],
  grouped: ["distance ~ sex*age", "--data", `${examples}/orthodont.csv`, "--rcov", "ar1", "--repeated", "age | subject",
    "--nominal", "age"],
  kronecker: ["score ~ treatment*phase", "--data", `${examples}/obrienkaiser.csv`, "--repeated", "phase,hour | id",
    "--kronecker", "hour", "--rcov", "un_ar1"],
  hostile: writeHostileData(),
};

function fit(name, format, show) {
  const file = path.join(scratch, `${name}.${format}`);
  execFileSync(program, ["fit", ...runs[name], "--show", show, "--format", format, "-o", file, "--quiet"], { stdio: "inherit" });
  return file;
}

// What the page shows, read in the page: its outline, and its tables cell by cell.
function readPage() {
  const textOf = (element) => {
    const copy = element.cloneNode(true);
    copy.querySelectorAll("sup, .note").forEach((mark) => mark.remove());
    return copy.textContent;
  };
  const tables = Array.from(document.querySelectorAll("section.block table"));
  return {
    outline: Array.from(document.querySelectorAll(".outline a"), (link) => ({
      text: link.textContent, there: document.querySelector(link.getAttribute("href")) !== null,
    })),
    headings: Array.from(document.querySelectorAll("main :is(h2, h3, h4, h5, h6)"), (heading) => heading.textContent),
    tables: tables.map((table) => ({
      title: textOf(table.caption),
      notes: Array.from(table.caption.querySelectorAll(".note"), (note) => note.textContent),
      cells: Array.from(table.querySelectorAll("tbody td"), textOf).filter((text) => text !== ""),
      headless: Array.from(table.querySelectorAll("tbody td, tbody th"))
        .filter((cell) => cell.tagName === "TH" && !cell.hasAttribute("scope")).length,
    })),
    title: document.title,
    injected: document.querySelectorAll("main img, main script:not([type='application/json'])").length,
    overflow: document.documentElement.scrollWidth - document.documentElement.clientWidth,
  };
}

const shortened = (text) => (Buffer.byteLength(text) > 80 ? /…$/ : text);

// What a page leaves out of a text: characters that would turn the direction of what follows.
const shownText = (text) => text.replace(/[\u061C\u200E\u200F\u202A-\u202E\u2066-\u2069]/g, "").replace(/[\t\r]/g, " ");

function compare(name, page, json) {
  const tables = json.tables.filter((block) => block.kind === "table");
  assert.deepEqual(page.tables.map((table) => table.title), tables.map((table) => shownText(table.title)), name);
  tables.forEach((table, i) => {
    assert.deepEqual(page.tables[i].cells, table.cells.map((cell) => shownText(cell.text)).filter((text) => text !== ""),
      `${name}: ${table.title.slice(0, 60)}`);
    assert.deepEqual(page.tables[i].notes, table.notes.map(shownText), `${name}: ${table.title.slice(0, 60)}`);
    assert.equal(page.tables[i].headless, 0, "every row heading has its scope");
  });
  assert.ok(page.outline.every((entry) => entry.there), `${name}: every entry of the outline leads somewhere`);
  // The outline follows headings and blocks, each where it opens.
  const expected = [];
  let open = [];
  for (const block of json.tables) {
    let shared = 0;
    while (shared < open.length && open[shared] === block.headings[shared]) shared += 1;
    expected.push(...block.headings.slice(shared));
    open = block.headings;
    if (block.kind !== "message") expected.push(block.title);
  }
  assert.equal(page.outline.length, expected.length, name);
  expected.forEach((text, i) => {
    const wanted = shortened(shownText(text));
    if (typeof wanted === "string") assert.equal(page.outline[i].text, wanted, name);
    else assert.match(page.outline[i].text, wanted, name);
  });
  assert.equal(page.title, "Mixed Model Analysis", `${name}: nothing but the page names itself`);
  assert.equal(page.injected, 0, `${name}: text stays text`);
}

async function watch(context, name) {
  const page = await context.newPage();
  const complaints = [];
  page.on("console", (message) => complaints.push(`${message.type()}: ${message.text()}`));
  page.on("pageerror", (error) => complaints.push(String(error)));
  page.on("request", (request) => {
    if (!/^(file|data|blob):/.test(request.url())) complaints.push(`request to ${request.url()}`);
  });
  page.on("dialog", (dialog) => complaints.push(`dialog ${dialog.message()}`));
  await page.goto(pathToFileURL(path.join(scratch, `${name}.html`)).href);
  return { page, complaints };
}

const widths = { telephone: 390, tablet: 820, desk: 1440 };

async function inspect(browser, name) {
  const show = name === "grouped" ? "all" : "viewer";
  const json = JSON.parse(fs.readFileSync(fit(name, "json", show), "utf8"));
  fit(name, "html", show);
  for (const [device, width] of Object.entries(widths)) {
    const context = await browser.newContext({ viewport: { width, height: 900 }, hasTouch: width < 500 });
    const { page, complaints } = await watch(context, name);
    const shown = await page.evaluate(readPage);
    compare(`${name} on a ${device}`, shown, json);
    assert.ok(shown.overflow <= 0, `${name} on a ${device}: the page is ${shown.overflow} pixels too wide`);
    await page.screenshot({ path: path.join(pictures, `${name}-${device}.png`), fullPage: name !== "hostile" });
    assert.deepEqual(complaints, [], `${name} on a ${device}`);
    await context.close();
  }
}

// Without scripts a page reads the same; in the dark it is dark; printed it has no outline.
async function inspectOtherwise(browser) {
  const json = JSON.parse(fs.readFileSync(path.join(scratch, "means.json"), "utf8"));
  const plain = await browser.newContext({ javaScriptEnabled: false, viewport: { width: 1440, height: 900 } });
  const silent = await watch(plain, "means");
  compare("means without scripts", await silent.page.evaluate(readPage), json);
  await plain.close();

  const dark = await browser.newContext({ colorScheme: "dark", viewport: { width: 1440, height: 900 } });
  const { page } = await watch(dark, "means");
  const back = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  assert.ok(back.match(/\d+/g).slice(0, 3).every((part) => Number(part) < 64), `dark is ${back}`);
  await page.screenshot({ path: path.join(pictures, "means-dark.png") });
  await page.emulateMedia({ media: "print", colorScheme: "light" });
  assert.equal(await page.locator(".outline").isVisible(), false);
  await page.screenshot({ path: path.join(pictures, "means-print.png"), fullPage: true });
  await dark.close();
}

// The button at a table gives its figures in full.
async function inspectDownload(browser) {
  const context = await browser.newContext({ acceptDownloads: true, viewport: { width: 1440, height: 900 } });
  const { page, complaints } = await watch(context, "sleepstudy");
  const block = page.locator("section.block", { has: page.locator("caption", { hasText: "Fixed Coefficients" }) });
  await block.hover();
  const [download] = await Promise.all([page.waitForEvent("download"), block.getByRole("button", { name: "CSV" }).click()]);
  assert.equal(download.suggestedFilename(), "Fixed-Coefficients.csv");
  const text = fs.readFileSync(await download.path(), "utf8");
  const json = JSON.parse(fs.readFileSync(path.join(scratch, "sleepstudy.json"), "utf8"));
  const slope = json.splits[0].fixed[1].estimate;
  const row = text.split("\r\n").find((line) => line.startsWith("days,"));
  assert.equal(Number(row.split(",")[1]), slope);
  assert.deepEqual(complaints, []);
  await context.close();
}

try {
  for (const name of Object.keys(runs)) await inspect(browser, name);
  await inspectOtherwise(browser);
  await inspectDownload(browser);
  console.log(`pages are as they should be; pictures are in ${pictures}`);
} finally {
  await browser.close();
}
