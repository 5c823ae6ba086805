// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/inspect.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "common/context.h"
#include "vector_replay.h"

namespace mp4v::test {
namespace {

namespace fs = std::filesystem;

const std::string kData = MP4VDEC_TEST_DATA_DIR;

struct Watch {
    unsigned chunks = 0;
    unsigned failed = 0;
    std::set<std::string> problems;
};
Watch g_watch;

std::string StateOf(const void* handle) {
    const auto* const ctx = static_cast<const Mp4vDecCtx*>(handle);
    std::string state(reinterpret_cast<const char*>(ctx), sizeof *ctx);
    const size_t records = size_t{ctx->u32MbHeight} * (ctx->u32MbWidth + 1);
    return state.append(reinterpret_cast<const char*>(ctx->ptMbInfo), records * sizeof(MbInfo));
}

uint32_t ProcessAndInspect(void* handle, const Mp4vDecInArgs* in, Mp4vDecOutArgs* out) {
    const uint32_t status = Mp4vDecoderProcess(handle, in, out);
    if (!handle || !in || !in->pu8Buf || in->u8EndOfStream == 1) return status;
    const std::string before = StateOf(handle);
    Mp4vVopView vop;
    std::vector<Mp4vMbView> list;
    const auto visit = [](void* user, const Mp4vMbView* mb) {
        static_cast<std::vector<Mp4vMbView>*>(user)->push_back(*mb);
    };
    const uint32_t seen = InspectVop(handle, in->pu8Buf, in->u32BufLen, &vop, visit, &list);
    g_watch.chunks++;
    g_watch.failed += status != MP4VDEC_OK && !list.empty();
    if (seen != status) g_watch.problems.insert("another status");
    if (StateOf(handle) != before) g_watch.problems.insert("the instance has changed");
    uint32_t next = vop.u32HeaderBits;
    for (const Mp4vMbView& mb : list) {
        if (mb.u32FirstBit != next) g_watch.problems.insert("a gap between macroblocks");
        next += mb.u32Bits;
    }
    const size_t all = vop.u8NotCoded ? 0 : size_t{vop.u32MbWidth} * vop.u32MbHeight;
    if (status == MP4VDEC_OK && list.size() != all) g_watch.problems.insert("another number of macroblocks");
    return status;
}

TEST(Inspect, ChangesNothingAndEndsAsTheDecoderDid) {
    VidDecFuncs functions = *ptVidDec_MPEG4->ptFuncs;
    functions.pfProcess = ProcessAndInspect;
    g_watch = {};
    for (const auto& entry : fs::recursive_directory_iterator(kData + "/vectors")) {
        if (entry.path().extension() != ".case") continue;
        VectorCase vector;
        std::string error;
        ASSERT_TRUE(ParseCase(ReadFile(entry.path().string()), &vector, &error)) << error;
        const ReplayResult plain = Replay({ptVidDec_MPEG4->ptFuncs, Mp4vPreDecBs}, vector);
        const ReplayResult inspected = Replay({&functions, Mp4vPreDecBs}, vector);
        EXPECT_TRUE(inspected.problems.empty()) << entry.path() << inspected.problems.front();
        ASSERT_EQ(plain.lines.size(), inspected.lines.size());
        for (size_t i = 0; i < plain.lines.size(); i++) {
            ASSERT_EQ(plain.lines[i].text, inspected.lines[i].text) << entry.path();
            ASSERT_TRUE(plain.lines[i].buffer == inspected.lines[i].buffer) << entry.path();
        }
        ASSERT_TRUE(g_watch.problems.empty()) << entry.path() << ": " << *g_watch.problems.begin();
    }
    EXPECT_GT(g_watch.chunks, 2000u);
    EXPECT_GT(g_watch.failed, 200u);
}

}  // namespace
}  // namespace mp4v::test
