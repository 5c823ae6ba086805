// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "fuzz/mutator.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "host/start_code.h"
#include "host/vol_header.h"
#include "support/bit_writer.h"
#include "support/headers_writer.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace mp4v::fuzz {
namespace {

using Bytes = std::vector<uint8_t>;

// Code words of ISO/IEC 14496-2, annex B, that lead to rare paths.
constexpr std::string_view kCodeWords[] = {
    "000000001",  // stuffing
    "1",          // mcbpc of an intra macroblock; not_coded; a vector component of 0
    "011",
    "010",
    "0011",  // mcbpc: inter_q, inter4v, cbpy
    "000100",
    "000000100",
    "000000010",  // mcbpc: intra_q and longer ones
    "0000 0000 1",
    "0000 0000 00",  // invalid
    "0000011",       // escape
    "0000011 0",
    "0000011 10",
    "0000011 11",
    "0000011 11 0 111111 1 100000000000 1",  // the lowest level after the longest run
    "0000011 11 1 000000 1 011111111111 1",  // the highest level, last
    "0000011 11 0 000000 0 000000000000 0",  // level 0, no markers
    "0000011 0 0000011",
    "0000011 10 0000011",
    "000000000001",
    "00000000001",  // long sizes of DC values
    "0000 0010 00",
    "0000 0000 110 0",  // long vector codes
    "0000 0000 0101 0",
    "0000 0000 0100 1",
    "10 s",
    "110 s",
    "0111 s",                         // short coefficients
    "0000 0000 0000 0000 0000 0001",  // looks like a start code
};

constexpr uint8_t kStartCodes[] = {0x00, 0x20, 0x2F, 0xB0, 0xB1, 0xB2, 0xB3, 0xB5, 0xB6, 0xB6, 0xFF};

bool GetBit(const Bytes& stream, size_t at) {
    return stream[at / 8] >> (7 - at % 8) & 1;
}

void SetBit(Bytes& stream, size_t at, bool bit) {
    const uint8_t mask = static_cast<uint8_t>(0x80 >> at % 8);
    stream[at / 8] = static_cast<uint8_t>(bit ? stream[at / 8] | mask : stream[at / 8] & ~mask);
}

// Everything behind moves by `count` bits; the last byte is filled up with zeros.
void InsertBits(Bytes& stream, size_t at, const std::vector<bool>& bits) {
    const Bytes old = stream;
    const size_t old_bits = old.size() * 8;
    stream.resize((old_bits + bits.size() + 7) / 8, 0);
    for (size_t i = 0; i < bits.size(); i++) SetBit(stream, at + i, bits[i]);
    for (size_t i = at; i < old_bits; i++) SetBit(stream, i + bits.size(), GetBit(old, i));
}

void EraseBits(Bytes& stream, size_t at, size_t count) {
    const size_t bits = stream.size() * 8;
    count = std::min(count, bits - at);
    for (size_t i = at; i + count < bits; i++) SetBit(stream, i, GetBit(stream, i + count));
    for (size_t i = bits - count; i < bits; i++) SetBit(stream, i, false);
    stream.resize((bits - count + 7) / 8);
}

void OverwriteBits(Bytes& stream, size_t at, const std::vector<bool>& bits) {
    for (size_t i = 0; i < bits.size() && at + i < stream.size() * 8; i++) SetBit(stream, at + i, bits[i]);
}

std::vector<bool> CodeWord(Random& random) {
    std::vector<bool> bits;
    for (const char c : kCodeWords[Below(random, std::size(kCodeWords))]) {
        if (c == 's') bits.push_back(random() & 1);
        if (c == '0' || c == '1') bits.push_back(c == '1');
    }
    return bits;
}

// Start codes at any byte, and the end.
std::vector<size_t> Sections(std::span<const uint8_t> stream) {
    std::vector<size_t> starts = {0};
    for (size_t at = FindStartCode(stream, 0); at < stream.size(); at = FindStartCode(stream, at + 3)) {
        if (at > 0) starts.push_back(at);
    }
    starts.push_back(stream.size());
    return starts;
}

uint32_t RandomSize(Random& random) {
    static constexpr uint32_t kSizes[] = {0, 1, 8, 15, 16, 17, 24, 32, 48, 64, 80, 128, 352, 1920, 1921, 8191};
    return kSizes[Below(random, std::size(kSizes))];
}

bool OneIn(Random& random, size_t count) {
    return Below(random, count) == 0;
}

test::VolHeader RandomVol(Random& random) {
    test::VolHeader vol;
    if (OneIn(random, 2)) vol.verid = static_cast<uint32_t>(1 + Below(random, 5));
    vol.width = RandomSize(random);
    vol.height = OneIn(random, 2) ? vol.width : RandomSize(random);
    vol.interlaced = OneIn(random, 3);
    vol.quant_type = OneIn(random, 3);
    if (vol.quant_type && OneIn(random, 2)) {
        Bytes matrix(1 + Below(random, 64));
        for (uint8_t& value : matrix) value = static_cast<uint8_t>(random());
        (OneIn(random, 2) ? vol.intra_matrix : vol.inter_matrix) = matrix;
    }
    vol.quarter_sample = OneIn(random, 3);
    vol.control_parameters = OneIn(random, 8);
    vol.vbv_parameters = OneIn(random, 2);
    if (OneIn(random, 8)) vol.quant_precision = static_cast<uint32_t>(Below(random, 16));
    if (OneIn(random, 4)) vol.time_increment_resolution = static_cast<uint32_t>(random() & 0xFFFF);
    if (OneIn(random, 8)) vol.shape = static_cast<uint32_t>(Below(random, 4));
    if (OneIn(random, 8)) vol.fixed_time_increment = 1;
    if (OneIn(random, 16)) vol.newpred = true;
    return vol;
}

test::VopHeader RandomVop(Random& random) {
    test::VopHeader vop;
    vop.coding_type = static_cast<uint32_t>(Below(random, OneIn(random, 8) ? 4 : 2));
    vop.modulo_time_base = static_cast<uint32_t>(OneIn(random, 8) ? Below(random, 140) : 0);
    vop.time_increment = static_cast<uint32_t>(Below(random, 30));
    vop.coded = !OneIn(random, 8);
    vop.rounding_type = random() & 1;
    vop.intra_dc_vlc_thr = static_cast<uint32_t>(Below(random, 8));
    vop.top_field_first = random() & 1;
    vop.alternate_vertical_scan = random() & 1;
    vop.quant = static_cast<uint32_t>(Below(random, 32));
    vop.fcode_forward = static_cast<uint32_t>(Below(random, 8));
    return vop;
}

// One or more headers. A VOL header comes with the VOP header that it fits.
Bytes RandomHeaders(Random& random) {
    test::BitWriter out;
    switch (Below(random, 6)) {
        case 0:
            test::PutVisualObjectSequence(out);
            break;
        case 1: {
            test::VisualObjectHeader object;
            object.identifier = random() & 1;
            object.video_signal_type = random() & 1;
            object.colour_description = random() & 1;
            object.PutTo(out);
            break;
        }
        case 2: {
            static constexpr std::string_view kTexts[] = {"1234567FIELD", "1234567FRAME", "1234567FRM_I", "", "FIELD"};
            test::PutUserData(out, kTexts[Below(random, std::size(kTexts))]);
            break;
        }
        case 3:
            test::PutGroupOfVop(out, static_cast<uint32_t>(random() & 0xFFFFF));
            break;
        default: {
            const test::VolHeader vol = RandomVol(random);
            vol.PutTo(out);
            RandomVop(random).PutTo(out, vol);
            for (size_t i = Below(random, 256); i > 0; i--) out.Put(static_cast<uint32_t>(random() >> 8 & 1), 1);
        }
    }
    return out.Bytes();
}

void ChangeBits(Bytes& stream, Random& random) {
    const size_t bits = stream.size() * 8;
    const size_t at = Below(random, bits);
    switch (Below(random, 6)) {
        case 0:
            for (size_t i = 0; i <= Below(random, 4); i++) {
                const size_t flip = Below(random, bits);
                SetBit(stream, flip, !GetBit(stream, flip));
            }
            break;
        case 1: {  // a field
            const size_t width = 1 + Below(random, 16);
            const size_t kind = Below(random, 3);
            std::vector<bool> field(width);
            for (size_t i = 0; i < width; i++) field[i] = kind == 0 ? random() >> 4 & 1 : kind == 1;
            OverwriteBits(stream, at, field);
            break;
        }
        case 2: {
            std::vector<bool> field(1 + Below(random, 24));
            for (size_t i = 0; i < field.size(); i++) field[i] = random() >> 4 & 1;
            InsertBits(stream, at, field);
            break;
        }
        case 3:
            EraseBits(stream, at, 1 + Below(random, 24));
            break;
        case 4:
            InsertBits(stream, at, CodeWord(random));
            break;
        default:
            OverwriteBits(stream, at, CodeWord(random));
    }
}

void ChangeSections(Bytes& stream, Random& random) {
    const std::vector<size_t> starts = Sections(stream);
    const size_t section = Below(random, starts.size() - 1);
    const auto begin = stream.begin() + static_cast<ptrdiff_t>(starts[section]);
    const auto end = stream.begin() + static_cast<ptrdiff_t>(starts[section + 1]);
    switch (Below(random, 6)) {
        case 0:
            stream.erase(begin, end);
            break;
        case 1: {
            const Bytes copy(begin, end);
            const size_t target = starts[Below(random, starts.size())];
            stream.insert(stream.begin() + static_cast<ptrdiff_t>(target), copy.begin(), copy.end());
            break;
        }
        case 2:  // two neighbours change places
            if (section + 2 < starts.size()) {
                std::rotate(begin, end, stream.begin() + static_cast<ptrdiff_t>(starts[section + 2]));
            }
            break;
        case 3:
            if (static_cast<size_t>(end - begin) >= kStartCodeSize) {
                begin[3] = kStartCodes[Below(random, std::size(kStartCodes))];
            }
            break;
        case 4: {
            const Bytes headers = RandomHeaders(random);
            stream.insert(begin, headers.begin(), headers.end());
            break;
        }
        default: {
            const std::array<uint8_t, 4> code = {0, 0, 1, kStartCodes[Below(random, std::size(kStartCodes))]};
            stream.insert(stream.begin() + static_cast<ptrdiff_t>(Below(random, stream.size() + 1)), code.begin(),
                          code.end());
        }
    }
}

void ChangeSizeField(Bytes& stream, Random& random) {
    const ChunkHeaders headers = ScanHeaders(stream);
    if (headers.vols.empty()) return;
    const VolHeader& vol = headers.vols[Below(random, headers.vols.size())];
    if (!vol.has_size()) return;
    const uint32_t size = RandomSize(random);
    const size_t position = random() & 16 ? vol.width_position : vol.height_position;
    for (size_t i = 0; i < 13; i++) SetBit(stream, position + i, size >> (12 - i) & 1);
}

void ChangeBytes(Bytes& stream, size_t max_size, Random& random) {
    if (OneIn(random, 4)) {
        stream.resize(Below(random, stream.size() + 1));
        return;
    }
    const size_t size = stream.size();
    stream.resize(std::max(max_size, size));
    const size_t changed = LLVMFuzzerMutate(stream.data(), size, stream.size());
    MarkWritten(stream.data(), changed);
    stream.resize(changed);
}

}  // namespace

