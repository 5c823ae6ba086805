// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// An elementary stream as a player treats it: split as it arrives, decoded by the host's session. The first byte is the
// control flags, the second the size of the pieces in which the stream arrives.
#include <algorithm>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/mutator.h"
#include "host/chunk_decoder.h"
#include "host/splitter.h"
#include "host/status.h"

namespace mp4v::fuzz {
namespace {

constexpr size_t kPrefix = 2;
constexpr uint64_t kMostMacroblocks = 45 * 36;  // larger pictures only slow the search down

bool IsAffordable(std::span<const uint8_t> chunk) {
    const ChunkHeaders headers = ScanHeaders(chunk);
    return std::all_of(headers.vols.begin(), headers.vols.end(), [](const VolHeader& vol) {
        return !vol.has_size() || !IsSupportedSize(vol.width, vol.height) ||
               uint64_t{RoundUpTo16(vol.width)} * RoundUpTo16(vol.height) <= kMostMacroblocks * 256;
    });
}

void CheckPicture(const DecodeResult& result, const ChunkDecoder& session) {
    FUZZ_CHECK(result.status == MP4VDEC_OK);
    const Picture& picture = result.picture;
    FUZZ_CHECK(picture.width <= session.open_width() && picture.height <= session.open_height());
    CheckKnown(picture.Pack());
}

}  // namespace
}  // namespace mp4v::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace mp4v;
    fuzz::ByteReader in({data, size});
    ChunkDecoder session({.control_flags = in.U8() & 0x3F});
    const size_t step = in.U8() * 16 + 1;
    Splitter splitter;
    Chunk chunk;
    uint64_t fed = 0;
    const auto decode_ready = [&] {
        while (splitter.Next(chunk)) {
            FUZZ_CHECK(!chunk.data.empty() && chunk.offset == fed && chunk.dropped == 0);
            fed += chunk.data.size();
            if (!fuzz::IsAffordable(chunk.data)) continue;
            const DecodeResult result = session.Decode(chunk.data, chunk.offset, fed);
            FUZZ_CHECK(result.offset == chunk.offset && result.time_stamp == fed);
            FUZZ_CHECK(!result.status_name().empty());
            if (result.has_picture) fuzz::CheckPicture(result, session);
        }
    };
    const size_t total = in.rest().size();
    while (!in.rest().empty()) {
        splitter.Append(in.Take(step));
        decode_ready();
    }
    splitter.Finish();
    decode_ready();
    FUZZ_CHECK(fed == total);
    FUZZ_CHECK(session.memory().bad_frees().empty());
    return 0;
}

MP4VDEC_FUZZ_MUTATORS(mp4v::fuzz::kPrefix);
