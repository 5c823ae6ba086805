// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

import { readFile } from "node:fs/promises";

import { instantiate } from "./session.js";

export async function load(simd) {
  return instantiate(await readFile(new URL(simd ? "../wasm/mp4vdec-simd.wasm" : "../wasm/mp4vdec.wasm", import.meta.url)));
}
