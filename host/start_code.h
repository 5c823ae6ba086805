/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_START_CODE_H_
#define MP4VDEC_HOST_START_CODE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace mp4v {

// Last bytes of start codes, ISO/IEC 14496-2 table 6-3.
constexpr uint8_t kSequenceCode = 0xB0;
constexpr uint8_t kEndOfSequenceCode = 0xB1;
constexpr uint8_t kUserDataCode = 0xB2;
constexpr uint8_t kGroupOfVopCode = 0xB3;
constexpr uint8_t kVisualObjectCode = 0xB5;
constexpr uint8_t kVopCode = 0xB6;

constexpr bool IsVolCode(uint8_t code) {
    return (code & 0xF0) == 0x20;
}

constexpr size_t kStartCodeSize = 4;

/** Position of the first complete start code (00 00 01 and one more byte) at or after `from`, else bytes.size(). */
inline size_t FindStartCode(std::span<const uint8_t> bytes, size_t from) {
    const size_t size = bytes.size();
    if (size < kStartCodeSize || from > size - kStartCodeSize) return size;
    const uint8_t* const data = bytes.data();
    for (size_t one = from + 2; one + 1 < size; one++) {
        const void* const found = std::memchr(data + one, 1, size - 1 - one);
        if (!found) break;
        one = static_cast<size_t>(static_cast<const uint8_t*>(found) - data);
        if (data[one - 1] == 0 && data[one - 2] == 0) return one - 2;
    }
    return size;
}

}  // namespace mp4v

#endif  // MP4VDEC_HOST_START_CODE_H_
