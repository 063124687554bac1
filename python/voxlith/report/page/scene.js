// The 3-D view by WebGL: layers of triangles, lines and points in an axes box, turned by mouse, touch or keys.

const VERTEX_SHADER = `#version 300 es
in vec3 position; in vec3 normal; in vec4 colour;
uniform mat4 view; uniform vec3 scale; uniform float size;
out vec4 tint; out vec3 facing;
void main() {
  gl_Position = view * vec4(position * scale, 1.0);
  gl_PointSize = size;
  tint = colour;
  facing = normal / scale;
}`;
const FRAGMENT_SHADER = `#version 300 es
precision highp float;
in vec4 tint; in vec3 facing;
uniform vec3 light; uniform float opacity; uniform bool round;
out vec4 result;
void main() {
  if (round && length(gl_PointCoord - vec2(0.5)) > 0.5) { discard; }
  float lit = dot(facing, facing) > 0.0 ? 0.4 + 0.6 * abs(dot(normalize(facing), light)) : 1.0;
  result = vec4(tint.rgb * lit, tint.a * opacity);
}`;

/**
 * A scene on a canvas; null where the browser has no WebGL 2.
 *
 * box     {low, high}: corners in data units
 * labels  canvas above it for the axis labels
 */
function openScene(canvas, labels, box) {
  const gl = canvas.getContext("webgl2", { alpha: false, antialias: true, preserveDrawingBuffer: true });
  if (!gl) { return null; }
  const program = gl.createProgram();
  for (const [kind, text] of [[gl.VERTEX_SHADER, VERTEX_SHADER], [gl.FRAGMENT_SHADER, FRAGMENT_SHADER]]) {
    const shader = gl.createShader(kind);
    gl.shaderSource(shader, text);
    gl.compileShader(shader);
    gl.attachShader(program, shader);
  }
  ["position", "normal", "colour"].forEach((name, n) => gl.bindAttribLocation(program, n, name));
  gl.linkProgram(program);
  if (!gl.getProgramParameter(program, gl.LINK_STATUS)) { return null; }
  const uniform = (name) => gl.getUniformLocation(program, name);
  const scene = {
    canvas, labels, gl, program, box, layers: new Map(), stretch: 1, turn: -35, tilt: 25, zoom: 1, shift: [0, 0],
    at: { view: uniform("view"), scale: uniform("scale"), size: uniform("size"), light: uniform("light"),
      opacity: uniform("opacity"), round: uniform("round") },
  };
  scene.centre = box.low.map((low, axis) => 0.5 * (low + box.high[axis]));
  scene.radius = 0.5 * Math.hypot(...box.low.map((low, axis) => box.high[axis] - low));
  putBox(scene);
  return scene;
}

/**
 * Add or replace a layer.
 *
 * shape  {positions in data units, normals, colours (4 bytes each) or colour, indices, kind: "triangles", "lines" or
 *        "points", opacity, size, onTop: seen through everything else}
 */
function putLayer(scene, name, shape) {
  removeLayer(scene, name);
  const { gl, centre, radius } = scene, count = shape.positions.length / 3;
  if (!count) { return; }
  const positions = new Float32Array(shape.positions.length);
  for (let n = 0; n < positions.length; n++) { positions[n] = (shape.positions[n] - centre[n % 3]) / radius; }
  const array = gl.createVertexArray();
  gl.bindVertexArray(array);
  const buffers = [];
  const attach = (place, values, size, type, normalised) => {
    const buffer = gl.createBuffer();
    gl.bindBuffer(gl.ARRAY_BUFFER, buffer);
    gl.bufferData(gl.ARRAY_BUFFER, values, gl.STATIC_DRAW);
    gl.enableVertexAttribArray(place);
    gl.vertexAttribPointer(place, size, type, normalised, 0, 0);
    buffers.push(buffer);
  };
  attach(0, positions, 3, gl.FLOAT, false);
  if (shape.normals) { attach(1, shape.normals, 3, gl.FLOAT, false); }
  if (shape.colours) { attach(2, shape.colours, 4, gl.UNSIGNED_BYTE, true); }
  if (shape.indices) {
    const buffer = gl.createBuffer();
    gl.bindBuffer(gl.ELEMENT_ARRAY_BUFFER, buffer);
    gl.bufferData(gl.ELEMENT_ARRAY_BUFFER, shape.indices, gl.STATIC_DRAW);
    buffers.push(buffer);
  }
  gl.bindVertexArray(null);
  scene.layers.set(name, {
    array, buffers, colour: shape.colour, lit: Boolean(shape.normals), opacity: shape.opacity || 1,
    kind: { triangles: gl.TRIANGLES, lines: gl.LINES, points: gl.POINTS }[shape.kind], size: shape.size || 1,
    onTop: Boolean(shape.onTop), indexed: Boolean(shape.indices), count: shape.indices ? shape.indices.length : count,
  });
}

