/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_EXIT_CODE_H_
#define MP4VDEC_TOOLS_EXIT_CODE_H_

namespace mp4v {

// What the player's exit status means.
enum ExitCode : int {
    kExitGood = 0,
    kExitDamage = 1,  // something was refused, damaged or left out, or nothing was decoded
    kExitUsage = 2,
    kExitFiles = 3,
    kExitInterrupted = 130,  // as shells report an interrupted program
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_EXIT_CODE_H_
