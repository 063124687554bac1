// The page: tables, controls, and what is drawn again when a control changes.

const report = { data: null, started: false, scene: null, plots: {}, model: 0, map: "viridis", threshold: 0.5, at: { i: 0, j: 0, k: 0 },
  component: 0, profile: 0, inSigma: true, stations: null, line: null, components: [],
  shown: { surface: true, slices: true, stations: true, terrain: true, bodies: true, arrows: true } };

/** Fill a table: rows of texts; `head` is an optional first row. */
function fillTable(id, rows, head) {
  const table = byId(id), body = element("tbody");
  table.replaceChildren();
  if (head) {
    const line = element("tr"), top = element("thead");
    head.forEach((text) => line.append(element("th", text, { scope: "col" })));
    top.append(line);
    table.append(top);
  }
  rows.forEach((texts) => {
    const line = element("tr");
    texts.forEach((text, n) => line.append(n === 0 ? element("th", text, { scope: "row" })
      : element("td", text, /^[-+.\d]+(e[-+]?\d+)?$/i.test(text) && head ? { class: "number" } : {})));
    body.append(line);
  });
  table.append(body);
}

/** Take the contents of a report and show them; what the reader has chosen stays. */
function takeContents(data) {
  const first = report.data === null;
  report.data = data;
  if (data.mesh) {
    data.mesh.centres = { x: centresOf(data.mesh.x), y: centresOf(data.mesh.y), z: centresOf(data.mesh.z) };
  }
  report.stations = data.stations && { x: decodeArray(data.stations.x), y: decodeArray(data.stations.y),
    elevation: decodeArray(data.stations.elevation) };
  report.components = data.components.map((component) => ({ ...component, observed: decodeArray(component.observed),
    predicted: decodeArray(component.predicted), uncertainty: decodeArray(component.uncertainty) }));
  report.line = report.stations && straightLine(report.stations);
  if (first && (data.lines || report.line)) { report.profile = 2; }
  if (!report.started && data.models.length) { chooseStart(); }
  fillTexts();
  fillControls();
  openModelView();
  drawAll();
}

/** The sections first meet at the peak: the largest magnitude below the stations that has a smaller one below it. Values that
 * grow down to the bottom of the mesh, and cells beyond the stations, count where there is nothing else. */
function chooseStart() {
  report.started = true;
  const { mesh, models } = report.data, values = valuesOf(report, 0), { x, y } = mesh.centres;
  const below = (nodes, positions) => {
    const [first, last] = positions ? rangeOf(positions).map((position) => cellOf(nodes, position)) : [0, Infinity];
    return (n) => n >= first && n <= last;
  };
  const inX = below(mesh.x, report.stations && report.stations.x), inY = below(mesh.y, report.stations && report.stations.y);
  const layer = x.length * y.length;
  let best = 0, most = -1;
  for (let n = 0; n < values.length; n++) {
    const grows = n + layer >= values.length || Math.abs(values[n + layer]) >= Math.abs(values[n]);
    const size = Math.abs(values[n]) * (grows ? 1e-6 : 1) * (inX(n % x.length) && inY(Math.floor(n / x.length) % y.length) ? 1 : 1e-12);
    if (size > most) { [best, most] = [n, size]; }
  }
  report.at = { i: best % x.length, j: Math.floor(best / x.length) % y.length, k: Math.floor(best / x.length / y.length) };
  report.map = isSigned(models[0]) ? "blue-red" : "viridis";
}

function fillTexts() {
  const { data } = report;
  document.title = data.title;
  for (const name of ["title", "subtitle", "version", "citation"]) { byId(name).textContent = data[name]; }
  for (const name of ["warnings", "notes"]) {
    byId(name).replaceChildren(...data[name].map((text) => element("li", text)));
    byId(name).hidden = !data[name].length;
  }
  fillTable("summary-table", data.summary);
  fillTable("fit-table", data.fit, data.fit.length ? ["Component", "Data", "Masked", "RMS of the valid data (standard deviations)"] : null);
  fillTable("recovered-table", data.recovered, ["Model", "Body", "x m", "y m", "Elevation m", "Depth m", "Volume 1e6 m³", "Peak", "Excess", "Remark"]);
  byId("recovered").hidden = !data.recovered.length;
  fillTable("findings-table", data.findings, data.findings.length ? ["Severity", "Finding", "What to do"] : null);
  byId("findings").hidden = !data.findings.length;
  fillTable("parameter-table", data.parameters);
  const rows = data.iterations;
  fillTable("iteration-table", rows ? rows.texts : [], ["Iteration", "RMS misfit", "Model norm", "Total", "Seconds", "Steps"]);
}

