// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The worker in Node.
import { parentPort } from "node:worker_threads";

import { serve } from "./serve.js";
import { load } from "./load-node.js";

parentPort.on("message", serve(parentPort, load));
