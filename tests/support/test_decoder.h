// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// A decoder with its memory service and its buffers, for tests of the entry points.
#ifndef MP4VDEC_TESTS_SUPPORT_TEST_DECODER_H_
#define MP4VDEC_TESTS_SUPPORT_TEST_DECODER_H_

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "common/context.h"
#include "host/memory.h"
#include "mp4vdec.h"
#include "support/bit_writer.h"
#include "support/headers_writer.h"
#include "support/vlc_codes.h"

namespace mp4v::test {

constexpr uint8_t kUntouchedByte = 0xDD;
constexpr uint32_t kUntouched32 = 0xDDDDDDDD;

// Points a kernel variable somewhere else for its own lifetime.
template <typename T>
class Redirect {
  public:
    Redirect(T& variable, T target) : variable_(variable), old_(variable) { variable = target; }
    ~Redirect() { variable_ = old_; }
    Redirect(const Redirect&) = delete;
    Redirect& operator=(const Redirect&) = delete;

  private:
    T& variable_;
    T old_;
};

// A chunk in a heap block that ends with the 8 bytes behind it.
class Chunk {
  public:
    explicit Chunk(const std::vector<uint8_t>& bytes, uint8_t tail = 0)
        : size_(bytes.size()), memory_(new uint8_t[size_ + MP4VDEC_CHUNK_PADDING]) {
        if (size_) memcpy(memory_.get(), bytes.data(), size_);
        memset(memory_.get() + size_, tail, MP4VDEC_CHUNK_PADDING);
    }
    explicit Chunk(const BitWriter& bits) : Chunk(bits.Bytes()) {}

    const uint8_t* data() const { return memory_.get(); }
    uint32_t size() const { return static_cast<uint32_t>(size_); }

  private:
    size_t size_;
    std::unique_ptr<uint8_t[]> memory_;
};

struct Processed {
    uint32_t status = 0;
    Mp4vDecOutArgs out;  // what was not written is 0xDD
};

// Opened by the constructor; closed by Close() or the destructor.
class TestDecoder {
  public:
    TestDecoder(uint32_t width, uint32_t height, uint32_t ext_param = 0) {
        memory.FillNewBlocksWith(0xCD);
        picture.assign(static_cast<size_t>(width) * height * 3 / 2, 0xA5);
        const Mp4vDecOpenParams params = {{0xFFFFFFFF, 0xFFFFFFFF}, width, height, ext_param};
        if (Mp4vDecoderOpen(&handle, &params, &memory) != MP4VDEC_OK) abort();
    }
    ~TestDecoder() {
        if (handle) Close();
    }
    TestDecoder(const TestDecoder&) = delete;
    TestDecoder& operator=(const TestDecoder&) = delete;

    uint32_t Close() {
        const uint32_t status = Mp4vDecoderClose(handle);
        handle = nullptr;
        return status;
    }

    Processed Process(const BitWriter& bits, uint32_t flags = 0) { return Process(Chunk(bits), flags); }
    Processed Process(const Chunk& chunk, uint32_t flags = 0) { return ProcessInto(picture.data(), chunk, flags); }

    Processed ProcessInto(uint8_t* dst, const Chunk& chunk, uint32_t flags = 0) {
        Mp4vDecInArgs in = {};
        in.pu8Buf = chunk.data();
        in.u32BufLen = chunk.size();
        in.u64TimeStamp = time_stamp;
        in.u32CtrlFlags = flags;
        Processed result;
        memset(&result.out, kUntouchedByte, sizeof result.out);
        result.out.pu8Dst = dst;
        result.status = Mp4vDecoderProcess(handle, &in, &result.out);
        return result;
    }

    Mp4vDecCtx& ctx() const { return *static_cast<Mp4vDecCtx*>(handle); }

    MemoryService memory;  // fills new blocks with 0xCD
    void* handle = nullptr;
    uint64_t time_stamp = 0x0123456789ABCDEF;
    std::vector<uint8_t> picture;
};

struct Colour {
    int y, u, v;
};

// An I-VOP of one colour. The first macroblock changes the DC from its default of 128; all others take it over from
// their neighbours. Colours 1..255; the quantiser must be at most 4, where a DC step is one sample value.
inline void PutFlatIntraVop(BitWriter& out, const VolHeader& vol, Colour colour, const VopHeader& vop = {}) {
    vop.PutTo(out, vol);
    const uint32_t count = (vol.width + 15) / 16 * ((vol.height + 15) / 16);
    for (uint32_t i = 0; i < count; i++) {
        const Colour change = i == 0 ? Colour{colour.y - 128, colour.u - 128, colour.v - 128} : Colour{0, 0, 0};
        out.Bits(McbpcIntraCode(3, 0)).Put(0, 1).Bits(CbpyCode(0, true));
        if (vol.interlaced) out.Put(0, 1);
        out.Bits(DcCode(change.y, true)).Bits(DcCode(0, true)).Bits(DcCode(0, true)).Bits(DcCode(0, true));
        out.Bits(DcCode(change.u, false)).Bits(DcCode(change.v, false));
    }
}

// A P-VOP whose macroblocks are all not coded.
inline void PutSkippedPredictedVop(BitWriter& out, const VolHeader& vol, VopHeader vop = {}) {
    vop.coding_type = 1;
    vop.PutTo(out, vol);
    const uint32_t count = (vol.width + 15) / 16 * ((vol.height + 15) / 16);
    for (uint32_t i = 0; i < count; i++) out.Put(1, 1);
}

inline void PutNotCodedVop(BitWriter& out, const VolHeader& vol, VopHeader vop = {}) {
    vop.coding_type = 1;
    vop.coded = false;
    vop.PutTo(out, vol);
}

// A chunk of one VOL header and one VOP.
inline BitWriter FlatIntra(const VolHeader& vol, Colour colour, const VopHeader& vop = {}) {
    BitWriter out;
    vol.PutTo(out);
    PutFlatIntraVop(out, vol, colour, vop);
    return out;
}

inline BitWriter FlatIntraAlone(const VolHeader& vol, Colour colour, const VopHeader& vop = {}) {
    BitWriter out;
    PutFlatIntraVop(out, vol, colour, vop);
    return out;
}

inline BitWriter SkippedPredicted(const VolHeader& vol, const VopHeader& vop = {}) {
    BitWriter out;
    PutSkippedPredictedVop(out, vol, vop);
    return out;
}

inline BitWriter NotCoded(const VolHeader& vol, const VopHeader& vop = {}) {
    BitWriter out;
    PutNotCodedVop(out, vol, vop);
    return out;
}

// The compact picture of one colour, followed by `rest` bytes of 0xA5.
inline std::vector<uint8_t> FlatPicture(uint32_t width, uint32_t height, Colour colour, size_t rest = 0) {
    const size_t luma = static_cast<size_t>(width) * height;
    std::vector<uint8_t> picture(luma, static_cast<uint8_t>(colour.y));
    picture.resize(luma + luma / 4, static_cast<uint8_t>(colour.u));
    picture.resize(luma + luma / 4 * 2, static_cast<uint8_t>(colour.v));
    picture.resize(picture.size() + rest, 0xA5);
    return picture;
}

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_TEST_DECODER_H_
