// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/predict.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "common/kernels.h"
#include "common/pvop.h"
#include "tests/support/instance.h"
#include "tests/support/sample_block.h"

namespace mp4v::test {
namespace {

int64_t FloorDiv(int64_t a, int64_t b) {
    return (a - ((a % b) + b) % b) / b;
}

// ---- Prediction told sample by sample

// The reference picture as bytes of one allocation.
class Reference {
  public:
    explicit Reference(const Instance& decoder)
        : bytes_(decoder.Snapshot(decoder->tRefFrame)),
          stride_(((decoder->u32Width + 15) / 16 + 4) * 16),
          padded_height_(((decoder->u32Height + 15) / 16 + 4) * 16),
          width_((decoder->u32Width + 15) / 16 * 16),
          height_((decoder->u32Height + 15) / 16 * 16) {}

    int64_t Stride(int plane) const { return plane ? stride_ / 2 : stride_; }

    // Byte of the first sample inside a plane's border.
    int64_t Start(int plane) const {
        if (plane == 0) return 32 * stride_ + 32;
        const int64_t first = stride_ * padded_height_ + (plane == 2 ? stride_ / 2 * (padded_height_ / 2) : 0);
        return first + 16 * (stride_ / 2) + 16;
    }

    int Sample(int plane, int64_t line, int64_t column) const {
        const int64_t literal = Start(plane) + line * Stride(plane) + column;
        if (literal >= 0 && literal < (int64_t)bytes_.size()) return bytes_[(size_t)literal];
        const int64_t border = plane ? 16 : 32, scale = plane ? 2 : 1;
        const int64_t near_line = std::clamp(line, -border, height_ / scale + border - 1);
        const int64_t near_column = std::clamp(column, -border, width_ / scale + border - 1);
        return bytes_[(size_t)(Start(plane) + near_line * Stride(plane) + near_column)];
    }

  private:
    std::vector<uint8_t> bytes_;
    int64_t stride_, padded_height_, width_, height_;
};

struct Vector {
    int64_t x, y;
};

class Model {
  public:
    explicit Model(const Instance& decoder)
        : decoder_(decoder),
          reference_(decoder),
          picture_(decoder.Snapshot(decoder->tCurFrame)),
          r_((int)decoder->u32RoundingType) {}

    const std::vector<uint8_t>& Predict(int column, int row) {
        const MbInfo& mb = *decoder_->tMb.ptCurMbInfo;
        if (mb.u8FieldPred) {
            for (int field = 0; field < 2; field++) PredictField(mb, column, row, field);
        } else {
            PredictFrame(mb, column, row);
        }
        return picture_;
    }

  private:
    void Put(int plane, int64_t line, int64_t column, int value) {
        picture_[(size_t)(reference_.Start(plane) + line * reference_.Stride(plane) + column)] = (uint8_t)value;
    }

    // A half-sample block; `step` lines from row to row, of the reference beginning at line `first`.
    void Half(int plane, int64_t dst_x, int64_t dst_y, int64_t step, int columns, int rows, int64_t src_x,
              int64_t first, bool half_x, bool half_y) {
        for (int j = 0; j < rows; j++) {
            for (int i = 0; i < columns; i++) {
                int sum = 0, count = 0;
                for (int dj = 0; dj <= half_y; dj++) {
                    for (int di = 0; di <= half_x; di++, count++) {
                        sum += reference_.Sample(plane, first + (j + dj) * step, src_x + i + di);
                    }
                }
                Put(plane, dst_y + j * step, dst_x + i, count == 1 ? sum : (sum + count / 2 - r_) / count);
            }
        }
    }
    void HalfByVector(int plane, int64_t x, int64_t y, int size, Vector v) {
        Half(plane, x, y, 1, size, size, x + FloorDiv(v.x, 2), y + FloorDiv(v.y, 2), v.x % 2 != 0, v.y % 2 != 0);
    }

