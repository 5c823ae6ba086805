// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// A chunk that memory checkers can guard, and the bit reader told bit by bit.
#ifndef MP4VDEC_TESTS_SUPPORT_READER_MODEL_H_
#define MP4VDEC_TESTS_SUPPORT_READER_MODEL_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "common/bsreader.h"

namespace mp4v::test {

// A chunk on the heap whose allocation ends 8 bytes behind it.
class ExactChunk {
  public:
    explicit ExactChunk(const std::vector<uint8_t>& bytes, size_t offset = 0, uint8_t padding = 0)
        : length_(static_cast<uint32_t>(bytes.size())), memory_(new uint8_t[offset + bytes.size() + 8]) {
        data_ = memory_.get() + offset;
        std::copy(bytes.begin(), bytes.end(), data_);
        std::fill_n(data_ + length_, 8, padding);
    }

    uint8_t* data() { return data_; }
    const uint8_t* data() const { return data_; }
    uint32_t length() const { return length_; }
    BsReader Reader() const {
        BsReader reader;
        BsInit(&reader, data_, length_);
        return reader;
    }

  private:
    uint32_t length_;
    std::unique_ptr<uint8_t[]> memory_;
    uint8_t* data_;
};

class ReaderModel {
  public:
    explicit ReaderModel(const ExactChunk& chunk) : chunk_(chunk) {}

    // The bit at a distance from the read position, as a digit. Nothing exists more than 8 bytes behind the chunk.
    char Digit(uint64_t distance = 0) const { return DigitAt(position_ + distance); }

    std::string Digits(unsigned count) const {
        std::string digits;
        for (unsigned i = 0; i < count; i++) digits += Digit(i);
        return digits;
    }

    uint32_t Show(unsigned count) const {
        uint32_t value = 0;
        for (unsigned i = 0; i < count; i++) value = value * 2 + (Digit(i) == '1');
        return value;
    }

    // Overrun is only looked for on the way into another 32-bit word, and then counts whole bytes.
    void Skip(unsigned count) {
        const uint64_t word = position_ / 32;
        position_ += count;
        if (position_ / 32 != word && (position_ + 7) / 8 > chunk_.length()) error_ = ERR_VID_MPEG4DEC_BITSTREAM;
    }

    uint32_t Read(unsigned count) {
        const uint32_t value = Show(count);
        Skip(count);
        return value;
    }

    void set_error(uint32_t error) { error_ = error; }
    uint32_t error() const { return error_; }
    uint64_t position() const { return position_; }

    // What the reader's members must hold.
    BsReader Members() const {
        const uint64_t word = position_ / 32;
        BsReader reader;
        reader.u32CurWord = WordAt(word);
        reader.u32NextWord = WordAt(word + 1);
        reader.u32BitPos = static_cast<uint32_t>(position_ % 32);
        reader.pu32ReadPtr =
            reinterpret_cast<const uint32_t*>(reinterpret_cast<uintptr_t>(chunk_.data()) + word * 4 + 8);
        reader.pu8BufStart = chunk_.data();
        reader.u32BufLen = chunk_.length();
        reader.u32BsError = error_;
        return reader;
    }

  private:
    char DigitAt(uint64_t bit) const {
        if (bit / 8 >= uint64_t{chunk_.length()} + 8) return '0';
        return chunk_.data()[bit / 8] >> (7 - bit % 8) & 1 ? '1' : '0';
    }

    uint32_t WordAt(uint64_t word) const {
        uint32_t value = 0;
        for (unsigned i = 0; i < 32; i++) value = value * 2 + (DigitAt(word * 32 + i) == '1');
        return value;
    }

    const ExactChunk& chunk_;
    uint64_t position_ = 0;
    uint32_t error_ = 0;
};

}  // namespace mp4v::test

inline bool operator==(const BsReader& a, const BsReader& b) {
    return a.u32CurWord == b.u32CurWord && a.u32NextWord == b.u32NextWord && a.u32BitPos == b.u32BitPos &&
           a.pu32ReadPtr == b.pu32ReadPtr && a.pu8BufStart == b.pu8BufStart && a.u32BufLen == b.u32BufLen &&
           a.u32BsError == b.u32BsError;
}

inline std::ostream& operator<<(std::ostream& out, const BsReader& r) {
    const auto next = reinterpret_cast<uintptr_t>(r.pu32ReadPtr) - reinterpret_cast<uintptr_t>(r.pu8BufStart);
    return out << std::hex << r.u32CurWord << ":" << r.u32NextWord << std::dec << " bit " << r.u32BitPos
               << " next byte " << next << " of " << r.u32BufLen << " error " << std::hex << r.u32BsError << std::dec;
}

#endif  // MP4VDEC_TESTS_SUPPORT_READER_MODEL_H_
