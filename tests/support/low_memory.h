// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Memory in the low 4 GiB, where 32-bit references to extension records can reach.
#ifndef MP4VDEC_TESTS_SUPPORT_LOW_MEMORY_H_
#define MP4VDEC_TESTS_SUPPORT_LOW_MEMORY_H_

#include <sys/mman.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "mp4vdec.h"

namespace mp4v::test {

// One page, zeroed, handed out piece by piece.
class LowMemory {
  public:
    LowMemory() {
        for (uintptr_t hint = 0x10000000; hint < 0xF0000000 && !start_; hint += 0x01000000) {
            void* const page =
                mmap(reinterpret_cast<void*>(hint), kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (page == MAP_FAILED) continue;
            if (reinterpret_cast<uintptr_t>(page) + kBytes <= UINT32_MAX) {
                start_ = static_cast<uint8_t*>(page);
            } else {
                munmap(page, kBytes);
            }
        }
        if (!start_) abort();
    }
    ~LowMemory() { munmap(start_, kBytes); }
    LowMemory(const LowMemory&) = delete;
    LowMemory& operator=(const LowMemory&) = delete;

    static uint32_t Address(const void* at) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(at)); }

    void* Take(size_t bytes) {
        void* const at = start_ + used_;
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
    uint8_t* start_ = nullptr;
    size_t used_ = 0;
};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_LOW_MEMORY_H_
