// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Intra macroblocks as symbols: random ones, their bits, and what must become of them.
#ifndef MP4VDEC_TESTS_SUPPORT_INTRA_MODEL_H_
#define MP4VDEC_TESTS_SUPPORT_INTRA_MODEL_H_

#include <array>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "common/context.h"
#include "tests/support/bit_writer.h"
#include "tests/support/vlc_codes.h"

namespace mp4v::test {

struct Event {
    int run;
    int level;
};

struct IntraBlockSymbols {
    int dc = 0;                 // differential, where the DC is coded apart
    std::vector<Event> events;  // the last one ends the block; coded when not empty
};

struct IntraMbSymbols {
    std::array<IntraBlockSymbols, 6> blocks;

    int Cbp() const {
        int cbp = 0;
        for (size_t b = 0; b < 6; b++) cbp = cbp * 2 + !blocks[b].events.empty();
        return cbp;
    }
    int Cbpy() const { return Cbp() >> 2; }
    int Cbpc() const { return Cbp() & 3; }
};

inline void WriteEvents(BitWriter& bits, const std::vector<Event>& events, bool intra) {
    for (size_t i = 0; i < events.size(); i++) {
        bits.Bits(TcoefCode(intra, i + 1 == events.size(), events[i].run, events[i].level));
    }
}

inline void WriteIntraBlocks(BitWriter& bits, const IntraMbSymbols& mb, bool dc_apart) {
    for (size_t b = 0; b < 6; b++) {
        if (dc_apart) bits.Bits(DcCode(mb.blocks[b].dc, b < 4));
        WriteEvents(bits, mb.blocks[b].events, true);
    }
}

inline std::vector<Event> RandomEvents(std::mt19937& rng, int first) {
    std::vector<Event> events;
    const int count = 1 + static_cast<int>(rng() % 8);
    int position = first;
    for (int i = 0; i < count && position < 64; i++) {
        const int run = static_cast<int>(rng() % 3 ? rng() % 4 : rng() % (64u - static_cast<unsigned>(position)));
        if (position + run > 63) break;
        const int range = rng() % 8 ? 12 : 2047;
        events.push_back({run, static_cast<int>(rng() % static_cast<unsigned>(2 * range + 1)) - range});
        position += run + 1;
    }
    return events;
}

inline IntraMbSymbols RandomIntraMb(std::mt19937& rng, bool dc_apart) {
    IntraMbSymbols mb;
    for (auto& block : mb.blocks) {
        const int range = rng() % 4 ? 40 : 2047;
        block.dc = dc_apart ? static_cast<int>(rng() % static_cast<unsigned>(2 * range + 1)) - range : 0;
        if (rng() % 3) block.events = RandomEvents(rng, dc_apart);
    }
    return mb;
}

// Scalers as stored: luma for quantisers 0..32, then chroma for 0..32; 0 for what lies behind.
inline int DcScalerAt(int index) {
    if (index >= 66) return 0;
    const int q = index % 33;
    if (q == 0 || q == 32) return 0;
    if (q < 5) return 8;
    if (index < 33) return q < 9 ? 2 * q : q < 25 ? q + 8 : 2 * q - 16;
    return q < 25 ? (q + 13) / 2 : q - 6;
}

inline int16_t Wrap16(int64_t value) {
    return static_cast<int16_t>(static_cast<uint16_t>(value));
}

// What prediction does to one macroblock, told by block positions in the picture.
class IntraModel {
  public:
    struct Block {
        std::array<int16_t, 64> coefficients{};
        std::array<int16_t, 15> predictors{};
        int scaler = 0;
    };

    // `at(column, row)` is the record of a macroblock inside the picture.
    template <typename RecordAt>
    IntraModel(const RecordAt& at, int column, int row, int quantiser) : quantiser_(quantiser) {
        for (int dy = -1; dy <= 0; dy++) {
            for (int dx = -1; dx <= 0; dx++) {
                if ((dx || dy) && column + dx >= 0 && row + dy >= 0)
                    around_[dy + 1][dx + 1] = at(column + dx, row + dy);
            }
        }
    }

