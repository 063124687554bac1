// The data: maps of stations, profiles, histograms, and the course of the run.

const OBSERVED_COLOUR = "#222", PREDICTED_COLOUR = "#d55e00", NORM_COLOUR = "#0072b2";

/** Residuals of a component, in standard deviations or data units. */
function residualsOf(component, inSigma) {
  const { observed, predicted, uncertainty } = component;
  return observed.map((value, n) => (predicted[n] - value) / (inSigma ? uncertainty[n] : 1));
}

/** Maps of observed, predicted and residual data; the positions of the sections are dotted. */
function drawMaps(report) {
  const { stations, at, data } = report, component = report.components[report.component];
  if (!component) { return; }
  const xs = rangeOf(stations.x), ys = rangeOf(stations.y), span = Math.max(xs[1] - xs[0], ys[1] - ys[0]) || 1;
  const unit = lengthUnit(span), margin = 0.04 * span, inSigma = report.inSigma;
  const both = colourScale(report.map, ...scaleLimits(...rangeOf(component.observed, component.predicted)));
  const residuals = residualsOf(component, inSigma), [low, high] = rangeOf(residuals);
  const most = inSigma ? 3 : Math.max(-low, high);
  const around = colourScale("blue-red", -most, most);
  const draw = (id, values, scale, label, short) => {
    const plot = openPlot(byId(id), {
      x: { range: [xs[0] - margin, xs[1] + margin], label: `Easting (${unit.name})`, unit, ticks: 4 },
      y: { range: [ys[0] - margin, ys[1] + margin], label: `Northing (${unit.name})`, unit }, height: 330, equal: true,
      bar: { scale, label, unit: short } });
    report.plots[id] = plot;
    drawStations(plot, report, values, scale);
    if (data.mesh) {
      withinAxes(plot, (pen) => {
        const c = data.mesh.centres;
        pen.strokeStyle = "rgba(0,0,0,0.6)";
        pen.setLineDash([2, 3]);
        strokePath(pen, [[plot.x(c.x[at.i]), 0], [plot.x(c.x[at.i]), 5000]]);
        strokePath(pen, [[0, plot.y(c.y[at.j])], [5000, plot.y(c.y[at.j])]]);
      });
    }
    byId(id).setAttribute("aria-label", `Map of ${label} at ${stations.x.length} stations, ${shortNumber(rangeOf(values)[0])} ` +
      `to ${shortNumber(rangeOf(values)[1])}`);
  };
  draw("map-observed", component.observed, both, `${component.name} (${component.unit})`, component.unit);
  draw("map-predicted", component.predicted, both, `${component.name} (${component.unit})`, component.unit);
  draw("map-residual", residuals, around, inSigma ? "residual (standard deviations)" : `residual (${component.unit})`,
    inSigma ? "\u03c3" : component.unit);
}

/** Discs of the size of the spacing; masked data are small crosses. */
function drawStations(plot, report, values, scale) {
  const { stations, line } = report, count = stations.x.length;
  const spacing = line ? Math.hypot(plot.width, plot.height) / count : Math.sqrt(plot.width * plot.height / count);
  const radius = Math.max(line ? 2.5 : 1.2, Math.min(7, 0.5 * spacing));
  withinAxes(plot, (pen) => {
    for (let n = 0; n < values.length; n++) {
      const x = plot.x(stations.x[n]), y = plot.y(stations.y[n]), entry = colourIndex(scale, values[n]);
      if (entry < 0) {
        pen.strokeStyle = "#888";
        strokePath(pen, [[x - 2.5, y - 2.5], [x + 2.5, y + 2.5], [NaN, NaN], [x - 2.5, y + 2.5], [x + 2.5, y - 2.5]]);
        continue;
      }
      const [r, g, b] = colourOf(scale, values[n]);
      pen.fillStyle = `rgb(${r},${g},${b})`;
      disc(pen, x, y, radius);
    }
  });
}

