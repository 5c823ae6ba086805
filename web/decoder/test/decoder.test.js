// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// What a caller sees of the package, in the worker and without it.
import assert from "node:assert/strict";
import { test } from "node:test";

import { createDecoder, hasSimd, openSession } from "../lib/node.js";
import { Session } from "../lib/session.js";
import { md5, recordedMd5, stream } from "./support.js";

const camera = stream("o02_qcif_camera_q8.m4v");
const cameraMd5 = recordedMd5("o02_qcif_camera_q8", 0);

// A worker that is left behind would keep the process.
async function closing(t, opening) {
  const decoder = await opening;
  t.after(() => decoder.close());
  return decoder;
}

function* pieces(bytes, size) {
  for (let at = 0; at < bytes.length; at += size) yield bytes.subarray(at, at + size);
}

async function collect(results) {
  const all = [];
  for await (const result of results) all.push(result);
  return all;
}

async function md5sOf(decoder, parts) {
  const found = [];
  for (const part of [...parts, undefined]) {
    for await (const { frame, error } of part ? decoder.feed(part) : decoder.finish()) {
      assert.equal(error, undefined);
      found.push(md5(frame.pack()));
    }
  }
  return found;
}

test("Node has vector instructions", () => {
  assert.equal(hasSimd(), true);
});

test("a stream may come in pieces of any size", async (t) => {
  for (const size of [1, 7, 4096]) {
    const session = await openSession();
    assert.deepEqual(await md5sOf(session, pieces(camera, size)), cameraMd5);
    session.close();
  }
  const decoder = await closing(t, createDecoder());
  assert.deepEqual(await md5sOf(decoder, pieces(camera, 1000)), cameraMd5);
});

// As the native inspector tells it, whose macroblocks end where the encoder's stuffing begins.
test("frames tell of their macroblocks when they are asked to", async (t) => {
  const rotation = stream("o32_rotation_4mv.m4v");
  const check = ({ columns, rows, vectorUnits, values }) => {
    assert.deepEqual([columns, rows, vectorUnits, values.length], [22, 18, 2, 22 * 18 * 11]);
    const column = (at) => values.filter((_, i) => i % 11 === at);
    const [kinds, quants, bits] = [0, 1, 2].map(column);
    assert.deepEqual([0, 1, 2].map((kind) => kinds.filter((value) => value === kind).length), [2, 252, 142]);
    assert.deepEqual([...new Set(quants)].sort(), [0, 7]);
    assert.equal(bits.reduce((sum, value) => sum + value), 28214);
    assert.equal(bits.indexOf(Math.max(...bits)), 17 * 22 + 3);
    assert.equal(Math.max(...bits), 547);
    let longest = 0;
    for (let i = 0; i < values.length; i += 11) {
      for (let b = 3; b < 11; b += 2) longest = Math.max(longest, Math.hypot(values[i + b], values[i + b + 1]) / 2);
    }
    assert.equal(longest.toFixed(1), "12.8");
  };
  for (const simd of [true, false]) {
    const session = await openSession({ inspect: true, simd });
    check([...session.feed(rotation)][5].frame.macroblocks);
    session.close();
  }
  const decoder = await closing(t, createDecoder({ inspect: true }));
  check((await collect(decoder.feed(rotation)))[5].frame.macroblocks);
  await decoder.reset();
  assert.equal((await collect(decoder.feed(rotation)))[5].frame.macroblocks, undefined);
});

test("results tell where a chunk lies and what is in it", async (t) => {
  const session = await openSession({ lookAhead: 1 });
  const results = [...session.feed(camera), ...session.finish()];
  session.close();
  let offset = 0;
  for (const [number, result] of results.entries()) {
    assert.equal(result.number, number);
    assert.equal(result.offset, offset);
    assert.equal(result.coded, true);
    offset += result.bytes;
  }
  assert.equal(offset, camera.length);
  const { frame } = results[1];
  assert.equal(results[0].frame.type, "intra");
  assert.deepEqual([frame.type, frame.width, frame.height], ["predicted", 176, 144]);
  assert.deepEqual(
    frame.planes.map(({ width, height, pitch }) => [width, height, pitch]),
    [
      [176, 144, 176],
      [88, 72, 88],
      [88, 72, 88],
    ],
  );
  assert.deepEqual([frame.interlacing, results[0].frame.seconds, frame.seconds], ["progressive", 0, 1 / 30]);
  assert.deepEqual(frame.rate, { numerator: 30, denominator: 1 });
});

