// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/postproc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "common/kernels.h"
#include "tests/support/instance.h"
#include "tests/support/sample_block.h"

namespace mp4v::test {
namespace {

// ---- Post-processing told byte by byte

// Memory without ends: what lies outside reads as 0 and swallows writes.
class Memory {
  public:
    explicit Memory(size_t bytes) : bytes_(bytes) {}

    int Get(int64_t at) const { return at >= 0 && at < (int64_t)bytes_.size() ? bytes_[(size_t)at] : 0; }
    void Set(int64_t at, int value) {
        if (at >= 0 && at < (int64_t)bytes_.size()) bytes_[(size_t)at] = (uint8_t)value;
    }
    std::vector<uint8_t>& bytes() { return bytes_; }

  private:
    std::vector<uint8_t> bytes_;
};

class Model {
  public:
    // `initial` is the caller's picture before its first macroblock.
    Model(const Instance& decoder, const std::vector<uint8_t>& initial)
        : decoder_(decoder), width_(decoder->u32Width), height_(decoder->u32Height), out_(initial.size()) {
        out_.bytes() = initial;
    }

    std::vector<uint8_t>& picture() { return out_.bytes(); }
    bool left_valid() const { return left_valid_; }
    void set_left_valid(bool valid) { left_valid_ = valid; }

    void Process(int64_t mb_x, int64_t mb_y, uint32_t flags) {
        const int64_t w = width_, wc = width_ / 2, rows = decoder_->u32MbHeight;
        const int64_t u_start = width_ * height_, v_start = width_ * height_ * 5 / 4;
        int64_t y = 0, c = 0;
        bool filtered = mb_x > 0 && mb_y > 0;
        if (!(flags & 1)) {
            pitch_ = w;
            chroma_pitch_ = wc;
            y = 16 * mb_x + 16 * mb_y * w;
            c = 8 * mb_x + 8 * mb_y * wc;
            Locate(y, u_start + c, v_start + c);
            if (flags & 2) {
                DeinterlaceFrame();
            } else if (mb_y == rows - 1 && height_ % 16 != 0) {
                Copy(8);
            } else {
                Copy(16);
            }
        } else {
            pitch_ = 2 * w;
            chroma_pitch_ = 2 * wc;
            if (mb_y < rows / 2) {
                y = 16 * mb_x + 32 * mb_y * w;
                c = 8 * mb_x + 16 * mb_y * wc;
                Locate(y, u_start + c, v_start + c);
                Copy(16);
            } else {
                const int64_t r = 16 * mb_y - 8 * rows;
                y = w + 2 * r * w + 16 * mb_x;
                c = wc + r * wc + 8 * mb_x;
                Locate(y, u_start + c, v_start + c);
                if (flags & 2) {
                    DeinterlaceField();
                } else {
                    Copy(16);
                }
                filtered = mb_x > 0 && mb_y != rows / 2;
            }
        }
        if (filtered && (flags & 4)) {
            Deblock(decoder_->tMb.ptCurMbInfo->u8Qp);
            left_valid_ = true;
        } else {
            left_valid_ = false;
        }
    }

  private:
    struct Block {
        int64_t at, pitch;
        const uint8_t* source;
        int64_t source_pitch;
        int size;
    };

    void Locate(int64_t y, int64_t u, int64_t v) {
        const int64_t stride = decoder_->u32LumaStride;
        planes_[0] = {y, pitch_, decoder_->tMb.pu8DstY, stride, 16};
        planes_[1] = {u, chroma_pitch_, decoder_->tMb.pu8DstU, stride / 2, 8};
        planes_[2] = {v, chroma_pitch_, decoder_->tMb.pu8DstV, stride / 2, 8};
    }

    void Copy(int luma_rows) {
        for (const Block& b : planes_) {
            for (int y = 0; y < luma_rows * b.size / 16; y++) {
                for (int x = 0; x < b.size; x++) out_.Set(b.at + y * b.pitch + x, b.source[y * b.source_pitch + x]);
            }
        }
    }