/** What a profile can follow: the two vertical sections, the lines of the survey, or the one line that all stations are on. */
function profileChoices(report) {
  const names = (report.data.lines || []).map((line) => `Line ${line.name}`);
  if (!names.length && report.line) { names.push("Along the line of stations"); }
  return ["Along the section at northing", "Along the section at easting", ...names];
}

/**
 * The straight line that all stations are on, within a hundredth of its length; null without one.
 *
 * returns {along: coordinate or distance of each station, label}
 */
function straightLine(stations) {
  const { x, y } = stations, count = x.length, mean = (values) => values.reduce((sum, value) => sum + value, 0) / count;
  const [x0, y0] = [mean(x), mean(y)];
  let [xx, xy, yy] = [0, 0, 0];
  for (let n = 0; n < count; n++) {
    const [dx, dy] = [x[n] - x0, y[n] - y0];
    xx += dx * dx;
    xy += dx * dy;
    yy += dy * dy;
  }
  const turn = 0.5 * Math.atan2(2 * xy, xx - yy), east = Math.cos(turn), north = Math.sin(turn);
  const variances = [xx * east * east + 2 * xy * east * north + yy * north * north,
    xx * north * north - 2 * xy * east * north + yy * east * east];
  if (count < 3 || !(variances[0] > 0) || variances[1] > 1e-4 * variances[0]) { return null; }
  if (Math.abs(east) > 0.9999) { return { along: x, label: "Easting" }; }
  if (Math.abs(north) > 0.9999) { return { along: y, label: "Northing" }; }
  const along = x.map((value, n) => (value - x0) * east + (y[n] - y0) * north), start = rangeOf(along)[0];
  return { along: along.map((value) => value - start), label: "Distance along the line of stations" };
}

/** Stations of the chosen profile, in order along it: indices, distances and a label. */
function profileStations(report) {
  const { stations, data, at } = report, choice = report.profile;
  if (choice >= 2 && !data.lines) {
    const { along, label } = report.line, picked = Array.from(along.keys()).sort((a, b) => along[a] - along[b]);
    return { picked, along: picked.map((n) => along[n]), label, text: `${picked.length} stations on one line` };
  }
  if (choice >= 2) {
    const line = data.lines[choice - 2], picked = [], along = [];
    let way = 0;
    for (let n = line.first; n <= line.last; n++) {
      if (n > line.first) { way += Math.hypot(stations.x[n] - stations.x[n - 1], stations.y[n] - stations.y[n - 1]); }
      picked.push(n);
      along.push(way);
    }
    return { picked, along, label: "Distance along the line", text: `Line ${line.name}` };
  }
  const [across, along, name] = choice === 0 ? ["y", "x", "northing"] : ["x", "y", "easting"];
  const centre = data.mesh ? data.mesh.centres[across][choice === 0 ? at.j : at.i] : rangeOf(stations[across])[0];
  const distances = stations[across].map((value) => Math.abs(value - centre));
  const nearest = rangeOf(distances)[0], span = rangeOf(stations[across]);
  const reach = nearest + 0.25 * (span[1] - span[0]) / Math.max(Math.sqrt(stations.x.length), 1) + 1e-6;
  const picked = Array.from(distances.keys()).filter((n) => distances[n] <= reach)
    .sort((a, b) => stations[along][a] - stations[along][b]);
  return { picked, along: picked.map((n) => stations[along][n]), label: choice === 0 ? "Easting" : "Northing",
    text: `${picked.length} stations nearest to ${name} ${shortNumber(centre)} m` };
}

