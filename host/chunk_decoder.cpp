/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "host/chunk_decoder.h"

#include <algorithm>
#include <limits>

#include "host/start_code.h"
#include "host/status.h"
#include "mp4vdec.h"

namespace mp4v {
namespace {

// For streams whose first chunks tell no size: large enough for most, and the decoder has to say what is wrong.
constexpr uint32_t kDefaultWidth = 352;
constexpr uint32_t kDefaultHeight = 288;
// The decoder takes at most 128 bytes of user data per chunk; longer headers are not worth keeping.
constexpr size_t kMaxRememberedHeaders = 4096;

const VidDecFuncs& Funcs() {
    return *ptVidDec_MPEG4->ptFuncs;
}

constexpr uint32_t HalfUp(uint32_t size) {
    return (size + 1) / 2;
}

Mp4vDecInArgs InArgs(const std::vector<uint8_t>& padded, uint32_t flags) {
    Mp4vDecInArgs in{};
    in.pu8Buf = padded.data();
    in.u32BufLen = static_cast<uint32_t>(padded.size() - MP4VDEC_CHUNK_PADDING);
    in.u32CtrlFlags = flags;
    return in;
}

// False for layers that the decoder refuses by what stands before their size, or for the size itself: opening another
// instance for those would only lose the pictures of the present one.
bool NeedsRoom(const VolHeader& vol) {
    const uint32_t type = vol.type_indication;
    return vol.has_size() && IsSupportedSize(vol.width, vol.height) && (type == 0 || type == 1 || type == 17);
}

}  // namespace

size_t Picture::packed_size() const {
    size_t size = 0;
    for (const PlaneView& plane : planes) size += size_t{plane.width} * plane.height;
    return size;
}

std::vector<uint8_t> Picture::Pack() const {
    std::vector<uint8_t> packed;
    packed.reserve(packed_size());
    for (const PlaneView& plane : planes) {
        for (uint32_t y = 0; y < plane.height; y++) {
            const uint8_t* const row = plane.samples + y * plane.pitch;
            packed.insert(packed.end(), row, row + plane.width);
        }
    }
    return packed;
}

std::string DecodeResult::status_name() const {
    return StatusName(status);
}

ChunkDecoder::ChunkDecoder(ChunkDecoderOptions options) : options_(options) {}

ChunkDecoder::~ChunkDecoder() {
    Close();
}

DecodeResult ChunkDecoder::Decode(std::span<const uint8_t> chunk, uint64_t offset, uint64_t time_stamp) {
    DecodeResult result = DecodeInto({}, chunk);
    result.offset = offset;
    result.time_stamp = time_stamp;
    return result;
}

DecodeResult ChunkDecoder::DecodeInto(std::span<uint8_t> memory, std::span<const uint8_t> chunk) {
    DecodeResult result;
    const ChunkHeaders headers = ScanHeaders(chunk);
    result.status = EnsureOpen(SizeFor(headers));
    if (result.status != MP4VDEC_OK) return result;

    Load(chunk);
    RoundVolSizes(chunk_, headers);
    Remember(headers);

    const Mp4vDecInArgs in = InArgs(chunk_, options_.control_flags);
    Mp4vDecOutArgs out{};
    out.pu8Dst = memory.size() < picture_.size() ? picture_.data() : memory.data();
    result.status = Funcs().pfProcess(decoder_, &in, &out);
    // With this flag, predicted pictures are decoded but not written out.
    const bool hides = (options_.control_flags & MP4VDEC_CTRL_INTRA_ONLY) && out.u32PicType == MP4VDEC_PIC_PREDICTED;
    result.hidden = result.status == MP4VDEC_OK && hides;
    if (result.status == MP4VDEC_OK && out.u32FrameReady == 1 && !hides) {
        result.picture = MakePicture(out);
        result.has_picture = result.picture.packed_size() > 0;
    }
    return result;
}

uint32_t ChunkDecoder::Judge(std::span<const uint8_t> chunk) {
    const ChunkHeaders headers = ScanHeaders(chunk);
    const uint32_t opened = EnsureOpen(SizeFor(headers));
    if (opened != MP4VDEC_OK) return opened;
    Load(chunk);
    RoundVolSizes(chunk_, headers);
    Remember(headers);
    const Mp4vDecInArgs in = InArgs(chunk_, 0);
    uint32_t width = 0;
    uint32_t height = 0;
    // A height stands for success; statuses are far above any.
    const uint32_t status = Mp4vPreDecBs(decoder_, &in, &width, &height);
    if (status > MP4VDEC_MAX_HEIGHT) return status;
    if (!headers.vop_position) return ERR_VID_MPEG4DEC_BITSTREAM;
    if (!has_layer_) return ERR_VID_MPEG4DEC_VOL_NOT_FOUND;
    const std::optional<VopHeader> vop = ReadVopHeader(chunk, *headers.vop_position, layer_);
    if (!vop) return ERR_VID_MPEG4DEC_TIMEBASE;
    return vop->coding_type > 1 ? ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME : MP4VDEC_OK;
}

Inspection ChunkDecoder::Inspect() const {
    Inspection inspection;
    inspection.status = ERR_VID_MPEG4DEC_VOL_NOT_FOUND;
    if (!decoder_ || chunk_.empty()) return inspection;
    const auto size = static_cast<uint32_t>(chunk_.size() - MP4VDEC_CHUNK_PADDING);
    const auto visit = [](void* list, const Mp4vMbView* macroblock) {
        static_cast<std::vector<Mp4vMbView>*>(list)->push_back(*macroblock);
    };
    inspection.status = InspectVop(decoder_, chunk_.data(), size, &inspection.vop, visit, &inspection.macroblocks);
    return inspection;
}

// The size that the decoder must be open for.
ChunkDecoder::Size ChunkDecoder::SizeFor(const ChunkHeaders& headers) const {
    Size size{open_width_, open_height_};
    for (const VolHeader& vol : headers.vols) {
        if (!NeedsRoom(vol)) continue;
        size.width = std::max({size.width, RoundUpTo16(vol.width), 16u});
        size.height = std::max({size.height, RoundUpTo16(vol.height), 16u});
    }
    return size.width == 0 ? Size{kDefaultWidth, kDefaultHeight} : size;
}

uint32_t ChunkDecoder::EnsureOpen(Size size) {
    if (decoder_ && size.width == open_width_ && size.height == open_height_) return MP4VDEC_OK;
    Close();
    picture_.assign(size_t{size.width} * size.height * 3 / 2, 0);
    Mp4vDecOpenParams params{};
    params.u32Width = size.width;
    params.u32Height = size.height;
    params.u32ExtParam = options_.ext_param;
    void* decoder = nullptr;
    const uint32_t status = Funcs().pfOpen(&decoder, &params, &memory_);
    if (status != MP4VDEC_OK) return status;
    decoder_ = decoder;
    open_width_ = size.width;
    open_height_ = size.height;
    times_opened_++;
    ReplayHeaders();
    return MP4VDEC_OK;
}

void ChunkDecoder::Close() {
    if (decoder_) Funcs().pfClose(decoder_);
    decoder_ = nullptr;
}

void ChunkDecoder::Load(std::span<const uint8_t> chunk) {
    constexpr size_t kLongest = std::numeric_limits<uint32_t>::max() - MP4VDEC_CHUNK_PADDING;
    const size_t size = std::min(chunk.size(), kLongest);
    chunk_.clear();
    chunk_.reserve(size + MP4VDEC_CHUNK_PADDING);
    chunk_.assign(chunk.begin(), chunk.begin() + static_cast<ptrdiff_t>(size));
    chunk_.resize(size + MP4VDEC_CHUNK_PADDING, 0);
}

// A new instance gets its layer from the chunk that made it necessary, and its reference picture from the intra picture
// that follows. What would be lost is the picture structure that user data told earlier, so they are told again,
// between the layers that may have overruled them.
void ChunkDecoder::ReplayHeaders() {
    if (user_data_headers_.empty()) return;
    Replay(user_data_layer_);
    Replay(user_data_headers_);
    Replay(layer_headers_);
}

void ChunkDecoder::Replay(const std::vector<uint8_t>& padded) {
    if (padded.empty()) return;
    const Mp4vDecInArgs in = InArgs(padded, 0);
    Mp4vDecOutArgs out{};
    Funcs().pfProcess(decoder_, &in, &out);
}

void ChunkDecoder::Remember(const ChunkHeaders& headers) {
    for (const VolHeader& vol : headers.vols) {
        if (!vol.has_size()) continue;
        layer_ = vol;
        has_layer_ = true;
    }
    if (!headers.vop_position || *headers.vop_position > kMaxRememberedHeaders) return;
    // With the VOP start code, which ends the last header; the padding behind it reads as a picture that is not coded.
    const size_t size = *headers.vop_position + kStartCodeSize;
    std::vector<uint8_t> padded(chunk_.begin(), chunk_.begin() + static_cast<ptrdiff_t>(size));
    padded.resize(size + MP4VDEC_CHUNK_PADDING, 0);
    if (headers.has_user_data) {
        user_data_layer_ = layer_headers_;
        user_data_headers_ = padded;
    }
    if (!headers.vols.empty()) layer_headers_ = std::move(padded);
}

Picture ChunkDecoder::MakePicture(const Mp4vDecOutArgs& out) const {
    const uint32_t coded_width = out.u32Width;
    const uint32_t coded_height = out.u32Height;
    Picture picture;
    picture.type = static_cast<PictureType>(out.u32PicType);
    // Only where a layer was refused after its size was read can the decoder be at another one: then whole pixels
    // pairs.
    const bool known =
        has_layer_ && RoundUpTo16(layer_.width) == coded_width && RoundUpTo16(layer_.height) == coded_height;
    picture.width = known ? layer_.width : coded_width & ~1u;
    picture.height = known ? layer_.height : coded_height & ~1u;

    const size_t luma_size = size_t{coded_width} * coded_height;
    const uint8_t* const luma = out.pu8Dst;
    const uint32_t chroma_width = HalfUp(picture.width);
    const uint32_t chroma_height = HalfUp(picture.height);
    const size_t chroma_pitch = coded_width / 2;
    picture.planes[0] = {luma, picture.width, picture.height, coded_width};
    picture.planes[1] = {luma + luma_size, chroma_width, chroma_height, chroma_pitch};
    picture.planes[2] = {luma + luma_size * 5 / 4, chroma_width, chroma_height, chroma_pitch};
    return picture;
}

}  // namespace mp4v