    // True when something moved: the rows of different fields differ more than those of the same field.
    static bool Moved(const std::array<int, 8>& a, const std::array<int, 8>& b, const std::array<int, 8>& x,
                      const std::array<int, 8>& d) {
        int within = 0, between = 0;
        for (size_t i = 0; i < 8; i++) {
            within += std::abs(a[i] - b[i]) + std::abs(x[i] - d[i]);
            between += std::abs(a[i] - x[i]) + std::abs(x[i] - b[i]);
        }
        return between > within;
    }

    template <typename Get>
    static std::array<int, 8> Eight(const Get& get) {
        std::array<int, 8> row;
        for (int i = 0; i < 8; i++) row[(size_t)i] = get(i);
        return row;
    }

    void DeinterlaceFrame() {
        for (const Block& b : planes_) {
            for (int x = 0; x < b.size; x += 8) {
                const auto row = [&](int y) {
                    return Eight([&](int i) { return b.source[y * b.source_pitch + x + i]; });
                };
                const auto put = [&](int y, const std::array<int, 8>& values) {
                    for (int i = 0; i < 8; i++) out_.Set(b.at + y * b.pitch + x + i, values[(size_t)i]);
                };
                bool moved = false;
                for (int y = 0; y < b.size - 2; y += 2) {
                    put(y, row(y));
                    moved = Moved(row(y), row(y + 2), row(y + 1), row(y + 3));
                    put(y + 1, moved ? Mean(row(y), row(y + 2)) : row(y + 1));
                }
                put(b.size - 2, row(b.size - 2));
                put(b.size - 1, row(moved ? b.size - 2 : b.size - 1));
            }
        }
    }

    void DeinterlaceField() {
        for (const Block& b : planes_) {
            for (int x = 0; x < b.size; x += 8) {
                const auto row = [&](int y) {
                    return Eight([&](int i) { return b.source[y * b.source_pitch + x + i]; });
                };
                const auto top = [&](int64_t at) { return Eight([&](int i) { return out_.Get(at + i); }); };
                bool moved = false;
                for (int y = 0; y < b.size; y++) {
                    const int64_t at = b.at + y * b.pitch + x;
                    const auto above = top(at - b.pitch / 2);
                    std::array<int, 8> values = row(y);
                    if (y < b.size - 1) {
                        const auto below = top(at + b.pitch / 2);
                        moved = Moved(above, below, row(y), row(y + 1));
                        if (moved) values = Mean(above, below);
                    } else if (moved) {
                        values = above;
                    }
                    for (int i = 0; i < 8; i++) out_.Set(at + i, values[(size_t)i]);
                }
            }
        }
    }

    static std::array<int, 8> Mean(const std::array<int, 8>& a, const std::array<int, 8>& b) {
        return Eight([&](int i) { return (a[(size_t)i] + b[(size_t)i] + 1) / 2; });
    }

    static int Shift(int d, int bits) { return d >> bits; }

    // Eight columns across the edge above `at`.
    static void FilterEdge(Memory& memory, int64_t at, int64_t pitch, int quantiser) {
        for (int x = 0; x < 8; x++) {
            const int d = memory.Get(at + x) - memory.Get(at - pitch + x);
            if (std::abs(d) >= 2 * quantiser) continue;
            for (int row = -3; row < 3; row++) {
                const int64_t place = at + row * pitch + x;
                const int change = row < 0 ? Shift(d, -row) : -Shift(d, row + 1);
                memory.Set(place, std::clamp(memory.Get(place) + change, 0, 255));
            }
        }
    }

