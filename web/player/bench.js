// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Milliseconds from the drop of a file of about 1 MB to its first picture, in Chromium: node bench.js
import { readFileSync } from "node:fs";
import { fileURLToPath } from "node:url";

import { chromium } from "playwright-core";
import { preview } from "vite";

const here = fileURLToPath(new URL(".", import.meta.url));
const sample = readFileSync(`${here}/../../samples/o05_vga_camera_rate.m4v`);
const file = Buffer.concat(Array(8).fill(sample));
const server = await preview({ root: here, logLevel: "silent", preview: { host: "127.0.0.1", port: 0 } });
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
  args: ["--no-sandbox"],
});
const times = [];
for (let round = 0; round < 7; round++) {
  const page = await browser.newPage();
  await page.goto(server.resolvedUrls.local[0]);
  const passed = page.evaluate(async (text) => {
    const data = Uint8Array.from(atob(text), (character) => character.charCodeAt(0));
    const dataTransfer = new DataTransfer();
    dataTransfer.items.add(new File([data], "bench.m4v"));
    const shown = new Promise((resolve) =>
      new MutationObserver(resolve).observe(document.getElementById("time"), { childList: true }),
    );
    const start = performance.now();
    document.body.dispatchEvent(new DragEvent("drop", { dataTransfer, bubbles: true }));
    await shown;
    return performance.now() - start;
  }, file.toString("base64"));
  times.push(Math.round(await passed));
  await page.close();
}
console.log(`first picture of ${file.length} bytes after ${times.sort((a, b) => a - b).join(", ")} ms`);
await browser.close();
await server.close();