test("pictures of odd sizes are cropped", async (t) => {
  const session = await openSession();
  const [{ frame }] = session.feed(stream("o10_odd120x90_noise.m4v"));
  assert.deepEqual([frame.width, frame.height, frame.planes[0].pitch], [120, 90, 128]);
  assert.deepEqual([frame.planes[1].width, frame.planes[1].height, frame.planes[1].pitch], [60, 45, 64]);
  assert.equal(frame.pack().length, (120 * 90 * 3) / 2);
  session.close();
});

test("without the worker, samples are views of the module's memory", async (t) => {
  const session = await openSession();
  const [first, second] = [...session.feed(camera)].map(({ frame }) => frame.planes[0].samples);
  assert.equal(first.buffer, second.buffer);
  session.close();
});

test("from the worker, frames stay as they are until they are closed", async (t) => {
  const decoder = await closing(t, createDecoder());
  const frames = (await collect(decoder.feed(camera))).map(({ frame }) => frame);
  assert.deepEqual(
    frames.map((frame) => md5(frame.pack())),
    cameraMd5.slice(0, frames.length),
  );
  const { buffer } = frames[0].planes[0].samples;
  frames[0].close();
  frames[0].close();
  assert.equal(buffer.byteLength, 0);
  assert.equal(md5(frames[1].pack()), cameraMd5[1]);
});

test("memory of closed frames is used again", async (t) => {
  const decoder = await closing(t, createDecoder());
  for (let round = 0; round < 3; round++) {
    await decoder.reset();
    let number = 0;
    for (const results of [decoder.feed(camera), decoder.finish()]) {
      for await (const { frame } of results) {
        assert.equal(md5(frame.pack()), cameraMd5[number++]);
        frame.close();
      }
    }
    assert.equal(number, cameraMd5.length);
  }
});

test("what is left when an iteration is given up comes first in the next", async (t) => {
  for (const open of [createDecoder, openSession]) {
    const decoder = await closing(t, open());
    const numbers = [];
    for await (const { number } of decoder.feed(camera)) {
      numbers.push(number);
      if (number === 4) break;
    }
    for await (const { number } of decoder.feed(new Uint8Array(0))) {
      numbers.push(number);
      if (number === 9) break;
    }
    for await (const { number } of decoder.finish()) numbers.push(number);
    assert.deepEqual(
      numbers,
      cameraMd5.map((_, i) => i),
    );
  }
});

test("iterations that are started together come one after the other", async (t) => {
  const decoder = await closing(t, createDecoder());
  const half = camera.length / 2;
  const results = await Promise.all([
    collect(decoder.feed(camera.subarray(0, half))),
    collect(decoder.feed(camera.subarray(half))),
    collect(decoder.finish()),
  ]);
  assert.deepEqual(
    results.flat().map(({ frame }) => md5(frame.pack())),
    cameraMd5,
  );
});

test("after a reset another stream begins", async (t) => {
  const decoder = await closing(t, createDecoder());
  for await (const { number } of decoder.feed(camera)) if (number === 2) break;
  await decoder.reset({ intraOnly: true });
  const results = [...(await collect(decoder.feed(camera))), ...(await collect(decoder.finish()))];
  assert.equal(results.length, cameraMd5.length);
  assert.ok(results.every(({ frame, error }) => !error && (!frame || frame.type === "intra")));
  assert.equal(md5(results[0].frame.pack()), cameraMd5[0]);
});

test("errors are values, and decoding goes on", async (t) => {
  const damaged = Uint8Array.from(camera);
  damaged.fill(0xff, 9000, 9040);
  for (const open of [createDecoder, openSession]) {
    const decoder = await closing(t, open());
    const results = [...(await collect(decoder.feed(damaged))), ...(await collect(decoder.finish()))];
    const errors = results.filter(({ error }) => error).map(({ error }) => error);
    assert.equal(results.length, cameraMd5.length);
    assert.ok(errors.length > 0 && errors.length < 5, `${errors.length} errors`);
    assert.deepEqual(errors[0], {
      status: 0xa2c0001f,
      name: "ERR_VID_MPEG4DEC_COEFF",
      text: "the picture data are damaged",
    });
    assert.equal(results.at(-1).error, undefined);
  }
});

test("bytes that are no stream give an error", async (t) => {
  const decoder = await closing(t, createDecoder());
  const bytes = new Uint8Array(5000).map((_, i) => (i * 7919) >> 3);
  assert.deepEqual(await collect(decoder.feed(bytes)), []);
  const [{ error, frame }] = await collect(decoder.finish());
  assert.match(error.name, /^ERR_VID_MPEG4DEC_/);
  assert.equal(frame, undefined);
});

