// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#ifndef MP4VDEC_TESTS_SUPPORT_RANDOM_H_
#define MP4VDEC_TESTS_SUPPORT_RANDOM_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace mp4v::test {

// The same numbers on every platform, unlike the standard distributions.
class Random {
  public:
    explicit Random(uint32_t seed) : engine_(seed) {}

    uint32_t Next() { return static_cast<uint32_t>(engine_()); }
    // [0, end); end > 0
    uint32_t Below(uint32_t end) { return Next() % end; }
    // [low, high]
    int Between(int low, int high) { return low + static_cast<int>(Below(static_cast<uint32_t>(high - low + 1))); }
    bool Chance(uint32_t one_in) { return Below(one_in) == 0; }
    uint8_t Byte() { return static_cast<uint8_t>(Next()); }

    std::vector<uint8_t> Bytes(size_t count) {
        std::vector<uint8_t> bytes(count);
        for (uint8_t& byte : bytes) byte = Byte();
        return bytes;
    }

    // Ones with a chance of 2^-1 to 2^-5 only: long codes, which even noise hardly contains.
    std::vector<uint8_t> SparseBytes(size_t count) {
        std::vector<uint8_t> bytes = Bytes(count);
        for (uint32_t i = Below(5); i > 0; i--) {
            for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(byte & Byte());
        }
        return bytes;
    }

  private:
    std::mt19937 engine_;
};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_RANDOM_H_
