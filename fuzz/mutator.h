// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Changes to a stream that keep it looking like one: whole bits, fields and code words, sections between start codes,
// headers. Bytes alone would mostly shift everything behind them out of step.
#ifndef MP4VDEC_FUZZ_MUTATOR_H_
#define MP4VDEC_FUZZ_MUTATOR_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

#if defined(__has_feature)
#if __has_feature(memory_sanitizer)
#include <sanitizer/msan_interface.h>
#endif
#endif

namespace mp4v::fuzz {

// Bytes from libFuzzer, which is not instrumented itself, would count as never written.
inline void MarkWritten([[maybe_unused]] const uint8_t* data, [[maybe_unused]] size_t size) {
#ifdef MSAN_INTERFACE_H
    __msan_unpoison(data, size);
#endif
}

using Random = std::minstd_rand;

// [0, bound); 0 for no bound.
inline size_t Below(Random& random, size_t bound) {
    return bound ? random() % bound : 0;
}

// Changes an elementary stream, or macroblock data alone, in one to four places. At most `max_size` bytes remain.
void MutateStream(std::vector<uint8_t>& stream, size_t max_size, Random& random);

// Sections of both, in turn.
std::vector<uint8_t> CrossStreams(std::span<const uint8_t> a, std::span<const uint8_t> b, Random& random);

// For targets whose input is `prefix` bytes of parameters and a stream: the two functions that libFuzzer calls.
size_t MutatePrefixed(uint8_t* data, size_t size, size_t max_size, size_t prefix, unsigned seed);
size_t CrossPrefixed(std::span<const uint8_t> a, std::span<const uint8_t> b, uint8_t* out, size_t max_size,
                     size_t prefix, unsigned seed);

}  // namespace mp4v::fuzz

// Defines both for a target whose input begins with that many parameter bytes.
#define MP4VDEC_FUZZ_MUTATORS(prefix)                                                                             \
    extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {       \
        return mp4v::fuzz::MutatePrefixed(data, size, max_size, prefix, seed);                                    \
    }                                                                                                             \
    extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t* a, size_t a_size, const uint8_t* b, size_t b_size, \
                                                uint8_t* out, size_t max_size, unsigned seed) {                   \
        return mp4v::fuzz::CrossPrefixed({a, a_size}, {b, b_size}, out, max_size, prefix, seed);                  \
    }                                                                                                             \
    static_assert(true)

#endif  // MP4VDEC_FUZZ_MUTATOR_H_
