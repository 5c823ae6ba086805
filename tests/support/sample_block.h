// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Samples for kernel tests: a canvas whose margins show stray writes, and memory that ends at an unreadable page.
#ifndef MP4VDEC_TESTS_SUPPORT_SAMPLE_BLOCK_H_
#define MP4VDEC_TESTS_SUPPORT_SAMPLE_BLOCK_H_

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <type_traits>
#include <vector>

namespace mp4v::test {

enum FillMode { kLowNoise, kHighNoise, kAnyByte, kExtremes, kSmooth, kFillModes };

inline uint8_t RandomSample(int mode, std::mt19937& rng) {
    switch (mode) {
        case kLowNoise:
            return uint8_t(rng() & 1);
        case kHighNoise:
            return uint8_t(254 + (rng() & 1));
        case kExtremes:
            return uint8_t(rng() & 1 ? 255 : 0);
        case kSmooth:
            return uint8_t(100 + rng() % 12);
        default:
            return uint8_t(rng());
    }
}

inline void Fill(uint8_t* bytes, size_t count, int mode, std::mt19937& rng) {
    for (size_t i = 0; i < count; i++) bytes[i] = RandomSample(mode, rng);
}

// 64 x 64 samples with the block at (16, 16). Comparing whole canvases compares the margins too.
struct Canvas {
    static constexpr int kPitch = 64;

    std::vector<uint8_t> px = std::vector<uint8_t>(kPitch * 64, 0xA5);

    Canvas() = default;
    Canvas(int mode, std::mt19937& rng) { Fill(px.data(), px.size(), mode, rng); }

    uint8_t* Block(int x = 0, int y = 0) { return &px[size_t((16 + y) * kPitch + 16 + x)]; }
};

// Bytes with an inaccessible page right behind the last or right before the first of them.
class GuardedBytes {
  public:
    enum Guard { kBehind, kBefore };

    explicit GuardedBytes(size_t count, Guard guard = kBehind) {
        const size_t page = size_t(sysconf(_SC_PAGESIZE));
        const size_t inner = (count + page - 1) / page * page;
        length_ = inner + 2 * page;
        void* map = mmap(nullptr, length_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (map == MAP_FAILED) std::abort();
        base_ = static_cast<uint8_t*>(map);
        if (mprotect(base_ + page, inner, PROT_READ | PROT_WRITE) != 0) std::abort();
        data_ = base_ + page + (guard == kBehind ? inner - count : 0);
    }
    ~GuardedBytes() { munmap(base_, length_); }
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    uint8_t* data() const { return data_; }

  private:
    uint8_t* base_;
    uint8_t* data_;
    size_t length_;
};

// Replaces a kernel variable while it lives.
template <typename T>
class Replace {
  public:
    Replace(T& variable, std::type_identity_t<T> value) : variable_(variable), saved_(variable) { variable = value; }
    ~Replace() { variable_ = saved_; }
    Replace(const Replace&) = delete;
    Replace& operator=(const Replace&) = delete;

  private:
    T& variable_;
    T saved_;
};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_SAMPLE_BLOCK_H_
