// The charts of the report but the loaded curves, which have a file of their own.
"use strict";

const charts = (() => {
  const {el, figure, gigabytes, theme} = velmo;
  const {surveys, memories, estimate} = model;
  const several = surveys.length > 1;

  const whiskersOf = (e, scale) => ({yLow: e.low / scale, yHigh: e.high / scale});
  const line = (index, style) => ({
    borderColor: () => velmo.series(index), backgroundColor: () => velmo.series(index),
    pointBorderColor: () => velmo.series(index), pointBackgroundColor: () => velmo.series(index),
    borderDash: velmo.dash(velmo.lap(index)), borderWidth: 1.75, pointStyle: style,
  });
  const logarithmic = (title, format, more = {}) => velmo.axis(title, {
    type: "logarithmic", ...more, ticks: {callback: velmo.decades(format), maxRotation: 0}});
  // The greatest 1, 2 or 5 of a decade that is not above `value`: where a logarithmic axis starts.
  function below(value) {
    const decade = 10 ** Math.floor(Math.log10(value));
    return [5, 2, 1].find((digit) => digit * decade <= value) * decade;
  }

  // Where the intervals end, so that none is cut off.
  const highest = (datasets) =>
    Math.max(...datasets.flatMap(({data}) => data.map(({yHigh}) => yHigh)));

  // Thousands as "2k" on a chart so narrow that "2,000" would touch its neighbour.
  function shortWhereNarrow(value) {
    return this.chart.width < 600 && value >= 1000 ? `${value / 1000}k` : velmo.number(value);
  }

  // A row of buttons, one a dataset; none where there is one dataset alone.
  function legend(chart) {
    if (chart.data.datasets.length < 2) return null;
    return el("div", {class: "legend", role: "group", "aria-label": "Shown in the chart"},
      chart.data.datasets.map((dataset, i) => velmo.toggle(dataset.label, chart, [i],
        chart.isDatasetVisible(i), velmo.swatch(dataset.colour, velmo.lap(dataset.colour),
                     chart.config.type === "bar" ? "bar" : undefined))));
  }

  // A section with its chart, its legend and, behind a fold, its table, whose rows a function
  // makes.
  function draw({id, title, note, label, height, config, columns, rows}) {
    const place = el("div");
    const section = velmo.section(id, title, note, place);
    const chart = velmo.chart(place, `${id}-chart`, label, height, config);
    const buttons = legend(chart);
    if (buttons) section.insertBefore(buttons, place);
    section.append(velmo.fold("Table", () => velmo.table(title, columns, rows())));
  }

  // Vertical lines at the sizes of the caches, each with its name on top: in the first of `rows`
  // where it touches no other, the lowest first.
  const kLabelRow = 13;  // px
  function cacheMarks(caches, rows) {
    return {id: "caches", beforeDatasetsDraw({ctx, chartArea: area, scales}) {
      ctx.save();
      ctx.font = `11px ${Chart.defaults.font.family}`;
      ctx.strokeStyle = ctx.fillStyle = theme.soft;
      ctx.setLineDash([3, 3]);
      ctx.textAlign = "center";
      const ends = Array(rows).fill(-Infinity);  // of what stands in each row
      for (const {name, size} of caches) {
        const x = scales.x.getPixelForValue(size);
        if (!(x >= area.left && x <= area.right)) continue;
        ctx.beginPath();
        ctx.moveTo(x, area.top);
        ctx.lineTo(x, area.bottom);
        ctx.stroke();
        const half = ctx.measureText(name).width / 2;
        const middle = Math.min(Math.max(x, half), area.right - half);
        const row = ends.findIndex((end) => end + 6 < middle - half);
        if (row < 0) continue;
        ends[row] = middle + half;
        ctx.fillText(name, middle, area.top - 8 - kLabelRow * row);
      }
      ctx.restore();
    }};
  }

  // {name, size} by size; what not all of several surveys have stands with their letters.
  function cachesOf(shown) {
    const found = new Map();
    for (const survey of shown) {
      for (const cache of model.objects(survey.machine.caches)) {
        const size = model.known(cache.size_bytes);
        if (cache.type === "Instruction" || !Number.isFinite(size)) continue;
        const name = `L${cache.level} ${velmo.bytes(size)}`;
        const owners = found.get(name)?.owners ?? new Set();
        found.set(name, {size, owners: owners.add(survey.letter)});
      }
    }
    return [...found].map(([name, {size, owners}]) => ({size, name:
      owners.size < shown.length ? `${[...owners].join(", ")}: ${name}` : name}))
      .sort((a, b) => a.size - b.size);
  }

  function staircase() {
    const steps = surveys.map((survey) => ({survey, cells:
      model.cellsOf(survey, "latency_by_size", "node").filter((c) => estimate(c, "average_ns"))
        .sort((a, b) => a.parameters.buffer_bytes - b.parameters.buffer_bytes)}))
      .filter(({cells}) => cells.length);
    if (!steps.length) return;
    const datasets = steps.map(({survey, cells}) => ({
      label: survey.name, colour: survey.index, ...line(survey.index, "circle"), pointRadius: 2.5,
      whiskers: true,
      data: cells.map((cell) => {
        const e = estimate(cell, "average_ns");
        return {x: cell.parameters.buffer_bytes, y: e.median, ...whiskersOf(e, 1), e};
      })}));
    const sizes = datasets.flatMap(({data}) => data.map(({x}) => x));
    const labelRows = Math.min(steps.length + 1, 4);
    const ticks = [];
    for (let size = 1024; size <= Math.max(...sizes); size *= 4) {
      if (size >= Math.min(...sizes)) ticks.push({value: size});
    }
    draw({
      id: "staircase", title: "Latency by size of the buffer",
      note: "Each step is a cache that the buffer outgrows; the dashed lines stand at the sizes " +
        "that the kernel names. Average of dependent loads in random order.",
      label: "Average latency in ns over the size of the buffer", height: 360,
      config: {type: "line", data: {datasets},
        plugins: [cacheMarks(cachesOf(steps.map(({survey}) => survey)), labelRows)], options: {
        layout: {padding: {top: 11 + kLabelRow * labelRows}},
        interaction: {mode: "nearest", intersect: false},
        scales: {
          x: velmo.axis("Size of the buffer", {type: "logarithmic",
            min: Math.min(...sizes), max: Math.max(...sizes),
            afterBuildTicks: (axis) => { axis.ticks = ticks; },
            ticks: {callback: velmo.bytes, maxRotation: 0}}),
          y: logarithmic("Latency, ns", String, {
            min: below(Math.min(...datasets.flatMap(({data}) => data.map(({yLow}) => yLow)))),
            suggestedMax: highest(datasets)})},
        plugins: {tooltip: {callbacks: {
          title: ([item]) => velmo.bytes(item.raw.x),
          label: ({dataset, raw}) => (several ? `${dataset.label}: ` : "") +
            tables.hover(raw.e, figure, "ns")}}}}},
      columns: [{title: "Buffer", text: true}, ...(several ? [{title: "Survey", text: true}] : []),
                {title: "Average, ns"}, {title: "Interval, ns"}, {title: "Repeats"}],
      rows: () => steps.flatMap(({survey, cells}) => cells.map((cell) => {
        const e = estimate(cell, "average_ns");
        return [velmo.bytes(cell.parameters.buffer_bytes), ...(several ? [survey.name] : []),
                figure(e.median), tables.range(e, figure), e.repeats];
      })),
    });
  }

  // The bins as points in their middles, as shares of all samples in percent.
  function shares({edges, counts}) {
    const total = counts.reduce((sum, count) => sum + count, 0);
    return counts.map((count, i) => ({
      x: Math.sqrt((edges[i] || edges[i + 1] / 2) * edges[i + 1]),
      y: count ? 100 * count / total : NaN, count, low: edges[i], high: edges[i + 1]}));
  }

  function histograms() {
    const shown = memories.filter((memory) => memory.idle?.histogram_ns?.counts.some((n) => n > 0));
    if (!shown.length) return;
    const datasets = shown.map((memory) => ({
      label: memory.label, colour: memory.index, ...line(memory.index), stepped: "middle",
      pointRadius: 0, pointHitRadius: 6, data: shares(memory.idle.histogram_ns)}));
    const filled = datasets.flatMap(({data}) => data.filter(({count}) => count));
    const bins = (point) => `${figure(point.low)}–${figure(point.high)}`;
    draw({
      id: "histograms", title: "How idle latency is spread",
      note: "Share of the timed loads in each bin of latency, both axes logarithmic: the tail is " +
        "what a percentile alone hides. From each memory's nearest CPU node.",
      label: "Share of loads in percent over latency in ns", height: 340,
      config: {type: "line", data: {datasets}, options: {
        interaction: {mode: "nearest", axis: "x", intersect: false},
        scales: {
          x: logarithmic("Latency, ns", shortWhereNarrow, {
            min: Math.min(...filled.map(({low, high}) => low || high / 2)),
            max: Math.max(...filled.map(({high}) => high))}),
          y: logarithmic("Share of loads, %", (value) => String(+value.toPrecision(1)))},
        plugins: {tooltip: {callbacks: {
          title: ([item]) => item ? `${bins(item.raw)} ns` : "",
          label: ({dataset, raw}) => `${dataset.label}: ${+raw.y.toPrecision(3)} % ` +
            `(${velmo.number(raw.count)} loads)`}}}}},
      columns: [{title: "Memory", text: true}, {title: "Bin, ns"}, {title: "Loads"},
                {title: "Share, %"}],
      rows: () => datasets.flatMap(({label, data}) => data.filter(({count}) => count).map((point) =>
        [label, bins(point), velmo.number(point.count),
         String(+point.y.toPrecision(3))])),
    });
  }

  function mixes() {
    const measured = (memory) => memory.bandwidth.filter((c) => estimate(c, "bytes_per_second"));
    const shown = memories.filter((memory) => measured(memory).length);
    if (!shown.length) return;
    const labels = model.mixesOf(shown.flatMap((memory) => memory.bandwidth));
    const datasets = shown.map((memory) => ({
      label: memory.label, colour: memory.index, whiskers: true, whiskerColor: () => theme.ink,
      backgroundColor: () => velmo.filling(memory.index), borderWidth: 1.5,
      borderColor: () => velmo.series(memory.index), maxBarThickness: 36, categoryPercentage: 0.75,
      data: measured(memory).map((cell) => {
        const e = estimate(cell, "bytes_per_second");
        return {x: cell.parameters.mix, y: e.median / 1e9, ...whiskersOf(e, 1e9), e};
      })}));
    draw({
      id: "mixes", title: "Bandwidth by mix",
      note: "All CPUs of the nearest node but one, by mix of reads and writes, with the interval " +
        "of the median.",
      label: "Bandwidth in GB/s of each mix", height: 320,
      config: {type: "bar", data: {labels, datasets}, options: {
        interaction: {mode: "nearest", intersect: false},
        scales: {x: velmo.axis("Mix of reads and writes", {grid: {display: false}}),
                 y: velmo.axis("Bandwidth, GB/s", {beginAtZero: true,
                   suggestedMax: highest(datasets)})},
        plugins: {tooltip: {callbacks: {label: ({dataset, raw}) =>
          `${dataset.label}: ${tables.hover(raw.e, gigabytes, "GB/s")}`}}}}},
      columns: [{title: "Memory", text: true}, {title: "Mix", text: true},
                {title: "Bandwidth, GB/s"}, {title: "Interval, GB/s"}, {title: "Repeats"}],
      rows: () => shown.flatMap((memory) => measured(memory).map((cell) => {
        const e = estimate(cell, "bytes_per_second");
        return [memory.label, cell.parameters.mix, gigabytes(e.median),
                tables.range(e, gigabytes), e.repeats];
      })),
    });
  }

  return {logarithmic, below, staircase, histograms, mixes};
})();
