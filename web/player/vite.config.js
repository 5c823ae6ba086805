// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
import { defineConfig } from "vite";

export default defineConfig({
  base: "./", // works in any folder of a server
  build: { target: "es2022", assetsInlineLimit: 0, modulePreload: false },
  worker: { format: "es" },
});
