// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// A user's program: prints the MD5 of each picture of a stream, decoded by the worker and without it.
import { createHash } from "node:crypto";
import { readFileSync } from "node:fs";

import { createDecoder, openSession, type DecodeError, type Frame } from "mp4vdec";

const bytes: Uint8Array = readFileSync(process.argv[2]!);
const print = (frame: Frame) => console.log(createHash("md5").update(frame.pack()).digest("hex"));
const complain = ({ name, text }: DecodeError) => console.log(name, text);

const decoder = await createDecoder({ deblockThreshold: 10 });
for (const results of [decoder.feed(bytes), decoder.finish()]) {
  for await (const { frame, error } of results) {
    if (error) complain(error);
    if (frame) print(frame);
    frame?.close();
  }
}
decoder.close();

const session = await openSession({ simd: false });
for (const results of [session.feed(bytes), session.finish()]) {
  for (const { frame, error } of results) {
    if (error) complain(error);
    if (frame) print(frame);
  }
}
session.close();

// What the types must refuse.
export function wrong(frame: Frame) {
  // @ts-expect-error: there is no such threshold
  void createDecoder({ deblockThreshold: 20 });
  // @ts-expect-error: not every picture has a time
  return frame.seconds + 1;
}
