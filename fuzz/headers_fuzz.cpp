// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Each header parser by itself, on an instance in any state that headers can bring it into. The first byte tells which.
#include <algorithm>

#include "common/headers.h"
#include "common/pvop.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/mutator.h"
#include "host/memory.h"

namespace mp4v::fuzz {
namespace {

constexpr size_t kPrefix = 8;
constexpr uint32_t kOpenWidth = 80;
constexpr uint32_t kOpenHeight = 64;

enum class Parser { kHeaders, kVol, kVop, kMatrix, kMacroblock, kPreDecode };
constexpr uint32_t kParsers = 6;

struct Instance {
    Instance() {
        const Mp4vDecOpenParams params = {{0, 0}, kOpenWidth, kOpenHeight, 0};
        void* handle = nullptr;
        FUZZ_CHECK(Mp4vDecoderOpen(&handle, &params, &memory) == MP4VDEC_OK);
        ctx = static_cast<Mp4vDecCtx*>(handle);
    }
    ~Instance() { Mp4vDecoderClose(ctx); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    MemoryService memory;
    Mp4vDecCtx* ctx;
};

// What earlier headers may have left behind.
void SetState(Mp4vDecCtx* ctx, ByteReader& in) {
    const uint32_t bits = in.U32();
    const uint32_t more = in.U8();
    ctx->s16Interlaced = bits & 1;
    ctx->u16VolShape = bits >> 1 & 3;
    ctx->u16QuantType = bits >> 3 & 1;
    ctx->u16QuarterSample = bits >> 4 & 1;
    ctx->u32QuantPrecision = bits >> 5 & 15;
    ctx->u32VopTimeIncBits = 1 + (bits >> 9 & 15);
    ctx->u32PicStructHint = bits >> 13 & 3;
    ctx->u32PicStructHintSet = bits >> 15 & 1;
    ctx->u32FcodeForward = bits >> 16 & 7;
    ctx->u32VopQuant = bits >> 19 & 31;
    ctx->u16QpCarry = bits >> 24 & 1;
    ctx->u32RunningQp = more & 31;
    ctx->s16VopCodingType = more >> 5 & 1;
}

void CheckVol(const Mp4vDecCtx& ctx) {
    FUZZ_CHECK(ctx.u32Width <= kOpenWidth && ctx.u32Height <= kOpenHeight);
    FUZZ_CHECK(ctx.u32MbWidth == (ctx.u32Width + 15) / 16 && ctx.u32MbHeight == (ctx.u32Height + 15) / 16);
    FUZZ_CHECK(ctx.u32VopTimeIncBits >= 1 && ctx.u32VopTimeIncBits <= 16);
    FUZZ_CHECK(ctx.u32VopTimeIncRes <= 0xFFFF && ctx.u32QuantPrecision <= 15 && ctx.u16VolShape <= 3);
    FUZZ_CHECK(ctx.u32PicStructHint <= 3);
    // The records to clear lie inside the array.
    const uint32_t row = kOpenWidth / 16 + 1;
    FUZZ_CHECK(ctx.u32ClearBefore <= row && ctx.u32ClearFrom <= row * (kOpenHeight / 16));
}

void CheckVop(const Mp4vDecCtx& ctx) {
    FUZZ_CHECK(ctx.s16VopCodingType <= 3 || ctx.s16VopCodingType == VOP_NOT_CODED);
    FUZZ_CHECK(ctx.u32FcodeForward <= 7 && ctx.u32VopQuant <= 0x7FFF && ctx.u32RoundingType <= 1);
    FUZZ_CHECK(std::find(g_au32IntraDcThTable, g_au32IntraDcThTable + 8, ctx.u32IntraDcThr) !=
                   g_au32IntraDcThTable + 8 ||
               ctx.u32IntraDcThr == 0);
}

void CheckMatrix(BsReader* reader) {
    int16_t matrix[64] = {};  // what is not loaded stays
    GetMatrix(reader, matrix);
    FUZZ_CHECK(std::all_of(matrix, matrix + 64, [](int16_t value) { return value >= 0 && value <= 255; }));
}

// Macroblock headers of a P-VOP, row by row.
void DecodeMacroblocks(Mp4vDecCtx* ctx) {
    Mp4vMbScratch* const mb = &ctx->tMb;
    for (uint32_t row = 0; row < ctx->u32MbHeight; row++) {
        mb->ptCurMbInfo = ctx->ptMbInfo + row * (ctx->u32MbWidth + 1);
        for (uint32_t column = 0; column < ctx->u32MbWidth; column++, mb->ptCurMbInfo++) {
            if (DecMBInfo(ctx, mb, column, row) != 0) return;
            FUZZ_CHECK(mb->u32Cbp <= 63 || mb->ptCurMbInfo->u8MbType == MB_NOT_CODED);
            FUZZ_CHECK(mb->ptCurMbInfo->u8FieldPred <= 1);
        }
    }
}

void Run(ByteReader& in) {
    const auto parser = static_cast<Parser>(in.U8() % kParsers);
    Instance instance;
    Mp4vDecCtx* const ctx = instance.ctx;
    SetState(ctx, in);
    in.Take(2);
    const PaddedChunk chunk = PaddedChunk::WithOwnPadding(in.rest());
    if (chunk.size() == 0) return;
    ctx->tBs = chunk.Reader();
    Mp4vDecInArgs args = {};
    args.pu8Buf = chunk.data();
    args.u32BufLen = chunk.size();
    uint32_t width = 0, height = 0;
    switch (parser) {
        case Parser::kHeaders:
            BsHeaders(ctx);
            CheckVol(*ctx);
            break;
        case Parser::kVol:
            FUZZ_CHECK(DecVolHeader(ctx) == ctx->u32HeaderStatus);
            CheckVol(*ctx);
            break;
        case Parser::kVop:
            if (DecVopHeader(ctx) == MP4VDEC_OK) CheckVop(*ctx);
            break;
        case Parser::kMatrix:
            CheckMatrix(&ctx->tBs);
            break;
        case Parser::kMacroblock:
            DecodeMacroblocks(ctx);
            break;
        case Parser::kPreDecode:
            if (Mp4vPreDecBs(ctx, &args, &width, &height) == height) FUZZ_CHECK(width <= kOpenWidth);
            CheckVol(*ctx);
            break;
    }
    FUZZ_CHECK(IsSound(ctx->tBs));
    // No header and no 20 macroblock headers go on for long behind the end.
    FUZZ_CHECK(Refills(ctx->tBs) <= chunk.size() / 4 + 64);
}

}  // namespace
}  // namespace mp4v::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    mp4v::fuzz::ByteReader in({data, size});
    mp4v::fuzz::Run(in);
    return 0;
}

MP4VDEC_FUZZ_MUTATORS(mp4v::fuzz::kPrefix);