    static int Mirrored(const std::vector<int>& s, int i) {
        const int last = (int)s.size() - 1;
        return s[(size_t)(i < 0 ? -1 - i : i > last ? 2 * last + 1 - i : i)];
    }
    // One line of W + 1 samples at a quarter position.
    std::vector<int> Filter(const std::vector<int>& s, int phase) const {
        static constexpr int kTaps[8] = {-1, 3, -6, 20, 20, -6, 3, -1};
        std::vector<int> out(s.size() - 1);
        for (int i = 0; i < (int)out.size(); i++) {
            int sum = 16 - r_;
            for (int t = 0; t < 8; t++) sum += kTaps[t] * Mirrored(s, i - 3 + t);
            const int half = std::clamp((int)FloorDiv(sum, 32), 0, 255);
            const int before = s[(size_t)i], after = s[(size_t)i + 1];
            out[(size_t)i] = phase == 0   ? before
                             : phase == 1 ? (half + before + 1 - r_) / 2
                             : phase == 2 ? half
                                          : (half + after + 1 - r_) / 2;
        }
        return out;
    }
    void Quarter(int64_t x, int64_t y, int size, Mp4vMv v) {
        // The sum of vector and position has 32 bits.
        const int64_t src_x = FloorDiv((int32_t)((uint32_t)v.s32X + 4 * (uint32_t)x), 4);
        const int64_t src_y = FloorDiv((int32_t)((uint32_t)v.s32Y + 4 * (uint32_t)y), 4);
        std::vector<std::vector<int>> rows;
        for (int j = 0; j <= size; j++) {
            std::vector<int> line;
            for (int i = 0; i <= size; i++) line.push_back(reference_.Sample(0, src_y + j, src_x + i));
            rows.push_back(Filter(line, v.s32X & 3));
        }
        for (int i = 0; i < size; i++) {
            std::vector<int> column;
            for (const auto& line : rows) column.push_back(line[(size_t)i]);
            const std::vector<int> out = Filter(column, v.s32Y & 3);
            for (int j = 0; j < size; j++) Put(0, y + j, x + i, out[(size_t)j]);
        }
    }

    static int64_t ChromaOfOne(int64_t c) { return 2 * FloorDiv(c, 4) + (FloorDiv(c, 4) * 4 != c); }
    static int64_t ChromaOfFour(int64_t sum) {
        const int64_t sixteenths = std::abs(sum) % 16;
        const int64_t size = std::abs(sum) / 16 * 2 + (sixteenths >= 3) + (sixteenths >= 14);
        return sum < 0 ? -size : size;
    }
    static Vector Chroma(const MbInfo& mb, int divide) {
        if (mb.u8MbType != 2) return {ChromaOfOne(mb.as32Mv[0].s32X / divide), ChromaOfOne(mb.as32Mv[0].s32Y / divide)};
        int64_t x = 0, y = 0;
        for (const Mp4vMv& v : mb.as32Mv) x += v.s32X / divide, y += v.s32Y / divide;
        return {ChromaOfFour((int32_t)(uint32_t)x), ChromaOfFour((int32_t)(uint32_t)y)};
    }

    void PredictFrame(const MbInfo& mb, int column, int row) {
        const bool quarter = decoder_->u16QuarterSample;
        const int size = mb.u8MbType == 2 ? 8 : 16;
        for (int b = 0; b < (size == 8 ? 4 : 1); b++) {
            const int x = 16 * column + b % 2 * 8, y = 16 * row + b / 2 * 8;
            if (quarter) {
                Quarter(x, y, size, mb.as32Mv[b]);
            } else {
                HalfByVector(0, x, y, size, {mb.as32Mv[b].s32X, mb.as32Mv[b].s32Y});
            }
        }
        const Vector chroma = Chroma(mb, quarter ? 2 : 1);
        for (int plane = 1; plane < 3; plane++) HalfByVector(plane, 8 * column, 8 * row, 8, chroma);
    }

    void PredictField(const MbInfo& mb, int column, int row, int field) {
        const Mp4vMv v = mb.as32Mv[field];
        const int from = field ? decoder_->tMb.u8FwdBotFieldRef : decoder_->tMb.u8FwdTopFieldRef;
        // Luma: half samples across, half lines of the field in every second unit down.
        Half(0, 16 * column, 16 * row + field, 2, 16, 8, 16 * column + FloorDiv(v.s32X, 2),
             2 * (8 * row + FloorDiv(v.s32Y, 4)) + from, v.s32X % 2 != 0, FloorDiv(v.s32Y, 2) % 2 != 0);
        Vector c = {ChromaOfOne(v.s32X), ChromaOfOne(v.s32Y)};
        if (mb.u8MbType == 2) c = Chroma(mb, 1);
        const int64_t halved = FloorDiv(c.y, 2);
        c.y = c.y % 2 != 0 && halved % 2 == 0 ? halved + 1 : halved;
        for (int plane = 1; plane < 3; plane++) {
            Half(plane, 8 * column, 8 * row + field, 2, 8, 4, 8 * column + FloorDiv(c.x, 2),
                 2 * (4 * row + FloorDiv(c.y, 2)) + from, c.x % 2 != 0, c.y % 2 != 0);
        }
    }

