// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

import { createFile } from "mp4box";

import { isIntra, unknown } from "./movie.js";

const mpeg4Visual = 0x20;

export function readMp4(bytes) {
  const file = createFile();
  let info, failure;
  file.onReady = (ready) => (info = ready);
  file.onError = (...texts) => (failure = texts.join(" "));
  const buffer = bytes.slice().buffer;
  buffer.fileStart = 0;
  file.appendBuffer(buffer, true);
  file.flush();
  if (!info) return unknown(`an MP4 or QuickTime file that cannot be read${failure ? ` (${failure})` : ""}`);
  const track = info.videoTracks[0];
  if (!track) return unknown("an MP4 or QuickTime file without video");
  const trak = file.getTrackById(track.id);
  const [entry] = trak.mdia.minf.stbl.stsd.entries;
  const descriptor = entry.esds?.esd?.descs?.[0];
  if (entry.type !== "mp4v" || (descriptor && descriptor.oti !== mpeg4Visual)) {
    return unknown(`an MP4 or QuickTime file, and its video is of another kind, "${track.codec}"`);
  }
  const header = descriptor?.descs?.find(({ data }) => data)?.data ?? new Uint8Array(0);
  const units = trak.samples.map((sample) => {
    const unit = bytes.subarray(sample.offset, sample.offset + sample.size);
    return { bytes: unit, intra: isIntra(unit), seconds: sample.cts / sample.timescale };
  });
  if (units.length === 0) return unknown("an MP4 or QuickTime file without pictures");
  const brands = info.brands?.some((brand) => brand.startsWith("qt")) ? "QuickTime file" : "MP4 file";
  return { kind: `${brands} (${track.codec})`, header: Uint8Array.from(header), units };
}
