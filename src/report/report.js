// The report from top to bottom. A part that a strange survey breaks leaves the others standing.
"use strict";

for (const draw of [tables.head, tables.overview, curves.draw, matrices.draw, charts.staircase,
                    charts.histograms, charts.mixes, tables.machine, tables.files]) {
  try {
    draw();
  } catch (failure) {
    console.error(failure);
    velmo.failed(failure.message);
  }
}