    void Decode(const IntraMbSymbols& mb, bool dc_apart, bool ac_pred, bool alternate_vertical) {
        for (int b = 0; b < 6; b++) DecodeBlock(mb.blocks[size_t(b)], b, dc_apart, ac_pred, alternate_vertical);
    }

    const Block& block(int b) const { return blocks_[size_t(b)]; }

  private:
    struct Neighbour {
        std::array<int16_t, 15> predictors{1024};
        int64_t quantiser;
    };

    // The block that lies (dx, dy) blocks from block b.
    Neighbour At(int b, int dx, int dy) const {
        const int per_mb = b < 4 ? 2 : 1;
        const int x = (b < 4 ? b % 2 : 0) + dx;
        const int y = (b < 4 ? b / 2 : 0) + dy;
        const int block = b < 4 ? (y & 1) * 2 + (x & 1) : b;
        Neighbour result;
        result.quantiser = quantiser_;
        if (x >= 0 && y >= 0 && x < per_mb && y < per_mb) {
            result.predictors = blocks_[size_t(block)].predictors;
            return result;
        }
        const std::optional<MbInfo>& mb = around_[y < 0 ? 0 : 1][x < 0 ? 0 : 1];
        if (!mb || (mb->u8MbType != 3 && mb->u8MbType != 4)) return result;
        for (size_t i = 0; i < 15; i++) result.predictors[i] = mb->as16AcDcPred[block][i];
        result.quantiser = mb->u8Qp;
        return result;
    }

    void DecodeBlock(const IntraBlockSymbols& symbols, int b, bool dc_apart, bool ac_pred, bool alternate_vertical) {
        Block& block = blocks_[size_t(b)];
        block.scaler = DcScalerAt(b < 4 ? quantiser_ : 33 + quantiser_);
        const Neighbour left = At(b, -1, 0), above = At(b, 0, -1), corner = At(b, -1, -1);
        const int gradient_x = std::abs(left.predictors[0] - corner.predictors[0]);
        const int gradient_y = std::abs(corner.predictors[0] - above.predictors[0]);
        const bool from_above = gradient_x < gradient_y;
        const Neighbour& source = from_above ? above : left;

        const std::string scan = alternate_vertical ? "SCAN2" : !ac_pred ? "SCAN0" : from_above ? "SCAN1" : "SCAN2";
        auto& c = block.coefficients;
        if (dc_apart) c[0] = Wrap16(symbols.dc);
        size_t position = dc_apart;
        for (const Event& event : symbols.events) {
            position += size_t(event.run);
            c[size_t(TableRows(scan)[position].fields[0])] = Wrap16(event.level);
            position++;
        }
        if (block.scaler) c[0] = Wrap16(c[0] + (source.predictors[0] + block.scaler / 2) / block.scaler);
        if (ac_pred) {
            for (size_t k = 1; k < 8; k++) {
                const int v = source.predictors[from_above ? k : 7 + k];
                int16_t& target = c[from_above ? k : 8 * k];
                target = Wrap16(target + (v < 0 ? -1 : 1) * int64_t{Rescaled(std::abs(v), source.quantiser)});
            }
        }
        block.predictors[0] = Wrap16(int64_t{c[0]} * block.scaler);
        for (size_t k = 1; k < 8; k++) {
            block.predictors[k] = c[k];
            block.predictors[7 + k] = c[8 * k];
        }
    }

    // By the reciprocal, in 32 bits.
    int32_t Rescaled(int64_t magnitude, int64_t quantiser) const {
        if (magnitude == 0) return 0;
        const int64_t reciprocal = quantiser_ == 0 || quantiser_ > 31 ? 0 : 65536 / quantiser_ + 1;
        const int64_t product = (magnitude * quantiser + quantiser_ / 2) * reciprocal;
        return static_cast<int32_t>(static_cast<uint32_t>(product)) >> 16;
    }

    int quantiser_;
    std::optional<MbInfo> around_[2][2];  // [above, same row][left, same column]
    std::array<Block, 6> blocks_;
};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_INTRA_MODEL_H_
