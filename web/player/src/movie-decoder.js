// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Decodes a movie from any picture on.
import { createDecoder } from "mp4vdec";

const blockBytes = 1 << 18;

export class MovieDecoder {
  static async open(movie) {
    // The rate is wanted with the first picture.
    return new MovieDecoder(movie, await createDecoder({ lookAhead: 1 }));
  }

  /** Whether frames tell of their macroblocks, from the next seek on. */
  inspect = false;

  constructor(movie, decoder) {
    this.movie = movie;
    this.decoder = decoder;
  }

  /** The intra picture that decoding must begin with for picture `index`. */
  intraBefore(index) {
    let at = index;
    while (at > 0 && !this.movie.units[at].intra) at--;
    return at;
  }

  /** Results with the index of their picture, from the intra picture before `index` on, to the end. */
  async *resultsFrom(index) {
    const { header, units } = this.movie;
    const first = this.intraBefore(index);
    await this.decoder.reset({ lookAhead: 1, inspect: this.inspect });
    const ends = [];
    let fed = header.length;
    let at = 0; // in ends
    async function* place(results) {
      for await (const result of results) {
        while (at + 1 < ends.length && result.offset >= ends[at]) at++;
        yield { ...result, index: first + at };
      }
    }
    let next = first;
    for (; next < units.length; ) {
      const parts = next === first ? [header] : [];
      let size = parts.reduce((sum, part) => sum + part.length, 0);
      do {
        parts.push(units[next].bytes);
        size += units[next].bytes.length;
        fed += units[next].bytes.length;
        ends.push(fed);
        next++;
      } while (next < units.length && size < blockBytes);
      yield* place(this.decoder.feed(join(parts, size)));
    }
    yield* place(this.decoder.finish());
  }

  close() {
    this.decoder.close();
  }
}

function join(parts, size) {
  const joined = new Uint8Array(size);
  let at = 0;
  for (const part of parts) {
    joined.set(part, at);
    at += part.length;
  }
  return joined;
}
