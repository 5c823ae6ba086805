/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_MEMORY_H_
#define MP4VDEC_HOST_MEMORY_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace mp4v {

/** One call of the memory service, as it arrived. */
struct MemoryCall {
    enum class Kind { kAllocate, kFree };

    Kind kind;
    void* block;         // null: the allocation failed, or null was freed
    uint32_t size;       // bytes asked for; of a free, those of the block
    uint32_t alignment;  // 0 for a free
    int32_t tag;
    std::string file;
    int32_t line;
};

/** A free that did not name a live block. Nothing was freed. */
struct BadFree {
    enum class Kind { kDouble, kForeign };

    Kind kind;
    void* block;
    int32_t tag;
    std::string file;
    int32_t line;
};

/**
 * The media memory service that the decoder takes its memory from. The address of an object is the memory context
 * given to Mp4vDecoderOpen().
 *
 * Misuse is recorded, never fatal. All members may be called from several threads; blocks still live when the
 * service is destroyed are released with it.
 */
class MemoryService {
  public:
    MemoryService() = default;
    ~MemoryService();
    MemoryService(const MemoryService&) = delete;
    MemoryService& operator=(const MemoryService&) = delete;

    /** Returns aligned memory, or null: out of memory, told to fail, or `alignment` is not a power of two. */
    void* Allocate(uint32_t size, uint32_t alignment, int32_t tag, const char* file, int32_t line) noexcept;

    /** Frees a live block; anything else but null becomes a bad free. */
    void Free(void* block, int32_t tag, const char* file, int32_t line) noexcept;

    /** Makes the `n`-th allocation from now fail, 1 being the next one; 0 takes that back. */
    void FailAllocation(size_t n);

    /** Keeps a list of all calls from now on, or stops keeping it. The list survives until ClearCalls(). */
    void Record(bool on);
    void ClearCalls();

    /** Fills new blocks with a byte, to show who relies on fresh memory being zero. */
    void FillNewBlocksWith(std::optional<uint8_t> byte);

    size_t live_blocks() const;
    size_t live_bytes() const;
    size_t peak_bytes() const;
    size_t allocations() const;  // successful ones
    size_t frees() const;        // of live blocks
    std::vector<MemoryCall> calls() const;
    std::vector<BadFree> bad_frees() const;

  private:
    void* AllocateLocked(uint32_t size, uint32_t alignment);
    bool FailsNow();
    void FreeLocked(void* block, int32_t tag, const char* file, int32_t line);
    void RememberFreed(void* block);

    mutable std::mutex mutex_;
    std::unordered_map<void*, uint32_t> live_;
    std::deque<uintptr_t> freed_;  // addresses of the latest blocks, to tell a double free from a foreign one
    std::vector<MemoryCall> calls_;
    std::vector<BadFree> bad_frees_;
    std::optional<uint8_t> fill_;
    size_t fail_in_ = 0;
    size_t live_bytes_ = 0;
    size_t peak_bytes_ = 0;
    size_t allocations_ = 0;
    size_t frees_ = 0;
    bool recording_ = false;
};

}  // namespace mp4v

#endif  // MP4VDEC_HOST_MEMORY_H_
