// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Decodes standard input to planar 4:2:0 on standard output: the example in mp4vdec.hpp.
#include <cstdio>
#include <iostream>
#include <mp4vdec.hpp>
#include <vector>

int main() {
    mp4v::Session session;
    std::vector<uint8_t> block(65536);
    size_t size = 0;
    int status = 0;
    do {
        size = std::fread(block.data(), 1, block.size(), stdin);
        for (const mp4v::Result& result : size > 0 ? session.Feed({block.data(), size}) : session.Finish()) {
            if (result.error) {
                std::cerr << "byte " << result.offset << ": " << result.error.text << "\n";
                status = 1;
            }
            if (result.picture) {
                const std::vector<uint8_t> samples = result.picture->Pack();
                std::fwrite(samples.data(), 1, samples.size(), stdout);
            }
        }
    } while (size > 0);
    return status;
}