function drawProfile(report) {
  const component = report.components[report.component];
  if (!component) { return; }
  const { picked, along, label, text } = profileStations(report);
  const take = (values) => picked.map((n) => values[n]);
  const observed = take(component.observed), predicted = take(component.predicted), sigma = take(component.uncertainty);
  const [low, high] = rangeOf(observed, predicted), pad = 0.06 * (high - low) || 1, range = rangeOf(along);
  const unit = lengthUnit(range[1] - range[0]);
  const plot = openPlot(byId("profile"), { x: { range, label: `${label} (${unit.name})`, unit, ticks: 8 },
    y: { range: [low - pad, high + 4 * pad], label: `${component.name} (${component.unit})` }, height: 260 });  // legend on top
  withinAxes(plot, (pen) => {
    pen.strokeStyle = "#888";
    observed.forEach((value, n) => strokePath(pen, [[plot.x(along[n]), plot.y(value - sigma[n])],
      [plot.x(along[n]), plot.y(value + sigma[n])]]));
  });
  const third = Math.ceil(predicted.length / 3), highest = (values) => Math.max(...values.filter(Number.isFinite), -Infinity);
  drawCurve(plot, along, predicted, PREDICTED_COLOUR);
  drawMarks(plot, along, observed, OBSERVED_COLOUR, 2.5);
  drawLegend(plot, [["observed, one standard deviation", OBSERVED_COLOUR], ["predicted", PREDICTED_COLOUR]],
    highest(predicted.slice(-third)) > highest(predicted.slice(0, third)));
  byId("profile-text").textContent = text;
  byId("profile").setAttribute("aria-label", `Profile of ${component.name} in ${component.unit}: ${text}`);
}

/** Histograms of the residuals in standard deviations, one per component, with the standard normal distribution. */
function drawHistograms(report) {
  const place = byId("histograms");
  place.replaceChildren(...report.components.map((_, number) => {
    const figure = element("figure");
    figure.append(element("canvas", null, { role: "img", id: `histogram-${number + 1}` }), element("figcaption"));
    return figure;
  }));
  report.components.forEach((component, number) => {
    const canvas = byId(`histogram-${number + 1}`);
    const values = residualsOf(component, true).filter((value) => Number.isFinite(value));
    const rms = Math.sqrt(values.reduce((sum, value) => sum + value * value, 0) / values.length);
    const mean = values.reduce((sum, value) => sum + value, 0) / values.length;
    const text = values.length ? `${component.name}: ${values.length} data, mean ${mean.toFixed(3)}, RMS ${rms.toFixed(3)}`
      : `${component.name}: no data`;
    canvas.nextElementSibling.textContent = text;
    canvas.setAttribute("aria-label", `Histogram of residuals in standard deviations. ${text}`);
    const reach = Math.min(Math.max(4, ...rangeOf(values).map(Math.abs)), 12), width = values.length > 2000 ? 0.25 : 0.5;
    const bins = Math.ceil(2 * reach / width), counts = new Float64Array(bins);
    values.forEach((value) => { counts[Math.max(0, Math.min(bins - 1, Math.floor((value + reach) / width)))]++; });
    const scale = 1 / Math.max(values.length * width, 1e-9), top = Math.max(0.42, rangeOf(counts)[1] * scale);
    const plot = openPlot(canvas, { x: { range: [-reach, reach], label: "Residual (standard deviations)", ticks: 8 },
      y: { range: [0, 1.3 * top], label: "Density" }, height: 240 });  // with space for the legend
    withinAxes(plot, (pen) => {
      pen.fillStyle = "#8fb8d6";
      pen.strokeStyle = "#fff";
      counts.forEach((count, n) => {
        const x = plot.x(-reach + n * width), y = plot.y(count * scale);
        pen.fillRect(x, y, plot.x(-reach + (n + 1) * width) - x, plot.y(0) - y);
        pen.strokeRect(x, y, plot.x(-reach + (n + 1) * width) - x, plot.y(0) - y);
      });
    });
    const xs = Array.from({ length: 200 }, (_, n) => -reach + 2 * reach * n / 199);
    drawCurve(plot, xs, xs.map((x) => Math.exp(-x * x / 2) / Math.sqrt(2 * Math.PI)), OBSERVED_COLOUR, [5, 3]);
    drawLegend(plot, [["residuals; outliers in the end bins", "#8fb8d6"], ["standard normal", OBSERVED_COLOUR]]);
  });
}

