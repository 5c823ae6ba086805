// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#ifndef MP4VDEC_TESTS_SUPPORT_BIT_WRITER_H_
#define MP4VDEC_TESTS_SUPPORT_BIT_WRITER_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace mp4v::test {

// Collects bits, most significant first.
class BitWriter {
  public:
    // The low `bits` (0..32) of `value`.
    BitWriter& Put(uint32_t value, unsigned bits) {
        while (bits--) PutBit(value >> bits & 1);
        return *this;
    }

    // Digits 0 and 1; anything else only separates.
    BitWriter& Bits(std::string_view digits) {
        for (const char c : digits) {
            if (c == '0' || c == '1') PutBit(c == '1');
        }
        return *this;
    }

    // Zeros up to the next byte; none on a byte boundary.
    BitWriter& Align() {
        while (bit_count_ % 8) PutBit(false);
        return *this;
    }

    size_t bit_count() const { return bit_count_; }

    // The last byte is filled up with zeros.
    const std::vector<uint8_t>& Bytes() const { return bytes_; }

  private:
    void PutBit(bool bit) {
        if (bit_count_ % 8 == 0) bytes_.push_back(0);
        if (bit) bytes_.back() = static_cast<uint8_t>(bytes_.back() | 0x80u >> bit_count_ % 8);
        bit_count_++;
    }

    std::vector<uint8_t> bytes_;
    size_t bit_count_ = 0;
};

// `bytes` and the 8 readable bytes that must follow a chunk.
inline std::vector<uint8_t> WithPadding(std::vector<uint8_t> bytes, uint8_t fill = 0) {
    bytes.insert(bytes.end(), 8, fill);
    return bytes;
}

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_BIT_WRITER_H_