    // Output samples (column, row) of a rectangle to scratch (row, column), or back.
    void ToScratch(Memory& scratch, int64_t scratch_at, int64_t scratch_pitch, int64_t at, int64_t pitch, int size) {
        for (int y = 0; y < size; y++) {
            for (int x = 0; x < size; x++)
                scratch.Set(scratch_at + x * scratch_pitch + y, out_.Get(at + y * pitch + x));
        }
    }
    void FromScratch(const Memory& scratch, int64_t scratch_at, int64_t scratch_pitch, int64_t at, int64_t pitch,
                     int size) {
        for (int y = 0; y < size; y++) {
            for (int x = 0; x < size; x++)
                out_.Set(at + y * pitch + x, scratch.Get(scratch_at + x * scratch_pitch + y));
        }
    }
    static void MoveRows(Memory& scratch, int64_t pitch, int from, int to) {
        for (int64_t i = 0; i < 5 * pitch; i++) scratch.Set(to * pitch + i, scratch.Get(from * pitch + i));
    }

    void Deblock(int quantiser) {
        const Block& luma = planes_[0];
        for (int y = 0; y < 16; y += 8) {
            for (int x = 0; x < 16; x += 8) FilterEdge(out_, luma.at + y * luma.pitch + x, luma.pitch, quantiser);
        }
        if (!left_valid_) {
            for (int y = 0; y < 16; y += 8) {
                ToScratch(luma_, 8 * 16 + y, 16, luma.at + y * luma.pitch - 8, luma.pitch, 8);
            }
            for (int i = 1; i < 3; i++) ToScratch(chroma_[i - 1], 0, 8, planes_[i].at - 8, planes_[i].pitch, 8);
        }
        for (int x = 0; x < 16; x += 8) {
            for (int y = 0; y < 16; y += 8) {
                const int64_t place = (16 + x) * 16 + y;
                ToScratch(luma_, place, 16, luma.at + y * luma.pitch + x, luma.pitch, 8);
                FilterEdge(luma_, place, 16, quantiser);
            }
        }
        FromScratch(luma_, 12 * 16, 16, luma.at - 4, luma.pitch, 16);
        MoveRows(luma_, 16, 27, 11);
        for (int i = 1; i < 3; i++) {
            const Block& block = planes_[i];
            Memory& scratch = chroma_[i - 1];
            FilterEdge(out_, block.at, block.pitch, quantiser);
            ToScratch(scratch, 8 * 8, 8, block.at, block.pitch, 8);
            FilterEdge(scratch, 8 * 8, 8, quantiser);
            FromScratch(scratch, 4 * 8, 8, block.at - 4, block.pitch, 8);
            MoveRows(scratch, 8, 11, 3);
        }
    }

