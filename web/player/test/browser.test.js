// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The package itself in Chromium, served as it is, without a bundler.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { createServer } from "node:http";
import { after, before, test } from "node:test";
import { fileURLToPath } from "node:url";

import { chromium } from "playwright-core";

import { md5, recordedMd5 } from "../../decoder/test/support.js";

const root = fileURLToPath(new URL("../../..", import.meta.url));
const types = { js: "text/javascript", wasm: "application/wasm", html: "text/html" };
let server, browser, address, wasmType;

before(async () => {
  server = createServer(({ url }, response) => {
    if (url === "/") return response.setHeader("Content-Type", types.html).end('<link rel="icon" href="data:,">');
    const ending = url.split(".").pop();
    response.setHeader("Content-Type", (ending === "wasm" && wasmType) || types[ending] || "application/octet-stream");
    response.end(readFileSync(`${root}${url}`));
  });
  await new Promise((resolve) => server.listen(0, "127.0.0.1", resolve));
  address = `http://127.0.0.1:${server.address().port}`;
  browser = await chromium.launch({ executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium", args: ["--no-sandbox"] });
});
after(async () => {
  await browser?.close();
  server?.close();
});

// Decodes a stream in the page; gives what `take` makes of each frame there.
async function decode(t, name, options, take) {
  const page = await browser.newPage();
  t.after(() => page.close());
  await page.goto(address);
  return page.evaluate(
    async ([url, decoderOptions, source]) => {
      const { createDecoder } = await import("/web/decoder/lib/index.js");
      const use = eval(source);
      const decoder = await createDecoder(decoderOptions);
      const bytes = new Uint8Array(await (await fetch(url)).arrayBuffer());
      const taken = [];
      for (const results of [decoder.feed(bytes), decoder.finish()]) {
        for await (const { frame, error } of results) {
          if (error) throw new Error(error.text);
          taken.push(await use(frame));
          frame.close();
        }
      }
      decoder.close();
      return { simd: decoder.simd, isolated: crossOriginIsolated, taken };
    },
    [`/tests/streams/${name}.m4v`, options, `(${take})`],
  );
}

const packed = (frame) => Array.from(frame.pack());
const md5sOf = (pictures) => pictures.map((samples) => md5(Uint8Array.from(samples)));
const want = recordedMd5("o25_tiny48x32", 0);

test("the decoder runs in a page that is not isolated", async (t) => {
  const { simd, isolated, taken } = await decode(t, "o25_tiny48x32", {}, packed);
  assert.deepEqual([simd, isolated], [true, false]);
  assert.deepEqual(md5sOf(taken), want);
});

test("and without vector instructions", async (t) => {
  const { simd, taken } = await decode(t, "o25_tiny48x32", { simd: false }, packed);
  assert.equal(simd, false);
  assert.deepEqual(md5sOf(taken), want);
});

test("and from a server that does not know WebAssembly", async (t) => {
  wasmType = "application/octet-stream";
  t.after(() => (wasmType = undefined));
  assert.deepEqual(md5sOf((await decode(t, "o25_tiny48x32", {}, packed)).taken), want);
});

test("a VideoFrame has the samples of its frame", async (t) => {
  const name = "o10_odd120x90_noise";
  const { taken } = await decode(t, name, {}, async (frame) => {
    const video = frame.toVideoFrame();
    const samples = new Uint8Array(video.allocationSize());
    await video.copyTo(samples);
    const { format, visibleRect, timestamp } = video;
    video.close();
    return { samples: Array.from(samples), format, size: [visibleRect.width, visibleRect.height], timestamp, seconds: frame.seconds };
  });
  assert.deepEqual(
    md5sOf(taken.map(({ samples }) => samples)),
    recordedMd5(name, 0),
  );
  for (const { format, size, timestamp, seconds } of taken) {
    assert.deepEqual([format, size, timestamp], ["I420", [120, 90], Math.round(seconds * 1e6)]);
  }
});
