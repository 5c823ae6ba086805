/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "host/low_memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>

namespace mp4v {
namespace {

constexpr uint64_t kEnd = uint64_t{1} << 32;

bool IsLow(const void* start, size_t bytes) {
    return uint64_t{reinterpret_cast<uintptr_t>(start)} + bytes <= kEnd;
}

void* MapAt(uintptr_t hint, size_t bytes, int flags) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a place is asked for by its number
    void* const at = reinterpret_cast<void*>(hint);
    void* const start = mmap(at, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | flags, -1, 0);
    if (start == MAP_FAILED) return nullptr;
    if (IsLow(start, bytes)) return start;
    munmap(start, bytes);
    return nullptr;
}

void* MapLow(size_t bytes) {
#ifdef MAP_32BIT
    if (void* const start = MapAt(0, bytes, MAP_32BIT)) return start;
#endif
    if (sizeof(void*) == 4) return MapAt(0, bytes, 0);
        // Elsewhere there is no such flag, and where the kernel does not know this one, the address is but a hint.
#ifdef MAP_FIXED_NOREPLACE
    constexpr int kFlags = MAP_FIXED_NOREPLACE;
#else
    constexpr int kFlags = 0;
#endif
    constexpr uint64_t kStep = 4 << 20;
    for (uint64_t hint = kStep; hint + bytes <= kEnd; hint += kStep) {
        if (void* const start = MapAt(static_cast<uintptr_t>(hint), bytes, kFlags)) return start;
    }
    return nullptr;
}

size_t WholePages(size_t bytes) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

constexpr size_t kRecordBytes = 4 * sizeof(uint32_t);

// The list, the addresses of its records, the records.
size_t ListBytes(size_t records) {
    return records ? sizeof(Mp4vDecExtList) + records * (sizeof(uint32_t) + kRecordBytes) : 0;
}

}  // namespace

LowMemory::LowMemory(size_t bytes) : size_(bytes) {
    if (bytes == 0) return;
    if (bytes > std::numeric_limits<uint32_t>::max() / 2) {
        problem_ = "so much memory will not be had below 4 GiB";
        return;
    }
    data_ = static_cast<uint8_t*>(MapLow(WholePages(bytes)));
    if (!data_) problem_ = std::string("no memory below 4 GiB on this system: ") + std::strerror(errno);
}

LowMemory::~LowMemory() {
    if (data_) munmap(data_, WholePages(size_));
}

uint32_t LowMemory::address(size_t offset) const {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(data_) + offset);
}

ExtensionList::ExtensionList(std::span<const ExtensionRecord> records) : memory_(ListBytes(records.size())) {
    if (!memory_.data()) return;
    auto* const list = reinterpret_cast<Mp4vDecExtList*>(memory_.data());
    auto* const addresses = reinterpret_cast<uint32_t*>(memory_.data() + sizeof *list);
    const size_t first = sizeof *list + records.size() * sizeof *addresses;
    for (size_t i = 0; i < records.size(); i++) {
        const size_t offset = first + i * kRecordBytes;
        const ExtensionRecord& record = records[i];
        const std::array<uint32_t, 4> words = {record.type, record.words[0], record.words[1], record.words[2]};
        std::memcpy(memory_.data() + offset, words.data(), kRecordBytes);
        addresses[i] = memory_.address(offset);
    }
    *list = {MP4VDEC_EXT_LIST_MAGIC, static_cast<int32_t>(records.size()), addresses};
    param_ = memory_.address();
}

}  // namespace mp4v
