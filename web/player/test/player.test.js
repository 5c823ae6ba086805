// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The page in Debian's Chromium. dist/ must have been built.
import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { readFileSync } from "node:fs";
import { fileURLToPath } from "node:url";

import { openSession } from "mp4vdec";
import { chromium } from "playwright-core";
import { preview } from "vite";

import { md5, recordedMd5 } from "../../decoder/test/support.js";

const root = fileURLToPath(new URL("../../..", import.meta.url));
const browserPath = process.env.CHROMIUM ?? "/usr/bin/chromium";
// Without a sandbox, for root has none; nothing but these pages is loaded.
// Drawn by the processor where there is no other way; trusted for the same reason.
const browserOptions = { executablePath: browserPath, args: ["--no-sandbox", "--enable-unsafe-swiftshader"] };
let server, address, browser;

before(async () => {
  server = await preview({
    root: fileURLToPath(new URL("..", import.meta.url)),
    logLevel: "silent",
    preview: { host: "127.0.0.1", port: 0 },
  });
  address = server.resolvedUrls.local[0];
  browser = await chromium.launch(browserOptions);
});
after(async () => {
  await browser?.close();
  await server?.close();
});

// A page; whatever it complains about fails the test.
async function visit(t, options = {}) {
  const context = await (options.browser ?? browser).newContext(options);
  const page = await context.newPage();
  const complaints = [];
  page.on("console", (message) => {
    const own = message.text().includes("GPU stall due to ReadPixels"); // canvasRgb() reads
    if (["error", "warning"].includes(message.type()) && !own) complaints.push(message.text());
  });
  page.on("pageerror", (error) => complaints.push(error.message));
  t.after(async () => {
    await context.close();
    assert.deepEqual(complaints, []);
  });
  if (options.clock) await page.clock.install({ time: 0 });
  await page.goto(address);
  if (options.clock) await page.clock.pauseAt(100_000);
  return page;
}

async function drop(page, name, bytes = readFileSync(`${root}/${name}`)) {
  const transfer = await page.evaluateHandle(
    ([text, file]) => {
      const data = Uint8Array.from(atob(text), (character) => character.charCodeAt(0));
      const made = new DataTransfer();
      made.items.add(new File([data], file));
      return made;
    },
    [Buffer.from(bytes).toString("base64"), name.split("/").pop()],
  );
  await page.dispatchEvent("body", "drop", { dataTransfer: transfer });
}

const position = (page) => page.$eval("#position", ({ value }) => Number(value));
const atPosition = (page, index) =>
  page.waitForFunction((want) => Number(document.getElementById("position").value) === want, index);
const stopped = (page) => page.waitForFunction(() => document.getElementById("play").textContent === "Play");
const message = (page, pattern) =>
  page.waitForFunction(
    (source) => new RegExp(source).test(document.getElementById("message").textContent),
    pattern.source,
  );

async function toTheEnd(page, last) {
  await page.waitForSelector("#player:not([hidden])");
  await atPosition(page, last);
  await stopped(page);
}

// Red, green, blue of all pixels, as the player writes them to PNG files.
function rgbOf(frame) {
  const [luma, u, v] = frame.planes;
  const [redV, greenU, greenV, blueU] = frame.height >= 720 ? [459, 55, 136, 541] : [409, 100, 208, 516];
  const clip = (value) => Math.min(Math.max(value >> 8, 0), 255);
  const rgb = [];
  for (let row = 0; row < frame.height; row++) {
    for (let column = 0; column < frame.width; column++) {
      const y = 298 * (luma.samples[row * luma.pitch + column] - 16) + 128;
      const blue = u.samples[(row >> 1) * u.pitch + (column >> 1)] - 128;
      const red = v.samples[(row >> 1) * v.pitch + (column >> 1)] - 128;
      rgb.push(clip(y + redV * red), clip(y - greenU * blue - greenV * red), clip(y + blueU * blue));
    }
  }
  return rgb;
}