function fillChoice(id, texts, chosen) {
  byId(id).replaceChildren(...texts.map((text, n) => element("option", text, { value: n })));
  byId(id).value = chosen;
}

function fillControls() {
  const { data, at } = report;
  fillChoice("model-choice", data.models.map((model) => `${model.name} (${model.unit})`), report.model);
  byId("map-choice").replaceChildren(...Object.keys(COLOUR_MAPS).map((name) => element("option", name)));
  byId("map-choice").value = report.map;
  fillChoice("component-choice", report.components.map((part) => `${part.name} (${part.unit})`), report.component);
  fillChoice("profile-choice", profileChoices(report), report.profile);
  if (data.mesh) {
    for (const [axis, index] of [["x", "i"], ["y", "j"], ["z", "k"]]) {
      byId(`slice-${axis}`).max = data.mesh.centres[axis].length - 1;
      byId(`slice-${axis}`).value = at[index];
    }
  }
  byId("show-terrain").parentElement.hidden = !data.terrain;
  byId("show-bodies").parentElement.hidden = !data.bodies.length;
  byId("show-arrows").parentElement.hidden = !data.vectors;
  byId("model").hidden = !data.models.length;
  byId("data").hidden = byId("residuals").hidden = !data.components.length;
  byId("convergence").hidden = !data.iterations;
}

/** Open the 3-D view, once; without WebGL the sections remain. */
function openModelView() {
  const { mesh, models } = report.data;
  if (report.scene || !models.length) { return; }
  const z = mesh.z, heights = report.stations ? rangeOf(report.stations.elevation) : [z[0], z[0]];
  const box = { low: [mesh.x[0], mesh.y[0], z[z.length - 1]],
    high: [mesh.x[mesh.x.length - 1], mesh.y[mesh.y.length - 1], Math.max(z[0], heights[1])] };
  report.scene = openScene(byId("scene-canvas"), byId("scene-labels"), box);
  if (!report.scene) {
    byId("scene").hidden = true;
    byId("scene-help").textContent = "This browser offers no WebGL 2; the sections below show the model.";
    return;
  }
  const span = Math.max(box.high[0] - box.low[0], box.high[1] - box.low[1]), depth = box.high[2] - box.low[2];
  report.scene.stretch = depth * 5 < span ? Math.min(10, Math.round(span / depth / 5 * 10) / 10) : 1;
  byId("stretch").value = report.scene.stretch;
  listenToScene(report.scene, () => drawScene(report.scene));
}

// Drawing. Controls that are dragged ask for many drawings; one per frame is made.

const waiting = new Set();
function later(...parts) {
  if (!waiting.size) {
    requestAnimationFrame(() => {
      const due = new Set(waiting);
      waiting.clear();
      drawParts(due);
    });
  }
  parts.forEach((part) => waiting.add(part));
}

function drawParts(parts) {
  const { data, scene } = report, model = data.models[report.model];
  if (model) {
    showChoices();
    if (scene) {
      if (parts.has("surface")) { report.triangles = putSurfaces(report); }
      if (parts.has("slices")) { putSlices(report); }
      if (parts.has("surroundings")) { putSurroundings(report); }
      drawScene(scene);
      describeScene();
    }
    if (parts.has("slices")) { drawSections(report); }
  }
  if (parts.has("maps")) {
    drawMaps(report);
    drawProfile(report);
  }
  if (parts.has("course")) {
    drawHistograms(report);
    drawConvergence(report);
  }
}

function drawAll() { drawParts(new Set(["surface", "slices", "surroundings", "maps", "course"])); }

function showChoices() {
  const { data, at } = report, { centres } = data.mesh, model = data.models[report.model];
  const sign = isSigned(model) ? "±" : "";
  byId("threshold-value").textContent = `${sign}${shortNumber(thresholdOf(report))} ${model.unit}`;
  byId("stretch-value").textContent = `${report.scene ? report.scene.stretch : 1} ×`;
  for (const [axis, index, name] of [["x", "i", "easting"], ["y", "j", "northing"], ["z", "k", "elevation"]]) {
    const text = `${shortNumber(centres[axis][at[index]])} m (${at[index] + 1} of ${centres[axis].length})`;
    byId(`slice-${axis}-value`).textContent = text;
    byId(`slice-${axis}`).value = at[index];
    byId(`slice-${axis}`).setAttribute("aria-valuetext", `${name} ${text}`);
  }
  byId("threshold").setAttribute("aria-valuetext", byId("threshold-value").textContent);
  byId("stretch").setAttribute("aria-valuetext", byId("stretch-value").textContent);
}

