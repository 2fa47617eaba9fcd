// Latency and bandwidth of every CPU node to every memory.
"use strict";

const matrices = (() => {
  const {el, figure, gigabytes} = velmo;
  const {surveys, estimate} = model;

  // `slower` is how many times as slow as local a figure is; `best`, of several, the fastest one.
  const kinds = [
    {title: "Idle latency, average in ns", name: "average_ns", unit: "ns", format: figure,
     slower: (value, local) => value / local, best: Math.min,
     cells: (survey) => model.cellsOf(survey, "idle_latency", "node")},
    {title: "Bandwidth of reads in GB/s", name: "bytes_per_second", unit: "GB/s", format: gigabytes,
     slower: (value, local) => local / value, best: Math.max,
     cells: (survey) => {
       const all = model.cellsOf(survey, "bandwidth", "node");
       const mixes = model.mixesOf(all);
       const mix = mixes.includes("1:0") ? "1:0" : mixes[0];
       return all.filter((cell) => cell.parameters.mix === mix);
     }},
  ];

  // Colour of what is `ratio` times as slow as local, on a fixed logarithmic scale that ends at 4:
  // the same spread looks the same in every report, and 1 % is next to nothing.
  const kScaleEnd = 4;
  const kDeepest = 0.72;
  function shade(ratio) {
    const depth = Math.min(Math.abs(Math.log(ratio)) / Math.log(kScaleEnd), 1) * kDeepest;
    return `rgba(${ratio > 1 ? "222, 108, 20" : "0, 124, 190"}, ${depth.toFixed(3)})`;
  }

  // Wide ones leave out the ratio below each value.
  const kColumnsWithRatio = 8;

  function matrix(survey, kind) {
    const cells = kind.cells(survey);
    if (!cells.length) return null;
    const rows = [...new Set(cells.map((cell) => cell.from.cpu_node))].sort((a, b) => a - b);
    const columns = [...new Set(cells.map((cell) => model.memoryName(cell.memory)))];
    const at = (row, column) => cells.find((cell) =>
      cell.from.cpu_node === row && model.memoryName(cell.memory) === column);
    const median = (row, column) => estimate(at(row, column), kind.name)?.median;
    const wide = columns.length > kColumnsWithRatio;
    const texts = [];
    const cellOf = (row, column, local) => {
      const cell = at(row, column);
      const e = estimate(cell, kind.name);
      const shown = tables.value(cell, kind.name, kind.format, kind.unit);
      if (!e) return el("td", {}, shown);
      const slower = kind.slower(e.median, local);
      texts.push([`node ${row}`, column, kind.format(e.median), tables.range(e, kind.format),
                  tables.intervalText(e), `${slower.toFixed(3)}`]);
      const here = column === `node ${row}`;
      const made = el("td", {class: here ? "here" : null,
                             title: `CPUs of node ${row} to ${column}: ` +
                                    tables.hover(e, kind.format, kind.unit)},
        shown,
        wide ? null : el("div", {class: "under"}, here ? "local" : `× ${slower.toFixed(2)}`));
      made.style.backgroundColor = shade(slower);
      return made;
    };
    const body = rows.map((row) => {
      const present = columns.map((column) => median(row, column)).filter((m) => m !== undefined);
      const local = median(row, `node ${row}`) ?? kind.best(...present);
      return el("tr", {},
                el("th", {scope: "row", class: "text"}, wide ? row : `CPUs of node ${row}`),
                columns.map((column) => cellOf(row, column, local)));
    });
    const short = (column) => wide ? column.replace(/^node /, "") : column;
    return el("div", {class: "matrix"}, el("h3", {}, kind.title),
      el("div", {class: "scroll", tabindex: 0, role: "region", "aria-label": kind.title},
        el("table", {class: wide ? "wide" : null},
          el("thead", {}, el("tr", {}, el("th", {class: "text"}, wide ? "CPUs ╲ memory" : ""),
            columns.map((column) => el("th", {scope: "col"}, short(column))))),
          el("tbody", {}, body))),
      velmo.fold("Table", () => velmo.table(kind.title, [{title: "CPU node", text: true},
        {title: "Memory", text: true}, {title: `Median, ${kind.unit}`},
        {title: `Interval, ${kind.unit}`}, {title: "Kind", text: true},
        {title: "Times as slow as local"}], texts)));
  }

  function scale() {
    const stops = [0.25, 0.5, 1, 1.5, 2, 3, 4];
    return el("p", {class: "scale", "aria-hidden": "true"},
      el("span", {}, "times as slow as local"),
      stops.map((ratio) => {
        const box = el("span", {class: "stop"}, ratio < 1 ? `1/${1 / ratio}` : ratio);
        box.style.backgroundColor = shade(ratio);
        return box;
      }));
  }

  function draw() {
    // One node and its own memory are no matrix.
    if (!surveys.some((survey) => kinds.some((kind) => kind.cells(survey).length > 1))) return;
    velmo.section("matrices", "Every CPU node to every memory",
      "Colour is the ratio to the row's local value on a fixed scale: orange is slower, blue is " +
      "faster, and a spread of 1 % cannot be seen. Intervals: rest on a cell, or open the table.",
      scale(), ...surveys.flatMap((survey) => [
        surveys.length > 1 ? el("h3", {class: "of"}, survey.name) : null,
        el("div", {class: "matrices"}, kinds.map((kind) => matrix(survey, kind)))]));
  }

  return {draw};
})();
