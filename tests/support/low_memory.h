// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Memory in the low 4 GiB, where 32-bit references to extension records can reach.
#ifndef MP4VDEC_TESTS_SUPPORT_LOW_MEMORY_H_
#define MP4VDEC_TESTS_SUPPORT_LOW_MEMORY_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "host/low_memory.h"
#include "mp4vdec.h"

namespace mp4v::test {

// Zeroed, handed out piece by piece.
class LowMemory {
  public:
    LowMemory() {
        if (!memory_.data()) abort();
    }

    static uint32_t Address(const void* at) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(at)); }

    void* Take(size_t bytes) {
        void* const at = memory_.data() + used_;
        used_ += (bytes + 15) & ~size_t{15};
        if (used_ > kBytes) abort();
        return at;
    }

    // The address of a record of four words.
    uint32_t Record(uint32_t type, uint32_t value, uint32_t second = 0, uint32_t third = 0) {
        const std::array<uint32_t, 4> words = {type, second, third, value};
        void* const at = Take(sizeof words);
        memcpy(at, words.data(), sizeof words);
        return Address(at);
    }

    // The address of a list. `records` must outlive its use: it may lie anywhere.
    uint32_t List(const std::vector<uint32_t>& records, int32_t count) {
        auto* const list = static_cast<Mp4vDecExtList*>(Take(sizeof(Mp4vDecExtList)));
        *list = {MP4VDEC_EXT_LIST_MAGIC, count, records.data()};
        return Address(list);
    }
    uint32_t List(const std::vector<uint32_t>& records) { return List(records, static_cast<int32_t>(records.size())); }

  private:
    static constexpr size_t kBytes = 4096;
    mp4v::LowMemory memory_{kBytes};
    size_t used_ = 0;
};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_LOW_MEMORY_H_
