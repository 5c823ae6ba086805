// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The page: takes a file, and plays it at its own pace.
import { createDisplay } from "./display.js";
import { MovieDecoder } from "./movie-decoder.js";
import { readMovie } from "./movie.js";
import { drawOverlay } from "./overlay.js";

const element = (id) => document.getElementById(id);
const display = createDisplay(element("picture"));

/** What plays now. */
class Player {
  #results;
  #turn = Promise.resolve();
  #stopped = false;
  #run = 0; // changes when playing begins or ends
  playing = false;
  index = -1; // of the picture shown; -1: none
  errors = 0;
  rate = undefined;

  constructor(movie, decoder) {
    this.movie = movie;
    this.decoder = decoder;
    this.last = movie.units.length - 1;
  }

  secondsOf(index) {
    const interval = 1 / (this.rate ?? 25);
    if (index > this.last) return this.secondsOf(this.last) + interval;
    return this.movie.units[index].seconds ?? index * interval;
  }

  // One thing after the other: a step that is asked for while a seek goes on comes after it.
  #inTurn(work) {
    const done = this.#turn.then(() => (this.#stopped ? undefined : work()));
    this.#turn = done.catch(() => {});
    return done;
  }

  #show(frame, index) {
    if (this.#stopped) return frame.close();
    const { numerator, denominator } = frame.rate;
    if (numerator && denominator) this.rate ??= numerator / denominator;
    display.show(frame);
    if (this.frame === undefined) this.frame = { ...frame };
    this.shown = { width: frame.width, height: frame.height, macroblocks: frame.macroblocks };
    this.index = index;
    frame.close();
    onShown();
  }

  // The next result; pictures are taken along to be shown or closed.
  async #next() {
    this.#results ??= this.decoder.resultsFrom(0);
    const { value, done } = await this.#results.next();
    if (done) return undefined;
    if (value.error) {
      this.errors++;
      this.firstError ??= value.error;
      if (!this.#stopped) onError(value.error, value.index);
    }
    return value;
  }

  /** Shows the next picture that can be decoded. False: there is none. */
  step() {
    return this.#inTurn(async () => {
      for (let result = await this.#next(); result; result = await this.#next()) {
        if (!result.frame) continue;
        this.#show(result.frame, result.index);
        return true;
      }
      return false;
    });
  }

  /** Shows picture `index`, or where that is damaged the next one. */
  seek(index) {
    return this.#inTurn(async () => {
      const target = Math.min(Math.max(index, 0), this.last);
      const ahead = this.index >= 0 && target > this.index && this.decoder.intraBefore(target) <= this.index;
      if (!ahead || !this.#results) {
        await this.#results?.return();
        this.#results = this.decoder.resultsFrom(target);
      }
      let held; // at the end of a damaged movie the last good picture is shown
      for (let result = await this.#next(); result; result = await this.#next()) {
        if (!result.frame) continue;
        held?.frame.close();
        held = result;
        if (result.index >= target) break;
      }
      if (held) this.#show(held.frame, held.index);
    });
  }

  /** Has frames tell of their macroblocks, or not, from the present one on. */
  async inspect(wanted) {
    if (this.decoder.inspect === wanted) return;
    this.decoder.inspect = wanted;
    await this.seek(this.index);
  }

  async play() {
    if (this.playing) return;
    const run = ++this.#run;
    const going = () => this.#run === run;
    this.playing = true;
    onState();
    if (this.index >= this.last) await this.seek(0);
    let from = this.#anchor();
    let shown = this.index;
    while (going()) {
      if (this.index !== shown || from.speed !== speed()) from = this.#anchor();
      const passed = (this.secondsOf(this.index + 1) - this.secondsOf(from.index)) / from.speed;
      const wait = from.now + passed * 1000 - performance.now();
      if (wait > 0) await new Promise((resolve) => setTimeout(resolve, wait));
      // Too slow a machine plays slowly instead of hurrying after.
      if (wait < -200) from = this.#anchor();
      if (!going()) return;
      if (!(await this.step())) {
        if (!going()) return;
        if (!element("loop").checked) break;
        await this.seek(0);
        from = this.#anchor();
      }
      shown = this.index;
    }
    if (going()) this.pause();
  }

  #anchor() {
    return { index: this.index, now: performance.now(), speed: speed() };
  }

  pause() {
    this.#run++;
    this.playing = false;
    onState();
  }

  stop() {
    this.#stopped = true;
    this.#run++;
    this.decoder.close();
  }
}

let player;
let opening = 0;

