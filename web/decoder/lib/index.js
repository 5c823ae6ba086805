// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

import { createDecoderWith } from "./decoder.js";
import { Session, hasSimd, instantiate } from "./session.js";

export { hasSimd };

export function createDecoder(options) {
  return createDecoderWith(() => {
    const worker = new Worker(new URL("./worker.js", import.meta.url), { type: "module" });
    const ends = {
      post: (message, transfer) => worker.postMessage(message, transfer ?? []),
      stop: () => worker.terminate(),
    };
    worker.onmessage = ({ data }) => ends.onMessage(data);
    worker.onerror = ({ message }) => ends.onFailure(message ?? "the decoder's worker could not be loaded");
    return ends;
  }, options);
}

export async function openSession({ simd = hasSimd(), ...options } = {}) {
  const url = simd ? new URL("../wasm/mp4vdec-simd.wasm", import.meta.url) : new URL("../wasm/mp4vdec.wasm", import.meta.url);
  return new Session(await instantiate(await fetch(url)), options);
}