    const Instance& decoder_;
    int64_t width_, height_;
    Memory out_;
    Memory luma_{32 * 16};
    Memory chroma_[2] = {Memory(16 * 8), Memory(16 * 8)};
    int64_t pitch_ = 0, chroma_pitch_ = 0;
    Block planes_[3] = {};
    bool left_valid_ = false;
};

// ---- Comparison

size_t PictureBytes(uint32_t width, uint32_t height) {
    return size_t{width} * height * 3 / 2;
}

struct PictureCase {
    uint32_t width, height;
    uint32_t mode;               // flags but the deblocking
    unsigned deblocked_of_four;  // macroblocks, about
};
std::ostream& operator<<(std::ostream& out, const PictureCase& one) {
    return out << one.width << " x " << one.height << ", mode " << one.mode << ", deblocking " << one.deblocked_of_four;
}

// All macroblocks of one picture; the page behind (or before) the caller's picture is not accessible.
void CheckPicture(const PictureCase& one, unsigned seed) {
    SCOPED_TRACE(testing::Message() << one << ", seed " << seed);
    std::mt19937 rng(seed);
    Instance decoder((one.width + 15) / 16 * 16, (one.height + 15) / 16 * 16);
    decoder.Resize(one.width, one.height);
    Fill(decoder.Allocation(decoder->tCurFrame), decoder.allocation_bytes(), (int)(seed % kFillModes), rng);
    const size_t size = PictureBytes(one.width, one.height);
    const GuardedBytes picture(size, seed % 2 ? GuardedBytes::kBehind : GuardedBytes::kBefore);
    Fill(picture.data(), size, kAnyByte, rng);
    Model model(decoder, std::vector<uint8_t>(picture.data(), picture.data() + size));
    const uint32_t luma = one.width * one.height;
    for (uint32_t row = 0; row < decoder->u32MbHeight; row++) {
        for (uint32_t column = 0; column < decoder->u32MbWidth; column++) {
            decoder.StartAt(column, row);
            decoder->tMb.ptCurMbInfo->u8Qp = static_cast<uint8_t>(rng() % 8 ? 1 + rng() % 31 : rng());
            const uint32_t flags = one.mode | (rng() % 4 < one.deblocked_of_four ? 4 : 0);
            PostProcess_MB(decoder.get(), column, row, picture.data(), picture.data() + luma,
                           picture.data() + luma * 5 / 4, flags);
            model.Process(column, row, flags);
            ASSERT_EQ(decoder->u32LeftDeblockValid, model.left_valid() ? 1u : 0u) << column << ' ' << row;
            if (std::memcmp(model.picture().data(), picture.data(), size) == 0) continue;
            const auto mismatch = std::mismatch(model.picture().begin(), model.picture().end(), picture.data());
            FAIL() << "macroblock " << column << ' ' << row << ": byte " << mismatch.first - model.picture().begin()
                   << " of " << size << " is " << (int)*mismatch.second << ", should be " << (int)*mismatch.first;
        }
    }
}

void CheckAll(const std::vector<PictureCase>& cases) {
    unsigned seed = 0;
    for (const PictureCase& one : cases) {
        CheckPicture(one, seed++);
        if (testing::Test::HasFatalFailure()) return;
    }
}

TEST(PostProcess, AgreesWithTheModelOnWholeMacroblocks) {
    std::vector<PictureCase> cases;
    for (uint32_t width = 16; width <= 80; width += 16) {
        for (uint32_t height = 16; height <= 96; height += 16) {
            for (const unsigned deblocked : {0u, 2u, 4u}) {
                for (const uint32_t mode : {0u, 1u, 2u}) cases.push_back({width, height, mode, deblocked});
                if (height % 32 == 0) cases.push_back({width, height, 3, deblocked});
            }
        }
    }
    CheckAll(cases);
}

TEST(PostProcess, AgreesWithTheModelOnHalfMacroblockRows) {
    std::vector<PictureCase> cases;
    for (uint32_t width = 16; width <= 64; width += 16) {
        for (uint32_t height = 8; height <= 104; height += 16) {
            for (const unsigned deblocked : {0u, 2u, 4u}) cases.push_back({width, height, 0, deblocked});
        }
    }
    CheckAll(cases);
}

TEST(PostProcess, AgreesWithTheModelOnAnySize) {
    std::vector<PictureCase> cases;
    for (uint32_t width = 1; width <= 60; width++) {
        for (uint32_t height = 1 + width % 5; height <= 60; height += 5) {
            for (const unsigned deblocked : {0u, 3u, 4u}) cases.push_back({width, height, 0, deblocked});
        }
    }
    CheckAll(cases);
}

void DeblockElsewhere(uint8_t* edge, int32_t pitch, uint32_t quantiser) {
    Deblock8x8HorizFast_c(edge, pitch, quantiser);
}
void TransposeElsewhere(uint8_t* dst, int32_t dst_pitch, const uint8_t* src, int32_t src_pitch) {
    Mp4vDecTranspose8x8_c(dst, dst_pitch, src, src_pitch);
}
void Transpose16Elsewhere(uint8_t* dst, int32_t dst_pitch, const uint8_t* src, int32_t src_pitch) {
    Mp4vDecTranspose16x16_c(dst, dst_pitch, src, src_pitch);
}

// Then macroblocks are deblocked kernel by kernel.
TEST(PostProcess, AgreesWithTheModelWithAnyOtherDeblockingKernel) {
    const std::vector<PictureCase> cases = {{64, 64, 0, 2}, {64, 64, 0, 4}, {80, 48, 0, 3}, {24, 40, 0, 4}};
    {
        const Replace<decltype(Deblock8x8Horiz)> replace(Deblock8x8Horiz, DeblockElsewhere);
        CheckAll(cases);
    }
    {
        const Replace<Mp4vTranspose*> replace(Mp4vDecTranspose8x8, TransposeElsewhere);
        CheckAll(cases);
    }
    const Replace<Mp4vTranspose*> replace(Mp4vDecTranspose16x16, Transpose16Elsewhere);
    CheckAll(cases);
}

TEST(PostProcess, AgreesWithTheModelOnStackedFieldsOfAnySize) {
    std::vector<PictureCase> cases;
    for (uint32_t width = 1; width <= 60; width++) {
        for (uint32_t height = 1 + width % 5; height <= 100; height += 5) {
            for (const unsigned deblocked : {0u, 3u, 4u}) cases.push_back({width, height, 1, deblocked});
        }
    }
    CheckAll(cases);
}

TEST(PostProcess, AgreesWithTheModelWhereADeinterlacerIsUsed) {
    CheckAll({{352, 480, 2, 4}, {352, 480, 3, 4}, {720, 576, 2, 2}, {720, 576, 3, 2}, {704, 576, 3, 0}});
}

TEST(PostProcess, AgreesWithTheModelAtHeight1080) {
    CheckAll({{48, 1080, 0, 0}, {48, 1080, 0, 4}});
}

// ---- Single sentences

class PostProcessMb : public testing::Test {
  protected:
    static constexpr uint32_t kWidth = 96, kHeight = 96;