test("stacked fields are taken as an option", async (t) => {
  const session = await openSession({ fieldsStacked: true });
  const [{ frame, error }] = session.feed(camera);
  assert.equal(error, undefined);
  const plain = await openSession();
  const [{ frame: asCoded }] = plain.feed(camera);
  const row = (from, y) => md5(from.planes[0].samples.subarray(y * 176, y * 176 + 176));
  assert.equal(row(frame, 2), row(asCoded, 1));
  assert.equal(row(frame, 1), row(asCoded, 72));
  session.close();
  plain.close();
});

test("a closed decoder cannot be used, and ends iterations that go on", async (t) => {
  const decoder = await closing(t, createDecoder());
  let count = 0;
  for await (const { error } of decoder.feed(camera)) {
    assert.equal(error, undefined);
    if (++count === 1) decoder.close();
  }
  assert.ok(count < 10);
  await assert.rejects(collect(decoder.feed(camera)), /closed/);
  const session = await openSession();
  session.close();
  session.close();
  assert.throws(() => [...session.feed(camera)], /closed/);
});

test("a frame whose samples were moved elsewhere can be closed", async (t) => {
  const decoder = await closing(t, createDecoder());
  const frames = (await collect(decoder.feed(camera))).map(({ frame }) => frame);
  const { buffer } = frames[0].planes[0].samples;
  structuredClone(buffer, { transfer: [buffer] });
  frames[0].close();
  assert.equal(md5(frames[1].pack()), cameraMd5[1]);
});

test("only bytes can be fed", async (t) => {
  const decoder = await closing(t, createDecoder());
  const session = await openSession();
  for (const wrong of [undefined, "text", [0, 0, 1], new Uint16Array(2), new ArrayBuffer(4)]) {
    assert.throws(() => decoder.feed(wrong), TypeError);
    assert.throws(() => [...session.feed(wrong)], TypeError);
  }
  const [{ frame }] = session.feed(camera);
  assert.equal(md5(frame.pack()), cameraMd5[0]); // no harm was done
  session.close();
});

test("options that there are not are refused", async (t) => {
  await assert.rejects(createDecoder({ deblockThreshold: 20 }), /deblockThreshold is 10 or 30/);
  await assert.rejects(openSession({ deblockThreshold: 20 }), /deblockThreshold is 10 or 30/);
});

// A module whose memory ran out, as WebAssembly tells it.
test("a module that stops is the last error", () => {
  let calls = 0;
  const session = new Session({
    memory: new WebAssembly.Memory({ initial: 1 }),
    malloc: () => 1024,
    free() {},
    WebOpen: () => 1,
    WebFeed() {},
    WebNext() {
      calls++;
      throw new WebAssembly.RuntimeError("unreachable");
    },
    WebClose() {
      throw new WebAssembly.RuntimeError("unreachable");
    },
  });
  const results = [...session.feed(camera)];
  assert.equal(results.length, 1);
  assert.equal(results[0].number, -1);
  assert.match(results[0].error.text, /not enough memory/);
  assert.deepEqual([...session.feed(camera)], []);
  assert.equal(calls, 1);
  session.close();
});

test("a frame becomes a VideoFrame where there is such a thing", async (t) => {
  const made = [];
  globalThis.VideoFrame = class {
    constructor(samples, init) {
      made.push({ samples: Uint8Array.from(samples), ...init });
    }
  };
  const decoder = await closing(t, createDecoder());
  const [, { frame }] = await collect(decoder.feed(stream("o10_odd120x90_noise.m4v")));
  frame.toVideoFrame();
  frame.toVideoFrame({ timestamp: 5 });
  delete globalThis.VideoFrame;
  const [{ samples, layout, ...init }, { timestamp }] = made;
  assert.equal(timestamp, 5);
  assert.deepEqual([init.format, init.codedWidth, init.codedHeight, init.timestamp], ["I420", 120, 90, 66667]);
  assert.deepEqual([init.displayWidth, init.displayHeight], [120, 90]);
  assert.equal(init.colorSpace.matrix, "smpte170m");
  for (const [i, { offset, stride }] of layout.entries()) {
    const { width, height, pitch, samples: plane } = frame.planes[i];
    assert.equal(stride, pitch);
    for (let y = 0; y < height; y++) {
      const row = samples.subarray(offset + y * stride, offset + y * stride + width);
      assert.deepEqual(row, plane.subarray(y * pitch, y * pitch + width));
    }
  }
});
