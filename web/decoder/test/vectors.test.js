// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Replays the recorded sessions of tests/vectors through the C interface of both modules. As in the native replay,
// nothing but what DISPUTED tells may differ.
import assert from "node:assert/strict";
import { readFileSync, readdirSync } from "node:fs";
import { test } from "node:test";

import { load } from "../lib/load-node.js";
import { modules, root } from "./support.js";

const folder = `${root}/tests/vectors`;
const chunkPadding = 8;
const listMagic = 0xfedcba98;
const bufferBasis = [0x14650fb0, 0x739d0383];
const fnvBasis = [0xcbf29ce4, 0x84222325];

const hex = (value, digits = 1) => (value >>> 0).toString(16).padStart(digits, "0");

// FNV-1a 64, as its high and its low word. The prime is 2^40 + 0x1b3.
function fnv(bytes, [high, low]) {
  for (const byte of bytes) {
    const from = (low ^ byte) >>> 0;
    const product = from * 0x1b3;
    high = (Math.imul(high, 0x1b3) + Math.floor(product / 2 ** 32) + (from << 8)) >>> 0;
    low = product >>> 0;
  }
  return [high >>> 0, low >>> 0];
}

function parse(path) {
  const bytes = readFileSync(path);
  let at = 0;
  const word = () => bytes.readUInt32LE((at += 4) - 4);
  assert.equal(word(), 0x4334504d);
  const vector = { width: word(), height: word(), extMode: word(), records: [], chunks: [] };
  for (let count = word(); count > 0; count--) vector.records.push([word(), word(), word(), word()]);
  for (let count = word(); count > 0; count--) {
    const chunk = { headersOnly: word() === 1, flags: word(), endOfStream: word(), time: [word(), word()] };
    chunk.size = word();
    chunk.bytes = bytes.subarray(at, (at += chunk.size + chunkPadding));
    vector.chunks.push(chunk);
  }
  assert.equal(at, bytes.length);
  return vector;
}

// As in mp4vdec.h, on a processor of 32 bits; times lie at multiples of 8.
const params = { size: 20, width: 8, height: 12, extParam: 16 };
const input = { size: 32, bytes: 0, length: 4, time: 8, endOfStream: 16, flags: 20 };
const output = { size: 48, picture: 0, width: 4, height: 8, type: 12, ready: 16, reserved: 20, time: 32, endOfStream: 40 };

class Replay {
  #module;
  #blocks = [];

  constructor(module, vector) {
    this.#module = module;
    this.vector = vector;
    this.lines = [];
  }

  run() {
    const { width, height, chunks } = this.vector;
    this.size = Math.floor((width * height * 3) / 2);
    this.picture = this.#allocate(this.size, 0xa5);
    this.current = [width, height];
    const handle = this.#open();
    if (handle) {
      chunks.forEach((chunk, number) => this.#feed(handle, chunk, number));
      assert.equal(this.#module.Mp4vDecoderClose(handle), 0);
    }
    this.#blocks.forEach((block) => this.#module.free(block));
    return this.lines;
  }

  // Memory may have moved since the last look.
  #view(at) {
    return new DataView(this.#module.memory.buffer, at);
  }

  #bytes(at, size) {
    return new Uint8Array(this.#module.memory.buffer, at, size);
  }

  #allocate(size, fill = 0) {
    const at = this.#module.malloc(Math.max(size, 1));
    this.#bytes(at, size).fill(fill);
    this.#blocks.push(at);
    return at;
  }

  #open() {
    const { width, height } = this.vector;
    const at = this.#allocate(params.size, 0xff);
    const handle = this.#allocate(4);
    const extParam = this.#extension();
    this.#view(at).setUint32(params.width, width, true);
    this.#view(at).setUint32(params.height, height, true);
    this.#view(at).setUint32(params.extParam, extParam, true);
    const status = this.#module.Mp4vDecoderOpen(handle, at, this.#module.WebMemory());
    this.#add(`open width=${width} height=${height} status=${hex(status, 8)}`, false);
    return status === 0 ? this.#view(handle).getUint32(0, true) : 0;
  }

  #extension() {
    const { extMode, records } = this.vector;
    const words = (list) => {
      const at = this.#allocate(4 * list.length);
      list.forEach((value, i) => this.#view(at).setUint32(4 * i, value, true));
      return at;
    };
    const addresses = records.map(words);
    if (extMode === 1 && records.length > 0) return addresses[0];
    return extMode === 2 ? words([listMagic, records.length, words(addresses)]) : 0;
  }

  #feed(handle, chunk, number) {
    const bytes = this.#allocate(chunk.bytes.length);
    this.#bytes(bytes, chunk.bytes.length).set(chunk.bytes);
    const from = this.#allocate(input.size);
    const to = this.#allocate(output.size, 0xdd);
    const view = this.#view(from);
    view.setUint32(input.bytes, bytes, true);
    view.setUint32(input.length, chunk.size, true);
    chunk.time.forEach((value, i) => view.setUint32(input.time + 4 * i, value, true));
    view.setUint8(input.endOfStream, chunk.endOfStream);
    view.setUint32(input.flags, chunk.flags, true);
    this.#view(to).setUint32(output.picture, this.picture, true);

