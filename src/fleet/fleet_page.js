// The page of a fleet from top to bottom: the slow hosts, how they lie among their equals, their
// curves under load, and what was not compared.
"use strict";

(() => {
  const {el, figure, number, theme} = velmo;
  const fleet = velmo.data[0];
  const kRow = 34;  // px of a strip

  const plural = (count, word) => `${number(count)} ${word}${count === 1 ? "" : "s"}`;
  const percent = (value) => `${value > 0 ? "+" : ""}${number(value, 1)} %`;
  const wrapped = (text) => el("span", {class: "wrap", style: "min-width: 26ch"}, text);
  const several = fleet.groups.length > 1;

  function head() {
    document.querySelector("main").append(
      el("p", {class: "eyebrow"}, "velmo fleet"),
      el("h1", {}, plural(fleet.hosts, "host")),
      el("p", {}, [
        plural(fleet.files, "file"), `${number(fleet.outliers.length)} to look at`,
        `${number(fleet.again.length)} to survey again`, `${number(fleet.missing.length)} missing`,
      ].join(" · ")));
  }

  function slowHosts() {
    const note = fleet.outliers.length
      ? "The worst first. Each is named by its clearest figure; the cause is what else tells the " +
        "host from most of its equals."
      : "None departs from its equals by more than these do among themselves.";
    velmo.section("slow", "Hosts to look at", note, fleet.outliers.length ? velmo.table(
      "Hosts to look at",
      [{title: "Host", text: true}, {title: "Figure", text: true}, {title: "Value"},
       {title: "Median"}, {title: "Change"}, {title: "Slow figures"}, {title: "Group"},
       {title: "Likely cause", text: true}],
      fleet.outliers.map((slow) => [
        slow.host, slow.label, slow.value, slow.median, slow.change, number(slow.figures),
        number(slow.group), wrapped(slow.causes.join("; ") || "nothing else differs")])) : null);
  }

  // Points of a row are spread in height, in a fixed order, so that they do not hide each other.
  const spread = (i) => ((i * 0.618034) % 1 - 0.5) * 0.56;

  // Names of slow hosts beside, above or below their points, where there is room between the others
  // and off the bulk of the hosts.
  const names = {id: "names", afterDatasetsDraw(chart) {
    const {ctx, chartArea: area} = chart;
    ctx.save();
    ctx.font = `11px ${Chart.defaults.font.family}`;
    ctx.fillStyle = theme.ink;
    ctx.textBaseline = "middle";
    const points = chart.getDatasetMeta(1).data;
    const box = ({x, y}) => ({y, left: x - 5, right: x + 5});
    const taken = [...points, ...chart.getDatasetMeta(0).data].map(box);
    chart.data.datasets[1].data.forEach(({host}, i) => {
      const {x, y} = points[i];
      const width = ctx.measureText(host).width;
      const place = [[x + 7, y], [x - width - 7, y], [x - width / 2, y - 12],
                     [x - width / 2, y + 12]].find(([left, at]) =>
        left > area.left && left + width < area.right && taken.every((other, j) => j === i ||
          Math.abs(other.y - at) > 9 || left > other.right + 3 || left + width + 3 < other.left));
      if (!place) return;
      taken.push({y: place[1], left: place[0], right: place[0] + width});
      ctx.fillText(host, ...place);
    });
    ctx.restore();
  }};

  function strips(group, index) {
    const rows = group.strips;
    if (!rows.length) return;
    const id = `strips-${index + 1}`;
    const place = el("div");
    const section = velmo.section(id,
      several ? `Group ${index + 1}: ${plural(group.hosts, "host")}` : "The hosts among themselves",
      "Each point is a host, by how far it is from the median of its group. The named ones are " +
      "slow: further from it than equal hosts are, to the right for latency, to the left for " +
      "bandwidth. Of many hosts a sample is drawn.", place);
    const usual = rows.flatMap(({changes}, row) =>
      changes.map((x, i) => ({x, y: row + spread(i)})));
    const slow = rows.flatMap(({slow: hosts}, row) =>
      hosts.map(({host, change, value}) => ({x: change, y: row, host, value})));
    velmo.chart(place, `${id}-chart`, "Change from the median in percent, a row a figure",
      80 + kRow * rows.length, {
        type: "scatter", plugins: [names],
        data: {datasets: [
          {label: "hosts", data: usual, pointRadius: 2,
           pointBackgroundColor: () => velmo.alpha(velmo.series(0), 0.45), pointBorderWidth: 0},
          {label: "slow hosts", data: slow, pointRadius: 4,
           pointBackgroundColor: () => velmo.series(1), pointBorderColor: () => theme.paper},
        ]},
        options: {
          scales: {
            x: velmo.axis("Change from the median of the group, %", {grace: "10%"}),
            y: velmo.axis("", {
              reverse: true, min: -0.5, max: rows.length - 0.5, title: {display: false},
              afterBuildTicks: (axis) => { axis.ticks = rows.map((_, value) => ({value})); },
              ticks: {autoSkip: false, font: ({chart}) => ({size: chart.width < 600 ? 10 : 12}),
                      callback(value) {
                const label = rows[value]?.label ?? "";
                return this.chart.width < 600 ? label.split(", ") : label;
              }}}),
          },
          plugins: {tooltip: {callbacks: {label: ({raw: {host, x, value}}) =>
            host ? `${host}: ${value}, ${percent(x)}` : percent(x)}}},
        }});
    section.append(velmo.fold("Table", () => velmo.table("The hosts among themselves",
      [{title: "Figure", text: true}, {title: "Median"}, {title: "Host", text: true},
       {title: "Value"}, {title: "Change"}],
      rows.flatMap(({label, median, slow: hosts}) => hosts.length
        ? hosts.map(({host, value, change}) => [label, median, host, value, percent(change)])
        : [[label, median, "none is slow", "–", "–"]]))));
  }

  // "loaded_latency/node/0/node 1/2:1" as "mix 2:1, node 0 to node 1".
  function cellText(cell) {
    const [, , from, memory, mix] = cell.match(/^([^/]*)\/([^/]*)\/([^/]*)\/(.*)\/([^/]*)$/)
      ?.slice(1) ?? [];
    return mix ? `mix ${mix}, node ${from} to ${memory}` : cell;
  }

  function curves(group, index) {
    group.curves.forEach((curve, i) => {
      const id = `curves-${index + 1}-${i + 1}`;
      const place = el("div");
      const title = `Under load${several ? ` (group ${index + 1})` : ""}: ${cellText(curve.cell)}`;
      const section = velmo.section(id, title,
        "The band holds nine of ten hosts of the group that are not slow, the line in it is their " +
        "median; the others are slow hosts.", place);
      const band = (column) => curve.band.map((point) => ({x: point[0], y: point[column]}));
      const plain = {pointRadius: 0, borderWidth: 0, showLine: true};
      const hosts = curve.hosts.map(({host, points}, n) => ({
        label: host, data: points.map(([x, y]) => ({x, y})), borderWidth: 1.75, pointRadius: 3,
        borderColor: () => velmo.series(n + 1), pointBackgroundColor: () => velmo.series(n + 1),
        pointBorderColor: () => velmo.series(n + 1), borderDash: velmo.dash(n),
        pointStyle: velmo.marker(n)}));
      const chart = velmo.chart(place, `${id}-chart`,
        "Latency in ns over delivered bandwidth in GB/s, slow hosts over the band of their group",
        380, {
          type: "line",
          data: {datasets: [
            ...hosts,
            {...plain, label: "median", data: band(2), borderWidth: 2.25,
             borderColor: () => velmo.series(0)},
            {...plain, label: "5th of 100", data: band(1), fill: "+1",
             backgroundColor: () => velmo.alpha(velmo.series(0), 0.22)},
            {...plain, label: "95th of 100", data: band(3)},
          ]},
          options: {
            interaction: {mode: "nearest", intersect: false},
            scales: {
              x: velmo.axis("Delivered bandwidth, GB/s", {type: "linear", beginAtZero: true}),
              y: velmo.axis("Average latency, ns", {beginAtZero: true})},
            plugins: {tooltip: {callbacks: {
              title: () => "",
              label: ({dataset, raw}) =>
                `${dataset.label}: ${figure(raw.y)} ns at ${figure(raw.x)} GB/s`}}},
          }});
      section.insertBefore(el("div", {class: "legend", role: "group",
                                      "aria-label": "Shown in the chart"},
        hosts.map(({label}, n) => velmo.toggle(label, chart, [n], true,
          velmo.swatch(n + 1, n, velmo.marker(n)))),
        velmo.toggle("group", chart, [0, 1, 2].map((n) => hosts.length + n), true,
                     velmo.swatch(0, 0))), place);
      section.append(velmo.fold("Table", () => velmo.table(title,
        [{title: "Host", text: true}, {title: "Bandwidth, GB/s"}, {title: "Latency, ns"}],
        curve.hosts.flatMap(({host, points}) =>
          points.map(([x, y]) => [host, figure(x), figure(y)])))));
    });
  }

  function named(id, title, note, list, name) {
    const kShown = 1000;
    if (!list.length) return;
    velmo.section(id, title, note, velmo.table(title,
      [{title: name === "file" ? "File" : "Host", text: true}, {title: "Why", text: true}],
      list.slice(0, kShown).map((entry) =>
        [entry[name], wrapped(entry.reason)])),
      list.length > kShown ? el("p", {class: "note"}, `${number(list.length - kShown)} more`) : null);
  }

  function groups() {
    const deviations = (thresholds) => {
      const values = Object.values(thresholds);
      return values.length
        ? `${number(Math.min(...values), 1)}–${number(Math.max(...values), 1)}` : "too few hosts";
    };
    velmo.section("groups", "Groups",
      "Hosts that should be equal. A figure is slow beyond that many robust standard deviations " +
      "of its group, which keeps equal hosts from being named in nine of ten reports.",
      velmo.table("Groups",
        [{title: "Group", text: true}, {title: "Hosts"}, {title: "Slow beyond"},
         {title: "In common", text: true}, {title: "Most have", text: true}],
        fleet.groups.map((group, i) => [
          number(i + 1), number(group.hosts), deviations(group.thresholds),
          wrapped(group.equal), wrapped(group.usual.join(", "))])));
  }

  for (const draw of [
    head, slowHosts, () => fleet.groups.forEach(strips), () => fleet.groups.forEach(curves),
    () => named("again", "Survey again", "Their surveys are disturbed, interrupted or lack cells. " +
      "Nothing of what is doubtful was compared.", fleet.again, "host"),
    () => named("missing", "Missing", null, fleet.missing, "host"),
    () => named("left-out", "Files left out", null, fleet.left_out, "file"), groups]) {
    try {
      draw();
    } catch (failure) {
      console.error(failure);
      velmo.failed(failure.message);
    }
  }
})();
