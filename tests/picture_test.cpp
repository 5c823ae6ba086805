// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The output of a picture's macroblocks: together where they are only copied, and the same as one by one.
#include "common/picture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "common/kernels.h"
#include "common/postproc.h"
#include "tests/support/instance.h"
#include "tests/support/sample_block.h"

namespace mp4v::test {
namespace {

int g_luma_copies, g_chroma_copies;
void CountLumaCopy(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch) {
    g_luma_copies++;
    MemCopyStride16x16_c(src, src_pitch, dst, dst_pitch);
}
void CountChromaCopy(const uint8_t* src, int32_t src_pitch, uint8_t* dst, int32_t dst_pitch) {
    g_chroma_copies++;
    MemCopyStride8x8_c(src, src_pitch, dst, dst_pitch);
}

// A decoder with a random frame and quantisers and the picture that it outputs to.
class Player {
  public:
    Player(uint32_t width, uint32_t height, unsigned seed, unsigned deblocked_of_eight)
        : decoder_((width + 15) / 16 * 16, (height + 15) / 16 * 16), out_(size_t{width} * height * 3 / 2) {
        std::mt19937 rng(seed);
        decoder_.Resize(width, height);
        decoder_.Randomise(decoder_->tCurFrame, rng);
        Fill(out_.data(), size(), kAnyByte, rng);
        decoder_->u32PostProcOn = 1;
        decoder_->s32DeblockQpThr = 10;
        decoder_->u32LeftDeblockValid = 1;
        for (uint32_t n = 0; n < decoder_.mb_record_count(); n++)
            decoder_.mb_records()[n].u8Qp = uint8_t(rng() % 8 < deblocked_of_eight ? 11 + rng() % 21 : 1 + rng() % 10);
    }
    Mp4vDecCtx* operator->() const { return decoder_.get(); }

    // The picture's macroblocks up to the last one, except those left out.
    template <typename Fn>
    void ForEach(uint32_t last, const std::vector<bool>& left_out, const Fn& fn) {
        const uint32_t width = decoder_->u32MbWidth;
        for (uint32_t n = 0; n <= last; n++) {
            decoder_.StartAt(n % width, n / width);
            fn(n % width, n / width, left_out[n]);
        }
    }
    void PlayTogether(uint32_t last, const std::vector<bool>& left_out, uint32_t flags) {
        PictureOutput output = {decoder_.get(), out_.data(), flags, 0, 0, 0};
        ForEach(last, left_out, [&](uint32_t column, uint32_t row, bool out) {
            if (column == 0) output.StartRow(row);
            out ? output.Flush(column) : output.Add(column);
            if (column + 1 == decoder_->u32MbWidth || row * decoder_->u32MbWidth + column == last)
                output.Flush(column + 1);
        });
    }
    void PlayOneByOne(uint32_t last, const std::vector<bool>& left_out, uint32_t flags) {
        const size_t luma = size() / 3 * 2;
        ForEach(last, left_out, [&](uint32_t column, uint32_t row, bool out) {
            if (out) return;
            const bool deblock = decoder_->tMb.ptCurMbInfo->u8Qp > 10;
            PostProcess_MB(decoder_.get(), column, row, out_.data(), out_.data() + luma, out_.data() + luma * 5 / 4,
                           flags | (deblock ? kPostDeblock : 0u));
        });
    }
    std::vector<uint8_t> Picture() const { return {out_.data(), out_.data() + size()}; }

  private:
    size_t size() const { return size_t{decoder_->u32Width} * decoder_->u32Height * 3 / 2; }

    Instance decoder_;
    GuardedBytes out_;
};

void Compare(uint32_t width, uint32_t height, uint32_t flags, unsigned seed) {
    SCOPED_TRACE(testing::Message() << width << " x " << height << ", flags " << flags << ", seed " << seed);
    std::mt19937 rng(seed);
    Player together(width, height, seed, seed % 3), alone(width, height, seed, seed % 3);
    const uint32_t count = together->u32MbWidth * together->u32MbHeight;
    const uint32_t last = seed % 2 ? count - 1 : uint32_t(rng() % count);
    std::vector<bool> left_out(count);
    for (uint32_t n = 0; n < count; n++) left_out[n] = seed % 4 >= 2 && rng() % 8 == 0;
    together.PlayTogether(last, left_out, flags);
    alone.PlayOneByOne(last, left_out, flags);
    ASSERT_EQ(together.Picture(), alone.Picture());
    ASSERT_EQ(together->u32LeftDeblockValid, alone->u32LeftDeblockValid);
}

TEST(PictureOutput, IsTheSameAsOneMacroblockAfterAnother) {
    for (unsigned seed = 0; seed < 12; seed++) {
        for (uint32_t width = 16; width <= 16 * 19; width += 48) {
            for (uint32_t height = 16; height <= 48; height += 8) Compare(width, height, 0, seed);
        }
        Compare(176, 144, kPostFieldStacked, seed);
        Compare(352, 480, kPostDeinterlace, seed);
    }
}

TEST(PictureOutput, IsTheSameWhereMacroblocksReachIntoEachOther) {
    for (unsigned seed = 0; seed < 12; seed++) {
        for (uint32_t width = 2; width <= 80; width += 6) Compare(width, 2 * width, 0, seed);
    }
}

TEST(PictureOutput, LeavesThePictureAloneWhenItIsNotWanted) {
    Player player(64, 48, 1, 4);
    player->u32PostProcOn = 0;
    const std::vector<uint8_t> before = player.Picture();
    player.PlayTogether(11, std::vector<bool>(12), 0);
    EXPECT_EQ(player.Picture(), before);
    EXPECT_EQ(player->u32LeftDeblockValid, 1u);
}

TEST(PictureOutput, CallsOtherCopyKernelsForEveryMacroblock) {
    Player together(64, 48, 1, 2), alone(64, 48, 1, 2);
    alone.PlayOneByOne(11, std::vector<bool>(12), 0);
    g_luma_copies = g_chroma_copies = 0;
    {
        Replace<Mp4vMemCopyStride*> luma(MemCopyStride16x16, CountLumaCopy);
        together.PlayTogether(11, std::vector<bool>(12), 0);
    }
    EXPECT_EQ(g_luma_copies, 12);
    EXPECT_EQ(together.Picture(), alone.Picture());
    Replace<Mp4vMemCopyStride*> chroma(MemCopyStride8x8, CountChromaCopy);
    together.PlayTogether(11, std::vector<bool>(12), 0);
    EXPECT_EQ(g_chroma_copies, 24);
}

}  // namespace
}  // namespace mp4v::test
