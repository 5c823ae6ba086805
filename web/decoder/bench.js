// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Pictures per second of the modules: node bench.js STREAM...
import { readFileSync } from "node:fs";
import { basename } from "node:path";

import { load } from "./lib/load-node.js";
import { createDecoder } from "./lib/node.js";
import { Session } from "./lib/session.js";

const shortest = 1500; // milliseconds that each figure is measured for

async function picturesPerSecond(now, round) {
  for (const warm = performance.now(); performance.now() - warm < shortest; ) await round();
  let pictures = 0;
  const start = now();
  let passed = 0;
  for (; passed < shortest; passed = now() - start) pictures += await round();
  return Math.round((pictures * 1000) / passed);
}

// Of the processor's time, as others use it, too.
async function inThisThread(simd, bytes) {
  const module = await load(simd);
  const now = () => process.cpuUsage().user / 1000;
  return picturesPerSecond(now, () => {
    const session = new Session(module, { deblockThreshold: 30 });
    let pictures = 0;
    for (const results of [session.feed(bytes), session.finish()]) for (const { frame } of results) pictures += frame ? 1 : 0;
    session.close();
    return pictures;
  });
}

async function inTheWorker(simd, bytes) {
  const decoder = await createDecoder({ simd });
  const figure = await picturesPerSecond(() => performance.now(), async () => {
    await decoder.reset({ deblockThreshold: 30 });
    let pictures = 0;
    for (const results of [decoder.feed(bytes), decoder.finish()]) {
      for await (const { frame } of results) {
        if (frame) pictures++;
        frame?.close();
      }
    }
    return pictures;
  });
  decoder.close();
  return figure;
}

async function firstPicture(bytes) {
  const start = performance.now();
  const decoder = await createDecoder();
  for await (const { frame } of decoder.feed(bytes)) if (frame) break;
  decoder.close();
  return Math.round(performance.now() - start);
}

console.log("stream\tvectors\tplain\tvectors, worker\tfirst picture, ms");
for (const path of process.argv.slice(2)) {
  const bytes = readFileSync(path);
  const figures = [await inThisThread(true, bytes), await inThisThread(false, bytes), await inTheWorker(true, bytes)];
  console.log([basename(path), ...figures, await firstPicture(bytes)].join("\t"));
}
