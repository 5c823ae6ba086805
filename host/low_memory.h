/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_LOW_MEMORY_H_
#define MP4VDEC_HOST_LOW_MEMORY_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "mp4vdec.h"

namespace mp4v {

/**
 * Pages in the low 4 GiB of the address space, zeroed, for what must be found through a 32-bit address.
 *
 * Some systems allow none there (a high lower bound for mappings, a sanitizer's shadow, an emulator): then data() is
 * null and problem() says why.
 */
class LowMemory {
  public:
    explicit LowMemory(size_t bytes);
    ~LowMemory();
    LowMemory(const LowMemory&) = delete;
    LowMemory& operator=(const LowMemory&) = delete;

    uint8_t* data() const { return data_; }
    size_t size() const { return data_ ? size_ : 0; }
    /** Of the byte at `offset`; only with data(). */
    uint32_t address(size_t offset = 0) const;
    /** Empty when all is well. */
    const std::string& problem() const { return problem_; }

  private:
    size_t size_;
    uint8_t* data_ = nullptr;
    std::string problem_;
};

/** A record for Mp4vDecOpenParams::u32ExtParam: the type, then three words whose meaning the type tells. */
struct ExtensionRecord {
    uint32_t type = MP4VDEC_EXT_PIC_STRUCT;
    std::array<uint32_t, 3> words{};
};

/** Tells the decoder that the fields of every picture are stored one above the other. */
constexpr ExtensionRecord FieldsStacked() {
    return {MP4VDEC_EXT_PIC_STRUCT, {0, 0, 2}};
}

/** A list of extension records where the decoder can find it. It is read while the decoder opens. */
class ExtensionList {
  public:
    explicit ExtensionList(std::span<const ExtensionRecord> records);

    /** For Mp4vDecOpenParams::u32ExtParam; 0, which means none, when there are no records or no memory for them. */
    uint32_t param() const { return param_; }
    /** Empty when all is well. */
    const std::string& problem() const { return memory_.problem(); }

  private:
    LowMemory memory_;
    uint32_t param_ = 0;
};

}  // namespace mp4v

#endif  // MP4VDEC_HOST_LOW_MEMORY_H_
