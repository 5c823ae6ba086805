// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// A session of the WebAssembly module, in the thread that calls. What the module exports stands in source/module.cpp.

// A module of one function whose body takes two vector instructions.
const vectorModule = new Uint8Array([
  0, 97, 115, 109, 1, 0, 0, 0, 1, 5, 1, 96, 0, 1, 123, 3, 2, 1, 0, 10, 10, 1, 8, 0, 65, 0, 253, 15, 253, 98, 11,
]);

export function hasSimd() {
  return WebAssembly.validate(vectorModule);
}

const imports = {
  env: { emscripten_notify_memory_growth() {} },
  wasi_snapshot_preview1: {
    proc_exit(code) {
      throw new Error(`the decoder ended with ${code}`);
    },
  },
};

/** What a response or bytes hold, as an instance that is ready to use. */
export async function instantiate(source) {
  const { instance } = await compile(source);
  instance.exports._initialize();
  return instance.exports;
}

async function compile(source) {
  if (!(source instanceof Response)) return WebAssembly.instantiate(source, imports);
  if (!source.ok) throw new Error(`${source.url}: ${source.status} ${source.statusText}`);
  // Servers that do not know the type of .wasm files are common.
  if (source.headers.get("Content-Type") !== "application/wasm") {
    return WebAssembly.instantiate(await source.arrayBuffer(), imports);
  }
  return WebAssembly.instantiateStreaming(source, imports);
}

const valuesPerMacroblock = 11;
const types = [undefined, "intra", "predicted", "not-coded"];
const hdHeight = 720; // from here on pictures are taken for BT.709, smaller ones for BT.601: a stream seldom tells
const interlacings = { p: "progressive", t: "top-first", b: "bottom-first", m: "mixed" };
/** A result that is not about a chunk. */
export function failureOf(text) {
  return { number: -1, offset: -1, bytes: 0, coded: false, error: { status: 0, name: "", text } };
}

export function checkBytes(bytes) {
  if (!ArrayBuffer.isView(bytes) || bytes.BYTES_PER_ELEMENT !== 1) throw new TypeError("feed() takes a Uint8Array");
}

const brokenText = "there is not enough memory, or the decoder failed";

/** One elementary stream. */
export class Session {
  #module;
  #session;
  #broken = false;
  #inspects;

  constructor(module, options = {}) {
    const { deblockThreshold = 10, intraOnly, deinterlace, fieldsStacked, lookAhead = 0, inspect = false } = options;
    if (deblockThreshold !== 10 && deblockThreshold !== 30) throw new RangeError("deblockThreshold is 10 or 30");
    this.#module = module;
    this.#inspects = inspect;
    const flags = (deblockThreshold > 10) | (!!intraOnly << 1) | (!!deinterlace << 2) | (!!fieldsStacked << 3);
    this.#session = module.WebOpen(flags, lookAhead);
  }