function removeLayer(scene, name) {
  const layer = scene.layers.get(name);
  if (!layer) { return; }
  layer.buffers.forEach((buffer) => scene.gl.deleteBuffer(buffer));
  scene.gl.deleteVertexArray(layer.array);
  scene.layers.delete(name);
}

/** Draw all layers, the translucent ones last, and the labels. */
function drawScene(scene) {
  const { gl, canvas, at } = scene;
  const wide = Math.max(canvas.clientWidth, 100), tall = Math.max(canvas.clientHeight, 100);
  if (canvas.width !== wide * SHARPNESS || canvas.height !== tall * SHARPNESS) {
    canvas.width = wide * SHARPNESS;
    canvas.height = tall * SHARPNESS;
  }
  scene.view = viewMatrix(scene, wide / tall);
  gl.viewport(0, 0, canvas.width, canvas.height);
  gl.clearColor(1, 1, 1, 1);
  gl.clear(gl.COLOR_BUFFER_BIT | gl.DEPTH_BUFFER_BIT);
  gl.enable(gl.DEPTH_TEST);
  gl.enable(gl.BLEND);
  gl.blendFunc(gl.SRC_ALPHA, gl.ONE_MINUS_SRC_ALPHA);
  gl.useProgram(scene.program);
  gl.uniformMatrix4fv(at.view, false, scene.view);
  gl.uniform3f(at.scale, 1, 1, scene.stretch);
  gl.uniform3fv(at.light, lightDirection(scene));
  const order = [...scene.layers.values()].sort((a, b) => a.onTop - b.onTop || b.opacity - a.opacity);
  for (const layer of order) {
    gl.depthMask(layer.opacity === 1);
    gl.depthFunc(layer.onTop ? gl.ALWAYS : gl.LESS);
    gl.uniform1f(at.opacity, layer.opacity);
    gl.uniform1f(at.size, layer.size * SHARPNESS);
    gl.uniform1i(at.round, layer.kind === gl.POINTS ? 1 : 0);
    gl.bindVertexArray(layer.array);
    if (!layer.lit) { gl.vertexAttrib3f(1, 0, 0, 0); }
    if (layer.colour) { gl.vertexAttrib4f(2, ...layer.colour.map((c) => c / 255)); }
    if (layer.indexed) {
      gl.drawElements(layer.kind, layer.count, gl.UNSIGNED_INT, 0);
    } else {
      gl.drawArrays(layer.kind, 0, layer.count);
    }
  }
  gl.depthMask(true);
  gl.bindVertexArray(null);
  drawLabels(scene, wide, tall);
}

function anglesOf(scene) {
  const turn = scene.turn * Math.PI / 180, tilt = scene.tilt * Math.PI / 180;
  return [Math.cos(turn), Math.sin(turn), Math.cos(tilt), Math.sin(tilt)];
}

function lightDirection(scene) {
  const [c, s, ct, st] = anglesOf(scene);
  const toEye = [s * ct, -c * ct, st], side = [c, s, 0];
  const sum = [0, 1, 2].map((axis) => toEye[axis] + 0.5 * side[axis] + (axis === 2 ? 0.6 : 0));
  const size = Math.hypot(...sum);
  return sum.map((value) => value / size);
}

/** Parallel projection; turn: compass direction of the view, tilt: degrees above the horizon. Column-major. */
function viewMatrix(scene, aspect) {
  const [c, s, ct, st] = anglesOf(scene);
  const right = [c, s, 0], up = [-s * st, c * st, ct], forward = [-s * ct, c * ct, -st];
  const size = 1.2 * scene.zoom * Math.min(aspect, 1);
  const [px, py] = scene.shift;
  return new Float32Array([
    right[0] * size / aspect, up[0] * size, forward[0] * 0.1, 0,
    right[1] * size / aspect, up[1] * size, forward[1] * 0.1, 0,
    right[2] * size / aspect, up[2] * size, forward[2] * 0.1, 0,
    px, py, 0, 1]);
}

/** Pixel position of a point in data units. */
function project(scene, point, wide, tall) {
  const v = scene.view;
  const p = point.map((value, axis) => (value - scene.centre[axis]) / scene.radius * (axis === 2 ? scene.stretch : 1));
  const at = (row) => v[row] * p[0] + v[4 + row] * p[1] + v[8 + row] * p[2] + v[12 + row];
  return [(at(0) + 1) / 2 * wide, (1 - at(1)) / 2 * tall];
}

function putBox(scene) {
  const corner = (n) => [0, 1, 2].map((axis) => (n >> axis & 1 ? scene.box.high : scene.box.low)[axis]);
  const points = [];
  for (let n = 0; n < 8; n++) {
    for (let axis = 0; axis < 3; axis++) {
      if (!(n >> axis & 1)) { points.push(...corner(n), ...corner(n | 1 << axis)); }
    }
  }
  putLayer(scene, "box", { kind: "lines", positions: points, colour: [150, 150, 150, 255] });
}