    const Instance& decoder_;
    Reference reference_;
    std::vector<uint8_t> picture_;
    int r_;
};

// ---- Comparison

struct Kind {
    const char* name;
    uint8_t type;
    bool field, quarter;
};
std::ostream& operator<<(std::ostream& out, const Kind& kind) {
    return out << kind.name;
}

struct Size {
    uint32_t open_width, open_height, width, height;
};

class Prediction : public testing::TestWithParam<Kind> {
  protected:
    // Predicts one macroblock with vectors from `component` and compares the whole frame.
    template <typename Component>
    void Check(Instance& decoder, std::mt19937& rng, int column, int row, const Component& component) {
        const Kind& kind = GetParam();
        decoder.StartAt((uint32_t)column, (uint32_t)row);
        MbInfo& mb = *decoder->tMb.ptCurMbInfo;
        mb.u8MbType = kind.type;
        mb.u8FieldPred = kind.field;
        decoder->u16QuarterSample = kind.quarter;
        decoder->u32RoundingType = rng() & 1;
        decoder->tMb.u8FwdTopFieldRef = rng() & 1;
        decoder->tMb.u8FwdBotFieldRef = rng() & 1;
        for (Mp4vMv& v : mb.as32Mv) {
            v.s32X = component();
            v.s32Y = component();
        }
        if (kind.type != 2 && !kind.field) std::fill_n(mb.as32Mv, 4, mb.as32Mv[0]);
        const std::vector<uint8_t> expected = Model(decoder).Predict(column, row);
        const std::vector<uint8_t> reference = decoder.Snapshot(decoder->tRefFrame);
        const std::vector<uint8_t> before = decoder.Snapshot(decoder->tCurFrame);
        for (const auto predict : {PredictInterMb, PredictInterMbPortable}) {
            std::copy(before.begin(), before.end(), decoder.Allocation(decoder->tCurFrame));
            predict(decoder.get(), (uint32_t)column, (uint32_t)row);
            const std::vector<uint8_t> actual = decoder.Snapshot(decoder->tCurFrame);
            if (actual != expected) {
                const auto at = std::mismatch(actual.begin(), actual.end(), expected.begin()).first - actual.begin();
                FAIL() << "macroblock " << column << ' ' << row << ", vectors " << mb.as32Mv[0] << mb.as32Mv[1]
                       << mb.as32Mv[2] << mb.as32Mv[3] << ", byte " << at;
            }
        }
        ASSERT_EQ(decoder.Snapshot(decoder->tRefFrame), reference);
    }