  *feed(bytes) {
    checkBytes(bytes);
    yield* this.#results(() => {
      if (bytes.length === 0) return;
      const at = this.#module.malloc(bytes.length);
      if (at === 0) throw new Error(brokenText);
      new Uint8Array(this.#module.memory.buffer).set(bytes, at);
      this.#module.WebFeed(this.#session, at, bytes.length);
      this.#module.free(at);
    });
  }

  *finish() {
    yield* this.#results(() => this.#module.WebFinish(this.#session));
  }

  close() {
    if (this.#session && !this.#broken) this.#module.WebClose(this.#session);
    this.#session = 0;
  }

  *#results(take) {
    if (!this.#session) throw new Error("the decoder is closed");
    if (this.#broken) return;
    try {
      take();
    } catch {
      yield this.#giveUp();
    }
    while (!this.#broken && this.#session) {
      let result;
      try {
        result = this.#next();
      } catch {
        result = this.#giveUp();
      }
      if (!result) return;
      yield result;
    }
  }

  // A module that ran out of memory stopped in the middle of things.
  #giveUp() {
    this.#broken = true;
    return failureOf(brokenText);
  }

  #next() {
    const at = this.#module.WebNext(this.#session);
    if (at === 0) return undefined;
    // First, for it may take memory, and views do not outlive that.
    const macroblocks = this.#inspects ? this.#inspect() : undefined;
    const { buffer } = this.#module.memory;
    const view = new DataView(buffer, at, 124);
    const word = (offset) => view.getUint32(offset, true);
    const result = {
      number: view.getFloat64(0, true),
      offset: view.getFloat64(8, true),
      bytes: word(24),
      coded: word(28) !== 0,
    };
    if (word(36)) result.error = { status: word(32), name: text(buffer, word(40)), text: text(buffer, word(36)) };
    if (word(44)) {
      const seconds = view.getFloat64(16, true);
      const planes = [56, 72, 88].map((offset) => {
        const [samples, width, height, pitch] = [0, 4, 8, 12].map((member) => word(offset + member));
        return { samples: new Uint8Array(buffer, samples, pitch * height), width, height, pitch };
      });
      result.frame = new Frame({
        type: types[word(44)],
        width: word(48),
        height: word(52),
        seconds: Number.isNaN(seconds) ? undefined : seconds,
        rate: { numerator: word(104), denominator: word(108) },
        aspect: { numerator: word(112), denominator: word(116) },
        interlacing: interlacings[String.fromCharCode(word(120))],
        planes,
        ...(macroblocks && { macroblocks }),
      });
    }
    return result;
  }

  #inspect() {
    const at = this.#module.WebInspect(this.#session);
    const { buffer } = this.#module.memory;
    const [columns, rows, vectorUnits, count, values] = new Uint32Array(buffer, at, 5);
    return { columns, rows, vectorUnits, values: new Int32Array(buffer, values, count * valuesPerMacroblock).slice() };
  }
}

function text(buffer, at) {
  const bytes = new Uint8Array(buffer, at);
  return String.fromCharCode(...bytes.subarray(0, bytes.indexOf(0)));
}

/** A picture as planar 4:2:0, cropped to the stream's own size. */
export class Frame {
  #release;

  constructor(members, release) {
    Object.assign(this, members);
    this.#release = release;
  }

  /** Y, U and V without gaps. */
  pack() {
    const size = ({ width, height }) => width * height;
    const packed = new Uint8Array(this.planes.reduce((sum, plane) => sum + size(plane), 0));
    let at = 0;
    for (const { samples, width, height, pitch } of this.planes) {
      for (let y = 0; y < height; y++, at += width) packed.set(samples.subarray(y * pitch, y * pitch + width), at);
    }
    return packed;
  }

  toVideoFrame(init = {}) {
    const [y, , v] = this.planes;
    const start = y.samples.byteOffset;
    const samples = new Uint8Array(y.samples.buffer, start, v.samples.byteOffset + v.samples.length - start);
    const colors = this.height >= hdHeight ? "bt709" : "smpte170m";
    const aspect = this.aspect.denominator ? this.aspect.numerator / this.aspect.denominator : 1;
    return new VideoFrame(samples, {
      format: "I420",
      codedWidth: this.width + (this.width & 1),
      codedHeight: this.height + (this.height & 1),
      visibleRect: { x: 0, y: 0, width: this.width, height: this.height },
      displayWidth: Math.max(1, Math.round(this.width * aspect)),
      displayHeight: this.height,
      layout: this.planes.map((plane) => ({ offset: plane.samples.byteOffset - start, stride: plane.pitch })),
      colorSpace: { matrix: colors, primaries: colors, transfer: colors, fullRange: false },
      timestamp: Math.round((this.seconds ?? 0) * 1e6),
      ...init,
    });
  }

  /** Gives the samples' memory back. They are not there any more afterwards. */
  close() {
    this.#release?.();
    this.#release = undefined;
  }
}
