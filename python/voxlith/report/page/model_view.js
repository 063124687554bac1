// The model: layers of the 3-D view, and three sections that meet in one cell.

/** Values of the chosen model, decoded once. */
function valuesOf(report, number) {
  const model = report.data.models[number];
  if (!model.values) { model.values = decodeArray(model.cells); }
  return model.values;
}

const cellIndex = (mesh, i, j, k) => (k * (mesh.y.length - 1) + j) * (mesh.x.length - 1) + i;

/** Threshold of the isosurface: a part of the largest magnitude for values of both signs, else of the range. */
function thresholdOf(report) {
  const model = report.data.models[report.model], part = report.threshold;
  if (!model) { return 0; }
  return isSigned(model) ? part * Math.max(-model.low, model.high) : model.low + part * (model.high - model.low);
}

const isSigned = (model) => model.low < 0 && model.high > 0;

function modelScale(report) {
  const model = report.data.models[report.model];
  return colourScale(report.map, ...scaleLimits(model.low, model.high));
}

/** Put isosurface layers for the threshold; gives the number of triangles. */
function putSurfaces(report) {
  const { scene, data } = report, model = data.models[report.model], threshold = thresholdOf(report);
  ["surface above", "surface below"].forEach((name) => removeLayer(scene, name));
  if (!report.shown.surface) { return 0; }
  const values = valuesOf(report, report.model), { x, y, z } = data.mesh;
  const along = (nodes) => [nodes[0], ...centresOf(nodes), nodes[nodes.length - 1]];
  let triangles = 0;
  const put = (name, level, sign, colour) => {
    const shape = isosurface(values, along(x), along(y), along(z), level, sign);
    putLayer(scene, name, { ...shape, kind: "triangles", colour });
    triangles += shape.triangles;
  };
  if (model.high > 0 || !isSigned(model)) { put("surface above", threshold, 1, POSITIVE_COLOUR); }
  if (isSigned(model)) { put("surface below", -threshold, -1, NEGATIVE_COLOUR); }
  return triangles;
}

/** Opacity of a cell of a section, of 255: little where the model is next to its background, so that bodies are seen. */
function cellOpacity(model, value) {
  const background = model.low <= 0 && model.high >= 0 ? 0 : model.low;
  const most = Math.max(model.high - background, background - model.low) || 1;
  return Math.round(70 + 165 * Math.min(1, Math.abs(value - background) / (0.3 * most)));
}

/** Put the three sections as cells of one colour each. */
function putSlices(report) {
  const { scene, data, at } = report, { x, y, z } = data.mesh;
  ["slice x", "slice y", "slice z"].forEach((name) => [name, `${name} edge`].forEach((layer) => removeLayer(scene, layer)));
  if (!report.shown.slices) { return; }
  const model = data.models[report.model], centre = data.mesh.centres;
  const values = valuesOf(report, report.model), scale = modelScale(report);
  const put = (name, us, vs, point, value) => {
    const count = (us.length - 1) * (vs.length - 1);
    const positions = new Float32Array(18 * count), colours = new Uint8Array(24 * count);
    let p = 0, c = 0;
    for (let v = 0; v < vs.length - 1; v++) {
      for (let u = 0; u < us.length - 1; u++) {
        const found = value(u, v);
        if (!(found === found)) { continue; }
        const colour = colourOf(scale, found), opacity = cellOpacity(model, found);
        for (const [a, b] of [[0, 0], [1, 0], [1, 1], [0, 0], [1, 1], [0, 1]]) {
          positions.set(point(us[u + a], vs[v + b]), p);
          colours.set(colour, c);
          colours[c + 3] = opacity;
          p += 3;
          c += 4;
        }
      }
    }
    putLayer(scene, name, { kind: "triangles", positions: positions.subarray(0, p), colours: colours.subarray(0, c),
      opacity: 0.99 });
    const [u0, u1, v0, v1] = [us[0], us[us.length - 1], vs[0], vs[vs.length - 1]];
    const edge = [[u0, v0], [u1, v0], [u1, v0], [u1, v1], [u1, v1], [u0, v1], [u0, v1], [u0, v0]];
    putLayer(scene, `${name} edge`, { kind: "lines", positions: edge.flatMap(([u, v]) => point(u, v)),
      colour: [110, 110, 110, 255] });
  };
  put("slice x", y, z, (v, w) => [centre.x[at.i], v, w], (j, k) => values[cellIndex(data.mesh, at.i, j, k)]);
  put("slice y", x, z, (u, w) => [u, centre.y[at.j], w], (i, k) => values[cellIndex(data.mesh, i, at.j, k)]);
  put("slice z", x, y, (u, v) => [u, v, centre.z[at.k]], (i, j) => values[cellIndex(data.mesh, i, j, at.k)]);
}

