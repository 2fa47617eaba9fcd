// The parts of the report that are text: whether it can be trusted, a line a memory, the matrices,
// the machine, and the surveys themselves.
"use strict";

const tables = (() => {
  const {el, figure, gigabytes, number} = velmo;
  const {surveys, memories, known, estimate} = model;
  const several = surveys.length > 1;

  const range = (e, format) => `${format(e.low)}–${format(e.high)}`;
  const intervalText = (e) => e.interval === "95 %" ? "95 % interval" : e.interval || "interval";
  // All that is known of a figure, for the pointer that rests on it.
  const hover = (e, format, unit) => `${format(e.median)} ${unit}, ` +
    `${intervalText(e)} ${range(e, format)}, ${e.repeats} repeats`;

  const plural = (count, word) => `${number(count)} ${word}${count === 1 ? "" : "s"}`;

  function machineLine({machine}) {
    const sockets = known(machine.sockets);
    const processor = known(machine.processor?.name);
    const nodes = model.objects(machine.nodes);
    const total = nodes.reduce((sum, node) => sum + (known(node.size_bytes) ?? NaN), 0);
    const hypervisor = known(machine.hypervisor);
    return [
      processor && (sockets > 1 ? `${sockets} × ${processor}` : processor),
      known(machine.cores) && `${plural(machine.cores, "core")}, ` +
        `${plural(known(machine.threads), "thread")}`,
      Number.isFinite(total) && nodes.length &&
        `${velmo.bytes(total)} on ${plural(nodes.length, "memory node")}`,
      known(machine.kernel?.release) && `Linux ${machine.kernel.release}`,
      hypervisor && (hypervisor === "none" ? "bare metal" : `virtual machine (${hypervisor})`),
    ].filter(Boolean).join(" · ");
  }

  const short = (value) => +Number(value).toPrecision(3);
  // "stolen time 2.9 % (limit 0.5 %) in 5 of 7 repeats", a rule after the other.
  function disturbances(cell) {
    // Of a curve those of its points: each of its own is the sum of a pass over them.
    const repeats = (model.list(cell.points).length ? cell.points : [cell])
      .flatMap(({repeats}) => model.list(repeats));
    const rules = new Map();
    for (const {rule, value, limit, unit} of
         repeats.flatMap((repeat) => model.list(repeat.disturbed_by))) {
      const seen = rules.get(rule) ?? {count: 0, worst: value, limit, unit: unit ? ` ${unit}` : ""};
      seen.count++;
      if (Math.abs(value) > Math.abs(seen.worst)) seen.worst = value;
      rules.set(rule, seen);
    }
    return [...rules].map(([rule, {count, worst, limit, unit}]) =>
      `${model.words(rule)} up to ${short(worst)}${unit} (limit ${short(limit)}${unit}) ` +
      `in ${count} of ${plural(repeats.length, "repeat")}`).join("; ");
  }

  const marks = {placement: "pages elsewhere than asked",
                 small_buffer: "buffer too small for the caches",
                 page_size: "smaller pages than asked for",
                 failed_repeats: ""};  // the message tells
  const marksText = (cell) =>
    model.list(cell.marks).map((mark) => marks[mark] ?? model.words(mark));

  // The end of the survey came before its turn: that is no failure of the cell.
  const notReached = (cell) => cell.state === "failed" && !model.list(cell.repeats).length &&
    !model.list(cell.points).length && ["time_limit", "interrupted"].includes(cell.stopped_by);
  const isFailed = (cell) => cell.state === "failed" && !notReached(cell);

  // "Disturbed by stolen time (25 times), other work (2 times)."
  function brokenRules(survey) {
    const counts = new Map();
    for (const {rule} of survey.cells.filter((cell) => cell.state === "disturbed")
      .flatMap((cell) => model.list(cell.repeats))
      .flatMap((repeat) => model.list(repeat.disturbed_by))) {
      counts.set(rule, (counts.get(rule) ?? 0) + 1);
    }
    return counts.size ? el("p", {}, `Disturbed by ${[...counts].map(([rule, count]) =>
      `${model.words(rule)} (${plural(count, "time")})`).join(", ")}.`) : null;
  }

  function troubles(survey) {
    const rows = [];
    for (const cell of survey.cells.filter((cell) => !notReached(cell))) {
      const why = [cell.message, disturbances(cell), ...marksText(cell)].filter(Boolean).join("; ");
      if (cell.state !== "ok") {
        const grave = cell.state === "failed" ? "bad" : "warn";
        rows.push([model.cellName(cell), el("span", {class: grave}, cell.state), why]);
      } else if (marksText(cell).length) {
        rows.push([model.cellName(cell), el("span", {class: "warn"}, "doubtful"), why]);
      }
    }
    if (!rows.length) return null;
    const table = velmo.table("Cells that need a look", [
      {title: "Cell", text: true}, {title: "State", text: true}, {title: "Why", text: true}], rows);
    table.classList.add("prose");
    return rows.length <= 6 ? table : velmo.fold(`All ${rows.length} of them`, () => table);
  }

  // What the kernel told of no repeat, and no rule could be broken by: "throttle count, clock".
  function unseen(survey) {
    const told = new Map();
    const repeats = survey.cells.flatMap((cell) => [cell, ...model.list(cell.points)])
      .flatMap(({repeats}) => model.list(repeats));
    for (const {watch} of repeats) {
      for (const group of ["threads", "cpus", "machine"]) {
        for (const [name, reading] of Object.entries(watch?.[group] ?? {})) {
          told.set(name, told.get(name) || known(reading) !== undefined);
        }
      }
    }
    const names = [...told].filter(([, any]) => !any).map(([name]) => model.words(name));
    return names.length ? el("p", {class: "soft"}, `Not seen: ${names.join(", ")}.`) : null;
  }

  function verdict(survey) {
    const count = (state) => survey.cells.filter((cell) => cell.state === state).length;
    const planned = survey.cells.length;
    const disturbed = count("disturbed");
    const failed = survey.cells.filter(isFailed).length;
    const skipped = survey.cells.filter(notReached).length;
    const doubtful = survey.cells.filter((c) => c.state === "ok" && marksText(c).length).length;
    const parts = [];
    if (failed) parts.push(el("span", {class: "bad"}, `${failed} failed`));
    if (disturbed) parts.push(el("span", {class: "warn"}, `${disturbed} disturbed`));
    if (doubtful) parts.push(el("span", {class: "warn"}, `${doubtful} doubtful`));
    const all = planned - skipped;
    const calm = all - disturbed - failed;
    const clean = !all ? "Nothing was measured" :
      calm === all ? `Undisturbed: all ${plural(all, "cell")}` :
      `Undisturbed: ${calm} of ${plural(all, "cell")}`;
    parts.unshift(el("span", {class: all && calm === all ? "good" : null}, clean));
    if (survey.run.state !== "complete") {
      parts.unshift(el("span", {class: "bad"}, survey.run.state === "interrupted"
        ? "Interrupted before its end" : survey.run.state));
    } else if (skipped) {
      parts.unshift(el("span", {class: "bad"}, "Ended by its time limit"));
    }
    if (skipped) parts.push(el("span", {class: "bad"}, `${number(skipped)} not measured`));
    return el("p", {class: "verdict"}, parts.flatMap((part, i) => i ? [" · ", part] : [part]));
  }

  function head() {
    const main = document.querySelector("main");
    main.append(el("p", {class: "eyebrow"}, "velmo report"));
    if (several) main.append(el("h1", {}, `${surveys.length} surveys`));
    for (const survey of surveys) {
      const {run} = survey;
      main.append(el("article", {class: "trust"},
        el(several ? "h2" : "h1", {}, survey.name),
        el("p", {}, machineLine(survey)),
        el("p", {class: "soft"}, [model.when(run.started), model.duration(run),
          survey.cells.some(notReached) && run.state === "complete" ? "ended by its time limit"
            : run.state,
          `velmo ${survey.record.velmo.version}`].join(" · ")),
        verdict(survey), brokenRules(survey), unseen(survey), troubles(survey)));
    }
  }

  const isDoubtful = (cell) => cell.state !== "ok" || marksText(cell).length > 0;
  const stacked = (first, second) => el("div", {}, first, el("div", {class: "under"}, second));
  function value(cell, name, format, unit) {
    const e = estimate(cell, name);
    if (!e && !(cell && isFailed(cell))) return "–";
    if (!e) return el("span", {class: "bad", title: cell.message}, "failed");
    return el("span", {title: hover(e, format, unit), class: isDoubtful(cell) ? "warn" : null},
              format(e.median), isDoubtful(cell) ? "*" : "");
  }

  function underLoad(cell, share) {
    const latency = cell && model.latencyAt(cell, share);
    if (latency === undefined || !isDoubtful(cell)) return figure(latency);
    return el("span", {class: "warn"}, figure(latency), "*");
  }

  function overview() {
    if (!memories.length) return;
    const mixes = model.mixesOf(memories.flatMap((memory) => memory.bandwidth));
    const latency = "Idle latency, ns";
    const columns = [
      {title: "Memory", text: true},
      {title: "Average", group: latency}, {title: "99th", group: latency},
      {title: "99.9th", group: latency}, {title: "large pages", group: latency},
      ...mixes.map((mix) => ({title: mix, group: "Bandwidth, GB/s, by mix"})),
      {title: "one thread", group: "Bandwidth, GB/s, by mix"},
      {title: "at 50\u00a0%", group: "Under load, ns"},
      {title: "at 90\u00a0%", group: "Under load, ns"},
    ];
    const rows = memories.map((memory) => {
      const idle = estimate(memory.idle, "average_ns");
      return [
        stacked(memory.label, memory.type + (memory.size ? `, ${velmo.bytes(memory.size)}` : "") +
          (memory.node === undefined || memory.name === `node ${memory.node}` ? ""
            : `, from node ${memory.node}`)),
        idle ? stacked(value(memory.idle, "average_ns", figure, "ns"), range(idle, figure))
          : value(memory.idle, "average_ns", figure, "ns"),
        value(memory.idle, "p99_ns", figure, "ns"), value(memory.idle, "p99_9_ns", figure, "ns"),
        value(memory.largePages, "average_ns", figure, "ns"),
        ...mixes.map((mix) => value(memory.bandwidth.find((c) => c.parameters.mix === mix),
                                    "bytes_per_second", gigabytes, "GB/s")),
        value(memory.oneThread, "bytes_per_second", gigabytes, "GB/s"),
        ...[0.5, 0.9].map((share) => underLoad(memory.loaded[0], share)),
      ];
    });
    const machines = surveys.flatMap((survey) => model.cellsOf(survey, "bandwidth", "machine")
      .filter((cell) => estimate(cell, "bytes_per_second")).map((cell) => el("p", {},
        several ? `${survey.letter}: ` : "", "Every CPU on its own node together, mix ",
        `${cell.parameters.mix}: `, value(cell, "bytes_per_second", gigabytes, "GB/s"), " GB/s (",
        range(estimate(cell, "bytes_per_second"), gigabytes), ").")));
    velmo.section("memories", "Memory at a glance",
      "Each memory from its nearest CPU node: medians over the repeats, below the average its " +
      "interval. Under load: the average at half and at nine tenths of the greatest bandwidth of " +
      "the first mix. 1 GB is 10⁹ bytes; n: stores go around the caches; * : disturbed or " +
      "doubtful.",
      velmo.table("Memory at a glance", columns, rows), ...machines);
  }

  const fact = (name, text) => [name, el("span", {class: "wrap"}, text)];

  // [["Bandwidth, threads", "63, 31"], ...]: how a kind was measured, which its figures depend on.
  function settings(survey, kind) {
    const parameters = model.cellsOf(survey, kind, "node").map((cell) => cell.parameters);
    const names = new Set(parameters.flatMap(Object.keys));
    return [...names].filter((name) => name !== "scope" && name !== "mix").map((name) =>
      [`${model.kinds[kind]}, ${model.words(name)}`,
       [...new Set(parameters.map((entry) => model.valueText(name, entry[name])))].join(", ")]);
  }

  function differences() {
    const known = surveys.map((survey) => new Map([
      ["velmo", Object.values(survey.record.velmo).join(" ")],
      ["arguments", model.list(survey.run.arguments).join(" ")],
      ...["idle_latency", "bandwidth", "loaded_latency"].flatMap((kind) => settings(survey, kind)),
      ...model.facts(survey.machine)]));
    // What changes from one minute to the next is no difference between machines.
    const names = [...new Set(known.flatMap((facts) => [...facts.keys()]))]
      .filter((name) => !/\bfree$/.test(name));
    const rows = names.map((name) => [name, ...known.map((facts) => facts.get(name) ?? "–")])
      .filter(([, first, ...others]) => others.some((other) => other !== first));
    return [el("h3", {}, "What differs"), rows.length
      ? velmo.table("What differs", [{title: "", text: true},
          ...surveys.map((survey) => ({title: survey.name, text: true}))],
          rows.map(([name, ...values]) => [name, ...values.map((v) => fact(name, v)[1])]))
      : el("p", {}, "Nothing: machine, settings and arguments are the same.")];
  }

  function machineOf(survey) {
    const lists = [];
    const facts = model.facts(survey.machine, (name, entries) => lists.push([name, entries]));
    facts.unshift(["arguments", model.list(survey.run.arguments).join(" ")],
                  ["seed", velmo.text(survey.index).match(/"seed":(\d+)/)?.[1] ?? "–"]);
    const list = ([name, entries]) => {
      const members = [...new Set(entries.flatMap((entry) => Object.keys(entry)))];
      return [el("h3", {}, name), velmo.table(name,
        members.map((member) => ({title: model.words(member), text: true})),
        entries.map((entry) => members.map((member) => member in entry
          ? el("span", {class: "wrap"}, model.valueText(member, entry[member])) : "–")))];
    };
    return velmo.fold(several ? survey.name : "Everything that was read of it", () => [
      velmo.table("Machine", [{title: "", text: true}, {title: "", text: true}],
                  facts.map(([name, text]) => fact(name, text))),
      ...lists.flatMap(list)]);
  }

  function machine() {
    velmo.section("machine", several ? "The machines" : "The machine", null,
      ...(several ? differences() : []), ...surveys.map(machineOf));
  }

  function files() {
    velmo.section("surveys", several ? "The surveys" : "The survey",
      "Everything above was drawn from it, and it is in this page: saved, it is the file again, " +
      "for velmo show, compare and report.",
      velmo.table("Surveys", [{title: "Host", text: true}, {title: "Started", text: true},
                              {title: "Cells"}, {title: ""}],
        surveys.map((survey) => {
          const {host, started} = survey.run;
          const name = `velmo_${host}_${started.replaceAll(/[-:]/g, "")}.json`
            .replaceAll(/[^\w.-]+/g, "_");
          return [survey.name, model.when(started), number(survey.cells.length),
                  velmo.saveButton("Save as JSON", survey.index, name)];
        })));
  }

  return {head, overview, machine, files, hover, range, value, intervalText};
})();
