// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Real streams through the worker: every picture has its recorded MD5, and what is refused has its error.
import assert from "node:assert/strict";
import { readdirSync } from "node:fs";
import { test } from "node:test";

import { createDecoder } from "../lib/node.js";
import { expectedErrors, md5, modules, recordedMd5, root, stream } from "./support.js";

const files = readdirSync(`${root}/tests/streams`).filter((name) => /\.(m4v|263)$/.test(name));
const errors = expectedErrors();

async function decode(decoder, bytes) {
  const pictures = [];
  const names = new Set();
  for (const results of [decoder.feed(bytes), decoder.finish()]) {
    for await (const { frame, error } of results) {
      if (error) names.add(error.name);
      if (!frame) continue;
      pictures.push(md5(frame.pack()));
      frame.close();
    }
  }
  return { pictures, names: [...names] };
}

for (const { name: moduleName, simd } of modules) {
  for (const [column, deblockThreshold] of [10, 30].entries()) {
    test(`pictures of the module ${moduleName} with deblocking threshold ${deblockThreshold}`, async (t) => {
      const decoder = await createDecoder({ simd });
      t.after(() => decoder.close());
      assert.equal(decoder.simd, simd);
      const failures = [];
      let count = 0;
      for (const file of files) {
        const name = file.replace(/\.\w+$/, "");
        const wantError = errors.get(name);
        await decoder.reset({ deblockThreshold });
        const { pictures, names } = await decode(decoder, stream(file));
        if (wantError === "-") continue; // may end either way
        const want = recordedMd5(name, column);
        if (pictures.join() !== want.join()) failures.push(`${name}: pictures`);
        if (names.join() !== (wantError ?? "")) failures.push(`${name}: ${names} instead of ${wantError}`);
        count += want.length;
      }
      assert.deepEqual(failures, []);
      assert.ok(files.length >= 45 && count === 851, `${files.length} streams, ${count} pictures`);
    });
  }
}