function describeScene() {
  const model = report.data.models[report.model], value = shortNumber(thresholdOf(report));
  const where = isSigned(model) ? `above ${value} and below -${value}` : `above ${value}`;
  byId("scene-text").textContent = report.shown.surface
    ? `Isosurface of ${model.name} ${where} ${model.unit}, ${report.triangles} triangles.` : "";
  byId("scene-canvas").setAttribute("aria-label", `3-D view of the model: ${model.name} in ${model.unit}`);
}

/** Move the sections to the cells that hold a point; an axis that is null stays. */
function moveSections(x, y, z) {
  const { mesh } = report.data;
  if (!mesh) { return; }
  if (x !== null) { report.at.i = cellOf(mesh.x, x); }
  if (y !== null) { report.at.j = cellOf(mesh.y, y); }
  if (z !== null) { report.at.k = cellOf(mesh.z, z); }
  later("slices", "maps");
}

/** Value of the station next to a point of a map. */
function showStation(x, y) {
  const { stations } = report, component = report.components[report.component];
  let best = 0;
  for (let n = 1; n < stations.x.length; n++) {
    const nearer = Math.hypot(stations.x[n] - x, stations.y[n] - y) < Math.hypot(stations.x[best] - x, stations.y[best] - y);
    if (nearer) { best = n; }
  }
  const [observed, predicted, sigma] = [component.observed[best], component.predicted[best], component.uncertainty[best]];
  byId("map-readout").textContent = `Station ${best + 1} at ${shortNumber(stations.x[best])}, ${shortNumber(stations.y[best])} m, ` +
    `elevation ${shortNumber(stations.elevation[best])} m: ` + (Number.isFinite(observed)
    ? `observed ${shortNumber(observed)}, predicted ${shortNumber(predicted)}, standard deviation ${shortNumber(sigma)} ` +
      `${component.unit}; residual ${((predicted - observed) / sigma).toFixed(2)} standard deviations`
    : "masked");
}

function listen() {
  const on = (id, act) => byId(id).addEventListener("input", (event) => act(event.target));
  on("model-choice", (choice) => { report.model = Number(choice.value); later("surface", "slices", "surroundings"); });
  on("map-choice", (choice) => { report.map = choice.value; later("slices", "maps"); });
  on("threshold", (slider) => {
    report.threshold = Number(slider.value) / 1000;
    later("surface", ...(report.data.vectors ? ["surroundings"] : []));
  });
  for (const [axis, index] of [["x", "i"], ["y", "j"], ["z", "k"]]) {
    on(`slice-${axis}`, (slider) => { report.at[index] = Number(slider.value); later("slices", "maps"); });
  }
  on("stretch", (slider) => { if (report.scene) { report.scene.stretch = Number(slider.value); } later("scene"); });
  for (const name of Object.keys(report.shown)) {
    on(`show-${name}`, (box) => { report.shown[name] = box.checked; later("surface", "slices", "surroundings"); });
  }
  on("component-choice", (choice) => { report.component = Number(choice.value); later("maps"); });
  on("residual-choice", (choice) => { report.inSigma = choice.value === "sigma"; later("maps"); });
  on("profile-choice", (choice) => { report.profile = Number(choice.value); later("maps"); });
  const views = { free: [-35, 25], above: [0, 90], south: [0, 0], west: [-90, 0] };
  for (const [name, [turn, tilt]] of Object.entries(views)) {
    byId(`view-${name}`).addEventListener("click", () => {
      if (report.scene) { Object.assign(report.scene, { turn, tilt, zoom: 1, shift: [0, 0] }); }
      later("scene");
    });
  }
  const onClick = (id, act) => byId(id).addEventListener("click", (event) => {
    const plot = report.plots[id], inner = byId(id).getBoundingClientRect();
    act(plot.atX(event.clientX - inner.left), plot.atY(event.clientY - inner.top));
  });
  onClick("section-z", (x, y) => moveSections(x, y, null));
  onClick("section-y", (x, z) => moveSections(x, null, z));
  onClick("section-x", (y, z) => moveSections(null, y, z));
  for (const id of ["map-observed", "map-predicted", "map-residual"]) {
    onClick(id, (x, y) => { showStation(x, y); moveSections(x, y, null); });
  }
  window.addEventListener("resize", () => later("slices", "maps", "course"));
  window.addEventListener("beforeprint", drawAll);
}

listen();
takeContents(JSON.parse(byId("contents").textContent));
if (report.data.live) { followRun(); }