// The pictures of a stream, each checked against its recorded MD5.
async function expectedPictures(name, indices) {
  const want = recordedMd5(name, 0);
  const bytes = readFileSync(`${root}/tests/streams/${name}.m4v`);
  const session = await openSession();
  const pictures = new Map();
  let index = 0;
  for (const results of [session.feed(bytes), session.finish()]) {
    for (const { frame } of results) {
      if (!frame) continue;
      assert.equal(md5(frame.pack()), want[index]);
      if (indices.includes(index)) pictures.set(index, rgbOf(frame));
      index++;
    }
  }
  return pictures;
}

async function canvasRgb(page) {
  const text = await page.evaluate(async () => {
    const canvas = document.getElementById("picture");
    const copy = new OffscreenCanvas(canvas.width, canvas.height);
    const context = copy.getContext("2d", { colorSpace: "srgb" });
    context.drawImage(canvas, 0, 0);
    const { data } = context.getImageData(0, 0, canvas.width, canvas.height);
    let binary = "";
    for (let i = 0; i < data.length; i += 8192) binary += String.fromCharCode(...data.subarray(i, i + 8192));
    return btoa(binary);
  });
  return [...Buffer.from(text, "base64")].filter((_, i) => i % 4 !== 3);
}

function assertClose(got, want) {
  assert.equal(got.length, want.length);
  const worst = got.reduce((most, value, i) => Math.max(most, Math.abs(value - want[i])), 0);
  assert.ok(worst <= 1, `samples differ by up to ${worst}`);
}

async function checkPictures(page) {
  const name = "o02_qcif_camera_q8";
  const pictures = await expectedPictures(name, [0, 1, 13, 30, 59]);
  await drop(page, `tests/streams/${name}.m4v`);
  await toTheEnd(page, 59);
  assertClose(await canvasRgb(page), pictures.get(59));
  for (const index of [13, 0, 30, 59]) {
    await page.fill("#position", String(index));
    await atPosition(page, index);
    await page.waitForFunction((want) => document.getElementById("time").textContent.includes(`picture ${want} of 60`), index + 1);
    assertClose(await canvasRgb(page), pictures.get(index));
  }
  await page.fill("#position", "0");
  await page.waitForFunction(() => document.getElementById("time").textContent.includes("picture 1 of 60"));
  await page.click("#step");
  await page.waitForFunction(() => document.getElementById("time").textContent.includes("picture 2 of 60"));
  assertClose(await canvasRgb(page), pictures.get(1));
}

test("a stream plays to its end; pictures that are looked up are those that were recorded", async (t) => {
  const page = await visit(t);
  await checkPictures(page);
  assert.match(await page.textContent("#about"), /176 x 144/);
  assert.match(await page.textContent("#about"), /WebGL/);
});

test("the same is drawn without WebGL", async (t) => {
  const plain = await chromium.launch({ ...browserOptions, args: [...browserOptions.args, "--disable-3d-apis"] });
  t.after(() => plain.close());
  const page = await visit(t, { browser: plain });
  await checkPictures(page);
  assert.match(await page.textContent("#about"), /drawn by 2D/);
});

for (const [name, kind] of [
  ["tiny.avi", /AVI file/],
  ["tiny.mp4", /MP4 file/],
  ["tiny.mov", /QuickTime file/],
]) {
  test(`${name} plays to its end`, async (t) => {
    const page = await visit(t);
    const { size } = await expectedPictures("o25_tiny48x32", []);
    assert.equal(size, 0);
    const pictures = await expectedPictures("o25_tiny48x32", [59]);
    await drop(page, `tests/containers/${name}`);
    await toTheEnd(page, 59);
    assertClose(await canvasRgb(page), pictures.get(59));
    assert.match(await page.textContent("#about"), kind);
    assert.match(await page.textContent("#about"), /48 x 32/);
    assert.equal(await page.textContent("#message"), "");
  });
}

