// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Decodes standard input to planar 4:2:0 on standard output by means of the host side.
#include <iostream>
#include <iterator>
#include <vector>

#include "host/session.h"
#include "host/splitter.h"

int main() {
    const std::vector<char> stream{std::istreambuf_iterator<char>(std::cin), {}};
    mp4v::Splitter splitter;
    mp4v::Session session;
    mp4v::Chunk chunk;
    int status = 0;
    splitter.Append({reinterpret_cast<const uint8_t*>(stream.data()), stream.size()});
    splitter.Finish();
    while (splitter.Next(chunk)) {
        const mp4v::DecodeResult result = session.Decode(chunk.data);
        if (result.status != 0) status = 1;
        if (!result.has_picture) continue;
        const std::vector<uint8_t> samples = result.picture.Pack();
        std::cout.write(reinterpret_cast<const char*>(samples.data()), static_cast<std::streamsize>(samples.size()));
    }
    return status;
}