/** Put stations, ground surface, true bodies and vectors. */
function putSurroundings(report) {
  const { scene, data, shown } = report;
  ["stations", "terrain", "bodies", "arrows"].forEach((name) => removeLayer(scene, name));
  if (shown.stations && report.stations) {
    const { x, y, elevation } = report.stations;
    const points = new Float32Array(3 * x.length);
    for (let n = 0; n < x.length; n++) { points.set([x[n], y[n], elevation[n]], 3 * n); }
    putLayer(scene, "stations", { kind: "points", positions: points, colour: [30, 30, 30, 255], size: x.length > 5000 ? 2 : 4 });
  }
  if (shown.terrain && data.terrain) { putTerrain(report); }
  if (shown.bodies && data.bodies.length) {
    const points = data.bodies.filter((body) => body.model === report.model + 1).flatMap(bodyEdges);
    putLayer(scene, "bodies", { kind: "lines", positions: points, colour: [0, 0, 0, 255] });
  }
  if (shown.arrows && data.vectors) { putArrows(report); }
}

function bodyEdges(body) {
  const corner = (n) => [body.x[n & 1], body.y[n >> 1 & 1], body.elevation[n >> 2 & 1]];
  return [[0, 1], [2, 3], [4, 5], [6, 7], [0, 2], [1, 3], [4, 6], [5, 7], [0, 4], [1, 5], [2, 6], [3, 7]]
    .flatMap(([a, b]) => [...corner(a), ...corner(b)]);
}

/** The surface as one quad between the centres of four columns. */
function putTerrain(report) {
  const { data, scene } = report, x = data.mesh.centres.x, y = data.mesh.centres.y;
  const heights = decodeArray(data.terrain), nx = x.length, positions = new Float32Array(3 * nx * y.length), indices = [];
  for (let j = 0; j < y.length; j++) {
    for (let i = 0; i < nx; i++) {
      positions.set([x[i], y[j], heights[j * nx + i]], 3 * (j * nx + i));
      if (i && j) {
        const n = j * nx + i, corners = [n - nx - 1, n - nx, n, n - 1];
        if (corners.every((corner) => heights[corner] === heights[corner])) {
          indices.push(corners[0], corners[1], corners[2], corners[0], corners[2], corners[3]);
        }
      }
    }
  }
  const faces = new Uint32Array(indices);
  if (!faces.length) { return; }
  putLayer(scene, "terrain", { kind: "triangles", positions, normals: vertexNormals(positions, faces), indices: faces,
    colour: [150, 130, 100, 255], opacity: 0.35 });
}

/** Arrows of the vectors longer than the threshold, the strongest 3000 at most. */
function putArrows(report) {
  const { data, scene } = report, [ex, ny, third] = data.vectors.models.map((number) => valuesOf(report, number));
  const up = data.vectors.down ? third.map((value) => -value) : third;
  const { x, y, z } = data.mesh.centres, lengths = ex.map((value, n) => Math.hypot(value, ny[n], up[n]));
  const longest = rangeOf(lengths)[1], points = [];
  const chosen = Array.from(lengths.keys()).filter((n) => lengths[n] > report.threshold * longest)
    .sort((a, b) => lengths[b] - lengths[a]).slice(0, 3000);
  const reach = 1.6 * Math.cbrt((x[x.length - 1] - x[0]) * (y[y.length - 1] - y[0]) * Math.abs(z[z.length - 1] - z[0]) /
    (x.length * y.length * z.length)) || 1;
  for (const n of chosen) {
    const i = n % x.length, j = Math.floor(n / x.length) % y.length, k = Math.floor(n / x.length / y.length);
    const part = reach * lengths[n] / longest, way = [ex[n], ny[n], up[n]].map((value) => value / lengths[n]);
    const side = Math.abs(way[2]) < 0.9 ? [way[1], -way[0], 0] : [0, way[2], -way[1]];
    const start = [x[i], y[j], z[k]].map((value, axis) => value - 0.5 * part * way[axis]);
    const tip = start.map((value, axis) => value + part * way[axis]);
    points.push(...start, ...tip);
    for (const sign of [-1, 1]) {
      points.push(...tip, ...tip.map((value, axis) => value - part * (0.3 * way[axis] + 0.15 * sign * side[axis])));
    }
  }
  putLayer(scene, "arrows", { kind: "lines", positions: points, colour: [0, 0, 0, 255], onTop: true });
}

