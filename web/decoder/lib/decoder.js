// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The decoder as a page sees it: a worker at the other end of a port.
import { Frame, checkBytes, failureOf, hasSimd } from "./session.js";

// Pictures that are decoded before they are asked for.
const readAhead = 3;
const closedText = "the decoder is closed";

/** `start()` gives a worker as { post(message, transfer), onMessage, onFailure, stop() }. */
export async function createDecoderWith(start, options = {}) {
  const { simd = hasSimd(), ...rest } = options;
  const decoder = new Decoder(await start(), simd);
  try {
    await decoder.open(rest);
  } catch (error) {
    decoder.close();
    throw error;
  }
  return decoder;
}

class Decoder {
  #worker;
  #turn = Promise.resolve();
  #answers = [];
  #waiting;
  #asked = 0;
  #failure;
  #closed = false;

  constructor(worker, simd) {
    this.simd = simd;
    this.#worker = worker;
    worker.onMessage = (answer) => this.#receive(answer);
    worker.onFailure = (text) => {
      this.#failure = text;
      this.#receive({ failure: text });
    };
  }

  async open(options) {
    this.#worker.post({ kind: "open", options, simd: this.simd });
    const { failure } = await this.#next();
    if (failure) throw new Error(failure);
  }

  feed(bytes) {
    checkBytes(bytes);
    return this.#results({ kind: "feed", bytes });
  }

  finish() {
    return this.#results({ kind: "finish" });
  }

  async reset(options = {}) {
    const release = await this.#takeTurn();
    this.#post({ kind: "reset", options });
    while (this.#asked > 0) (await this.#next()).frame?.close();
    release();
  }

  close() {
    this.#worker.stop();
    this.#closed = true;
    this.#failure ??= closedText;
    this.#receive({ failure: this.#failure });
  }

  // Answers that were asked for before, in an iteration that was given up, come first; of those, only a later end counts.
  async *#results(message) {
    if (this.#closed) throw new Error(closedText);
    const release = await this.#takeTurn();
    try {
      let stale = this.#asked;
      let ended = false;
      this.#post(message);
      this.#ask(readAhead);
      while (this.#asked > 0) {
        const { done, failure, result } = await this.#next();
        if (failure) {
          if (!this.#closed) yield failureOf(failure);
          return;
        }
        if (stale > 0) {
          stale--;
        } else {
          ended ||= done;
        }
        if (done) continue;
        if (!ended) this.#ask(1);
        yield result;
      }
    } finally {
      release();
    }
  }

  async #takeTurn() {
    const before = this.#turn;
    let release;
    this.#turn = new Promise((resolve) => (release = resolve));
    await before;
    return release;
  }

  #post(message, transfer) {
    if (!this.#failure) this.#worker.post(message, transfer);
  }

  #ask(count) {
    this.#asked += count;
    this.#post({ kind: "ask", count });
  }

  #receive(answer) {
    if (this.#waiting) {
      this.#waiting(answer);
      this.#waiting = undefined;
    } else {
      this.#answers.push(answer);
    }
  }

  async #next() {
    const answer =
      this.#answers.shift() ??
      (this.#failure ? { failure: this.#failure } : await new Promise((resolve) => (this.#waiting = resolve)));
    if (answer.failure) {
      this.#asked = 0;
    } else if (!answer.ready) {
      this.#asked--;
    }
    if (!answer.result) return answer;
    const { result, frame, buffer } = answer;
    if (frame) {
      frame.planes = frame.planes.map(({ offset, ...plane }) => ({
        samples: new Uint8Array(buffer, offset, plane.pitch * plane.height),
        ...plane,
      }));
      result.frame = new Frame(frame, () => {
        if (buffer.byteLength > 0) this.#post({ kind: "recycle", buffer }, [buffer]); // 0: the caller moved it elsewhere
      });
    }
    return { result, frame: result.frame };
  }
}
