// Draws chart documents with Vega-Lite. Expressions are interpreted, never compiled, so that the page's security policy
// can forbid eval; no style element is made, since the policy knows the page's own alone.
import embed from "vega-embed";
import * as vega from "vega";

const options = {
  renderer: "svg",
  ast: true,
  actions: false,
  defaultStyle: false,
  mode: "vega-lite",
  loader: { load: () => Promise.reject(new Error("charts load nothing")) },
  tooltip: { disableDefaultStyle: true },
  logLevel: vega.Error,
};

window.hierfitCharts = {
  // The title stands above the drawing already.
  draw(element, document) {
    const shown = { ...document };
    delete shown.title;
    return embed(element, shown, options).then((result) => {
      element.style.removeProperty("position");
      return result.view;
    });
  },
  // A picture of its own: with its title, on white.
  async picture(document, kind) {
    const holder = window.document.createElement("div");
    const result = await embed(holder, { ...document, background: "white" }, { ...options, tooltip: false });
    const text = kind === "png"
      ? await result.view.toImageURL("png", 2)
      : "data:image/svg+xml;charset=utf-8," + encodeURIComponent(await result.view.toSVG());
    result.finalize();
    return text;
  },
  version: vega.version,
};