/** Draw the depth slice and the two vertical sections. */
function drawSections(report) {
  const { data, at, stations } = report, { mesh } = data, { x, y, z } = mesh;
  const model = data.models[report.model], values = valuesOf(report, report.model), scale = modelScale(report);
  const unit = lengthUnit(Math.max(x[x.length - 1] - x[0], y[y.length - 1] - y[0]));
  const rises = z.slice().reverse(), layers = z.length - 2;
  const bar = { scale, label: `${model.name} (${model.unit})`, unit: model.unit };
  const east = { range: [x[0], x[x.length - 1]], label: `Easting (${unit.name})`, unit };
  const north = { range: [y[0], y[y.length - 1]], label: `Northing (${unit.name})`, unit };
  const upwards = lengthUnit(z[0] - z[z.length - 1]);
  const high = { range: [rises[0], rises[rises.length - 1]], label: `Elevation (${upwards.name})`, unit: upwards };
  const draw = (id, xAxis, yAxis, xs, ys, value, cross, text) => {
    const plot = openPlot(byId(id), { x: xAxis, y: yAxis, height: 330, equal: true, bar });
    drawCells(plot, xs, ys, value, scale);
    withinAxes(plot, (pen) => {
      pen.setLineDash([2, 3]);
      strokePath(pen, [[plot.x(cross[0]), plot.top], [plot.x(cross[0]), plot.top + plot.height]]);
      strokePath(pen, [[plot.left, plot.y(cross[1])], [plot.left + plot.width, plot.y(cross[1])]]);
    });
    const stretched = Math.abs(plot.stretch - 1) < 0.05 ? "" : `, vertical axis stretched ${plot.stretch.toFixed(1)} times`;
    byId(`${id}-text`).textContent = text + stretched;
    byId(id).setAttribute("aria-label", `${text}, ${model.name} in ${model.unit}`);
    report.plots[id] = plot;
    return plot;
  };
  const c = mesh.centres, metres = (value) => `${shortNumber(value)} m`;
  const map = draw("section-z", east, north, x, y, (i, j) => values[cellIndex(mesh, i, j, at.k)], [c.x[at.i], c.y[at.j]],
    `Depth slice at elevation ${metres(c.z[at.k])}`);
  if (stations && stations.x.length < 20000) { drawMarks(map, stations.x, stations.y, "rgba(0,0,0,0.5)", 1); }
  draw("section-y", east, high, x, rises, (i, k) => values[cellIndex(mesh, i, at.j, layers - k)], [c.x[at.i], c.z[at.k]],
    `Section at northing ${metres(c.y[at.j])}`);
  draw("section-x", north, high, y, rises, (j, k) => values[cellIndex(mesh, at.i, j, layers - k)], [c.y[at.j], c.z[at.k]],
    `Section at easting ${metres(c.x[at.i])}`);
  drawBodies(report);
  const value = values[cellIndex(mesh, at.i, at.j, at.k)];
  byId("section-readout").textContent = `Cell at easting ${metres(c.x[at.i])}, northing ${metres(c.y[at.j])}, elevation ` +
    `${metres(c.z[at.k])}: ${shortNumber(value)}${Number.isFinite(value) ? ` ${model.unit}` : ""}`;
}

/** Outlines of the true bodies: solid where the section cuts them, dashed beside it. */
function drawBodies(report) {
  const c = report.data.mesh.centres, { at } = report;
  for (const body of report.shown.bodies ? report.data.bodies : []) {
    if (body.model !== report.model + 1) { continue; }
    for (const [id, across, up, cut, position] of [["section-z", body.x, body.y, body.elevation, c.z[at.k]],
      ["section-y", body.x, body.elevation, body.y, c.y[at.j]], ["section-x", body.y, body.elevation, body.x, c.x[at.i]]]) {
      const plot = report.plots[id];
      withinAxes(plot, (pen) => {
        pen.strokeStyle = "#000";
        pen.setLineDash(position >= cut[0] && position <= cut[1] ? [] : [4, 4]);
        pen.strokeRect(plot.x(across[0]), plot.y(up[1]), plot.x(across[1]) - plot.x(across[0]), plot.y(up[0]) - plot.y(up[1]));
      });
    }
  }
}