    template <typename Component>
    void CheckRandom(const Size& size, int count, const Component& component) {
        std::mt19937 rng(size.width * 31 + size.height);
        Instance decoder(size.open_width, size.open_height);
        decoder.Resize(size.width, size.height);
        decoder.Randomise(decoder->tRefFrame, rng);
        decoder.Randomise(decoder->tCurFrame, rng);
        for (int n = 0; n < count && !HasFatalFailure(); n++) {
            const int column = int(rng() % decoder->u32MbWidth), row = int(rng() % decoder->u32MbHeight);
            Check(decoder, rng, column, row, [&] { return component(rng); });
            if (n % 5 == 4) decoder.ExchangePlanes();
        }
    }
};

TEST_P(Prediction, AgreesWithTheModelForShortVectors) {
    CheckRandom({64, 48, 64, 48}, 150, [](std::mt19937& rng) { return (int32_t)(rng() % 33) - 16; });
}

TEST_P(Prediction, AgreesWithTheModelFarOutside) {
    CheckRandom({64, 48, 64, 48}, 150, [](std::mt19937& rng) { return (int32_t)(rng() % 801) - 400; });
    CheckRandom({64, 48, 64, 48}, 100, [](std::mt19937& rng) { return (int32_t)(rng() % 4096) - 2048; });
}

TEST_P(Prediction, AgreesWithTheModelInSmallerPicturesThanOpened) {
    CheckRandom({96, 64, 40, 24}, 100, [](std::mt19937& rng) { return (int32_t)(rng() % 401) - 200; });
    CheckRandom({96, 64, 17, 9}, 100, [](std::mt19937& rng) { return (int32_t)(rng() % 2001) - 1000; });
}

TEST_P(Prediction, AgreesWithTheModelInOneMacroblock) {
    CheckRandom({16, 16, 16, 16}, 100, [](std::mt19937& rng) { return (int32_t)(rng() % 301) - 150; });
}

TEST_P(Prediction, AgreesWithTheModelForTheLargestVectors) {
    CheckRandom({64, 48, 64, 48}, 200, [](std::mt19937& rng) {
        static constexpr int32_t kValues[] = {
            INT32_MIN,  INT32_MIN + 1, -INT32_MAX + 2, -2147483000, INT32_MAX, INT32_MAX - 1,
            2147483000, 2047,          -2048,          0,           1,         -1};
        return kValues[rng() % std::size(kValues)];
    });
}

// All positions at which a block begins, ends or lies just outside one of the four borders.
TEST_P(Prediction, AgreesWithTheModelAroundEveryEdge) {
    Instance decoder(32, 32);
    std::mt19937 rng(5);
    decoder.Randomise(decoder->tRefFrame, rng);
    decoder.Randomise(decoder->tCurFrame, rng);
    const int scale = GetParam().quarter ? 4 : 2;
    for (int offset = -72; offset <= 72 && !HasFatalFailure(); offset++) {
        for (const int fraction : {0, 1}) {
            const int32_t v = offset * scale + fraction;
            int n = 0;
            Check(decoder, rng, offset & 1, 0, [&] { return n++ % 2 ? 0 : v; });
            n = 0;
            Check(decoder, rng, 0, offset & 1, [&] { return n++ % 2 ? v : 1; });
            Check(decoder, rng, 1, 1, [&] { return v; });
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Prediction,
                         testing::Values(Kind{"HalfSample", 0, false, false}, Kind{"HalfSampleQ", 1, false, false},
                                         Kind{"HalfSampleFour", 2, false, false}, Kind{"QuarterSample", 0, false, true},
                                         Kind{"QuarterFour", 2, false, true}, Kind{"Field", 0, true, false},
                                         Kind{"FieldInQuarter", 1, true, true}, Kind{"FieldWithFour", 2, true, false}),
                         [](const testing::TestParamInfo<Kind>& kind) { return std::string(kind.param.name); });

TEST(PredictionMemory, ReadsTheNearestSampleOfThePlaneOutsideTheAllocation) {
    Instance decoder(16, 16);
    // Every luma line and border column is told by its value.
    uint8_t* bytes = decoder.Allocation(decoder->tRefFrame);
    for (int y = 0; y < 80; y++) {
        for (int x = 0; x < 80; x++) bytes[80 * y + x] = (uint8_t)(3 * y + (x == 79 ? 1 : x == 0 ? 2 : 0));
    }
    decoder.StartAt(0, 0);
    MbInfo& mb = *decoder->tMb.ptCurMbInfo;
    const auto first = [&](int32_t x, int32_t y) {
        std::fill_n(mb.as32Mv, 4, Mp4vMv{x, y});
        PredictInterMb(decoder.get(), 0, 0);
        return *decoder->tMb.pu8DstY;
    };
    EXPECT_EQ(first(-2 * 1000, -2 * 1000), 2);                    // top left corner
    EXPECT_EQ(first(2 * 1000, -2 * 1000), 1);                     // top right corner
    EXPECT_EQ(first(2 * 3000, 2 * 1000), (uint8_t)(3 * 79 + 1));  // bottom right corner of the luma plane
    EXPECT_EQ(first(-2 * 20, -2 * 33), 0 * 3);                    // one line too high: column 12 of line 0
    EXPECT_EQ(first(-2 * 33, -2 * 32), 2);                        // one column too far left in the first line
    EXPECT_EQ(first(-2 * 33, -2 * 31), 1);                        // inside: the end of the line above, literally
}

TEST(PredictionMemory, ReadsIntoTheChromaPlanesLiterally) {
    Instance decoder(16, 16);
    std::fill_n(decoder.Allocation(decoder->tRefFrame), 80 * 80, uint8_t{10});
    std::fill_n(decoder.Allocation(decoder->tRefFrame) + 80 * 80, 80 * 80 / 2, uint8_t{20});
    decoder.StartAt(0, 0);
    std::fill_n(decoder->tMb.ptCurMbInfo->as32Mv, 4, Mp4vMv{0, 2 * 40});  // lines 40 to 55; luma ends behind line 47
    PredictInterMb(decoder.get(), 0, 0);
    for (int y = 0; y < 16; y++) EXPECT_EQ(decoder->tMb.pu8DstY[80 * y], y < 8 ? 10 : 20) << y;
}

// ---- Which kernels are called, and how

struct Call {
    std::string kernel;
    int64_t dst = 0;  // from the macroblock's first sample in the plane that it belongs to
    int64_t src = 0;  // likewise in the reference
    std::vector<int32_t> rest;

    bool operator==(const Call&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Call& call) {
    out << call.kernel << ' ' << call.dst << ' ' << call.src;
    for (const int32_t value : call.rest) out << ' ' << value;
    return out;
}

Mp4vDecCtx* g_ctx;
std::vector<Call> g_calls;
constexpr int64_t kScratch = 1000000;

// Offsets of a place from the current macroblock's place in its plane; the scratch is kScratch.
int64_t Place(const uint8_t* place, bool reference) {
    if (place == g_ctx->pu8QpelBuf) return kScratch;
    const VopFrame& frame = reference ? g_ctx->tRefFrame : g_ctx->tCurFrame;
    const Mp4vMbScratch& mb = g_ctx->tMb;
    const ptrdiff_t y = place - frame.pu8Y - (mb.pu8DstY - g_ctx->tCurFrame.pu8Y);
    const ptrdiff_t u = place - frame.pu8U - (mb.pu8DstU - g_ctx->tCurFrame.pu8U);
    const ptrdiff_t v = place - frame.pu8V - (mb.pu8DstV - g_ctx->tCurFrame.pu8V);
    return std::abs(y) < 3000 ? y : std::abs(u) < std::abs(v) ? u : v;
}

enum Kernel {
    kCopy16,
    kV16,
    kH16,
    kHV16,
    kCopy8,
    kV8,
    kH8,
    kHV8,
    kCopy8x4,
    kV8x4,
    kH8x4,
    kHV8x4,
    kHorz16,
    kHorzAvg16,
    kHorzAvgUp16,
    kVert16,
    kVertAvg16,
    kVertAvgUp16,
    kHorz8,
    kHorzAvg8,
    kHorzAvgUp8,
    kVert8,
    kVertAvg8,
    kVertAvgUp8,
};
constexpr const char* kNames[] = {"Copy16", "V16",       "H16",         "HV16",   "Copy8",     "V8",
                                  "H8",     "HV8",       "Copy8x4",     "V8x4",   "H8x4",      "HV8x4",
                                  "Horz16", "HorzAvg16", "HorzAvgUp16", "Vert16", "VertAvg16", "VertAvgUp16",
                                  "Horz8",  "HorzAvg8",  "HorzAvgUp8",  "Vert8",  "VertAvg8",  "VertAvgUp8"};

template <Kernel kKernel>
void RecordCopy(uint8_t* dst, const uint8_t* src, int32_t pitch) {
    g_calls.push_back({kNames[kKernel], Place(dst, false), Place(src, true), {pitch}});
}
template <Kernel kKernel>
void RecordHalf(uint8_t* dst, const uint8_t* src, int32_t pitch, uint32_t rounding) {
    g_calls.push_back({kNames[kKernel], Place(dst, false), Place(src, true), {pitch, (int32_t)rounding}});
}
template <Kernel kKernel>
void RecordPass(uint8_t* dst, const uint8_t* src, int32_t count, int32_t dst_pitch, int32_t src_pitch,
                uint32_t rounding) {
    g_calls.push_back(
        {kNames[kKernel], Place(dst, false), Place(src, true), {count, dst_pitch, src_pitch, (int32_t)rounding}});
}

class PredictionKernels : public testing::Test {
  protected:
    static constexpr int kStride = 128 + 64;

    void SetUp() override {
        g_ctx = decoder_.get();
        g_calls.clear();
        decoder_->u32RoundingType = 1;
    }
    const std::vector<Call>& Predict(uint8_t type, std::vector<Mp4vMv> vectors, bool field = false) {
        g_calls.clear();
        decoder_.StartAt(3, 3);
        MbInfo& mb = *decoder_->tMb.ptCurMbInfo;
        mb.u8MbType = type;
        mb.u8FieldPred = field;
        for (size_t i = 0; i < 4; i++) mb.as32Mv[i] = vectors[i % vectors.size()];
        PredictInterMb(decoder_.get(), 3, 3);
        return g_calls;
    }
    // The chroma vector that the recorded chroma calls stand for.
    Mp4vMv ChromaVector() const {
        const Call& call = g_calls[g_calls.size() - 2];
        EXPECT_EQ(call, (Call{call.kernel, 0, call.src, g_calls.back().rest}));
        EXPECT_EQ(call.src, g_calls.back().src);
        int32_t y = (int32_t)FloorDiv(call.src + kStride / 4, kStride / 2);
        const int32_t x = (int32_t)call.src - y * (kStride / 2);
        const bool half_x = call.kernel[0] == 'H', half_y = call.kernel.find('V') != std::string::npos;
        return {2 * x + half_x, 2 * y + half_y};
    }

    Instance decoder_{128, 128};
    Replace<Mp4vMemCopyBlock*> copy16_{MemCopy16x16, RecordCopy<kCopy16>};
    Replace<Mp4vInterpolate*> v16_{Interpolate16x16V, RecordHalf<kV16>};
    Replace<Mp4vInterpolate*> h16_{Interpolate16x16H, RecordHalf<kH16>};
    Replace<Mp4vInterpolate*> hv16_{Interpolate16x16HV, RecordHalf<kHV16>};
    Replace<Mp4vMemCopyBlock*> copy8_{MemCopy8x8, RecordCopy<kCopy8>};
    Replace<Mp4vInterpolate*> v8_{Interpolate8x8V, RecordHalf<kV8>};
    Replace<Mp4vInterpolate*> h8_{Interpolate8x8H, RecordHalf<kH8>};
    Replace<Mp4vInterpolate*> hv8_{Interpolate8x8HV, RecordHalf<kHV8>};
    Replace<Mp4vMemCopyBlock*> copy84_{MemCopy8x4, RecordCopy<kCopy8x4>};
    Replace<Mp4vInterpolate*> v84_{Interpolate8x4V, RecordHalf<kV8x4>};
    Replace<Mp4vInterpolate*> h84_{Interpolate8x4H, RecordHalf<kH8x4>};
    Replace<Mp4vInterpolate*> hv84_{Interpolate8x4HV, RecordHalf<kHV8x4>};
    Replace<Mp4vQpelPass*> qh16_{HorzPass16, RecordPass<kHorz16>};
    Replace<Mp4vQpelPass*> qha16_{HorzPassAvg16, RecordPass<kHorzAvg16>};
    Replace<Mp4vQpelPass*> qhu16_{HorzPassAvgUp16, RecordPass<kHorzAvgUp16>};
    Replace<Mp4vQpelPass*> qv16_{VertPass16, RecordPass<kVert16>};
    Replace<Mp4vQpelPass*> qva16_{VertPassAvg16, RecordPass<kVertAvg16>};
    Replace<Mp4vQpelPass*> qvu16_{VertPassAvgUp16, RecordPass<kVertAvgUp16>};
    Replace<Mp4vQpelPass*> qh8_{HorzPass8, RecordPass<kHorz8>};
    Replace<Mp4vQpelPass*> qha8_{HorzPassAvg8, RecordPass<kHorzAvg8>};
    Replace<Mp4vQpelPass*> qhu8_{HorzPassAvgUp8, RecordPass<kHorzAvgUp8>};
    Replace<Mp4vQpelPass*> qv8_{VertPass8, RecordPass<kVert8>};
    Replace<Mp4vQpelPass*> qva8_{VertPassAvg8, RecordPass<kVertAvg8>};
    Replace<Mp4vQpelPass*> qvu8_{VertPassAvgUp8, RecordPass<kVertAvgUp8>};
};

TEST_F(PredictionKernels, MinusThreeAndOneIsBetweenFourSamples) {
    const Call expected = {"HV16", 0, -2, {kStride, 1}};
    EXPECT_EQ(Predict(0, {{-3, 1}})[0], expected);
}

TEST_F(PredictionKernels, FollowTheFractionsOfTheVector) {
    EXPECT_EQ(Predict(0, {{4, 6}})[0], (Call{"Copy16", 0, 3 * kStride + 2, {kStride}}));
    EXPECT_EQ(Predict(0, {{4, 7}})[0], (Call{"V16", 0, 3 * kStride + 2, {kStride, 1}}));
    EXPECT_EQ(Predict(0, {{5, 6}})[0], (Call{"H16", 0, 3 * kStride + 2, {kStride, 1}}));
    EXPECT_EQ(Predict(0, {{5, 7}})[0], (Call{"HV16", 0, 3 * kStride + 2, {kStride, 1}}));
    EXPECT_EQ(g_calls.size(), 3u);
}

TEST_F(PredictionKernels, FourVectorsTakeTheirBlocksOneByOne) {
    const std::vector<Call>& calls = Predict(2, {{4, 6}, {4, 7}, {5, 6}, {5, 7}});
    ASSERT_EQ(calls.size(), 6u);
    const int64_t lower = 8 * kStride, moved = 3 * kStride + 2;
    EXPECT_EQ(calls[0], (Call{"Copy8", 0, moved, {kStride}}));
    EXPECT_EQ(calls[1], (Call{"V8", 8, 8 + moved, {kStride, 1}}));
    EXPECT_EQ(calls[2], (Call{"H8", lower, lower + moved, {kStride, 1}}));
    EXPECT_EQ(calls[3], (Call{"HV8", lower + 8, lower + 8 + moved, {kStride, 1}}));
}

TEST_F(PredictionKernels, FieldsAreTwoBlocksOfLumaAndFourLinesOfChroma) {
    decoder_->tMb.u8FwdTopFieldRef = 1;
    decoder_->tMb.u8FwdBotFieldRef = 0;
    const std::vector<Call>& calls = Predict(0, {{5, 8}, {4, 6}}, true);
    ASSERT_EQ(calls.size(), 8u);
    const int chroma = kStride / 2;
    // Top field from the bottom field: column 2.5, line 2 of the field.
    EXPECT_EQ(calls[0], (Call{"H8", 0, kStride + 2 * 2 * kStride + 2, {2 * kStride, 1}}));
    EXPECT_EQ(calls[1], (Call{"H8", 8, kStride + 2 * 2 * kStride + 10, {2 * kStride, 1}}));
    // Chroma (3, 4 -> 2): column 1.5, line 1 of the field.
    EXPECT_EQ(calls[2], (Call{"H8x4", 0, chroma + 2 * chroma + 1, {kStride, 1}}));
    // Bottom field from the top field: line 1.5.
    EXPECT_EQ(calls[4], (Call{"V8", kStride, 2 * kStride + 2, {2 * kStride, 1}}));
    EXPECT_EQ(calls[5], (Call{"V8", kStride + 8, 2 * kStride + 10, {2 * kStride, 1}}));
    // 6 -> 3 -> 1: half a line.
    EXPECT_EQ(calls[6], (Call{"V8x4", chroma, 1, {kStride, 1}}));
}

TEST_F(PredictionKernels, ChromaOfOneVector) {
    const std::pair<int32_t, int32_t> cases[] = {{0, 0},   {1, 1},   {2, 1},   {3, 1},   {4, 2},   {5, 3},
                                                 {6, 3},   {7, 3},   {8, 4},   {-1, -1}, {-2, -1}, {-3, -1},
                                                 {-4, -2}, {-5, -3}, {-6, -3}, {-7, -3}, {-8, -4}};
    for (const auto& [luma, chroma] : cases) {
        Predict(0, {{luma, 0}});
        EXPECT_EQ(ChromaVector(), (Mp4vMv{chroma, 0})) << luma;
        Predict(1, {{0, luma}});
        EXPECT_EQ(ChromaVector(), (Mp4vMv{0, chroma})) << luma;
    }
}

TEST_F(PredictionKernels, ChromaOfFourVectors) {
    const int32_t table[16] = {0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2};
    for (int32_t i = 0; i < 16; i++) EXPECT_EQ((int32_t)g_au32RoundTab[i], table[i]);
    for (int32_t sum = -40; sum <= 40; sum++) {
        const int32_t size = std::abs(sum);
        const int32_t chroma = table[size % 16] + 2 * (size / 16);
        Predict(2, {{sum + 20, 7}, {-30, sum - 14}, {7, 3}, {3, 4}});
        EXPECT_EQ(ChromaVector(), (Mp4vMv{sum < 0 ? -chroma : chroma, sum < 0 ? -chroma : chroma})) << sum;
    }
    const auto chroma_of = [&](int32_t sum) {
        Predict(2, {{sum, 0}, {0, 0}, {0, 0}, {0, 0}});
        return ChromaVector().s32X;
    };
    EXPECT_EQ(chroma_of(5), 1);
    EXPECT_EQ(chroma_of(16), 2);
    EXPECT_EQ(chroma_of(-30), -4);
    EXPECT_EQ(chroma_of(0), 0);
}

TEST_F(PredictionKernels, ChromaOfQuarterSamplesHalvesEachVectorTowardsZeroFirst) {
    decoder_->u16QuarterSample = 1;
    Predict(0, {{-7, 7}});  // -3, 3
    EXPECT_EQ(ChromaVector(), (Mp4vMv{-1, 1}));
    Predict(0, {{9, -9}});  // 4, -4
    EXPECT_EQ(ChromaVector(), (Mp4vMv{2, -2}));
    Predict(2, {{-1, 1}, {-1, 1}, {-1, 1}, {-3, 3}});  // 0 + 0 + 0 - 1
    EXPECT_EQ(ChromaVector(), (Mp4vMv{0, 0}));
    Predict(2, {{-3, 3}, {-3, 3}, {-1, 1}, {-3, 3}});  // -3
    EXPECT_EQ(ChromaVector(), (Mp4vMv{-1, 1}));
}

TEST_F(PredictionKernels, QuarterSamplePositionsAreComposedFromPasses) {
    decoder_->u16QuarterSample = 1;
    const char* const horz[4] = {"", "HorzAvg", "Horz", "HorzAvgUp"};
    const char* const vert[4] = {"", "VertAvg", "Vert", "VertAvgUp"};
    for (const int size : {16, 8}) {
        const std::string suffix = std::to_string(size);
        for (int q = 0; q < 16; q++) {
            SCOPED_TRACE(testing::Message() << size << ' ' << q);
            const int x = q % 4, y = q / 4;
            const int64_t src = -3 * kStride + 2;
            const std::vector<Call>& calls = Predict(size == 16 ? 0 : 2, {{8 + x, -12 + y}});
            std::vector<Call> expected;
            for (int b = 0; b < (size == 16 ? 1 : 4); b++) {
                const int64_t at = b % 2 * 8 + b / 2 * 8 * kStride;
                if (x == 0 && y == 0) {
                    expected.push_back({"Copy" + suffix, at, at + src, {kStride}});
                } else if (y == 0) {
                    expected.push_back({horz[x] + suffix, at, at + src, {size, kStride, kStride, 1}});
                } else if (x == 0) {
                    expected.push_back({vert[y] + suffix, at, at + src, {size, kStride, kStride, 1}});
                } else {
                    expected.push_back({horz[x] + suffix, kScratch, at + src, {size + 1, 16, kStride, 1}});
                    expected.push_back({vert[y] + suffix, at, kScratch, {size, kStride, 16, 1}});
                }
            }
            ASSERT_EQ(calls.size(), expected.size() + 2);
            for (size_t i = 0; i < expected.size(); i++) EXPECT_EQ(calls[i], expected[i]);
        }
    }
}

TEST_F(PredictionKernels, FieldPredictionNeverUsesQuarterSamples) {
    const std::vector<Call> half = Predict(0, {{5, 7}, {3, 3}}, true);
    decoder_->u16QuarterSample = 1;
    EXPECT_EQ(Predict(0, {{5, 7}, {3, 3}}, true), half);
}

TEST_F(PredictionKernels, AreLookedUpUnlessAllArePortable) {
    EXPECT_FALSE(PredictionIsPortable(false));
    EXPECT_FALSE(PredictionIsPortable(true));
}

template <typename T>
void ExpectNotPortableWith(T*& kernel, T* other, bool fields) {
    EXPECT_TRUE(PredictionIsPortable(true));
    const Replace<T*> replace(kernel, other);
    EXPECT_EQ(PredictionIsPortable(false), fields);
    EXPECT_FALSE(PredictionIsPortable(true));
}

TEST(PortablePrediction, NeedsEveryPortableKernelThatItStandsFor) {
    for (Mp4vMemCopyBlock** kernel : {&MemCopy16x16, &MemCopy8x8, &MemCopy8x4})
        ExpectNotPortableWith(*kernel, RecordCopy<kCopy8>, kernel == &MemCopy8x4);
    for (Mp4vInterpolate** kernel : {&Interpolate16x16H, &Interpolate16x16V, &Interpolate16x16HV, &Interpolate8x8H,
                                     &Interpolate8x8V, &Interpolate8x8HV})
        ExpectNotPortableWith(*kernel, RecordHalf<kH8>, false);
    for (Mp4vInterpolate** kernel : {&Interpolate8x4H, &Interpolate8x4V, &Interpolate8x4HV})
        ExpectNotPortableWith(*kernel, RecordHalf<kH8>, true);
}

TEST_F(PredictionKernels, RoundingIsHandedOn) {
    decoder_->u32RoundingType = 0;
    EXPECT_EQ(Predict(0, {{1, 1}})[0].rest, (std::vector<int32_t>{kStride, 0}));
}

}  // namespace
}  // namespace mp4v::test
