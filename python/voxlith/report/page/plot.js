// Axes, lines, marks and images on a canvas. Positions in data units go through the axes that openPlot gives.

const SHARPNESS = 2;  // pixels of the canvas per pixel of the page: prints stay sharp
const LEAST_SIDE = 100;  // pixels of the page: of the axes of a section that is flat or narrow
const INK = "#222", FAINT = "#ddd", FONT = "12px sans-serif";
const LEFT = 66, BAR = 78;  // pixels of the page: least widths of the ticks of y and of the colour bar, with their labels

/** Tick positions of an axis, about `count` of them. */
function ticksOf(low, high, count) {
  const rough = (high - low) / Math.max(count, 1);
  const power = 10 ** Math.floor(Math.log10(rough));
  const step = power * [1, 2, 5, 10].find((factor) => factor * power >= rough * 0.999);
  const ticks = [];
  for (let n = Math.ceil(low / step - 1e-9); n * step <= high + 1e-9 * step; n++) { ticks.push(n * step); }
  const digits = Math.max(0, -Math.floor(Math.log10(step) + 1e-9));
  return ticks.map((value) => ({ value, text: tickText(value, step, digits) }));
}

function tickText(value, step, digits) {
  const plain = Math.abs(value) < 1e-9 * step ? 0 : value;
  return step < 1e-5 || step >= 1e7 ? plain.toExponential(1) : plain.toFixed(digits);
}

/** Ticks of a logarithmic axis: powers of ten, with 2 and 5 where these are few. */
function logTicksOf(low, high) {
  const first = Math.floor(low), last = Math.ceil(high), ticks = [];
  const factors = last - first > 3 ? [1] : [1, 2, 5];
  for (let power = first; power <= last; power++) {
    for (const factor of factors) {
      const at = power + Math.log10(factor);
      if (at >= low && at <= high) { ticks.push({ value: at, text: shortNumber(factor * 10 ** power) }); }
    }
  }
  return ticks.length > 1 ? ticks
    : ticksOf(10 ** low, 10 ** high, 4).map((tick) => ({ value: Math.log10(tick.value), text: shortNumber(tick.value) }));
}

/**
 * Clear a canvas and draw its axes.
 *
 * options: x and y {range, label, log, unit: {factor, name}}, height in pixels of the page, equal: one scale for both
 *          axes, bar: {scale, label} for a colour bar
 * returns  {pen, x(value), y(value), atX(pixel), atY(pixel), left, top, width, height, stretch}; the scale of y is
 *          `stretch` times that of x, which is 1 but for very flat and very narrow images
 */
function openPlot(canvas, options) {
  const pen = canvas.getContext("2d");
  pen.font = FONT;
  const widest = (ticks) => Math.max(0, ...ticks.map((tick) => pen.measureText(tick.text).width));
  const xAxis = axisOf(options.x), yAxis = axisOf(options.y);
  const barTicks = options.bar ? ticksOf(options.bar.scale.low, options.bar.scale.high, 6) : [];
  const wide = Math.max(canvas.clientWidth, 240), barWidth = options.bar ? Math.max(BAR, widest(barTicks) + 48) : 12;
  const left = Math.max(LEFT, widest(yAxis.ticks) + 28), top = 10;
  let width = wide - left - barWidth, height = options.height - top - 42, stretch = 1;
  if (options.equal) {
    const xSpan = xAxis.high - xAxis.low, ySpan = Math.abs(yAxis.high - yAxis.low);
    const perPixel = Math.max(xSpan / width, ySpan / height);
    width = Math.max(xSpan / perPixel, LEAST_SIDE);
    height = Math.max(ySpan / perPixel, LEAST_SIDE);
    stretch = height / width * xSpan / ySpan;
  }
  const tall = Math.round(height + top + 42);
  canvas.width = wide * SHARPNESS;
  canvas.height = tall * SHARPNESS;
  canvas.style.height = `${tall}px`;
  pen.scale(SHARPNESS, SHARPNESS);
  pen.fillStyle = "#fff";
  pen.fillRect(0, 0, wide, tall);
  const plot = {
    pen, left, top, width, height, canvas, stretch,
    x: (value) => left + (xAxis.of(value) - xAxis.low) / (xAxis.high - xAxis.low) * width,
    y: (value) => top + height - (yAxis.of(value) - yAxis.low) / (yAxis.high - yAxis.low) * height,
    atX: (pixel) => xAxis.back(xAxis.low + (pixel - left) / width * (xAxis.high - xAxis.low)),
    atY: (pixel) => yAxis.back(yAxis.low + (top + height - pixel) / height * (yAxis.high - yAxis.low)),
  };
  drawTicks(plot, xAxis, yAxis, options);
  if (options.bar) { drawBar(plot, options.bar, barTicks, barWidth); }
  return plot;
}

