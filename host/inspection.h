/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_INSPECTION_H_
#define MP4VDEC_HOST_INSPECTION_H_

#include <cstdint>
#include <vector>

#include "mp4vdec.hpp"
#include "source/common/inspect.h"

namespace mp4v {

/** What a picture consists of. */
struct Inspection {
    uint32_t status = 0;  // of the decoder; after damage the macroblocks up to there
    Mp4vVopView vop{};
    std::vector<Mp4vMbView> macroblocks;  // in the order in which they are coded
};

/** Of the chunk in the session's latest result. */
Inspection Inspect(const Session& session);

}  // namespace mp4v

#endif  // MP4VDEC_HOST_INSPECTION_H_