function say(text) {
  element("message").textContent = text;
}

function speed() {
  return Number(element("speed").value);
}

function clock(seconds) {
  const whole = Math.floor(seconds);
  const minutes = String(Math.floor(whole / 60));
  return `${minutes}:${String(whole % 60).padStart(2, "0")}.${String(Math.floor((seconds % 1) * 100)).padStart(2, "0")}`;
}

function onShown() {
  const { index, last } = player;
  element("position").value = index;
  const text = `${clock(player.secondsOf(index))}, picture ${index + 1} of ${last + 1}`;
  element("time").textContent = text;
  element("position").setAttribute("aria-valuetext", text);
  markPosition();
  showOverlay();
}

// Over the picture, wherever the page has put that.
function showOverlay() {
  const [overlay, picture] = [element("overlay"), element("picture")];
  const what = element("show").value;
  const macroblocks = player?.shown?.macroblocks;
  overlay.hidden = !what || !macroblocks;
  if (overlay.hidden) return element("key").replaceChildren();
  for (const [side, value] of Object.entries({
    left: picture.offsetLeft,
    top: picture.offsetTop,
    width: picture.clientWidth,
    height: picture.clientHeight,
  })) {
    overlay.style[side] = `${value}px`;
  }
  const key = drawOverlay(overlay, what, macroblocks, player.shown);
  element("key").replaceChildren(
    ...key.map(([text, color]) => {
      const entry = document.createElement("span");
      entry.textContent = text;
      entry.style.setProperty("--color", color);
      return entry;
    }),
  );
}

function onError(error, index) {
  say(`Picture ${index + 1} could not be decoded: ${error.text}.`);
}

function onState() {
  element("play").textContent = player?.playing ? "Pause" : "Play";
}

async function open(file) {
  const turn = ++opening;
  player?.stop();
  player = undefined;
  element("player").hidden = true;
  say(`${file.name} is being read.`);
  const bytes = new Uint8Array(await file.arrayBuffer());
  const movie = await readMovie(bytes).catch((error) => ({ problem: `This file cannot be read: ${error.message}.` }));
  if (turn !== opening) return;
  if (movie.problem) return say(movie.problem);
  const decoder = await MovieDecoder.open(movie).catch((error) => say(`The decoder could not be loaded: ${error.message}.`));
  if (turn !== opening) return decoder?.close();
  if (!decoder) return;
  decoder.inspect = element("show").value !== "";
  player = new Player(movie, decoder);
  element("position").max = player.last;
  const shown = await player.step();
  if (turn !== opening) return;
  if (!shown) {
    const { firstError } = player;
    player.stop();
    return say(`This video cannot be played: ${firstError?.text ?? "there is no picture in it"}.`);
  }
  if (player.errors === 0) say("");
  element("player").hidden = false;
  describe(file);
  drawBits();
  onState();
  void player.play();
}

function describe(file) {
  const { movie, frame, rate, last } = player;
  const { numerator, denominator } = frame.aspect;
  const length = player.secondsOf(last + 1);
  const rows = {
    File: `${file.name}, ${file.size.toLocaleString("en")} bytes`,
    Kind: movie.kind,
    Size: `${frame.width} x ${frame.height}`,
    "Sample shape": denominator ? `${numerator}:${denominator}` : "not told",
    Pictures: `${last + 1}, ${movie.units.filter(({ intra }) => intra).length} of them intra`,
    Rate: rate ? `${+rate.toFixed(3)} per second` : "not told",
    Length: clock(length),
    Scan: { progressive: "progressive", mixed: "progressive and interlaced" }[frame.interlacing] ?? `interlaced, ${frame.interlacing.replace("-", " field ")}`,
    Decoder: `${player.decoder.decoder.simd ? "with" : "without"} vector instructions; drawn by ${display.name}`,
  };
  element("about").replaceChildren(
    ...Object.entries(rows).flatMap(([name, value]) => {
      const term = document.createElement("dt");
      const text = document.createElement("dd");
      term.textContent = name;
      text.textContent = value;
      return [term, text];
    }),
  );
}

// The timeline: a column per picture, or per few of them, as high as its bits.
let bitsImage;