/** Axis labels along the lowest edge of x and of y and the leftmost edge of z. */
function drawLabels(scene, wide, tall) {
  const { labels, box } = scene;
  labels.width = wide * SHARPNESS;
  labels.height = tall * SHARPNESS;
  const pen = labels.getContext("2d");
  pen.scale(SHARPNESS, SHARPNESS);
  pen.font = "12px sans-serif";
  pen.fillStyle = INK;
  const unit = lengthUnit(Math.max(...box.high.map((high, axis) => high - box.low[axis])));
  const [ox, oy] = project(scene, scene.centre, wide, tall);
  ["Easting", "Northing", "Elevation"].forEach((name, axis) => {
    const [first, second] = [0, 1, 2].filter((other) => other !== axis);
    const edges = [0, 1, 2, 3].map((n) => {
      const start = [...box.low], end = [...box.low];
      start[first] = end[first] = (n & 1 ? box.high : box.low)[first];
      start[second] = end[second] = (n & 2 ? box.high : box.low)[second];
      end[axis] = box.high[axis];
      return [start, end];
    });
    const rank = ([start, end]) => {
      const [a, b] = [project(scene, start, wide, tall), project(scene, end, wide, tall)];
      return axis < 2 ? -(a[1] + b[1]) : a[0] + b[0];
    };
    const [start, end] = edges.reduce((best, edge) => rank(edge) < rank(best) ? edge : best);
    const a = project(scene, start, wide, tall), b = project(scene, end, wide, tall);
    if (Math.hypot(b[0] - a[0], b[1] - a[1]) < 40) { return; }
    const middle = [(a[0] + b[0]) / 2 - ox, (a[1] + b[1]) / 2 - oy];
    const size = Math.hypot(...middle) || 1, away = middle.map((value) => value / size);
    pen.textBaseline = "middle";
    pen.textAlign = Math.abs(away[0]) < 0.3 ? "center" : away[0] < 0 ? "right" : "left";
    const tickCount = Math.hypot(b[0] - a[0], b[1] - a[1]) / 60;
    for (const tick of ticksOf(start[axis] * unit.factor, end[axis] * unit.factor, Math.min(tickCount, 5))) {
      const point = [...start];
      point[axis] = tick.value / unit.factor;
      const [x, y] = project(scene, point, wide, tall);
      pen.fillRect(x - 1.5, y - 1.5, 3, 3);
      pen.fillText(tick.text, x + 10 * away[0], y + 10 * away[1]);
    }
    pen.fillText(`${name} (${unit.name})`, (a[0] + b[0]) / 2 + 44 * away[0], (a[1] + b[1]) / 2 + 34 * away[1]);
  });
}

/** Turn by dragging, shift with the shift key, zoom by wheel or two fingers; arrow keys, + and - do the same. */
function listenToScene(scene, redraw) {
  const { canvas } = scene, fingers = new Map();
  const move = (dx, dy, shifted) => {
    if (shifted) {
      scene.shift = [scene.shift[0] + 2 * dx / canvas.clientWidth, scene.shift[1] - 2 * dy / canvas.clientHeight];
    } else {
      scene.turn -= 0.4 * dx;
      scene.tilt = Math.max(-90, Math.min(90, scene.tilt + 0.4 * dy));
    }
    redraw();
  };
  const zoom = (factor) => {
    scene.zoom = Math.max(0.2, Math.min(40, scene.zoom * factor));
    redraw();
  };
  canvas.addEventListener("pointerdown", (event) => {
    fingers.set(event.pointerId, [event.clientX, event.clientY]);
    canvas.setPointerCapture(event.pointerId);
  });
  for (const name of ["pointerup", "pointercancel"]) {
    canvas.addEventListener(name, (event) => fingers.delete(event.pointerId));
  }
  canvas.addEventListener("pointermove", (event) => {
    const last = fingers.get(event.pointerId);
    if (!last) { return; }
    const spread = () => {
      const [a, b] = [...fingers.values()];
      return Math.hypot(a[0] - b[0], a[1] - b[1]);
    };
    const before = fingers.size === 2 ? spread() : 0;
    fingers.set(event.pointerId, [event.clientX, event.clientY]);
    if (fingers.size === 2) {
      zoom(spread() / Math.max(before, 1));
    } else {
      move(event.clientX - last[0], event.clientY - last[1], event.shiftKey);
    }
  });
  canvas.addEventListener("wheel", (event) => {
    event.preventDefault();
    zoom(Math.exp(-0.001 * event.deltaY));
  }, { passive: false });
  canvas.addEventListener("keydown", (event) => {
    const step = { ArrowLeft: [-20, 0], ArrowRight: [20, 0], ArrowUp: [0, -20], ArrowDown: [0, 20] }[event.key];
    if (step) {
      move(...step, event.shiftKey);
    } else if (event.key === "+" || event.key === "-") {
      zoom(event.key === "+" ? 1.2 : 1 / 1.2);
    } else {
      return;
    }
    event.preventDefault();
  });
}
