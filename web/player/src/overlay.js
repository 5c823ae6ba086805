// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Draws what a picture consists of over it, as "mp4vdec inspect" does in its PNG files.
const valuesPerMacroblock = 11;
const [interKind, fourKind, fieldKind, intraKind] = [1, 2, 3, 4];
const kinds = [
  ["not coded", "#8c8c8c"],
  ["inter", "#2673d9"],
  ["inter 4V", "#0da666"],
  ["inter field", "#994dcc"],
  ["intra", "#e63326"],
  ["invalid", "#ff00e6"],
];
const [vectorColor, topColor, bottomColor] = ["#ffd91a", "#33e6ff", "#ff73e6"];
const heatStops = ["#440154", "#3b528b", "#21918c", "#5ec962", "#fde725"].map((color) =>
  [1, 3, 5].map((at) => parseInt(color.slice(at, at + 2), 16)),
);

// `value` in [0, 1]
function heat(value) {
  const at = Math.min(Math.max(value, 0), 1) * (heatStops.length - 1);
  const i = Math.min(Math.floor(at), heatStops.length - 2);
  return `rgb(${heatStops[i].map((from, c) => Math.round(from + (heatStops[i + 1][c] - from) * (at - i))).join(" ")})`;
}

/** Macroblock by macroblock: { column, row, kind, quant, bits, vectors }. */
export function* macroblocksOf({ columns, values }) {
  for (let at = 0, i = 0; at < values.length; at += valuesPerMacroblock, i++) {
    const [kind, quant, bits, ...vectors] = values.subarray(at, at + valuesPerMacroblock);
    yield { column: i % columns, row: Math.floor(i / columns), kind, quant, bits, vectors };
  }
}

/**
 * Draws on `canvas`, which lies over the picture. Returns what the colours mean: [text, color] each.
 * `size`: { width, height } of the picture in samples.
 */
export function drawOverlay(canvas, what, macroblocks, size) {
  canvas.width = Math.max(1, Math.round(canvas.clientWidth * devicePixelRatio));
  canvas.height = Math.max(1, Math.round(canvas.clientHeight * devicePixelRatio));
  const context = canvas.getContext("2d");
  context.scale(canvas.width / size.width, canvas.height / size.height);
  const pixel = size.width / canvas.width; // in samples
  const tint = ({ column, row }, color, alpha) => {
    context.globalAlpha = alpha;
    context.fillStyle = color;
    context.fillRect(column * 16, row * 16, 16, 16);
    context.globalAlpha = 1;
  };
  return drawers[what]([...macroblocksOf(macroblocks)], { context, tint, pixel, units: macroblocks.vectorUnits });
}

function drawTypes(list, { tint }) {
  const counts = kinds.map(() => 0);
  for (const mb of list) {
    counts[mb.kind]++;
    tint(mb, kinds[mb.kind][1], mb.kind === 0 ? 0.12 : 0.5);
  }
  return kinds.flatMap(([name, color], kind) => (counts[kind] ? [[`${counts[kind]} ${name}`, color]] : []));
}

function drawHeat(list, tint, name, valueOf, low, high, scale) {
  for (const mb of list) if (valueOf(mb) > 0) tint(mb, heat(scale((valueOf(mb) - low) / (high - low))), 0.65);
  return [
    [`${name} ${low}`, heat(0)],
    [`${high}`, heat(1)],
  ];
}

function drawQuantisers(list, { tint }) {
  const quants = list.map(({ quant }) => quant).filter((quant) => quant > 0);
  const low = quants.reduce((least, quant) => Math.min(least, quant), 31);
  const high = quants.reduce((most, quant) => Math.max(most, quant), low + 8);
  return drawHeat(list, tint, "quantiser", ({ quant }) => quant, low, high, (value) => value);
}

function drawBits(list, { tint }) {
  const most = list.reduce((found, { bits }) => Math.max(found, bits), 1);
  return drawHeat(list, tint, "bits", ({ bits }) => bits, 0, most, Math.sqrt);
}

function drawVectors(list, { context, tint, pixel, units }) {
  const arrow = (x, y, vx, vy, color) => {
    const [dx, dy] = [vx / units, vy / units];
    const length = Math.hypot(dx, dy);
    if (length === 0) return;
    const head = Math.min(3, length / 2) / length;
    for (const [width, style] of [
      [3 * pixel, "#0009"],
      [1.4 * pixel, color],
    ]) {
      context.lineWidth = width;
      context.strokeStyle = style;
      context.beginPath();
      context.moveTo(x, y);
      context.lineTo(x + dx, y + dy);
      context.moveTo(x + dx - (dx + dy / 2) * head, y + dy - (dy - dx / 2) * head);
      context.lineTo(x + dx, y + dy);
      context.lineTo(x + dx - (dx - dy / 2) * head, y + dy - (dy + dx / 2) * head);
      context.stroke();
    }
  };
  context.lineCap = "round";
  for (const mb of list) if (mb.kind === intraKind) tint(mb, kinds[intraKind][1], 0.3);
  for (const { column, row, kind, vectors } of list) {
    const [x, y] = [column * 16 + 8, row * 16 + 8];
    if (kind === interKind) arrow(x, y, vectors[0], vectors[1], vectorColor);
    if (kind === fieldKind) {
      arrow(x - 2, y, vectors[0], vectors[1], topColor);
      arrow(x + 2, y, vectors[2], vectors[3], bottomColor);
    }
    for (let b = 0; b < 4 && kind === fourKind; b++) {
      arrow(x + (b & 1 ? 4 : -4), y + (b & 2 ? 4 : -4), vectors[2 * b], vectors[2 * b + 1], vectorColor);
    }
  }
  const fields = list.some(({ kind }) => kind === fieldKind);
  return [
    ["vector, to where the block is predicted from", vectorColor],
    ...(fields ? [["top field", topColor], ["bottom field", bottomColor]] : []),
    [kinds[intraKind][0], kinds[intraKind][1]],
  ];
}

const drawers = { types: drawTypes, vectors: drawVectors, quantiser: drawQuantisers, bits: drawBits };
