// What every page of velmo is built with. Text from data goes into the page through textContent
// alone.
"use strict";

const velmo = (() => {
  // Colours of charts. The series are told apart by the colour-blind too (after Okabe and Ito);
  // from the ninth on, and for what shares a colour, dashes and markers differ.
  const themes = {
    light: {
      paper: "#ffffff", ink: "#1c2126", soft: "#5b6470", grid: "#e3e6ea",
      series: ["#0072b2", "#d55e00", "#009e73", "#b4559b", "#e69f00", "#3aa0d8", "#5b5f66",
               "#8c6d1f"],
    },
    dark: {
      paper: "#14171b", ink: "#e4e7eb", soft: "#9aa4b0", grid: "#2b3138",
      series: ["#4aa8e8", "#f28033", "#2fc496", "#dd8cc4", "#f2b83d", "#8ed0f7", "#b5bac2",
               "#c9a84e"],
    },
  };
  const theme = {};
  const dark = matchMedia("(prefers-color-scheme: dark)");
  const print = matchMedia("print");
  const charts = [];
  const kPrintWidth = 680;  // px of a chart on A4 between the margins

  const series = (index) => theme.series[index % theme.series.length];
  const dashes = [[], [7, 4], [2, 3], [9, 3, 2, 3], [4, 4], [12, 4], [1, 5], [6, 2, 2, 2, 2, 2]];
  const dash = (index) => dashes[index % dashes.length];
  const markers = ["circle", "rect", "triangle", "rectRot", "star", "crossRot", "cross",
                   "rectRounded"];
  const marker = (index) => markers[index % markers.length];
  // How often the colours have started over. Markers and bars are filled in another way then.
  const lap = (index) => Math.floor(index / theme.series.length);
  const filling = (index) => [series(index), theme.paper, alpha(series(index), 0.35), theme.ink][
    lap(index) % 4];
  const alpha = (colour, share) =>
    colour + Math.round(share * 255).toString(16).padStart(2, "0");

  // An element with attributes (a function: the handler of that event) and children: elements, or
  // text.
  function el(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
      if (typeof value === "function") element.addEventListener(name, value);
      else if (value !== null && value !== undefined) element.setAttribute(name, value);
    }
    element.append(...children.flat().filter((child) => child !== null && child !== undefined)
      .map((child) => child instanceof Node ? child : String(child)));
    return element;
  }

  // A number with `digits` behind the point and thousands grouped; a dash where there is none.
  const formats = [0, 1, 2, 3].map((digits) => new Intl.NumberFormat("en-US",
    {minimumFractionDigits: digits, maximumFractionDigits: digits}));
  const number = (value, digits = 0) =>
    Number.isFinite(value) ? formats[digits].format(value) : "–";
  // About four digits: as many as an interval of 1 % leaves meaning to.
  const figure = (value) =>
    number(value, Math.abs(value) < 10 ? 2 : Math.abs(value) < 1000 ? 1 : 0);
  const gigabytes = (bytesPerSecond) => figure(bytesPerSecond / 1e9);
  // A size in bytes, in binary units: "1.5 MiB".
  function bytes(value) {
    if (!Number.isFinite(value)) return "–";
    let power = 0;
    while (value >= 1024 && power < 5) { value /= 1024; power++; }
    return `${+value.toFixed(value < 10 ? 2 : value < 100 ? 1 : 0)} ` +
      ["B", "KiB", "MiB", "GiB", "TiB", "PiB"][power];
  }

  // A table of text. Columns: {title, text: true} is set from the left, others from the right;
  // neighbours of one `group` stand under it. Rows: arrays of texts or elements. It scrolls by
  // itself where the page is too narrow.
  function table(caption, columns, rows) {
    const side = (i) => [columns[i].text ? "text" : "",
      i && columns[i].group !== columns[i - 1].group ? "first" : ""].join(" ").trim() || null;
    const groups = [];
    for (const {group} of columns) {
      if (groups.length && groups.at(-1).group === group) groups.at(-1).count++;
      else groups.push({group, count: 1});
    }
    const grouped = columns.some(({group}) => group) ? el("tr", {class: "groups"},
      groups.map(({group, count}, i) => el("th", {scope: "colgroup", colspan: count,
        class: i ? "first" : null}, group ?? ""))) : null;
    const body = rows.map((row) => el("tr", {}, row.map((value, i) => i === 0
      ? el("th", {scope: "row", class: side(i)}, value)
      : el("td", {class: side(i)}, value))));
    return el("div", {class: "scroll", tabindex: 0, role: "region", "aria-label": caption},
      el("table", {},
        el("thead", {}, grouped, el("tr", {}, columns.map((column, i) =>
          el("th", {scope: "col", class: side(i)}, column.title)))),
        el("tbody", {}, body)));
  }

  // A fold. `fill` makes what is in it (an element, or a list of them): when it is opened, or the
  // page is drawn and the browser has nothing else to do, so that long tables delay no chart.
  function fold(title, fill) {
    let open = () => {
      open = () => {};
      made.append(...[fill()].flat());
    };
    const made = el("details", {toggle: () => open()}, el("summary", {}, title));
    (window.requestIdleCallback ?? setTimeout)(() => open());
    return made;
  }

  const failed = (message) => document.querySelector("main").append(
    el("p", {class: "bad"}, `A part of this page could not be drawn: ${message}`));
  // What nobody caught breaks all that comes after it: the first of these tells enough.
  addEventListener("error", ({message}) => failed(message), {once: true});

  // A section of the page under a heading, with a sentence that says how to read it.
  function section(id, title, note, ...children) {
    const made = el("section", {id, "aria-labelledby": `${id}-title`},
      el("h2", {id: `${id}-title`}, title), note ? el("p", {class: "note"}, note) : null,
      ...children);
    document.querySelector("main").append(made);
    return made;
  }

  // A chart in `parent`, which stands in the page. Colours in `config` are functions that read
  // velmo.theme, so that they follow the system's wish and the printer.
  function chart(parent, id, label, height, config) {
    const canvas = el("canvas", {id, role: "img", "aria-label": label});
    parent.append(el("div", {class: "chart", style: `height: ${height}px`}, canvas));
    const made = new Chart(canvas, config);
    charts.push(made);
    return made;
  }

  // An axis with its title, unit included. `more` is laid over it.
  function axis(title, more = {}) {
    const {ticks, ...rest} = more;
    return {
      title: {display: true, text: title, color: () => theme.soft},
      grid: {color: () => theme.grid, borderColor: () => theme.grid, tickLength: 4},
      ticks: {color: () => theme.soft, ...ticks},
      ...rest,
    };
  }

  // A button that shows and hides the datasets of a chart. What it hides is not drawn at all.
  function toggle(label, owner, indices, shown, swatch) {
    const show = (on) => {
      for (const i of indices) owner.setDatasetVisibility(i, on);
      button.setAttribute("aria-pressed", on);
    };
    const button = el("button", {type: "button", class: "toggle", click: () => {
      show(button.getAttribute("aria-pressed") !== "true");
      owner.update("none");
    }}, swatch ?? null, label);
    button.show = show;
    show(shown);
    return button;
  }

  // The line and the marker of a dataset, or a bar's colour, as a legend shows them; drawn again
  // with each theme.
  const swatches = [];
  function swatch(colour, dashIndex, style) {
    const canvas = el("canvas", {width: 60, height: 28, class: "swatch", "aria-hidden": "true"});
    const draw = () => {
      const context = canvas.getContext("2d");
      context.setTransform(2, 0, 0, 2, 0, 0);
      context.clearRect(0, 0, 30, 14);
      context.strokeStyle = series(colour);
      context.fillStyle = filling(colour);
      context.lineWidth = 2;
      if (style === "bar") {
        context.fillRect(9, 2, 12, 10);
        context.strokeRect(9, 2, 12, 10);
        return;
      }
      context.setLineDash(dash(dashIndex));
      context.beginPath();
      context.moveTo(1, 7);
      context.lineTo(29, 7);
      context.stroke();
      context.setLineDash([]);
      const point = {pointStyle: style, radius: 4, borderWidth: 2};
      if (style) Chart.helpers.drawPoint(context, point, 15, 7);
    };
    swatches.push(draw);
    draw();
    return canvas;
  }

  // Intervals of points: a dataset with `whiskers: true` has points with xLow and xHigh, yLow and
  // yHigh, or both pairs.
  const whiskers = {
    id: "whiskers",
    afterDatasetDraw(owner, {index, meta}) {
      const dataset = owner.data.datasets[index];
      if (!dataset.whiskers) return;
      const {ctx, chartArea: area} = owner;
      ctx.save();
      ctx.beginPath();
      ctx.rect(area.left, area.top, area.right - area.left, area.bottom - area.top);
      ctx.clip();
      ctx.lineWidth = 1.25;
      meta.data.forEach((element, i) => {
        const point = dataset.data[i];
        ctx.strokeStyle = dataset.whiskerColor?.() ?? element.options.borderColor;
        ctx.beginPath();
        if (point.yLow !== undefined) {
          const ends = [point.yLow, point.yHigh].map((y) => owner.scales.y.getPixelForValue(y));
          ctx.moveTo(element.x, ends[0]);
          ctx.lineTo(element.x, ends[1]);
          for (const y of ends) {
            ctx.moveTo(element.x - 3, y);
            ctx.lineTo(element.x + 3, y);
          }
        }
        if (point.xLow !== undefined) {
          const ends = [point.xLow, point.xHigh].map((x) => owner.scales.x.getPixelForValue(x));
          ctx.moveTo(ends[0], element.y);
          ctx.lineTo(ends[1], element.y);
          for (const x of ends) {
            ctx.moveTo(x, element.y - 3);
            ctx.lineTo(x, element.y + 3);
          }
        }
        ctx.stroke();
      });
      ctx.restore();
    },
  };

  // Ticks of a logarithmic axis: 1, 2 and 5 of each decade. `format` has the axis as this.
  const decades = (format) => function label(value) {
    return /^[125]e/.test(value.toExponential()) ? format.call(this, value) : null;
  };

  // Strings that repeat stand as "$7": the eighth of the list before the data.
  function unpacked(element) {
    const strings = /"(?:[^"\\]|\\.)*"/g;
    const words = element.previousElementSibling.textContent.match(strings);
    return element.textContent.replace(strings, (string) =>
      string[1] === "$" ? words[string.slice(2, -1)] : string);
  }
  const data = [...document.querySelectorAll("script.data")].map(unpacked)
    .map((text) => ({text, value: JSON.parse(text)}));

  // JSON as velmo writes it, one blank a level. Numbers stay as they are written: JavaScript's are
  // too small for a seed.
  function indented(text) {
    let out = "";
    let depth = 0;
    const line = () => "\n" + " ".repeat(depth);
    for (const [token] of text.matchAll(/[{[](?:[}\]])|"(?:[^"\\]|\\.)*"|[^"]/g)) {
      if (token === "{" || token === "[") { depth++; out += token + line(); }
      else if (token === "}" || token === "]") { depth--; out += line() + token; }
      else if (token === ",") out += token + line();
      else if (token === ":") out += ": ";
      else out += token[0] === "\"" ? plain(token) : token;
    }
    return out + "\n";
  }
  // Without the escapes that the page needs.
  const escapes = {"\\u003c": "<", "\\u003e": ">", "\\u0026": "&",
                   "\\u2028": "\u2028", "\\u2029": "\u2029"};
  const plain = (token) =>
    token.replace(/\\(u[0-9a-f]{4}|.)/g, (escape) => escapes[escape] ?? escape);

  // A button that saves data[index] under `name`, byte for byte as velmo writes it.
  function saveButton(label, index, name) {
    return el("button", {type: "button", class: "save", click: () => {
      const url = URL.createObjectURL(
        new Blob([indented(data[index].text)], {type: "application/json"}));
      el("a", {href: url, download: name}).click();
      setTimeout(() => URL.revokeObjectURL(url), 10000);
    }}, label);
  }

  function paint(printing) {
    Object.assign(theme, themes[dark.matches && !printing ? "dark" : "light"]);
    for (const draw of swatches) draw();
    for (const made of charts) made.update("none");
  }
  paint(print.matches);
  dark.addEventListener("change", () => paint(print.matches));
  print.addEventListener("change", () => paint(print.matches));
  addEventListener("beforeprint", () => {
    for (const made of charts) made.resize(kPrintWidth, Math.min(made.height, kPrintWidth / 2));
    paint(true);
  });
  addEventListener("afterprint", () => {
    for (const made of charts) made.resize();
    paint(false);
  });

  Chart.register(whiskers);
  Chart.defaults.animation = false;
  Chart.defaults.maintainAspectRatio = false;
  Chart.defaults.font.family = "system-ui, -apple-system, 'Segoe UI', Roboto, sans-serif";
  Chart.defaults.font.size = 12;
  Chart.defaults.plugins.legend.display = false;
  Chart.defaults.plugins.tooltip.padding = 10;
  Chart.defaults.plugins.tooltip.boxPadding = 4;

  return {
    data: data.map((entry) => entry.value), text: (index) => data[index].text, saveButton, failed,
    theme, series, lap, filling, dash, marker, alpha, chart, axis, decades, toggle, swatch,
    el, table, fold, section, number, figure, gigabytes, bytes,
  };
})();
