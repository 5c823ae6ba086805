// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The worker in a browser.
import { instantiate } from "./session.js";
import { serve } from "./serve.js";

const handle = serve(self, (simd) => {
  // Written out, for bundlers to find them.
  const url = simd ? new URL("../wasm/mp4vdec-simd.wasm", import.meta.url) : new URL("../wasm/mp4vdec.wasm", import.meta.url);
  return fetch(url).then(instantiate);
});
self.onmessage = ({ data }) => handle(data);