test("what a picture consists of is shown over it", async (t) => {
  const page = await visit(t);
  await drop(page, "tests/streams/o32_rotation_4mv.m4v");
  await page.waitForSelector("#player:not([hidden])");
  await page.fill("#position", "5");
  await page.waitForFunction(() => document.getElementById("time").textContent.includes("picture 6 of"));
  const before = await canvasRgb(page);
  assert.equal(await page.isVisible("#overlay"), false);
  const choose = (what, key) =>
    page
      .selectOption("#show", what)
      .then(() => page.waitForFunction((part) => document.getElementById("key").textContent.includes(part), key));
  // Red, green, blue and alpha in the middle of a macroblock; and how many pixels are of a colour.
  await page.evaluate(() => {
    window.overlayContext = () => {
      const canvas = document.getElementById("overlay");
      const copy = new OffscreenCanvas(canvas.width, canvas.height);
      const context = copy.getContext("2d", { willReadFrequently: true });
      context.drawImage(canvas, 0, 0);
      return context;
    };
  });
  const at = (column, row) =>
    page.evaluate(
      ([x, y]) => {
        const context = overlayContext();
        const { width, height } = context.canvas;
        return [...context.getImageData((width * (x * 16 + 8)) / 352, (height * (y * 16 + 8)) / 288, 1, 1).data];
      },
      [column, row],
    );
  await choose("types", "2 not coded252 inter142 inter 4V");
  const [fourRed, fourGreen] = await at(2, 1);
  assert.ok(fourGreen > fourRed + 80, "green: four vectors");
  const [interRed, , interBlue] = await at(2, 2);
  assert.ok(interBlue > interRed + 80, "blue: one vector");
  assert.ok((await at(20, 1))[3] < 60, "hardly a tint: not coded");
  const [overlay, picture] = await Promise.all(["#overlay", "#picture"].map((id) => page.locator(id).boundingBox()));
  for (const side of ["x", "y", "width", "height"]) assert.ok(Math.abs(overlay[side] - picture[side]) <= 1, side);

  await choose("vectors", "to where the block is predicted from");
  const yellow = await page.evaluate(() => {
    const context = overlayContext();
    const { data } = context.getImageData(0, 0, context.canvas.width, context.canvas.height);
    let count = 0;
    for (let i = 0; i < data.length; i += 4) count += data[i] > 200 && data[i + 1] > 150 && data[i + 2] < 100;
    return count;
  });
  assert.ok(yellow > 1000, `${yellow} pixels of arrows`);
  await choose("quantiser", "quantiser 715");
  await choose("bits", "bits 0547");
  await page.click("#step");
  await page.waitForFunction(() => document.getElementById("time").textContent.includes("picture 7 of"));
  assert.equal(await page.isVisible("#overlay"), true);
  await page.fill("#position", "5");
  await page.waitForFunction(() => document.getElementById("time").textContent.includes("picture 6 of"));
  await page.selectOption("#show", "");
  await page.waitForFunction(() => document.getElementById("overlay").hidden);
  assert.equal(await page.textContent("#key"), "");
  assertClose(await canvasRgb(page), before);
});

test("it plays at its own pace, and at half of it when told", async (t) => {
  const page = await visit(t, { clock: true }); // time goes on only when it is told to
  await drop(page, "tests/streams/o02_qcif_camera_q8.m4v");
  await page.waitForFunction(() => document.getElementById("play").textContent === "Pause");
  const interval = 1000 / 30;
  let passed = 0;
  const passTo = async (milliseconds) => {
    await page.clock.runFor(Math.ceil(milliseconds) - passed);
    passed = Math.ceil(milliseconds);
  };
  for (let index = 1; index <= 10; index++) {
    await passTo(index * interval - 2);
    assert.equal(await position(page), index - 1);
    await passTo(index * interval + 1);
    await atPosition(page, index);
  }
  await page.click("#play");
  await page.selectOption("#speed", "0.5");
  await page.click("#play");
  const begun = passed;
  for (let index = 1; index <= 5; index++) {
    await passTo(begun + index * 2 * interval - 2);
    assert.equal(await position(page), 10 + index - 1);
    await passTo(begun + index * 2 * interval + 1);
    await atPosition(page, 10 + index);
  }
});

test("keys pause, step and look up intra pictures", async (t) => {
  const page = await visit(t);
  await drop(page, "tests/streams/o02_qcif_camera_q8.m4v");
  await toTheEnd(page, 59);
  await page.keyboard.press("ArrowLeft");
  await atPosition(page, 58);
  await page.keyboard.press("PageUp");
  await atPosition(page, 48);
  await page.keyboard.press("PageUp");
  await atPosition(page, 36);
  await page.keyboard.press("PageDown");
  await atPosition(page, 48);
  await page.keyboard.press("ArrowRight");
  await atPosition(page, 49);
  await page.keyboard.press(" ");
  await page.waitForFunction(() => document.getElementById("play").textContent === "Pause");
  await page.keyboard.press(" ");
  await stopped(page);
  assert.ok((await position(page)) >= 49);
});