function axisOf(axis) {
  const logarithm = Boolean(axis.log), factor = axis.unit ? axis.unit.factor : 1;
  const of = (value) => logarithm ? Math.log10(value) : value;
  let [low, high] = axis.range.map(of);
  if (!(high !== low)) { [low, high] = [low - 0.5, high + 0.5]; }
  const ticks = logarithm ? logTicksOf(low, high)
    : ticksOf(Math.min(low, high) * factor, Math.max(low, high) * factor, axis.ticks || 5)
      .map((tick) => ({ value: tick.value / factor, text: tick.text }));
  return { low, high, of, back: (value) => logarithm ? 10 ** value : value, ticks };
}

function drawTicks(plot, xAxis, yAxis, options) {
  const { pen, left, top, width, height } = plot;
  pen.font = FONT;
  pen.strokeStyle = FAINT;
  pen.fillStyle = INK;
  pen.textAlign = "center";
  pen.textBaseline = "top";
  let free = -Infinity;
  for (const tick of xAxis.ticks) {
    const at = left + (tick.value - xAxis.low) / (xAxis.high - xAxis.low) * width;
    strokePath(pen, [[at, top], [at, top + height]]);
    const half = pen.measureText(tick.text).width / 2;
    if (at - half > free && at + half <= left + width + 12) {
      pen.fillText(tick.text, at, top + height + 5);
      free = at + half + 6;
    }
  }
  pen.textAlign = "right";
  pen.textBaseline = "middle";
  const each = Math.ceil(15 * yAxis.ticks.length / height);  // ticks need 15 pixels
  for (const tick of yAxis.ticks.filter((_, n) => n % each === 0)) {
    const at = top + height - (tick.value - yAxis.low) / (yAxis.high - yAxis.low) * height;
    strokePath(pen, [[left, at], [left + width, at]]);
    pen.fillText(tick.text, left - 5, at);
  }
  pen.strokeStyle = INK;
  pen.strokeRect(left, top, width, height);
  pen.textAlign = "center";
  pen.textBaseline = "alphabetic";
  pen.fillText(options.x.label, left + Math.max(width / 2, 40), top + height + 36);
  pen.save();
  pen.translate(13, top + Math.max(height / 2, 40));
  pen.rotate(-Math.PI / 2);
  pen.fillText(options.y.label, 0, 0);
  pen.restore();
}

function drawBar(plot, bar, ticks, available) {
  const { pen, top } = plot, height = Math.max(plot.height, 90), x = plot.left + plot.width + 10;
  for (let n = 0; n < height; n++) {
    const c = 3 * Math.floor((height - 1 - n) / height * 256);
    pen.fillStyle = `rgb(${bar.scale.table[c]},${bar.scale.table[c + 1]},${bar.scale.table[c + 2]})`;
    pen.fillRect(x, top + n, 12, 1.5);
  }
  pen.fillStyle = INK;
  pen.textAlign = "left";
  pen.textBaseline = "middle";
  const { low, high } = bar.scale;
  for (const tick of ticks) {
    const at = top + height - (tick.value - low) / (high - low) * height;
    pen.fillRect(x + 12, at - 0.5, 3, 1);
    pen.fillText(tick.text, x + 17, Math.max(at, top + 6));
  }
  pen.save();
  pen.translate(x + available - 16, top + height / 2);
  pen.rotate(Math.PI / 2);
  pen.textAlign = "center";
  pen.fillText(pen.measureText(bar.label).width > height + 20 ? bar.unit : bar.label, 0, 0);
  pen.restore();
}

