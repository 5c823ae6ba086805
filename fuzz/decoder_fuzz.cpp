// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The entry points with everything from the input: open size, extension records, flags, chunks and the bytes behind
// them, the allocation that fails. Every buffer is a heap block of its own and just as large as it must be.
//
// Each chunk goes to two instances. The first gets no picture buffer and tells the size of the picture, so that the
// second can get one that a single byte would leave; both must say the same. For chunks with an odd time stamp the
// first works with other kernels, so that what the decoder does at once and by the table is compared. The second is
// looked into after each chunk, which must tell the same and change nothing. In the end a good picture must come out as
// from a fresh instance.
#include <algorithm>
#include <optional>
#include <utility>

#include "c/image.h"
#include "common/inspect.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/mutator.h"
#include "fuzz/other_kernels.h"
#include "host/memory.h"
#include "support/headers_writer.h"
#include "support/low_memory.h"

namespace mp4v::fuzz {
namespace {

constexpr uint32_t kMostColumns = 720;  // larger pictures only slow the search down
constexpr uint32_t kMostRows = 576;

class Instance {
  public:
    explicit Instance(const Mp4vDecOpenParams& params) {
        status_ = Mp4vDecoderOpen(&handle_, &params, &memory_);
        FUZZ_CHECK((status_ == MP4VDEC_OK) == (handle_ != nullptr));
    }
    ~Instance() {
        if (handle_) FUZZ_CHECK(Mp4vDecoderClose(handle_) == MP4VDEC_OK);
        FUZZ_CHECK(memory_.live_blocks() == 0 && memory_.bad_frees().empty());
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    uint32_t status() const { return status_; }
    const Mp4vDecCtx& ctx() const { return *static_cast<const Mp4vDecCtx*>(handle_); }

    struct Result {
        uint32_t status;
        Mp4vDecOutArgs out;

        bool operator==(const Result& other) const {
            return status == other.status && out.u32Width == other.out.u32Width &&
                   out.u32Height == other.out.u32Height && out.u32PicType == other.out.u32PicType &&
                   out.u32FrameReady == other.out.u32FrameReady && out.u64TimeStamp == other.out.u64TimeStamp &&
                   out.u8EndOfStream == other.out.u8EndOfStream;
        }
    };

    Result Process(const PaddedChunk& chunk, const SessionCase::Piece& piece, uint8_t* dst) {
        Mp4vDecInArgs in = {};
        in.pu8Buf = chunk.data();
        in.u32BufLen = chunk.size();
        in.u64TimeStamp = piece.time_stamp;
        in.u8EndOfStream = static_cast<uint8_t>(piece.end_of_stream);
        in.u32CtrlFlags = piece.flags;
        Result result;
        memset(&result.out, 0xDD, sizeof result.out);
        result.out.pu8Dst = dst;
        if (piece.operation == 1) {
            result.status = Mp4vPreDecBs(handle_, &in, &result.out.u32Width, &result.out.u32Height);
        } else {
            result.status = Mp4vDecoderProcess(handle_, &in, &result.out);
        }
        FUZZ_CHECK(result.out.pu8Dst == dst && result.out.au32Reserved[0] == 0xDDDDDDDD);
        return result;
    }

    // The status, and how many macroblocks there are up to it.
    std::pair<uint32_t, uint32_t> Inspect(const PaddedChunk& chunk) const {
        Mp4vVopView vop;
        uint32_t count = 0;
        const auto visit = [](void* user, const Mp4vMbView*) { ++*static_cast<uint32_t*>(user); };
        const uint32_t status = InspectVop(handle_, chunk.data(), chunk.size(), &vop, visit, &count);
        FUZZ_CHECK(count <= vop.u32MbWidth * vop.u32MbHeight);
        return {status, count};
    }

  private:
    MemoryService memory_;
    void* handle_ = nullptr;
    uint32_t status_;
};

// An Open that runs out of memory on the way.
void FailToOpen(const Mp4vDecOpenParams& params, uint32_t allocation) {
    if (allocation == 0) return;
    MemoryService memory;
    memory.FailAllocation(allocation);
    void* handle = nullptr;
    if (Mp4vDecoderOpen(&handle, &params, &memory) == MP4VDEC_OK) {
        FUZZ_CHECK(Mp4vDecoderClose(handle) == MP4VDEC_OK);
    } else {
        FUZZ_CHECK(handle == nullptr);
    }
    FUZZ_CHECK(memory.live_blocks() == 0 && memory.bad_frees().empty());
}

bool IsKnown(uint32_t status) {
    return status <= 1 || (status > ERR_VID_MPEG4DEC_START_VALUE && status <= ERR_VID_MPEG4DEC_END_VALUE);
}

Instance::Result Scout(Instance& scout, const PaddedChunk& chunk, const SessionCase::Piece& piece) {
    std::optional<OtherKernels> other;
    if (piece.time_stamp & 1) other.emplace();
    return scout.Process(chunk, piece, nullptr);
}

bool IsSame(const VopFrame& a, const VopFrame& b, size_t bytes) {
    return memcmp(a.pu8Base, b.pu8Base, bytes) == 0;
}

void Feed(Instance& scout, Instance& decoder, const SessionCase::Piece& piece) {
    const PaddedChunk chunk(piece.data, piece.padding);
    const Instance::Result expected = Scout(scout, chunk, piece);
    if (piece.operation == 1) {
        FUZZ_CHECK(IsKnown(expected.status) || expected.status == expected.out.u32Height);
    } else {
        FUZZ_CHECK(IsKnown(expected.status));
    }
    const size_t bytes = static_cast<size_t>(scout.ctx().u32Width) * scout.ctx().u32Height * 3 / 2;
    std::unique_ptr<uint8_t[]> picture;
    if (piece.operation != 2) {
        picture.reset(new uint8_t[bytes]);
        memset(picture.get(), 0xA5, bytes);
    }
    const Instance::Result result = decoder.Process(chunk, piece, picture.get());
    FUZZ_CHECK(result == expected);
    FUZZ_CHECK(scout.ctx().u32Width == decoder.ctx().u32Width && scout.ctx().u32Height == decoder.ctx().u32Height);
    const Mp4vDecCtx &one = scout.ctx(), &other = decoder.ctx();
    const size_t frame = FrameBytes(other.u32LumaStride, other.u32PaddedHeight);
    FUZZ_CHECK(IsSame(one.tCurFrame, other.tCurFrame, frame) && IsSame(one.tRefFrame, other.tRefFrame, frame));
    FUZZ_CHECK(IsSound(decoder.ctx().tBs));
    if (piece.operation != 1 && piece.end_of_stream != 1) {
        const auto [status, count] = decoder.Inspect(chunk);
        FUZZ_CHECK(status == result.status);
        if (status == MP4VDEC_OK && result.out.u32PicType != MP4VDEC_PIC_NOT_CODED)
            FUZZ_CHECK(count == decoder.ctx().u32MbWidth * decoder.ctx().u32MbHeight);
    }
    if (picture) CheckKnown({picture.get(), bytes});
}

// User data without a keyword, which end what others said; a layer; an I-VOP that is not flat.
SessionCase::Piece GoodPiece(uint32_t width, uint32_t height) {
    test::BitWriter out;
    test::PutUserData(out, "none");
    test::VolHeader vol;
    vol.width = width;
    vol.height = height;
    vol.PutTo(out);
    test::VopHeader().PutTo(out, vol);
    for (uint32_t mb = 0; mb < width * height / 256; mb++) {
        out.Bits("1 0 11");  // mcbpc, ac_pred_flag, cbpy: all
        for (int i = 0; i < 4; i++) out.Bits(mb & 1 ? "10 01" : "10 10").Bits("0111 0");  // a DC, a coefficient, last
        out.Bits("11 11");
    }
    SessionCase::Piece piece;
    piece.flags = MP4VDEC_CTRL_DEINTERLACE;
    piece.data = out.Align().Bytes();
    return piece;
}

void CheckRecovery(Instance& decoder, const Mp4vDecOpenParams& params) {
    // Of the larger size, what is known of the picture structure shows in the output.
    const bool large = params.u32Width >= 352 && params.u32Height >= 480;
    static const SessionCase::Piece pieces[] = {GoodPiece(16, 16), GoodPiece(352, 480)};
    const SessionCase::Piece& piece = pieces[large];
    const size_t bytes = large ? 352 * 480 * 3 / 2 : 16 * 16 * 3 / 2;
    const PaddedChunk chunk(piece.data, piece.padding);
    Instance fresh(params);
    std::vector<uint8_t> expected(bytes, 0x11);
    std::vector<uint8_t> picture(bytes, 0x11);
    const Instance::Result want = fresh.Process(chunk, piece, expected.data());
    const Instance::Result got = decoder.Process(chunk, piece, picture.data());
    FUZZ_CHECK(got == want);
    FUZZ_CHECK(picture == expected);
    const bool fits = params.u32Width >= 16 && params.u32Height >= 16;
    FUZZ_CHECK(want.status == (fits ? MP4VDEC_OK : ERR_VID_MPEG4DEC_OVER_INIT_SIZE));
}

uint32_t PutExtension(const SessionCase& session, test::LowMemory& memory, std::vector<uint32_t>& addresses) {
    for (const auto& record : session.records) {
        addresses.push_back(memory.Record(record[0], record[3], record[1], record[2]));
    }
    // A list that nests in a list would be data, not memory of the host's.
    if (session.ext_mode == 1 && !addresses.empty() && session.records[0][0] != MP4VDEC_EXT_LIST_MAGIC) {
        return addresses[0];
    }
    return session.ext_mode == 2 ? memory.List(addresses) : 0;
}

void Run(const SessionCase& session) {
    test::LowMemory memory;
    std::vector<uint32_t> addresses;
    const uint32_t extension = PutExtension(session, memory, addresses);
    const Mp4vDecOpenParams params = {{0xFFFFFFFF, 0xFFFFFFFF},
                                      session.open_width % (kMostColumns + 1),
                                      session.open_height % (kMostRows + 1),
                                      extension};
    FailToOpen(params, session.fail_in_open);
    Instance scout(params);
    Instance decoder(params);
    if (decoder.status() != MP4VDEC_OK) {
        FUZZ_CHECK(decoder.status() == ERR_VID_MPEG4DEC_INI_WIDTH_HEIGHT);
        return;
    }
    for (const SessionCase::Piece& piece : session.pieces) Feed(scout, decoder, piece);
    CheckRecovery(decoder, params);
}

uint32_t RandomOpenSize(Random& random) {
    static constexpr uint32_t kSizes[] = {0, 8, 16, 17, 32, 48, 64, 176, 352, 480, 576, 704, 720};
    return kSizes[Below(random, std::size(kSizes))];
}

void Mutate(SessionCase& session, size_t max_size, Random& random) {
    switch (Below(random, 8)) {
        case 0:
            (random() & 16 ? session.open_width : session.open_height) = RandomOpenSize(random);
            break;
        case 1:
            session.ext_mode = static_cast<uint32_t>(Below(random, 3));
            session.fail_in_open = static_cast<uint32_t>(Below(random, 16));
            session.records = {{MP4VDEC_EXT_PIC_STRUCT, 0, 0, static_cast<uint32_t>(Below(random, 4))}};
            break;
        case 2:
            if (session.pieces.empty()) break;
            session.pieces.erase(session.pieces.begin() + static_cast<ptrdiff_t>(Below(random, session.pieces.size())));
            break;
        case 3:
            if (session.pieces.empty() || session.pieces.size() >= SessionCase::kMaxPieces) break;
            session.pieces.insert(session.pieces.begin() + static_cast<ptrdiff_t>(Below(random, session.pieces.size())),
                                  SessionCase::Piece(session.pieces[Below(random, session.pieces.size())]));
            break;
        default: {
            if (session.pieces.empty()) session.pieces.emplace_back();
            SessionCase::Piece& piece = session.pieces[Below(random, session.pieces.size())];
            if (Below(random, 4) == 0) {
                piece.operation = Below(random, 8) == 0 ? static_cast<uint32_t>(1 + Below(random, 2)) : 0;
                piece.flags = static_cast<uint32_t>(random() >> 4 & 0x3F);
                piece.end_of_stream = Below(random, 16) == 0;
                piece.padding[Below(random, piece.padding.size())] = static_cast<uint8_t>(random() >> 4);
            } else {
                MutateStream(piece.data, max_size, random);
            }
        }
    }
}

size_t Store(const SessionCase& session, uint8_t* out, size_t max_size) {
    std::vector<uint8_t> bytes = session.Serialize();
    bytes.resize(std::min(bytes.size(), max_size));
    std::copy(bytes.begin(), bytes.end(), out);
    return bytes.size();
}

}  // namespace
}  // namespace mp4v::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    mp4v::fuzz::Run(mp4v::fuzz::SessionCase::Parse({data, size}));
    return 0;
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {
    mp4v::fuzz::Random random(seed);
    mp4v::fuzz::MarkWritten(data, size);
    mp4v::fuzz::SessionCase session = mp4v::fuzz::SessionCase::Parse({data, size});
    mp4v::fuzz::Mutate(session, max_size, random);
    return mp4v::fuzz::Store(session, data, max_size);
}

// The first pieces of one, the last of the other.
extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t* a, size_t a_size, const uint8_t* b, size_t b_size,
                                            uint8_t* out, size_t max_size, unsigned seed) {
    mp4v::fuzz::Random random(seed);
    mp4v::fuzz::MarkWritten(a, a_size);
    mp4v::fuzz::MarkWritten(b, b_size);
    mp4v::fuzz::SessionCase first = mp4v::fuzz::SessionCase::Parse({a, a_size});
    const mp4v::fuzz::SessionCase second = mp4v::fuzz::SessionCase::Parse({b, b_size});
    first.pieces.resize(mp4v::fuzz::Below(random, first.pieces.size() + 1));
    const size_t skip = mp4v::fuzz::Below(random, second.pieces.size() + 1);
    first.pieces.insert(first.pieces.end(), second.pieces.begin() + static_cast<ptrdiff_t>(skip), second.pieces.end());
    return mp4v::fuzz::Store(first, out, max_size);
}
