// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// What the worker does: it decodes one picture for each that it is asked for, and moves it out of the module's memory.
import { Session } from "./session.js";

const spareBuffers = 8;

/** Serves the decoder at the other end of `port`. `load(simd)` gives the module. */
export function serve(port, load) {
  let module, session, results;
  const spare = [];

  function move(frame) {
    const [y, , v] = frame.planes;
    const first = y.samples.byteOffset;
    const size = v.samples.byteOffset + v.samples.length - first;
    let buffer = spare.pop();
    if (buffer?.byteLength !== size) {
      spare.length = 0;  // another size is here
      buffer = new ArrayBuffer(size);
    }
    new Uint8Array(buffer).set(new Uint8Array(y.samples.buffer, first, size));
    frame.planes = frame.planes.map(({ samples, ...plane }) => ({ ...plane, offset: samples.byteOffset - first }));
    return buffer;
  }

  // One answer for each that is asked for: a result, or that there is none for now.
  function answer() {
    const result = results?.next();
    if (!result || result.done) return port.postMessage({ done: true });
    const { frame, ...rest } = result.value;
    if (!frame) return port.postMessage({ result: rest });
    const buffer = move(frame);
    port.postMessage({ result: rest, frame: { ...frame }, buffer }, [buffer]);
  }

  const handlers = {
    async open({ options, simd }) {
      try {
        module = await load(simd);
        session = new Session(module, options);
        port.postMessage({ ready: true });
      } catch (error) {
        port.postMessage({ failure: error.message });
      }
    },
    feed({ bytes }) {
      results = session.feed(bytes);
    },
    finish() {
      results = session.finish();
    },
    ask({ count }) {
      for (let i = 0; i < count; i++) answer();
    },
    reset({ options }) {
      session.close();
      session = new Session(module, options);
      results = undefined;
    },
    recycle({ buffer }) {
      if (spare.length < spareBuffers) spare.push(buffer);
    },
  };
  return (message) => handlers[message.kind](message);
}
