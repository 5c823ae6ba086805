// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The package as its users get it: packed, installed without a network into an empty project, type-checked and run.
import assert from "node:assert/strict";
import { execFileSync, spawnSync } from "node:child_process";
import { copyFileSync, mkdtempSync, readFileSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { before, after, test } from "node:test";
import { fileURLToPath } from "node:url";
import { gzipSync } from "node:zlib";

import { recordedMd5, root } from "./support.js";

const here = fileURLToPath(new URL("..", import.meta.url));
const has = (command) => spawnSync(command, ["--version"]).status === 0;
const skip = !has("npm") && "npm is not there";
const project = mkdtempSync(join(tmpdir(), "mp4vdec-package-"));
const npm = (...args) =>
  execFileSync("npm", [...args, "--offline", "--cache", join(project, "cache"), "--loglevel", "error"], {
    cwd: project,
    encoding: "utf8",
  });
const stream = `${root}/tests/streams/o25_tiny48x32.m4v`;
const want = recordedMd5("o25_tiny48x32", 0);

before(() => {
  if (skip) return;
  writeFileSync(join(project, "package.json"), '{ "private": true, "type": "module" }\n');
  npm("pack", here);
  const [packed] = readdirSync(project).filter((name) => name.endsWith(".tgz"));
  npm("install", "--no-audit", "--no-fund", packed);
});
after(() => rmSync(project, { recursive: true }));

test("the package holds what it needs and nothing else", { skip }, () => {
  const found = readdirSync(join(project, "node_modules/mp4vdec"), { recursive: true, withFileTypes: true });
  const files = found.filter((entry) => entry.isFile()).map(({ name }) => name);
  assert.deepEqual(files.sort(), [
    "LICENSE",
    "README.md",
    "decoder.js",
    "index.d.ts",
    "index.js",
    "load-node.js",
    "mp4vdec-simd.wasm",
    "mp4vdec.wasm",
    "node.js",
    "package.json",
    "serve.js",
    "session.js",
    "worker-node.js",
    "worker.js",
  ]);
});

for (const name of ["mp4vdec", "mp4vdec-simd"]) {
  test(`${name}.wasm is below 120 kB when compressed`, () => {
    const size = gzipSync(readFileSync(join(here, "wasm", `${name}.wasm`)), { level: 9 }).length;
    assert.ok(size > 20_000 && size < 120_000, `${size} bytes`);
  });
}

test("a program is checked against the types, and runs", { skip: skip || (!has("tsc") && "tsc is not there") }, () => {
  copyFileSync(join(here, "test/consumer.ts"), join(project, "consumer.ts"));
  // Node's own types are not part of this, and older compilers do not know VideoFrame; what is used is told here.
  writeFileSync(
    join(project, "node.d.ts"),
    `declare module "node:fs" { export function readFileSync(path: string): Uint8Array; }
    declare module "node:crypto" {
      interface Hash { update(bytes: Uint8Array): Hash; digest(form: "hex"): string; }
      export function createHash(name: string): Hash;
    }
    declare const process: { argv: string[] };
    interface VideoFrame { close(): void; }
    interface VideoFrameBufferInit { timestamp: number; }\n`,
  );
  const compilerOptions = { strict: true, target: "es2022", module: "node16", types: [] };
  writeFileSync(join(project, "tsconfig.json"), JSON.stringify({ compilerOptions, files: ["consumer.ts", "node.d.ts"] }));
  const { stdout } = spawnSync("tsc", { cwd: project, encoding: "utf8" });
  assert.equal(stdout, "");
  const printed = execFileSync("node", ["consumer.js", stream], { cwd: project, encoding: "utf8" });
  assert.deepEqual(printed.trimEnd().split("\n"), [...want, ...want]);
});
