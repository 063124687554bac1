// Arrays of the page: base64 text to numbers, cell indices, and numbers as text.

/** Numbers of an encoded array as a Float64Array or Float32Array; NaN where there is none. */
function decodeArray(coded) {
  if (!coded) { return null; }
  const text = atob(coded.data);
  const bytes = new Uint8Array(text.length);
  for (let n = 0; n < text.length; n++) { bytes[n] = text.charCodeAt(n); }
  if (coded.type === "u2") {
    const steps = new Uint16Array(bytes.buffer);
    const values = new Float32Array(steps.length);
    for (let n = 0; n < steps.length; n++) {
      values[n] = steps[n] === 65535 ? NaN : coded.low + steps[n] * coded.step;
    }
    return values;
  }
  return coded.type === "f8" ? new Float64Array(bytes.buffer) : new Float32Array(bytes.buffer);
}

/** Cell centres of an axis. */
function centresOf(nodes) {
  return nodes.slice(1).map((node, n) => 0.5 * (node + nodes[n]));
}

/** Index of the cell of an axis that holds a coordinate, clamped to the axis; nodes may rise or fall. */
function cellOf(nodes, at) {
  const sign = nodes[nodes.length - 1] > nodes[0] ? 1 : -1;
  let low = 0, high = nodes.length - 2;
  while (low < high) {
    const middle = (low + high + 1) >> 1;
    if (sign * (at - nodes[middle]) >= 0) { low = middle; } else { high = middle - 1; }
  }
  return low;
}

/** Smallest and largest number; [0, 1] when there is none. */
function rangeOf(...arrays) {
  let low = Infinity, high = -Infinity;
  for (const values of arrays) {
    for (let n = 0; n < values.length; n++) {
      if (values[n] < low) { low = values[n]; }
      if (values[n] > high) { high = values[n]; }
    }
  }
  return low <= high ? [low, high] : [0, 1];
}

/** A number with four significant digits. */
function shortNumber(value) {
  if (!Number.isFinite(value)) { return "no value"; }
  const size = Math.abs(value);
  if (size !== 0 && (size < 1e-4 || size >= 1e7)) { return value.toExponential(3); }
  return String(Number(value.toPrecision(size >= 1000 ? Math.ceil(Math.log10(size)) + 1 : 4)));
}

/** Metres or kilometres for lengths of this extent. */
function lengthUnit(extent) {
  return extent >= 10000 ? { factor: 0.001, name: "km" } : { factor: 1, name: "m" };
}

/** A new element with text, which is never read as markup. */
function element(name, text, attributes) {
  const made = document.createElement(name);
  if (text !== undefined && text !== null) { made.textContent = text; }
  for (const [key, value] of Object.entries(attributes || {})) { made.setAttribute(key, value); }
  return made;
}

const byId = (id) => document.getElementById(id);