/** Stroke a path of pixel positions; a position that is not a number opens a gap. */
function strokePath(pen, points) {
  pen.beginPath();
  let open = false;
  for (const [x, y] of points) {
    const known = Number.isFinite(x) && Number.isFinite(y);
    if (known && open) { pen.lineTo(x, y); } else if (known) { pen.moveTo(x, y); }
    open = known;
  }
  pen.stroke();
}

/** Draw within the axes alone. */
function withinAxes(plot, draw) {
  const { pen } = plot;
  pen.save();
  pen.beginPath();
  pen.rect(plot.left, plot.top, plot.width, plot.height);
  pen.clip();
  draw(pen);
  pen.restore();
}

/** A curve through values. */
function drawCurve(plot, xs, ys, colour, dash) {
  withinAxes(plot, (pen) => {
    pen.strokeStyle = colour;
    pen.lineWidth = 1.8;
    pen.setLineDash(dash || []);
    strokePath(pen, Array.from(xs, (x, n) => [plot.x(x), plot.y(ys[n])]));
  });
}

/** Filled discs at values. */
function drawMarks(plot, xs, ys, colour, radius) {
  withinAxes(plot, (pen) => {
    pen.fillStyle = colour;
    for (let n = 0; n < xs.length; n++) {
      const x = plot.x(xs[n]), y = plot.y(ys[n]);
      if (Number.isFinite(x) && Number.isFinite(y)) { disc(pen, x, y, radius); }
    }
  });
}

function disc(pen, x, y, radius) {
  pen.beginPath();
  pen.arc(x, y, radius, 0, 2 * Math.PI);
  pen.fill();
}

/** Cells of an image: colours of value(column, row) between the nodes of both axes. */
function drawCells(plot, xNodes, yNodes, value, scale) {
  const x0 = Math.round(plot.left * SHARPNESS), y0 = Math.round(plot.top * SHARPNESS);
  const wide = Math.round(plot.width * SHARPNESS), tall = Math.round(plot.height * SHARPNESS);
  const image = plot.pen.createImageData(wide, tall);
  const columns = Int32Array.from({ length: wide }, (_, n) => cellOf(xNodes, plot.atX((x0 + n + 0.5) / SHARPNESS)));
  const rows = Int32Array.from({ length: tall }, (_, n) => cellOf(yNodes, plot.atY((y0 + n + 0.5) / SHARPNESS)));
  for (let row = 0; row < tall; row++) {
    for (let column = 0; column < wide; column++) {
      const colour = colourOf(scale, value(columns[column], rows[row]));
      const at = 4 * (row * wide + column);
      image.data[at] = colour[0];
      image.data[at + 1] = colour[1];
      image.data[at + 2] = colour[2];
      image.data[at + 3] = 255;
    }
  }
  plot.pen.putImageData(image, x0, y0);
  plot.pen.strokeStyle = INK;
  plot.pen.strokeRect(plot.left, plot.top, plot.width, plot.height);
}

/** A legend in the upper right corner, or the left one: pairs of text and colour. */
function drawLegend(plot, entries, onLeft) {
  const { pen } = plot;
  pen.font = FONT;
  const wide = Math.max(...entries.map(([text]) => pen.measureText(text).width)) + 30;
  const x = onLeft ? plot.left + 4 : plot.left + plot.width - wide - 4;
  pen.fillStyle = "rgba(255,255,255,0.8)";
  pen.fillRect(x, plot.top + 4, wide, 16 * entries.length + 4);
  pen.textAlign = "left";
  pen.textBaseline = "middle";
  entries.forEach(([text, colour], n) => {
    pen.fillStyle = colour;
    pen.fillRect(x + 4, plot.top + 12 + 16 * n, 16, 3);
    pen.fillStyle = INK;
    pen.fillText(text, x + 25, plot.top + 14 + 16 * n);
  });
}
