
(function () {
  "use strict";

  // The table's cells as a grid of texts; a number gives its full double when full is true.
  function grid(table, full) {
    const rows = [];
    Array.from(table.rows).forEach(function (row, r) {
      rows[r] = rows[r] || [];
      let c = 0;
      Array.from(row.cells).forEach(function (cell) {
        while (rows[r][c] !== undefined) c += 1;
        const copy = cell.cloneNode(true);
        copy.querySelectorAll("sup").forEach(function (mark) { mark.remove(); });
        const text = full && cell.dataset.v !== undefined ? cell.dataset.v : copy.textContent.trim();
        for (let i = 0; i < cell.rowSpan; i += 1) {
          rows[r + i] = rows[r + i] || [];
          for (let j = 0; j < cell.colSpan; j += 1) rows[r + i][c + j] = j === 0 || row.parentNode.tagName === "THEAD" ? text : "";
        }
        c += cell.colSpan;
      });
    });
    return rows;
  }

  function csv(rows) {
    return rows.map(function (row) {
      return row.map(function (text) {
        // A text that a spreadsheet would take for a formula is led by an apostrophe.
        const safe = /^[=+\-@\t\r]/.test(text) && Number.isNaN(Number(text)) ? "'" + text : text;
        return /[",\r\n]/.test(safe) ? '"' + safe.replace(/"/g, '""') + '"' : safe;
      }).join(",");
    }).join("\r\n") + "\r\n";
  }

  function button(label, action) {
    const made = document.createElement("button");
    made.type = "button";
    made.textContent = label;
    made.addEventListener("click", function () { action(made); });
    return made;
  }

  function said(made, word) {
    const label = made.textContent;
    made.textContent = word;
    setTimeout(function () { made.textContent = label; }, 1200);
  }

  function copy(table, made) {
    const text = grid(table, false).map(function (row) { return row.join("\t"); }).join("\n");
    const plain = new Blob([text], { type: "text/plain" });
    const html = new Blob([table.outerHTML], { type: "text/html" });
    const rich = window.ClipboardItem
      ? navigator.clipboard.write([new ClipboardItem({ "text/plain": plain, "text/html": html })])
      : navigator.clipboard.writeText(text);
    rich.then(function () { said(made, "Copied"); }, function () { said(made, "Not allowed"); });
  }

  function download(table, name) {
    const link = document.createElement("a");
    link.href = URL.createObjectURL(new Blob(["\ufeff" + csv(grid(table, true))], { type: "text/csv;charset=utf-8" }));
    link.download = name + ".csv";
    link.click();
    setTimeout(function () { URL.revokeObjectURL(link.href); }, 1000);
  }

  function fileName(table) {
    const title = table.caption && table.caption.firstChild ? table.caption.firstChild.textContent : "table";
    return title.replace(/[^\p{L}\p{N}]+/gu, "-").replace(/^-+|-+$/g, "").slice(0, 60) || "table";
  }

  document.querySelectorAll("section.block table").forEach(function (table) {
    const tools = document.createElement("div");
    tools.className = "tools";
    if (navigator.clipboard) tools.append(button("Copy", function (made) { copy(table, made); }));
    tools.append(button("CSV", function () { download(table, fileName(table)); }));
    table.closest(".block").append(tools);
  });

  function save(address, name) {
    const link = document.createElement("a");
    link.href = address;
    link.download = name;
    link.click();
  }

  function finishChart(figure, drawing) {
    const name = (figure.querySelector("figcaption").firstChild || figure).textContent
      .replace(/[^\p{L}\p{N}]+/gu, "-").replace(/^-+|-+$/g, "").slice(0, 60) || "chart";
    const tools = document.createElement("div");
    tools.className = "tools";
    ["svg", "png"].forEach(function (kind) {
      tools.append(button(kind.toUpperCase(), function (made) {
        window.hierfitCharts.picture(drawing, kind).then(
          function (address) { save(address, name + "." + kind); },
          function () { said(made, "Not possible"); });
      }));
    });
    const rows = figure.querySelector("details.rows");
    if (rows) {
      tools.append(button("CSV", function () { download(rows.querySelector("table"), name); }));
      rows.open = false;
    }
    figure.append(tools);
    // A wide picture shrinks to the page, but not until its letters can't be read: then it scrolls.
    const svg = figure.querySelector(".drawing svg");
    if (svg) svg.style.minWidth = Math.round(0.7 * Number(svg.getAttribute("width"))) + "px";
    figure.classList.add("drawn");
  }

  // One chart after the other, so that the page answers between them. A chart that can't be drawn keeps its table.
  const charts = Array.from(document.querySelectorAll("figure.chart"));
  (function next() {
    const figure = charts.shift();
    if (!figure || !window.hierfitCharts) return;
    const data = figure.querySelector(".drawing-data");
    if (!data) {
      figure.classList.add("drawn");
      next();
      return;
    }
    const drawing = JSON.parse(data.textContent);
    window.hierfitCharts.draw(figure.querySelector(".drawing"), drawing).then(
      function () { finishChart(figure, drawing); },
      function () { figure.classList.add("failed"); }).then(function () { setTimeout(next, 0); });
  }());

  if (window.matchMedia("(max-width: 52rem)").matches) {
    document.querySelectorAll("details.outline").forEach(function (outline) { outline.open = false; });
  }
}());