function drawBits() {
  if (!player || element("player").hidden) return;
  const shown = element("bits");
  shown.width = Math.max(1, Math.round(shown.clientWidth * devicePixelRatio));
  shown.height = Math.max(1, Math.round(shown.clientHeight * devicePixelRatio));
  const canvas = new OffscreenCanvas(shown.width, shown.height);
  const context = canvas.getContext("2d");
  const { units } = player.movie;
  const style = getComputedStyle(shown);
  const columns = Math.min(units.length, canvas.width);
  const most = units.reduce((found, { bytes }) => Math.max(found, bytes.length), 1);
  for (let column = 0; column < columns; column++) {
    const from = Math.floor((column * units.length) / columns);
    const to = Math.max(from + 1, Math.floor(((column + 1) * units.length) / columns));
    let tallest = units[from];
    for (const unit of units.slice(from, to)) if (unit.bytes.length > tallest.bytes.length) tallest = unit;
    const height = Math.max(1, (tallest.bytes.length / most) * canvas.height);
    context.fillStyle = tallest.intra ? style.getPropertyValue("--intra") : style.getPropertyValue("--bar");
    const x = (column * canvas.width) / columns;
    context.fillRect(x, canvas.height - height, Math.max(1, canvas.width / columns - (columns * 3 < canvas.width ? 1 : 0)), height);
  }
  bitsImage = canvas;
  markPosition();
}

function markPosition() {
  if (!bitsImage || !player) return;
  const canvas = element("bits");
  const context = canvas.getContext("2d");
  context.clearRect(0, 0, canvas.width, canvas.height);
  context.drawImage(bitsImage, 0, 0);
  context.fillStyle = getComputedStyle(canvas).color;
  context.fillRect(((player.index + 0.5) * canvas.width) / (player.last + 1), 0, Math.max(1, devicePixelRatio), canvas.height);
}

async function stepOn() {
  player.pause();
  if (player.index < player.last) await player.step();
}

function seek(index) {
  player.pause();
  return player.seek(index);
}

function nextIntra(from, direction) {
  const { units } = player.movie;
  let at = from + direction;
  while (at > 0 && at < player.last && !units[at].intra) at += direction;
  return Math.min(Math.max(at, 0), player.last);
}

function save() {
  element("picture").toBlob((blob) => {
    const link = document.createElement("a");
    link.href = URL.createObjectURL(blob);
    link.download = `picture-${player.index + 1}.png`;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 1000);
  });
}

const actions = {
  play: () => (player.playing ? player.pause() : void player.play()),
  back: () => seek(player.index - 1),
  step: stepOn,
  "intra-back": () => seek(nextIntra(player.index, -1)),
  "intra-on": () => seek(nextIntra(player.index, 1)),
  full: () => (document.fullscreenElement ? document.exitFullscreen() : element("stage").requestFullscreen()),
  save,
};
const keys = {
  " ": "play",
  k: "play",
  ArrowLeft: "back",
  ArrowRight: "step",
  PageUp: "intra-back",
  PageDown: "intra-on",
  f: "full",
  s: "save",
};

for (const [id, action] of Object.entries(actions)) element(id).addEventListener("click", () => player && action());
document.addEventListener("keydown", (event) => {
  const own = event.target.closest("select, button, summary, label, input");
  if (!player || event.ctrlKey || event.metaKey || event.altKey || (own && (event.key === " " || own.id !== "position"))) return;
  const id = keys[event.key];
  if (!id) return;
  event.preventDefault();
  actions[id]();
});

// While the handle is dragged only the latest place counts.
let wanted;
element("position").addEventListener("input", async ({ target }) => {
  const busy = wanted !== undefined;
  wanted = Number(target.value);
  if (busy || !player) return;
  while (wanted !== undefined && player) {
    const index = wanted;
    await seek(index);
    if (wanted === index) wanted = undefined;
  }
});
element("bits").addEventListener("click", (event) => {
  if (player) void seek(Math.floor((event.offsetX / element("bits").clientWidth) * (player.last + 1)));
});

element("file").addEventListener("change", ({ target }) => target.files[0] && open(target.files[0]));
document.addEventListener("dragover", (event) => {
  event.preventDefault();
  document.body.classList.add("dropping");
});
document.addEventListener("dragleave", (event) => event.relatedTarget ?? document.body.classList.remove("dropping"));
document.addEventListener("drop", (event) => {
  event.preventDefault();
  document.body.classList.remove("dropping");
  const [file] = event.dataTransfer.files;
  if (file) void open(file);
});
element("show").addEventListener("change", async ({ target }) => {
  await player?.inspect(target.value !== "");
  showOverlay();
});
addEventListener("resize", () => {
  drawBits();
  showOverlay();
});
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawBits);

if (import.meta.env.PROD && "serviceWorker" in navigator) void navigator.serviceWorker.register("sw.js");
