// The surveys of the page as its parts ask for them.
"use strict";

const model = (() => {
  const list = (value) => Array.isArray(value) ? value : [];
  // The objects in a list of the machine, whatever else a strange one holds.
  const isObject = (value) => typeof value === "object" && value !== null && !Array.isArray(value);
  const objects = (value) => list(value).filter(isObject);
  const unknown = (value) => value === null || value === undefined ||
    (typeof value === "object" && value.value === null && value.reason !== undefined);
  // What the survey could not read is undefined here.
  const known = (value) => unknown(value) ? undefined : value;

  // "node 1", "/dev/dax0.0", "/mnt/pmem0", or "own nodes" of cells over the whole machine.
  const memoryName = (memory) => typeof memory.node === "number" ? `node ${memory.node}` :
    memory.device || memory.directory || "own nodes";
  const sourceName = (from) =>
    from.cpu_node === null ? "all CPUs" : `CPUs of node ${from.cpu_node}`;

  const cellsOf = (survey, kind, scope) => survey.cells.filter((cell) =>
    cell.kind === kind && cell.parameters.scope === scope);
  // Median, low and high of a figure; undefined where the cell has none.
  const estimate = (cell, name) => cell?.summary?.[name];

  const kinds = {idle_latency: "Idle latency", latency_by_size: "Latency by size",
                 bandwidth: "Bandwidth", loaded_latency: "Loaded latency"};
  const scopes = {large_pages: "large pages", one_thread: "one thread", machine: "whole machine"};
  function cellName(cell) {
    const {mix, scope, buffer_bytes: size} = cell.parameters;
    const about = [kinds[cell.kind] ?? cell.kind, mix ? ` ${mix}` : "",
                   cell.kind === "latency_by_size" ? ` ${velmo.bytes(size)}` : ""].join("");
    return [about, scopes[scope], `${sourceName(cell.from)} to ${memoryName(cell.memory)}`]
      .filter(Boolean).join(", ");
  }

  // The CPU node from which a memory has the most cells: its nearest, which alone is measured with
  // all mixes. Of several, the one with the least idle latency.
  function nearest(survey, memory) {
    const counts = new Map();
    const idle = new Map();
    for (const cell of survey.cells) {
      const node = cell.from.cpu_node;
      if (node === null || memoryName(cell.memory) !== memory) continue;
      if (cell.parameters.scope !== "node" || cell.kind === "latency_by_size") continue;
      counts.set(node, (counts.get(node) ?? 0) + 1);
      const average = estimate(cell, "average_ns");
      if (cell.kind === "idle_latency" && average) idle.set(node, average.median);
    }
    return [...counts.keys()].sort((a, b) => counts.get(b) - counts.get(a) ||
      (idle.get(a) ?? Infinity) - (idle.get(b) ?? Infinity) || a - b)[0];
  }

  // A memory of a survey with the cells from its nearest CPU node.
  function memoryOf(survey, name) {
    const node = nearest(survey, name);
    const here = (cell) => cell.from.cpu_node === node && memoryName(cell.memory) === name;
    const sample = survey.cells.find((cell) => memoryName(cell.memory) === name).memory;
    const about = objects(survey.machine.nodes).find((entry) => entry.node === sample.node);
    return {
      survey, name, node,
      type: sample.device ? "device" : sample.directory ? "file system" :
        known(about?.type) ?? "type unknown",
      size: known(about?.size_bytes),
      idle: cellsOf(survey, "idle_latency", "node").find(here),
      // On smaller pages it would be the figure beside it again.
      largePages: cellsOf(survey, "idle_latency", "large_pages")
        .find((cell) => here(cell) && !list(cell.marks).includes("page_size")),
      oneThread: cellsOf(survey, "bandwidth", "one_thread").find(here),
      bandwidth: cellsOf(survey, "bandwidth", "node").filter(here),
      loaded: cellsOf(survey, "loaded_latency", "node")
        .filter((cell) => memoryName(cell.memory) === name),
    };
  }

  // A to Z, then A1 to Z1.
  const letters = (index) => String.fromCharCode(65 + index % 26) + (Math.floor(index / 26) || "");

  const surveys = velmo.data.map((record, index) => ({
    index, record, run: record.run, cells: record.cells,
    machine: isObject(record.machine) ? record.machine : {},
  }));
  // Of several, each has a letter that stands for it in the charts and tables.
  for (const survey of surveys) {
    survey.letter = surveys.length > 1 ? letters(survey.index) : "";
    survey.name = [survey.letter, survey.run.host].filter(Boolean).join(" · ");
    const names = survey.cells.filter((cell) => cell.parameters.scope === "node")
      .map((cell) => memoryName(cell.memory));
    survey.memories = [...new Set(names)].map((name) => memoryOf(survey, name));
  }
  // Memories of one name beside each other, so that surveys are easily compared.
  const all = surveys.flatMap((survey) => survey.memories);
  const names = [...new Set(all.map((memory) => memory.name))];
  const memories = names.flatMap((name) => all.filter((memory) => memory.name === name));
  memories.forEach((memory, index) => {
    memory.index = index;
    memory.label = [memory.name, memory.survey.letter].filter(Boolean).join(" · ");
  });

  // Mixes of cells in the order in which they were measured first.
  const mixesOf = (cells) => [...new Set(cells.map((cell) => cell.parameters.mix))];

  // "21 Nov 2026, 20:33 UTC"; what is no time stands as it is.
  function when(text) {
    const date = new Date(text);
    return Number.isNaN(date.getTime()) ? text : date.toLocaleString("en-GB", {
      day: "numeric", month: "short", year: "numeric", hour: "2-digit", minute: "2-digit",
      timeZone: "UTC"}) + " UTC";
  }
  function duration({started, ended}) {
    const seconds = Math.round((new Date(ended) - new Date(started)) / 1000);
    if (!(seconds >= 0)) return "duration unknown";
    const minutes = Math.floor(seconds / 60);
    return minutes ? `${minutes} min ${seconds % 60} s` : `${seconds} s`;
  }

  // Points of a loaded curve from the least load to the greatest.
  const curve = (cell) => [...list(cell.points)].sort((a, b) => b.delay - a.delay);

  // Average latency where a curve first reaches `share` of its greatest bandwidth, in ns, on the
  // straight line between the points around it; undefined where the curve does not reach so low.
  function latencyAt(cell, share) {
    const points = curve(cell).map(({summary}) => [summary.bytes_per_second?.median,
                                                   summary.average_ns?.median])
      .filter(([x, y]) => x !== undefined && y !== undefined);
    const target = share * Math.max(...points.map(([x]) => x));
    const next = points.findIndex(([x]) => x >= target);
    if (next < 1) return undefined;
    const [[x0, y0], [x1, y1]] = [points[next - 1], points[next]];
    return y0 + (y1 - y0) * (target - x0) / (x1 - x0);
  }

  // A value of the machine as text, by the unit that its name ends with.
  function valueText(name, value) {
    if (unknown(value)) return value?.reason ? `unknown: ${value.reason}` : "none";
    if (Array.isArray(value)) return value.map((entry) => valueText(name, entry)).join(", ");
    if (typeof value === "object") {
      return Object.entries(value).map(([key, entry]) => `${key} ${valueText(key, entry)}`)
        .join(", ");
    }
    if (/_bytes$/.test(name) && Number.isFinite(value)) return velmo.bytes(value);
    if (/_hz$/.test(name) && Number.isFinite(value)) return `${+(value / 1e9).toFixed(2)} GHz`;
    return String(value);
  }
  const words = (name) => name.replace(/_(bytes|hz)$/, "").replace(/_mt_s$/, " MT/s")
    .replaceAll("_", " ");

  // What tells an entry of a list from the others: one memory module more shifts none of them.
  const entryName = (entry, index) => entry?.locator ?? entry?.node ?? entry?.name ?? index;

  // [["kernel release", "6.1.0"], ["nodes [0] size", "4 GiB"], ...]: members of `value`, those of
  // objects in it too. A list of objects is left to `listed`, when that is given.
  function facts(value, listed, title = "", name = "") {
    const isList = Array.isArray(value);
    if (typeof value !== "object" || unknown(value) || (isList && !value.some(isObject))) {
      return [[title, valueText(name, value)]];
    }
    if (isList && listed) {
      listed(title, value.filter(isObject));
      return [];
    }
    return Object.entries(value).flatMap(([key, entry]) => facts(entry, listed,
      `${title} ${isList ? `[${entryName(entry, key)}]` : words(key)}`.trim(), key));
  }

  return {surveys, memories, list, objects, known, kinds, memoryName, cellName, cellsOf, estimate,
          mixesOf, when, duration, curve, latencyAt, valueText, words, facts};
})();
