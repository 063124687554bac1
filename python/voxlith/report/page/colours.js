// Colour maps that readers with colour vision deficiency can tell apart, as 17 colours between which is interpolated.

const COLOUR_MAPS = {
  viridis: "44015448186a472d7b4240863b528b33638d2c728e26828e21918c1fa08828ae803fbc735ec96284d44baddc30d8e219fde725",
  cividis: "00224e002e6a1a386f32436d434e6c535a6d61656f6f70737d7c788c88789b9476aba072bcae6ccdbb63dec958f0d846fee838",
  plasma: "0d08873105974c02a16600a77e03a89511a1aa2395bc3587cc4778da5a6ae66c5cf0804ef89540fdac33fdc527f8df25f0f921",
  "blue-red": "0530611752902a71b23f8ec06bacd19bc9e0c2ddece0ecf3f7f6f6fbe5d8fbccb4f5aa89e48066d05548ba2832930e2667001f",
  grey: "1414142222223030303e3e3e4c4c4c5a5a5a6868687676768484849292929f9f9fadadadbbbbbbc9c9c9d7d7d7e5e5e5f2f2f2",
};
const NO_VALUE_COLOUR = [200, 200, 200];
const POSITIVE_COLOUR = [213, 94, 0, 255];
const NEGATIVE_COLOUR = [0, 114, 178, 255];

/** 256 colours of a map, as bytes red, green, blue. */
function colourTable(name) {
  const stops = (COLOUR_MAPS[name] || COLOUR_MAPS.viridis).match(/../g).map((word) => parseInt(word, 16));
  const table = new Uint8Array(768);
  for (let n = 0; n < 256; n++) {
    const at = n / 255 * 16, stop = Math.min(Math.floor(at), 15), part = at - stop;
    for (let c = 0; c < 3; c++) {
      table[3 * n + c] = Math.round(stops[3 * stop + c] * (1 - part) + stops[3 * stop + 3 + c] * part);
    }
  }
  return table;
}

/** A scale of colours: a table between two values. */
function colourScale(name, low, high) {
  return { table: colourTable(name), low, high: high > low ? high : low + 1 };
}

/** Entry of the table for a value, or -1 where there is none. */
function colourIndex(scale, value) {
  if (!(value === value)) { return -1; }
  return Math.max(0, Math.min(255, Math.floor((value - scale.low) / (scale.high - scale.low) * 256)));
}

/** Red, green and blue of a value. */
function colourOf(scale, value) {
  const n = colourIndex(scale, value);
  return n < 0 ? NO_VALUE_COLOUR : [scale.table[3 * n], scale.table[3 * n + 1], scale.table[3 * n + 2]];
}

/** Limits of a scale: symmetrical about zero for values of both signs. */
function scaleLimits(low, high) {
  const most = Math.max(-low, high);
  return low < 0 && high > 0 ? [-most, most] : [low, high];
}
