/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "host/memory.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "mp4vdec.h"

namespace mp4v {
namespace {

constexpr size_t kFreedRemembered = 1024;

std::string Text(const char* text) {
    return text ? text : "";
}

uintptr_t Address(const void* block) {
    return reinterpret_cast<uintptr_t>(block);
}

}  // namespace

MemoryService::~MemoryService() {
    for (const auto& [block, size] : live_) std::free(block);
}

void* MemoryService::Allocate(uint32_t size, uint32_t alignment, int32_t tag, const char* file, int32_t line) noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    void* block = nullptr;
    try {
        block = AllocateLocked(size, alignment);
        if (recording_) {
            calls_.push_back({MemoryCall::Kind::kAllocate, block, size, alignment, tag, Text(file), line});
        }
    } catch (...) {  // the caller is C: it can take a null, but no exception
        if (block && live_.erase(block)) {
            live_bytes_ -= size;
            allocations_--;
        }
        std::free(block);
        return nullptr;
    }
    return block;
}

void* MemoryService::AllocateLocked(uint32_t size, uint32_t alignment) {
    if (FailsNow() || !std::has_single_bit(alignment)) return nullptr;
    void* block = nullptr;
    const size_t bytes = std::max<size_t>(size, 1);
    if (posix_memalign(&block, std::max<size_t>(alignment, sizeof(void*)), bytes) != 0) return nullptr;
    try {
        live_.emplace(block, size);
    } catch (...) {
        std::free(block);
        return nullptr;
    }
    // An address that is in use again is no longer a freed one.
    freed_.erase(std::remove(freed_.begin(), freed_.end(), Address(block)), freed_.end());
    if (fill_) std::memset(block, *fill_, size);
    allocations_++;
    live_bytes_ += size;
    peak_bytes_ = std::max(peak_bytes_, live_bytes_);
    return block;
}

bool MemoryService::FailsNow() {
    return fail_in_ > 0 && --fail_in_ == 0;
}

void MemoryService::Free(void* block, int32_t tag, const char* file, int32_t line) noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    try {
        FreeLocked(block, tag, file, line);
    } catch (...) {  // only the notes can fail; the block is freed all the same
    }
}

void MemoryService::FreeLocked(void* block, int32_t tag, const char* file, int32_t line) {
    const auto found = live_.find(block);
    const uint32_t size = found == live_.end() ? 0 : found->second;
    const bool known = found != live_.end();
    const std::unique_ptr<void, decltype(&std::free)> owner(known ? block : nullptr, &std::free);
    if (known) {
        live_.erase(found);
        live_bytes_ -= size;
        frees_++;
    }
    if (recording_) calls_.push_back({MemoryCall::Kind::kFree, block, size, 0, tag, Text(file), line});
    if (known) {
        RememberFreed(block);
    } else if (block) {
        const bool twice = std::find(freed_.begin(), freed_.end(), Address(block)) != freed_.end();
        bad_frees_.push_back({twice ? BadFree::Kind::kDouble : BadFree::Kind::kForeign, block, tag, Text(file), line});
    }
}

void MemoryService::RememberFreed(void* block) {
    if (freed_.size() == kFreedRemembered) freed_.pop_front();
    freed_.push_back(Address(block));
}

void MemoryService::FailAllocation(size_t n) {
    const std::lock_guard<std::mutex> lock(mutex_);
    fail_in_ = n;
}

void MemoryService::Record(bool on) {
    const std::lock_guard<std::mutex> lock(mutex_);
    recording_ = on;
}

void MemoryService::ClearCalls() {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.clear();
}

void MemoryService::FillNewBlocksWith(std::optional<uint8_t> byte) {
    const std::lock_guard<std::mutex> lock(mutex_);
    fill_ = byte;
}

size_t MemoryService::live_blocks() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return live_.size();
}

size_t MemoryService::live_bytes() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return live_bytes_;
}

size_t MemoryService::peak_bytes() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return peak_bytes_;
}

size_t MemoryService::allocations() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return allocations_;
}

size_t MemoryService::frees() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return frees_;
}

std::vector<MemoryCall> MemoryService::calls() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<BadFree> MemoryService::bad_frees() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return bad_frees_;
}

}  // namespace mp4v

extern "C" {

MP4VDEC_API void* VideoMemMalloc_c(void* pvMemCtx, uint32_t u32Size, uint32_t u32Align, int32_t s32Tag,
                                   const char* ps8File, int32_t s32Line) {
    if (!pvMemCtx) return nullptr;
    return static_cast<mp4v::MemoryService*>(pvMemCtx)->Allocate(u32Size, u32Align, s32Tag, ps8File, s32Line);
}

MP4VDEC_API void VideoMemFree_c(void* pvMemCtx, void* pvMem, int32_t s32Tag, const char* ps8File, int32_t s32Line) {
    if (!pvMemCtx) return;
    static_cast<mp4v::MemoryService*>(pvMemCtx)->Free(pvMem, s32Tag, ps8File, s32Line);
}

}  // extern "C"
