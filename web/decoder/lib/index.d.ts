// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

export interface SessionOptions {
  /** Block edges are smoothed where the quantiser is above it. 10 unless told. */
  deblockThreshold?: 10 | 30;
  /** Predicted pictures are decoded, but not delivered. */
  intraOnly?: boolean;
  /** Deinterlace pictures of 352, 704 or 720 x 480 or 576. */
  deinterlace?: boolean;
  /** Each picture is coded as one field above the other; they are woven together. */
  fieldsStacked?: boolean;
  /** Chunks that are kept back so that `rate` is known from the first frame on. 0 unless told. */
  lookAhead?: number;
  /** Frames tell of their macroblocks, which takes about half as long again. */
  inspect?: boolean;
}

export interface DecoderOptions extends SessionOptions {
  /** Whether the module with vector instructions is taken. Found out unless told. */
  simd?: boolean;
}

export interface Plane {
  /** `height` rows, each `pitch` bytes behind the last one; the first `width` samples of each count. */
  readonly samples: Uint8Array;
  readonly width: number;
  readonly height: number;
  readonly pitch: number;
}

export interface Ratio {
  readonly numerator: number;
  readonly denominator: number;
}

/** What a picture consists of. */
export interface Macroblocks {
  readonly columns: number;
  readonly rows: number;
  /** Of a vector, in a sample: 2 or 4. */
  readonly vectorUnits: number;
  /**
   * 11 numbers per macroblock, row by row; none where the picture is not coded: the kind (0 not coded, 1 inter, 2 inter
   * with four vectors, 3 inter by fields, 4 intra), the quantiser (0: none), the bits, and x and y of four vectors. By
   * fields the first two count, that of the top and that of the bottom field.
   */
  readonly values: Int32Array;
}

/** A picture as planar 4:2:0, cropped to the stream's own size; chroma of odd sizes is rounded up. */
export interface Frame {
  readonly type: "intra" | "predicted" | "not-coded";
  readonly width: number;
  readonly height: number;
  /** When it is to be shown, by the stream's own clock. */
  readonly seconds?: number;
  /** Pictures per second. */
  readonly rate: Ratio;
  /** Of one sample; 0:0 is unknown. */
  readonly aspect: Ratio;
  readonly interlacing: "progressive" | "top-first" | "bottom-first" | "mixed";
  /** Y, U and V. */
  readonly planes: readonly Plane[];
  /** With the option `inspect`. */
  readonly macroblocks?: Macroblocks;

  /** Copies Y, U and V to one array without gaps. */
  pack(): Uint8Array;
  /** For canvases and encoders, where the browser has VideoFrame; it is the caller's to close. */
  toVideoFrame(init?: Partial<VideoFrameBufferInit>): VideoFrame;
  /** Gives the samples' memory back to the decoder, so that it need not take more. They are gone afterwards. */
  close(): void;
}

/** What is wrong with a chunk. */
export interface DecodeError {
  /** The decoder's status; 0: it is not the decoder that found it. */
  readonly status: number;
  /** The decoder's name for the status, such as "ERR_VID_MPEG4DEC_BITSTREAM", or "". */
  readonly name: string;
  /** A plain sentence without a full stop. */
  readonly text: string;
}

/** What became of one chunk: any headers, then at most one picture. */
export interface Result {
  /** Of the chunk, from 0. -1: this is not about a chunk, but the last that the decoder has to say. */
  readonly number: number;
  /** Of its first byte among all that were fed. */
  readonly offset: number;
  /** In the chunk. */
  readonly bytes: number;
  /** There is a picture in it, decoded or not. */
  readonly coded: boolean;
  readonly error?: DecodeError;
  readonly frame?: Frame;
}

/**
 * Decodes in a worker. Frames are moved here without being copied, and stay valid until they are closed.
 *
 * Nothing happens before feed() and finish() are iterated over. They may be called while another iteration goes on,
 * and then wait for its end; what is left when an iteration is given up comes first in the next one.
 */
export interface Decoder {
  readonly simd: boolean;
  /** Takes the next bytes of the stream, cut anywhere. */
  feed(bytes: Uint8Array): AsyncGenerator<Result, void, void>;
  /** Tells that the stream has ended, and gives what is left. */
  finish(): AsyncGenerator<Result, void, void>;
  /** Forgets the stream and waits for another one. */
  reset(options?: SessionOptions): Promise<void>;
  /** Ends the worker. */
  close(): void;
}

/** Rejects when the worker or the module cannot be loaded. Whatever a stream holds comes back as a value. */
export function createDecoder(options?: DecoderOptions): Promise<Decoder>;

/**
 * Decodes in the thread that calls, for workers of one's own. Nothing is copied: samples are views of the module's
 * memory, valid until the iteration goes on.
 */
export interface Session {
  feed(bytes: Uint8Array): Generator<Result, void, void>;
  finish(): Generator<Result, void, void>;
  close(): void;
}

/** Each session has a module, and memory, of its own. */
export function openSession(options?: DecoderOptions): Promise<Session>;

/** Whether the module with vector instructions can be used here. */
export function hasSimd(): boolean;