    const status = chunk.headersOnly
      ? this.#module.Mp4vPreDecBs(handle, from, to + output.width, to + output.height)
      : this.#module.Mp4vDecoderProcess(handle, from, to);
    const result = this.#view(to);
    const word = (offset) => result.getUint32(offset, true);
    assert.equal(word(output.picture), this.picture);
    assert.deepEqual([word(output.reserved), word(output.reserved + 4)], [0xdddddddd, 0xdddddddd]);
    assert.deepEqual(Buffer.from(this.#bytes(bytes, chunk.bytes.length)), chunk.bytes, "the chunk was written");
    const reported = chunk.headersOnly ? word(output.width) !== 0xdddddddd : status === 0;
    if (reported) this.current = [word(output.width), word(output.height)];
    const time = hex(word(output.time + 4)) + hex(word(output.time), 8);
    const fields = [
      `${number} ${chunk.headersOnly ? "predec" : "process"} status=${hex(status, 8)}`,
      `width=${hex(word(output.width))} height=${hex(word(output.height))}`,
      `type=${hex(word(output.type))} ready=${hex(word(output.ready))}`,
      `time=${time.replace(/^0+(?=.)/, "")} eos=${hex(result.getUint8(output.endOfStream))}`,
      `buffer=${fnv(this.#bytes(this.picture, this.size), bufferBasis).map((half) => hex(half, 8)).join("")}`,
    ];
    this.#add(fields.join(" "), !chunk.headersOnly && status === 0);
  }

  #add(text, delivered) {
    const digests = delivered ? macroblockDigests(this.#bytes(this.picture, this.size), ...this.current) : undefined;
    this.lines.push({ text, digests });
  }
}

function macroblockDigests(picture, width, height) {
  const luma = width * height;
  if ((luma * 3) / 2 > picture.length) return "";
  const half = [width >> 1, height >> 1, 8];
  const planes = [
    [0, width, height, 16],
    [luma, ...half],
    [luma + (luma >> 2), ...half],
  ];
  let digests = "";
  for (let row = 0; row < Math.ceil(height / 16); row++) {
    for (let column = 0; column < Math.ceil(width / 16); column++) {
      let hash = fnvBasis;
      for (const [offset, planeWidth, planeHeight, block] of planes) {
        const right = Math.min((column + 1) * block, planeWidth);
        const bottom = Math.min((row + 1) * block, planeHeight);
        for (let y = row * block; y < bottom && column * block < right; y++) {
          hash = fnv(picture.subarray(offset + y * planeWidth + column * block, offset + y * planeWidth + right), hash);
        }
      }
      const folded = hash[0] ^ hash[1];
      digests += hex((folded ^ (folded >>> 16)) & 0xffff, 4);
    }
  }
  return digests;
}

const withoutBuffer = (text) => text.replace(/ buffer=.*/, "");

// What differs first; undefined: nothing. `extent` as in DISPUTED, or "all".
function difference(lines, expected, extent) {
  if (lines.length !== expected.length) return `${lines.length} lines instead of ${expected.length}`;
  for (const [i, { text, digests }] of lines.entries()) {
    const [want, wantDigests] = expected[i].split(" mb=");
    const same = extent === "all" ? text === want : withoutBuffer(text) === withoutBuffer(want);
    if (!same) return `want ${want}\n     got  ${text}`;
    const comparable = extent !== "records" && digests !== undefined && digests.length === wantDigests?.length;
    if (comparable && digests !== wantDigests) return `other macroblocks at ${text}`;
  }
  return undefined;
}

const disputed = new Map(
  readFileSync(`${folder}/DISPUTED`, "utf8")
    .split("\n")
    .filter((line) => line && !line.startsWith("#"))
    .map((line) => line.split(" ", 2)),
);
const names = readdirSync(folder, { withFileTypes: true })
  .filter((entry) => entry.isDirectory())
  .flatMap(({ name }) => readdirSync(`${folder}/${name}`).map((file) => `${name}/${file}`))
  .filter((name) => name.endsWith(".case"))
  .map((name) => name.slice(0, -".case".length));

for (const { name: moduleName, simd } of modules) {
  test(`the module ${moduleName} gives the recorded results of all cases`, async () => {
    const module = await load(simd);
    const failures = [];
    for (const name of names) {
      const lines = new Replay(module, parse(`${folder}/${name}.case`)).run();
      const expected = readFileSync(`${folder}/${name}.expect`, "utf8").trimEnd().split("\n");
      const extent = disputed.get(name);
      const found = difference(lines, expected, extent ?? "all");
      if (found) failures.push(`${name}: ${found}`);
      if (extent && !difference(lines, expected, "all")) failures.push(`${name} agrees, but is listed as disputed`);
    }
    assert.deepEqual(failures, []);
    assert.equal(names.length, 624);
  });
}

test("the replay notices another sample, status or number of lines", () => {
  const text = "0 process status=00000000 buffer=1111111111111111";
  const lines = [{ text, digests: "abcd" }];
  assert.equal(difference(lines, [`${text} mb=abcd`], "all"), undefined);
  assert.match(difference(lines, [`${text} mb=abce`], "all"), /other macroblocks/);
  assert.match(difference(lines, [`${text} mb=abce`], "pictures"), /other macroblocks/);
  assert.equal(difference(lines, [`${text} mb=abce`], "records"), undefined);
  assert.match(difference(lines, [text.replace("1111", "2222")], "all"), /want/);
  assert.equal(difference(lines, [text.replace("1111", "2222")], "pictures"), undefined);
  assert.match(difference(lines, [text.replace("00000000", "00000001")], "records"), /want/);
  assert.match(difference(lines, [], "all"), /1 lines instead of 0/);
});

test("the hash has its published values", () => {
  assert.deepEqual(fnv(Buffer.from("a"), fnvBasis), [0xaf63dc4c, 0x8601ec8c]);
  assert.deepEqual(fnv(Buffer.from("foobar"), fnvBasis), [0x85944171, 0xf73967e8]);
});