    void Process(uint32_t column, uint32_t row, uint32_t flags, uint8_t quantiser = 11) {
        decoder_.StartAt(column, row);
        decoder_->tMb.ptCurMbInfo->u8Qp = quantiser;
        const uint32_t luma = decoder_->u32Width * decoder_->u32Height;
        PostProcess_MB(decoder_.get(), column, row, picture_.data(), picture_.data() + luma,
                       picture_.data() + luma * 5 / 4, flags);
    }
    void ProcessAll(uint32_t flags, uint8_t quantiser = 11) {
        for (uint32_t n = 0; n < 36; n++) Process(n % 6, n / 6, flags, quantiser);
    }
    void FillFrame(int mode) {
        std::mt19937 rng(9);
        Fill(decoder_.Allocation(decoder_->tCurFrame), decoder_.allocation_bytes(), mode, rng);
    }
    int Luma(int x, int y) const { return picture_[size_t(y * (int)kWidth + x)]; }
    int Source(int x, int y) const { return decoder_->tCurFrame.pu8Y[y * (int)decoder_->u32LumaStride + x]; }

    Instance decoder_{kWidth, kHeight};
    std::vector<uint8_t> picture_ = std::vector<uint8_t>(PictureBytes(kWidth, kHeight), uint8_t{0xA5});
};

TEST_F(PostProcessMb, WithoutDeblockingThePictureIsTheInnerFrame) {
    FillFrame(kAnyByte);
    ProcessAll(0);
    std::vector<uint8_t> expected;
    const VopFrame& frame = decoder_->tCurFrame;
    for (int y = 0; y < 96; y++) expected.insert(expected.end(), frame.pu8Y + y * 160, frame.pu8Y + y * 160 + 96);
    for (int y = 0; y < 48; y++) expected.insert(expected.end(), frame.pu8U + y * 80, frame.pu8U + y * 80 + 48);
    for (int y = 0; y < 48; y++) expected.insert(expected.end(), frame.pu8V + y * 80, frame.pu8V + y * 80 + 48);
    EXPECT_EQ(picture_, expected);
}

TEST_F(PostProcessMb, StackedFieldsAreWoven) {
    FillFrame(kAnyByte);
    ProcessAll(1);
    for (int y = 0; y < 96; y++) {
        for (int x = 0; x < 96; x++) ASSERT_EQ(Luma(x, y), Source(x, y / 2 + (y % 2) * 48)) << x << ' ' << y;
    }
}

TEST_F(PostProcessMb, ChangesThreeSamplesOnEachSideOfItsEdges) {
    FillFrame(kAnyByte);
    ProcessAll(0);
    const std::vector<uint8_t> before = picture_;
    Process(1, 1, 4, 31);
    int changed = 0;
    for (int y = 0; y < 96; y++) {
        for (int x = 0; x < 96; x++) {
            if (Luma(x, y) == before[size_t(y * 96 + x)]) continue;
            changed++;
            const bool near_row = y >= 13 && y < 32 && ((y >= 13 && y < 19) || (y >= 21 && y < 27));
            const bool near_column = x >= 13 && x < 32 && ((x >= 13 && x < 19) || (x >= 21 && x < 27));
            ASSERT_TRUE((near_row && x >= 16 && x < 32) || (near_column && y >= 16 && y < 32)) << x << ' ' << y;
        }
    }
    EXPECT_GT(changed, 50);
}

TEST_F(PostProcessMb, TheFirstRowAndColumnAreNeverFiltered) {
    FillFrame(kSmooth);
    for (uint32_t i = 0; i < 6; i++) {
        Process(i, 0, 4);
        EXPECT_EQ(decoder_->u32LeftDeblockValid, 0u);
        Process(0, i, 4);
        EXPECT_EQ(decoder_->u32LeftDeblockValid, 0u);
    }
    for (int y = 0; y < 96; y++) {
        for (int x = 0; x < (y < 16 ? 96 : 16); x++) ASSERT_EQ(Luma(x, y), Source(x, y));
    }
}

TEST_F(PostProcessMb, TheFirstRowOfEachStackedFieldIsNotFiltered) {
    FillFrame(kSmooth);
    for (uint32_t n = 0; n < 36; n++) {
        Process(n % 6, n / 6, 5);
        EXPECT_EQ(decoder_->u32LeftDeblockValid, n % 6 > 0 && n / 6 % 3 > 0 ? 1u : 0u) << n;
    }
}

// Flat macroblocks, one brighter: a step on each of its sides.
TEST_F(PostProcessMb, AStepBelowTwiceTheQuantiserBecomesARamp) {
    std::fill_n(decoder_.Allocation(decoder_->tCurFrame), decoder_.allocation_bytes(), uint8_t{100});
    for (int y = 16; y < 32; y++) std::fill_n(decoder_->tCurFrame.pu8Y + y * 160 + 16, 80, uint8_t{119});
    ProcessAll(0);
    Process(2, 1, 4, 10);  // 19 < 20
    const int expected[6] = {100 + 2, 100 + 4, 100 + 9, 119 - 9, 119 - 4, 119 - 2};
    for (int i = 0; i < 6; i++) EXPECT_EQ(Luma(40, 13 + i), expected[i]) << i;
}

TEST_F(PostProcessMb, ADownwardStepShiftsArithmetically) {
    std::fill_n(decoder_.Allocation(decoder_->tCurFrame), decoder_.allocation_bytes(), uint8_t{119});
    for (int y = 16; y < 32; y++) std::fill_n(decoder_->tCurFrame.pu8Y + y * 160 + 16, 80, uint8_t{100});
    ProcessAll(0);
    Process(2, 1, 4, 10);
    const int expected[6] = {119 - 3, 119 - 5, 119 - 10, 100 + 10, 100 + 5, 100 + 3};
    for (int i = 0; i < 6; i++) EXPECT_EQ(Luma(40, 13 + i), expected[i]) << i;
}

TEST_F(PostProcessMb, AStepOfTwiceTheQuantiserStays) {
    std::fill_n(decoder_.Allocation(decoder_->tCurFrame), decoder_.allocation_bytes(), uint8_t{100});
    for (int y = 16; y < 32; y++) std::fill_n(decoder_->tCurFrame.pu8Y + y * 160 + 16, 80, uint8_t{120});
    ProcessAll(0);
    const std::vector<uint8_t> before = picture_;
    Process(1, 1, 4, 10);
    Process(2, 1, 4, 10);
    EXPECT_EQ(picture_, before);
}

TEST_F(PostProcessMb, AMacroblockThatIsNotDeblockedForgetsTheLeftColumns) {
    FillFrame(kSmooth);
    ProcessAll(0);
    Process(1, 1, 4);
    EXPECT_EQ(decoder_->u32LeftDeblockValid, 1u);
    Process(2, 1, 0);
    EXPECT_EQ(decoder_->u32LeftDeblockValid, 0u);
}

TEST_F(PostProcessMb, TheFrameStoreIsNotFiltered) {
    FillFrame(kSmooth);
    const std::vector<uint8_t> before = decoder_.Snapshot(decoder_->tCurFrame);
    ProcessAll(4, 31);
    EXPECT_EQ(decoder_.Snapshot(decoder_->tCurFrame), before);
}

TEST_F(PostProcessMb, TheLastRowOfHeight1080HasEightLumaAndFourChromaLines) {
    Instance tall(16, 1080);
    std::vector<uint8_t> out(PictureBytes(16, 1080) + 256, uint8_t{0xA5});
    std::mt19937 rng(2);
    tall.Randomise(tall->tCurFrame, rng);
    tall.StartAt(0, 67);
    PostProcess_MB(tall.get(), 0, 67, out.data(), out.data() + 16 * 1080, out.data() + 16 * 1350, 0);
    std::vector<uint8_t> expected(out.size(), uint8_t{0xA5});
    for (int y = 1072; y < 1080; y++) std::copy_n(tall->tCurFrame.pu8Y + y * 80, 16, &expected[size_t(16 * y)]);
    for (int y = 536; y < 540; y++) {
        std::copy_n(tall->tCurFrame.pu8U + y * 40, 8, &expected[size_t(16 * 1080 + 8 * y)]);
        std::copy_n(tall->tCurFrame.pu8V + y * 40, 8, &expected[size_t(16 * 1350 + 8 * y)]);
    }
    EXPECT_EQ(out, expected);
}

// No host gets here: only sizes of whole macroblocks are deinterlaced.
TEST(PostProcess, CopiesAMacroblockThatADeinterlacerWouldPutOutsideThePicture) {
    const PictureCase cases[] = {{31, 33, 2, 0}, {31, 33, 3, 0}, {32, 24, 2, 0}, {32, 17, 2, 0}};
    for (const PictureCase& one : cases) {
        Instance decoder(32, 48);
        decoder.Resize(one.width, one.height);
        std::mt19937 rng(4);
        decoder.Randomise(decoder->tCurFrame, rng);
        const uint32_t last_row = decoder->u32MbHeight - 1, luma = one.width * one.height;
        const size_t size = PictureBytes(one.width, one.height);
        const GuardedBytes picture(size);
        std::fill_n(picture.data(), size, uint8_t{0});
        Model model(decoder, std::vector<uint8_t>(size));
        for (uint32_t column = 0; column < 2; column++) {
            decoder.StartAt(column, last_row);
            PostProcess_MB(decoder.get(), column, last_row, picture.data(), picture.data() + luma,
                           picture.data() + luma * 5 / 4, one.mode);
            model.Process(column, last_row, one.mode & 1);
        }
        EXPECT_EQ(std::vector<uint8_t>(picture.data(), picture.data() + size), model.picture()) << one;
    }
}

// ---- Kernels

std::vector<std::string> g_names;
template <char kFirst, char kSecond>
void RecordCopy(const uint8_t* /*src*/, int32_t src_pitch, uint8_t* /*dst*/, int32_t dst_pitch) {
    g_names.push_back(std::string{kFirst, kSecond} + ' ' + std::to_string(src_pitch) + ' ' + std::to_string(dst_pitch));
}
template <char kName>
void RecordDeinterlace(const uint8_t* src_y, const uint8_t* src_u, const uint8_t* src_v, int32_t src_pitch,
                       uint8_t* dst_y, uint8_t* dst_u, uint8_t* dst_v, int32_t dst_pitch) {
    EXPECT_TRUE(src_y && src_u && src_v && dst_y && dst_u && dst_v);
    g_names.push_back(std::string{kName} + ' ' + std::to_string(src_pitch) + ' ' + std::to_string(dst_pitch));
}

class PostProcessKernels : public PostProcessMb {
  protected:
    void SetUp() override { g_names.clear(); }