test("damage is told of, and playing goes on", async (t) => {
  const page = await visit(t);
  const damaged = readFileSync(`${root}/tests/streams/o02_qcif_camera_q8.m4v`);
  damaged.fill(0xff, 9000, 9040);
  await drop(page, "damaged.m4v", damaged);
  await toTheEnd(page, 59);
  assert.match(await page.textContent("#message"), /^Picture \d+ could not be decoded: the picture data are damaged\.$/);
});

for (const [name, sentence] of [
  ["tests/streams/r02_data_partitioned.m4v", /cannot be played: the layer uses data partitioning, which is not supported\.$/],
  ["tests/streams/r12_oversize.m4v", /cannot be played: the picture is larger than 1920 x 1088\.$/],
  ["tests/streams/r03_short_header.263", /cannot be played: it is no video of a kind that is known here\.$/],
  ["tests/containers/other.mkv", /cannot be played: it is a Matroska or WebM file/],
  ["docs/contact-sheet.png", /cannot be played: it is no video of a kind that is known here\.$/],
  ["README.md", /cannot be played: it is no video of a kind that is known here\.$/],
]) {
  test(`${name} is refused with a sentence`, async (t) => {
    const page = await visit(t);
    await drop(page, name);
    await message(page, sentence);
    assert.equal(await page.isVisible("#player"), false);
  });
}

test("after a refused file another one plays", async (t) => {
  const page = await visit(t);
  await drop(page, "README.md");
  await message(page, /cannot be played/);
  await drop(page, "tests/containers/tiny.avi");
  await toTheEnd(page, 59);
  assert.equal(await page.textContent("#message"), "");
});

test("cut and empty containers are refused or played, never worse", async (t) => {
  const page = await visit(t);
  for (const name of ["tiny.avi", "tiny.mp4", "tiny.mov"]) {
    const whole = readFileSync(`${root}/tests/containers/${name}`);
    for (const size of [0, 11, 12, 100, 1000, whole.length - 1]) {
      await drop(page, name, whole.subarray(0, size));
      await page.waitForFunction(() => {
        const text = document.getElementById("message").textContent;
        return !text.includes("is being read") && (text !== "" || !document.getElementById("player").hidden);
      });
    }
  }
});

test("a picture is saved as it is shown", async (t) => {
  const page = await visit(t);
  await drop(page, "tests/containers/tiny.avi");
  await toTheEnd(page, 59);
  const [download] = await Promise.all([page.waitForEvent("download"), page.click("#save")]);
  assert.equal(download.suggestedFilename(), "picture-60.png");
  const bytes = readFileSync(await download.path());
  assert.equal(bytes.subarray(1, 4).toString(), "PNG");
  assert.deepEqual([bytes.readUInt32BE(16), bytes.readUInt32BE(20)], [48, 32]);
});

test("it fits the width of a phone", async (t) => {
  const page = await visit(t, { viewport: { width: 360, height: 640 } });
  await drop(page, "samples/o05_vga_camera_rate.m4v");
  await page.waitForSelector("#player:not([hidden])");
  const width = await page.evaluate(() => document.documentElement.scrollWidth);
  assert.ok(width <= 360, `${width}`);
});

test("it works without a network once it was loaded", async (t) => {
  const page = await visit(t);
  await page.evaluate(async () => {
    await navigator.serviceWorker.ready;
    if (!navigator.serviceWorker.controller) {
      await new Promise((resolve) => navigator.serviceWorker.addEventListener("controllerchange", resolve));
    }
  });
  await page.context().setOffline(true);
  await page.reload();
  for (const name of ["tiny.avi", "tiny.mp4"]) {
    await drop(page, `tests/containers/${name}`);
    await toTheEnd(page, 59);
  }
  assert.equal(await page.textContent("#message"), "");
});
