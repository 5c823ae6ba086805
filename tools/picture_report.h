/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_PICTURE_REPORT_H_
#define MP4VDEC_TOOLS_PICTURE_REPORT_H_

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "host/inspection.h"
#include "mp4vdec.hpp"

namespace mp4v {

/** "inter 4V" and the like. */
std::string KindName(Mp4vMbKind kind);

/** "I", "P" or "not coded". */
const char* TypeName(const Mp4vVopView& vop);
/** The same as I, P or N. */
char TypeOf(const Mp4vVopView& vop);

/** Quantisers of the macroblocks that have one. */
struct QuantiserRange {
    uint32_t lowest;
    uint32_t highest;
    double mean;
};
std::optional<QuantiserRange> QuantisersOf(const Inspection& inspection);

/** What is to be told of a picture beside what it consists of. */
struct PictureFacts {
    uint64_t picture = 0;  // the number that it has, or would have
    uint64_t chunk = 0;
    uint64_t offset = 0;
    size_t bytes = 0;  // of the chunk
    uint32_t width = 0;
    uint32_t height = 0;
    std::optional<double> seconds;
    Error error;
};

/** Lines for people. */
std::string PictureText(const PictureFacts& facts, const Inspection& inspection);
/** All macroblocks included. */
nlohmann::ordered_json PictureJson(const PictureFacts& facts, const Inspection& inspection);
/** A line per macroblock, below one of names. */
std::string PictureCsv(const Inspection& inspection);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_PICTURE_REPORT_H_