void MutateStream(std::vector<uint8_t>& stream, size_t max_size, Random& random) {
    for (size_t i = 0; i <= Below(random, 4); i++) {
        if (stream.empty()) stream = RandomHeaders(random);
        switch (Below(random, 8)) {
            case 0:
            case 1:
                ChangeBytes(stream, max_size, random);
                break;
            case 2:
            case 3:
                ChangeSections(stream, random);
                break;
            case 4:
                ChangeSizeField(stream, random);
                break;
            default:
                ChangeBits(stream, random);
        }
    }
    if (stream.size() > max_size) stream.resize(max_size);
}

std::vector<uint8_t> CrossStreams(std::span<const uint8_t> a, std::span<const uint8_t> b, Random& random) {
    const std::vector<size_t> a_starts = Sections(a);
    const std::vector<size_t> b_starts = Sections(b);
    const std::span<const uint8_t> head = a.first(a_starts[Below(random, a_starts.size())]);
    const std::span<const uint8_t> tail = b.subspan(b_starts[Below(random, b_starts.size())]);
    Bytes result(head.begin(), head.end());
    result.insert(result.end(), tail.begin(), tail.end());
    return result;
}

size_t MutatePrefixed(uint8_t* data, size_t size, size_t max_size, size_t prefix, unsigned seed) {
    Random random(seed);
    if (max_size < prefix) return size;
    MarkWritten(data, size);
    Bytes parameters(data, data + std::min(size, prefix));
    parameters.resize(prefix, 0);
    Bytes stream(data + std::min(size, prefix), data + size);
    if (prefix && OneIn(random, 4)) {
        parameters[Below(random, prefix)] = static_cast<uint8_t>(random() >> 4);
    } else {
        MutateStream(stream, max_size - prefix, random);
    }
    std::copy(parameters.begin(), parameters.end(), data);
    std::copy(stream.begin(), stream.end(), data + prefix);
    return prefix + stream.size();
}

size_t CrossPrefixed(std::span<const uint8_t> a, std::span<const uint8_t> b, uint8_t* out, size_t max_size,
                     size_t prefix, unsigned seed) {
    Random random(seed);
    MarkWritten(a.data(), a.size());
    MarkWritten(b.data(), b.size());
    const size_t head = std::min({prefix, a.size(), max_size});
    Bytes stream = CrossStreams(a.subspan(head), b.subspan(std::min(prefix, b.size())), random);
    stream.resize(std::min(stream.size(), max_size - head));
    std::copy(a.begin(), a.begin() + static_cast<ptrdiff_t>(head), out);
    std::copy(stream.begin(), stream.end(), out + head);
    return head + stream.size();
}

}  // namespace mp4v::fuzz
