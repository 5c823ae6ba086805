// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Finds the coded pictures of a file. Each reader gives a movie:
//   kind     what the file is, for people
//   header   bytes that belong before the first picture
//   units    one per picture: { bytes, intra, seconds }, seconds only where the container tells
//   problem  a sentence that says why it cannot be played; then there is nothing else
const startOfVop = 0xb6;
const endOfSequence = 0xb1;

export async function readMovie(bytes) {
  if (hasText(bytes, 0, "RIFF")) return hasText(bytes, 8, "AVI ") ? readAvi(bytes) : unknown("a RIFF file, but no AVI file");
  if (["ftyp", "moov", "mdat", "wide", "free", "skip"].some((type) => hasText(bytes, 4, type))) {
    return (await import("./mp4.js")).readMp4(bytes);
  }
  if (bytes[0] === 0x1a && hasText(bytes, 1, "E\xdf\xa3")) return unknown("a Matroska or WebM file, which is not read here");
  return readStream(bytes);
}

export function unknown(what) {
  return { problem: `This file cannot be played: it is ${what}.` };
}

export function hasText(bytes, at, text) {
  return [...text].every((character, i) => bytes[at + i] === character.charCodeAt(0));
}

// Positions of 00 00 01 and the byte that follows.
function* startCodes(bytes, from = 0) {
  for (let at = bytes.indexOf(1, from + 2); at >= 0 && at + 1 < bytes.length; at = bytes.indexOf(1, at + 1)) {
    if (bytes[at - 1] === 0 && bytes[at - 2] === 0 && at - 2 >= from) yield { at: at - 2, code: bytes[at + 1] };
  }
}

export function isIntra(bytes) {
  for (const { at, code } of startCodes(bytes)) if (code === startOfVop) return bytes[at + 4] >> 6 === 0;
  return false;
}

// The decoder cuts a stream in the same places.
function readStream(bytes) {
  const units = [];
  let begin = 0;
  let vop = -1;
  const add = (end) => units.push({ bytes: bytes.subarray(begin, end), intra: bytes[vop + 4] >> 6 === 0 });
  for (const { at, code } of startCodes(bytes)) {
    if (vop >= 0 && code !== endOfSequence) {
      add(at);
      begin = at;
      vop = -1;
    }
    if (code === startOfVop) vop = at;
  }
  if (vop >= 0) add(bytes.length);
  if (units.length === 0) return unknown("no video of a kind that is known here");
  return { kind: "Elementary stream", header: new Uint8Array(0), units };
}

// Names by which this format goes in AVI files.
const aviNames = ["XVID", "DIVX", "DX50", "MP4V", "FMP4", "MP4S", "M4S2", "RMP4", "3IV2", "BLZ0", "SEDG", "WV1F"];

// All chunks that are no lists, in order, as [name, position, size]; sizes that reach too far are cut.
function* riffChunks(bytes, begin, end) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.length);
  for (let at = begin; at + 8 <= end; ) {
    const name = String.fromCharCode(...bytes.subarray(at, at + 4));
    const size = Math.min(view.getUint32(at + 4, true), end - at - 8);
    if (name === "RIFF" || name === "LIST") {
      yield* riffChunks(bytes, at + 12, at + 8 + size);
    } else {
      yield [name, at + 8, size];
    }
    at += 8 + size + (size & 1);
  }
}

function readAvi(bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.length);
  const units = [];
  const tracks = [];
  let header = new Uint8Array(0);
  let kind, seconds, prefix;
  for (const [name, at, size] of riffChunks(bytes, 0, bytes.length)) {
    if (name === "strh" && size >= 28) {
      tracks.push(String.fromCharCode(...bytes.subarray(at, at + 4)));
      if (tracks.at(-1) === "vids" && prefix === undefined) {
        prefix = String(tracks.length - 1).padStart(2, "0");
        seconds = view.getUint32(at + 20, true) / view.getUint32(at + 24, true);
      }
    } else if (name === "strf" && tracks.at(-1) === "vids" && kind === undefined && size >= 40) {
      kind = String.fromCharCode(...bytes.subarray(at + 16, at + 20));
      header = bytes.subarray(at + 40, at + size);
    } else if (prefix !== undefined && (name === `${prefix}dc` || name === `${prefix}db`) && size > 0) {
      const unit = bytes.subarray(at, at + size);
      units.push({ bytes: unit, intra: isIntra(unit), seconds: units.length * seconds });
    }
  }
  if (kind === undefined) return unknown("an AVI file without video");
  if (!aviNames.includes(kind.toUpperCase())) return unknown(`an AVI file, and its video is of another kind, "${kind}"`);
  if (units.length === 0) return unknown("an AVI file without pictures");
  if (!Number.isFinite(seconds) || seconds <= 0) units.forEach((unit) => delete unit.seconds);
  return { kind: `AVI file (${kind})`, header: startsUnit(header) ? header : new Uint8Array(0), units };
}

function startsUnit(header) {
  return header.length > 3 && header[0] === 0 && header[1] === 0 && header[2] === 1;
}
