/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_BIT_CURSOR_H_
#define MP4VDEC_HOST_BIT_CURSOR_H_

#include <cstddef>
#include <cstdint>
#include <span>

namespace mp4v {

/** Reads header fields, most significant bit first. Bits behind the end are 0 and set overrun(). */
class BitCursor {
  public:
    BitCursor(std::span<const uint8_t> bytes, size_t first_byte) : bytes_(bytes), pos_(first_byte * 8) {}

    /** `count` is at most 32. */
    uint32_t Read(unsigned count) {
        uint32_t value = 0;
        for (unsigned i = 0; i < count; i++) value = value << 1 | ReadBit();
        return value;
    }
    bool ReadFlag() { return ReadBit() != 0; }
    void Skip(size_t count) { pos_ += count; }

    /** In bits from the first byte. */
    size_t position() const { return pos_; }
    bool overrun() const { return pos_ > bytes_.size() * 8; }

  private:
    uint32_t ReadBit() {
        const size_t byte = pos_ / 8;
        const unsigned shift = 7 - static_cast<unsigned>(pos_ % 8);
        pos_++;
        return byte < bytes_.size() ? (bytes_[byte] >> shift) & 1u : 0u;
    }

    std::span<const uint8_t> bytes_;
    size_t pos_;
};

/** Overwrites `count` bits at a bit position; they must lie inside. */
inline void WriteBits(std::span<uint8_t> bytes, size_t pos, unsigned count, uint32_t value) {
    for (unsigned i = 0; i < count; i++, pos++) {
        const auto mask = static_cast<uint8_t>(0x80u >> (pos % 8));
        const bool bit = (value >> (count - 1 - i) & 1) != 0;
        uint8_t& byte = bytes[pos / 8];
        byte = static_cast<uint8_t>(bit ? byte | mask : byte & ~mask);
    }
}

}  // namespace mp4v

#endif  // MP4VDEC_HOST_BIT_CURSOR_H_
