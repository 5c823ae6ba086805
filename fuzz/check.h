// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#ifndef MP4VDEC_FUZZ_CHECK_H_
#define MP4VDEC_FUZZ_CHECK_H_

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <span>

// Ends the run as a finding when something promised does not hold.
#define FUZZ_CHECK(condition)                                                              \
    do {                                                                                   \
        if (!(condition)) {                                                                \
            fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                       \
        }                                                                                  \
    } while (false)

namespace mp4v::fuzz {

// Lets the memory sanitizer find bytes that come from memory which was never written: a decision must hang on them.
inline void CheckKnown(std::span<const uint8_t> bytes) {
    FUZZ_CHECK(std::accumulate(bytes.begin(), bytes.end(), uint64_t{0}) <= bytes.size() * 255);
}

}  // namespace mp4v::fuzz

#endif  // MP4VDEC_FUZZ_CHECK_H_
