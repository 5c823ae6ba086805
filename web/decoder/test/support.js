// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Where things are, and how streams and recorded results are read.
import { createHash } from "node:crypto";
import { existsSync, readFileSync } from "node:fs";
import { fileURLToPath } from "node:url";

export const root = fileURLToPath(new URL("../../..", import.meta.url));
export const modules = [
  { name: "with vector instructions", simd: true },
  { name: "plain", simd: false },
];

export function stream(name) {
  return readFileSync(`${root}/tests/streams/${name}`);
}

/** The recorded MD5 of each picture; `column` 0 is for deblocking threshold 10, 1 for 30. */
export function recordedMd5(name, column) {
  const path = `${root}/tests/streams/${name}.md5`;
  if (!existsSync(path)) return [];
  const lines = readFileSync(path, "utf8").split("\n");
  return lines.filter((line) => line && !line.startsWith("#")).map((line) => line.split(/\s+/)[1 + column]);
}

export function md5(bytes) {
  return createHash("md5").update(bytes).digest("hex");
}

/** Error names by stream, of those that are not decoded in full. */
export function expectedErrors() {
  const lines = readFileSync(`${root}/tests/streams/EXPECTED.tsv`, "utf8").split("\n");
  return new Map(lines.filter((line) => line && !line.startsWith("#")).map((line) => [line.split("\t")[0], line.split("\t")[2]]));
}
