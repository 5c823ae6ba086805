// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Replays cases (tests/vectors) and prints all results: one line per call, with a hash of the caller's whole buffer.
// scripts/differential compares what different builds of the decoder print.
#include <cstdio>

#include "vector_replay.h"

int main(int argc, char** argv) {
    using namespace mp4v::test;
    for (int i = 1; i < argc; i++) {
        VectorCase vector;
        std::string error;
        if (!ParseCase(ReadFile(argv[i]), &vector, &error)) {
            std::fprintf(stderr, "%s: %s\n", argv[i], error.c_str());
            return 2;
        }
        const ReplayResult result = Replay({ptVidDec_MPEG4->ptFuncs, Mp4vPreDecBs}, vector);
        for (const ReplayLine& line : result.lines) std::printf("%s: %s\n", argv[i], line.text.c_str());
        for (const std::string& problem : result.problems) std::printf("%s: %s\n", argv[i], problem.c_str());
    }
}
