// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// An open decoder instance whose stages can be called one by one.
#ifndef MP4VDEC_TESTS_SUPPORT_INSTANCE_H_
#define MP4VDEC_TESTS_SUPPORT_INSTANCE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <random>
#include <utility>
#include <vector>

#include "c/image.h"
#include "common/context.h"
#include "common/picture.h"
#include "host/memory.h"
#include "tests/support/bit_writer.h"
#include "tests/support/reader_model.h"

// Vectors in test reports.
inline bool operator==(const Mp4vMv& a, const Mp4vMv& b) {
    return a.s32X == b.s32X && a.s32Y == b.s32Y;
}
inline std::ostream& operator<<(std::ostream& out, const Mp4vMv& mv) {
    return out << '(' << mv.s32X << ", " << mv.s32Y << ')';
}

namespace mp4v::test {

// Opened through the descriptor, closed again with a look at the memory service. Fields that headers would set have the
// values of a plain progressive stream: quantiser 8, DC apart, f_code 1, H.263 quantisation, no output.
class Instance {
  public:
    Instance(uint32_t width, uint32_t height) {
        memory_.FillNewBlocksWith(uint8_t{0xCD});
        Mp4vDecOpenParams params = {};
        params.u32Width = width;
        params.u32Height = height;
        void* handle = nullptr;
        EXPECT_EQ(ptVidDec_MPEG4->ptFuncs->pfOpen(&handle, &params, &memory_), MP4VDEC_OK);
        ctx_ = static_cast<Mp4vDecCtx*>(handle);
        ctx_->u32VopQuant = 8;
        ctx_->u32RunningQp = 8;
        ctx_->u32IntraDcThr = 32;
        ctx_->u32FcodeForward = 1;
        ctx_->u16QpCarry = 1;
        SetStream(BitWriter());
    }
    ~Instance() {
        EXPECT_EQ(ptVidDec_MPEG4->ptFuncs->pfClose(ctx_), MP4VDEC_OK);
        EXPECT_EQ(memory_.live_blocks(), 0u);
        EXPECT_TRUE(memory_.bad_frees().empty());
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    Mp4vDecCtx* get() const { return ctx_; }
    Mp4vDecCtx* operator->() const { return ctx_; }
    Mp4vDecCtx& operator*() const { return *ctx_; }

    // Another size within the opened one; odd ones too.
    void Resize(uint32_t width, uint32_t height) {
        ctx_->u32Width = width;
        ctx_->u32Height = height;
        VopDecReset(&ctx_->tCurFrame, ctx_, width, height);
        VopDecReset(&ctx_->tRefFrame, ctx_, width, height);
    }

    // What happens behind a decoded picture.
    void ExchangePlanes() {
        std::swap(ctx_->tCurFrame.pu8Y, ctx_->tRefFrame.pu8Y);
        std::swap(ctx_->tCurFrame.pu8U, ctx_->tRefFrame.pu8U);
        std::swap(ctx_->tCurFrame.pu8V, ctx_->tRefFrame.pu8V);
    }

    void SetStream(const BitWriter& bits, uint8_t padding = 0) { SetStream(bits.Bytes(), padding); }
    void SetStream(const std::vector<uint8_t>& bytes, uint8_t padding = 0) {
        chunk_ = std::make_unique<ExactChunk>(bytes, 0, padding);
        ctx_->tBs = chunk_->Reader();
    }

    // Bits from the start of the chunk.
    size_t Consumed() const {
        const auto* next = reinterpret_cast<const uint8_t*>(ctx_->tBs.pu32ReadPtr);
        return static_cast<size_t>(next - 8 - ctx_->tBs.pu8BufStart) * 8 + ctx_->tBs.u32BitPos;
    }

    MbInfo& Mb(int column, int row) const { return ctx_->ptMbInfo[row * (int)(ctx_->u32MbWidth + 1) + column]; }

    // All records with the spare ones, for comparing and filling.
    size_t mb_record_count() const { return (ctx_->u32MbWidth + 1) * (ctx_->u32MbHeight + 1); }
    MbInfo* mb_records() const { return ctx_->ptMbInfo - (ctx_->u32MbWidth + 1); }
    std::vector<uint8_t> MbRecordBytes() const {
        const auto* first = reinterpret_cast<const uint8_t*>(mb_records());
        return {first, first + mb_record_count() * sizeof(MbInfo)};
    }

    void StartAt(uint32_t column, uint32_t row) {
        StartMbRow(ctx_, row);
        while (column-- > 0) NextMb(&ctx_->tMb);
    }

    // The allocation that a frame's planes lie in, from its first byte on.
    uint8_t* Allocation(const VopFrame& frame) const {
        return frame.pu8Y - kLumaBorder * static_cast<ptrdiff_t>(ctx_->u32LumaStride) - kLumaBorder;
    }
    size_t allocation_bytes() const {
        const size_t stride = (ctx_->u32OpenWidth + 15) / 16 * 16 + 64;
        const size_t height = (ctx_->u32OpenHeight + 15) / 16 * 16 + 64;
        return stride * height * 3 / 2;
    }
    std::vector<uint8_t> Snapshot(const VopFrame& frame) const {
        return {Allocation(frame), Allocation(frame) + allocation_bytes()};
    }
    void Randomise(const VopFrame& frame, std::mt19937& rng) {
        uint8_t* first = Allocation(frame);
        for (size_t i = 0; i < allocation_bytes(); i++) first[i] = static_cast<uint8_t>(rng());
    }

    MemoryService& memory() { return memory_; }

  private:
    MemoryService memory_;
    Mp4vDecCtx* ctx_ = nullptr;
    std::unique_ptr<ExactChunk> chunk_;
};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_INSTANCE_H_
