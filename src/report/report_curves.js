// The loaded curves: latency over delivered bandwidth, a curve a memory and mix.
"use strict";

const curves = (() => {
  const {el, figure, gigabytes} = velmo;
  const {memories, surveys} = model;

  const loaded = memories.flatMap((memory) => memory.loaded.filter((cell) =>
    model.curve(cell).some(({summary}) => summary.bytes_per_second && summary.median_ns))
    .map((cell) => ({memory, cell, mix: cell.parameters.mix})));
  const owners = memories.filter((memory) => loaded.some((entry) => entry.memory === memory));
  const mixes = model.mixesOf(loaded.map(({cell}) => cell));
  // Colour tells the memories apart, dashes and markers the mixes; of one memory alone, colour
  // tells the mixes.
  const colourOf = ({memory, mix}) => owners.length > 1 ? memory.index : mixes.indexOf(mix);
  const styleOf = ({mix}) => mixes.indexOf(mix);

  // More curves than this are not shown at once: then the first mix of the first memories is, of
  // every survey that has them.
  const kShownCurves = 4;
  const kShownMemories = 8;
  const names = [...new Set(owners.map(({name}) => name))];
  const shownNames = names.slice(
    0, Math.max(1, Math.floor(kShownMemories * names.length / owners.length)));
  const shownAtFirst = ({memory, mix}) => loaded.length <= kShownCurves ||
    (mix === mixes[0] && shownNames.includes(memory.name));

  // Three datasets: the median with its intervals, the 99th that closes the band above it, and the
  // 99.9th as a thin line.
  function datasetsOf(entry) {
    const points = model.curve(entry.cell).filter(({summary}) =>
      summary.bytes_per_second && summary.median_ns);
    const at = (name) => points.filter(({summary}) => summary[name]).map(({delay, summary}) => ({
      x: summary.bytes_per_second.median / 1e9, y: summary[name].median, delay, summary, entry}));
    const intervals = ({summary: {bytes_per_second: b, median_ns: m}}) =>
      ({xLow: b.low / 1e9, xHigh: b.high / 1e9, yLow: m.low, yHigh: m.high});
    const colour = () => velmo.series(colourOf(entry));
    const common = {borderColor: colour, backgroundColor: colour, pointBorderColor: colour,
                    pointBackgroundColor: () => velmo.filling(colourOf(entry)), entry};
    const name = `${entry.memory.label}, ${entry.mix}`;
    return [
      {...common, label: name, borderWidth: 2.25, pointRadius: 3.5, whiskers: true, band: true,
       borderDash: velmo.dash(owners.length > 1 ? styleOf(entry) : 0),
       pointStyle: velmo.marker(styleOf(entry)),
       data: at("median_ns").map((point) => ({...point, ...intervals(point)}))},
      {...common, label: `${name}, 99th`, showLine: false, pointRadius: 0, data: at("p99_ns")},
      {...common, label: `${name}, 99.9th`, borderWidth: 0.75, pointRadius: 0,
       data: at("p99_9_ns")},
    ];
  }

  // Fills from the median's dataset to the 99th's behind it.
  const bands = {id: "bands", beforeDatasetsDraw(chart) {
    const {ctx, chartArea: area} = chart;
    ctx.save();
    ctx.beginPath();
    ctx.rect(area.left, area.top, area.right - area.left, area.bottom - area.top);
    ctx.clip();
    const shown = chart.data.datasets.filter((dataset, i) =>
      dataset.band && chart.isDatasetVisible(i));
    const depth = Math.max(0.2 / shown.length ** 0.6, 0.03);
    chart.data.datasets.forEach((dataset, i) => {
      if (!dataset.band || !chart.isDatasetVisible(i)) return;
      const upper = chart.getDatasetMeta(i + 1).data;
      if (!upper.length) return;
      ctx.fillStyle = velmo.alpha(dataset.borderColor(), depth);
      ctx.beginPath();
      for (const {x, y} of chart.getDatasetMeta(i).data) ctx.lineTo(x, y);
      for (const {x, y} of [...upper].reverse()) ctx.lineTo(x, y);
      ctx.fill();
    });
    ctx.restore();
  }};

  const pointText = (summary, name, format) => summary[name] ?
    `${format(summary[name].median)} (${tables.range(summary[name], format)})` : "–";

  const tooltip = {callbacks: {
    title: ([item]) => item ? `${item.raw.entry.memory.label}, ${item.raw.entry.mix}` : "",
    label: ({raw: {summary, delay}}) => [
      `Bandwidth ${pointText(summary, "bytes_per_second", gigabytes)} GB/s`,
      `Median ${pointText(summary, "median_ns", figure)} ns`,
      `Average ${pointText(summary, "average_ns", figure)} ns`,
      `99th ${pointText(summary, "p99_ns", figure)} ns`,
      `99.9th ${pointText(summary, "p99_9_ns", figure)} ns`,
      `Delay of the load ${velmo.number(delay)}`,
    ],
  }};

  const pressed = (button) => button.getAttribute("aria-pressed") === "true";

  // The legend: a row a memory, a column a mix. Names of memories switch their whole row; above
  // the legend are buttons that switch a mix of all.
  function legend(chart) {
    const buttons = loaded.map((entry, i) => velmo.toggle(entry.mix, chart,
      [3 * i, 3 * i + 1, 3 * i + 2], shownAtFirst(entry),
      velmo.swatch(colourOf(entry), owners.length > 1 ? styleOf(entry) : 0,
                   velmo.marker(styleOf(entry)))));
    loaded.forEach(({memory, mix}, i) =>
      buttons[i].setAttribute("aria-label", `${memory.label}, mix ${mix}`));
    const group = (label, kind, belongs) => el("button", {
      type: "button", class: kind, title: "Show or hide all of these", click: () => {
        const mine = buttons.filter((_, i) => belongs(loaded[i]));
        const on = !mine.every(pressed);
        for (const button of mine) button.show(on);
        chart.update("none");
      }}, label);
    const rows = owners.map((memory) => el("div", {class: "legend-row"},
      group(memory.label, "group", (entry) => entry.memory === memory),
      buttons.filter((_, i) => loaded[i].memory === memory)));
    const label = Math.min(Math.max(...owners.map((memory) => memory.label.length)), 24) + 2;
    return [
      el("div", {class: `legend curves${rows.length > 1 ? "" : " single"}`, role: "group",
                 "aria-label": "Shown in the chart",
                 style: `--mixes: ${mixes.length}; --label: ${label}ch`}, rows),
      el("div", {class: "groups-of"}, owners.length < 2 ? null : [
        el("span", {class: "soft"}, "Show or hide"), group("all", null, () => true),
        surveys.length < 2 ? [] : surveys.map((survey) =>
          group(survey.letter, null, (entry) => entry.memory.survey === survey)),
        mixes.map((mix) => group(mix, null, (entry) => entry.mix === mix))].flat(2),
        scaleButton(chart))];
  }

  function scaleButton(chart) {
    const turn = () => {
      const on = !pressed(button);
      button.setAttribute("aria-pressed", on);
      chart.options.scales.y = latencyAxis(on);
      chart.update("none");
    };
    const button = el("button", {type: "button", class: "scale-switch", "aria-pressed": true,
                                 click: turn}, "Logarithmic scale");
    return button;
  }
  const least = () => Math.min(...loaded.flatMap(({cell}) => model.curve(cell).map(({summary}) =>
    summary.median_ns?.low ?? Infinity)));
  const fastest = () => Math.max(...loaded.flatMap(({cell}) => model.curve(cell).map(({summary}) =>
    summary.bytes_per_second?.high ?? 0))) / 1e9;
  const latencyAxis = (on) => on ?
    charts.logarithmic("Latency, ns", velmo.number, {min: charts.below(least())}) :
    velmo.axis("Latency, ns", {beginAtZero: true});

  function draw() {
    if (!loaded.length) return;
    const place = el("div");
    const section = velmo.section("curves", "Latency under load",
      "Latency of dependent loads while other CPUs move that much. The thick line is the median, " +
      "with the interval of each point; the band reaches to the 99th percentile, the thin line " +
      "is the 99.9th.", place);
    const chart = velmo.chart(place, "curves-chart",
      "Latency in ns over delivered bandwidth in GB/s, a curve a memory and mix", 480, {
        type: "line", data: {datasets: loaded.flatMap(datasetsOf)}, plugins: [bands],
        options: {
          interaction: {mode: "nearest", intersect: false},
          scales: {x: velmo.axis("Delivered bandwidth, GB/s",
                                 {type: "linear", beginAtZero: true, suggestedMax: fastest()}),
                   y: latencyAxis(true)},
          plugins: {tooltip}}});
    section.insertBefore(el("div", {class: "controls"}, legend(chart)), place);
    chart.update("none");
    section.append(velmo.fold("Table", () => velmo.table("Latency under load",
      [{title: "Memory", text: true}, {title: "Mix", text: true}, {title: "Delay"},
       {title: "Bandwidth, GB/s"}, {title: "Average, ns"}, {title: "Median, ns"},
       {title: "99th, ns"}, {title: "99.9th, ns"}],
      loaded.flatMap(({memory, mix, cell}) => model.curve(cell).map(({delay, summary}) =>
        [memory.label, mix, velmo.number(delay), pointText(summary, "bytes_per_second", gigabytes),
         ...["average_ns", "median_ns", "p99_ns", "p99_9_ns"].map((name) =>
           pointText(summary, name, figure))])))));
  }

  return {draw};
})();
