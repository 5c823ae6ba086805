// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// index.js for Node.
import { Worker } from "node:worker_threads";

import { createDecoderWith } from "./decoder.js";
import { load } from "./load-node.js";
import { Session, hasSimd } from "./session.js";

export { hasSimd };

export function createDecoder(options) {
  return createDecoderWith(() => {
    const worker = new Worker(new URL("./worker-node.js", import.meta.url));
    const ends = {
      post: (message, transfer) => worker.postMessage(message, transfer),
      stop: () => void worker.terminate(),
    };
    worker.on("message", (message) => ends.onMessage(message));
    worker.on("error", ({ message }) => ends.onFailure(message));
    return ends;
  }, options);
}

export async function openSession({ simd = hasSimd(), ...options } = {}) {
  return new Session(await load(simd), options);
}