/** Misfit and model norm against the iteration; the L-curve where there is one. */
function drawConvergence(report) {
  const rows = report.data.iterations;
  if (!rows || !rows.iteration.length) { return; }
  const last = rows.iteration.length - 1;
  const draw = (id, values, name, colour, level) => {
    const known = values.filter((value) => value > 0), [low, high] = rangeOf(known, level ? [level] : []);
    const log = known.length > 0 && high / low > 20;
    const pad = log ? Math.sqrt(high / low) ** 0.1 : 0.05 * (high - low) || 0.1;
    const plot = openPlot(byId(id), { x: { range: rangeOf(rows.iteration), label: "Iteration", ticks: 8 },
      y: { range: log ? [low / pad, high * pad] : [low - pad, high + pad], label: name, log }, height: 260 });
    drawCurve(plot, rows.iteration, values, colour);
    if (values.length < 200) { drawMarks(plot, rows.iteration, values, colour, 2.2); }
    if (level) { drawCurve(plot, rangeOf(rows.iteration), [level, level], "#888", [5, 4]); }
    const text = `${name}: ${shortNumber(values[0])} at iteration ${rows.iteration[0]}, ${shortNumber(values[last])} at ` +
      `iteration ${rows.iteration[last]}${level ? `; dashed: noise level ${shortNumber(level)}` : ""}`;
    byId(`${id}-text`).textContent = text;
    byId(id).setAttribute("aria-label", text);
  };
  draw("misfit", rows.misfit, "RMS misfit", PREDICTED_COLOUR, report.data.noise_level);
  draw("norm", rows.norm, "Root of the model norm", NORM_COLOUR, null);
  drawTradeoff(report);
}

function drawTradeoff(report) {
  const curve = report.data.lcurve;
  byId("lcurve-figure").hidden = !curve;
  if (!curve) { return; }
  const wide = (values) => { const [a, b] = rangeOf(values.filter((v) => v > 0)); return [a / 1.15, b * 1.15]; };
  const plot = openPlot(byId("lcurve"), { x: { range: wide(curve.norm), label: "Root of the model norm", log: true, ticks: 6 },
    y: { range: wide(curve.misfit), label: "RMS misfit", log: true }, height: 320 });
  const order = Array.from(curve.norm.keys()).sort((a, b) => curve.tradeoff[a] - curve.tradeoff[b]);
  const take = (values) => order.map((n) => values[n]);
  drawCurve(plot, take(curve.norm), take(curve.misfit), NORM_COLOUR);
  drawMarks(plot, curve.norm, curve.misfit, NORM_COLOUR, 4);
  const taken = [], last = curve.norm.length - 1;
  const put = (n) => {  // the last one first: it is the run's
    const x = plot.x(curve.norm[n]), onLeft = x > plot.left + 0.85 * plot.width, at = plot.y(curve.misfit[n]) + (onLeft ? 7 : -7);
    if (taken.some(([otherX, otherY]) => Math.abs(x - otherX) < 70 && Math.abs(at - otherY) < 14)) { return; }
    taken.push([x, at]);
    plot.pen.textAlign = onLeft ? "right" : "left";
    plot.pen.fillText(shortNumber(curve.tradeoff[n]), x + (onLeft ? -8 : 8), at);
  };
  Array.from(curve.norm.keys()).sort((a, b) => (b === last) - (a === last)).forEach(put);
  const text = `L-curve: RMS misfit against the root of the model norm for ${curve.norm.length} trade-off multipliers, which ` +
    "stand beside the points where there is space";
  byId("lcurve-text").textContent = text;
  byId("lcurve").setAttribute("aria-label", text);
}