    Replace<Mp4vMemCopyStride*> copy16_{MemCopyStride16x16, RecordCopy<'1', '6'>};
    Replace<Mp4vMemCopyStride*> copy16x8_{MemCopyStride16x8, RecordCopy<'1', '8'>};
    Replace<Mp4vMemCopyStride*> copy8_{MemCopyStride8x8, RecordCopy<'8', '8'>};
    Replace<Mp4vMemCopyStride*> copy8x4_{MemCopyStride8x4, RecordCopy<'8', '4'>};
    Replace<Mp4vDeInterlaceMb*> frame_{DeInterlaceFrameMB, RecordDeinterlace<'F'>};
    Replace<Mp4vDeInterlaceMb*> field_{DeInterlaceFieldMB, RecordDeinterlace<'B'>};
};

using Names = std::vector<std::string>;

TEST_F(PostProcessKernels, CopyAFrameMacroblock) {
    Process(2, 3, 0);
    EXPECT_EQ(g_names, (Names{"16 160 96", "88 80 48", "88 80 48"}));
}

TEST_F(PostProcessKernels, CopyHalfAMacroblockAtTheEnd) {
    decoder_.Resize(96, 88);
    Process(2, 5, 0);
    EXPECT_EQ(g_names, (Names{"18 160 96", "84 80 48", "84 80 48"}));
    g_names.clear();
    Process(2, 4, 0);
    EXPECT_EQ(g_names, (Names{"16 160 96", "88 80 48", "88 80 48"}));
}

TEST_F(PostProcessKernels, CopyBothFieldsAtTwiceThePitch) {
    Process(2, 1, 1);
    Process(2, 4, 1);
    EXPECT_EQ(g_names, (Names{"16 160 192", "88 80 96", "88 80 96", "16 160 192", "88 80 96", "88 80 96"}));
}

TEST_F(PostProcessKernels, DeinterlaceFrames) {
    Process(2, 1, 2);
    EXPECT_EQ(g_names, (Names{"F 160 96"}));
}

TEST_F(PostProcessKernels, DeinterlaceBottomFieldsOnly) {
    Process(2, 1, 3);
    Process(2, 3, 3);
    EXPECT_EQ(g_names, (Names{"16 160 192", "88 80 96", "88 80 96", "B 160 192"}));
}

int g_transposed8, g_transposed16, g_edges;
void CountTranspose8(uint8_t*, int32_t, const uint8_t*, int32_t) {
    g_transposed8++;
}
void CountTranspose16(uint8_t*, int32_t, const uint8_t*, int32_t) {
    g_transposed16++;
}
void CountEdge(uint8_t*, int32_t, uint32_t quantiser) {
    EXPECT_EQ(quantiser, 11u);
    g_edges++;
}

TEST_F(PostProcessMb, TheLeftColumnsAreTransposedOnceOnly) {
    Replace<Mp4vTranspose*> transpose8(Mp4vDecTranspose8x8, CountTranspose8);
    Replace<Mp4vTranspose*> transpose16(Mp4vDecTranspose16x16, CountTranspose16);
    Replace<void (*)(uint8_t*, int32_t, uint32_t)> edge(Deblock8x8Horiz, CountEdge);
    g_transposed8 = g_transposed16 = g_edges = 0;
    Process(1, 1, 4);
    // Left luma 2 and chroma 2, luma 4, chroma there and back 4.
    EXPECT_EQ(g_transposed8, 12);
    EXPECT_EQ(g_transposed16, 1);
    EXPECT_EQ(g_edges, 4 + 4 + 2 * 2);
    Process(2, 1, 4);
    EXPECT_EQ(g_transposed8, 12 + 8);
    EXPECT_EQ(g_transposed16, 2);
    EXPECT_EQ(g_edges, 24);
}

}  // namespace
}  // namespace mp4v::test
