// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
import { createHash } from "node:crypto";
import { readFileSync } from "node:fs";
import { defineConfig } from "vite";

// sw.js, with the names of all files. Those have hashes of their content in them.
const offline = {
  name: "offline",
  enforce: "post",
  generateBundle(_, bundle) {
    const files = ["./", ...Object.keys(bundle).filter((name) => name !== "index.html")];
    const page = bundle["index.html"]?.source ?? "";
    const version = createHash("sha256").update(files.join() + page).digest("hex");
    const source = readFileSync(new URL("src/offline.js", import.meta.url), "utf8")
      .replace("self.__files", JSON.stringify(files))
      .replace("self.__version", JSON.stringify(version));
    this.emitFile({ type: "asset", fileName: "sw.js", source });
  },
};

export default defineConfig({
  base: "./", // works in any folder of a server
  build: { target: "es2022", assetsInlineLimit: 0, modulePreload: false },
  worker: { format: "es" },
  plugins: [offline],
});
