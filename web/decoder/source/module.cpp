// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// What the WebAssembly module exports beside the C interface: a session, without any object that JavaScript could not
// read. lib/session.js is the other side, and knows where the members of WebResult lie.
#include <emscripten.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "host/inspection.h"
#include "host/memory.h"
#include "mp4vdec.hpp"

namespace {

struct WebPlane {
    const uint8_t* samples;
    uint32_t width;
    uint32_t height;
    uint32_t pitch;
};

struct WebResult {
    double number;
    double offset;
    double seconds;  // not a number: unknown
    uint32_t bytes;  // of the chunk
    uint32_t coded;
    uint32_t status;
    const char* error;  // zero-terminated, as are the others; null: no error
    const char* error_name;
    uint32_t type;  // 0: no picture, and nothing behind counts
    uint32_t width;
    uint32_t height;
    std::array<WebPlane, 3> planes;
    std::array<uint32_t, 2> rate;
    std::array<uint32_t, 2> aspect;
    uint32_t interlacing;
};
static_assert(offsetof(WebResult, bytes) == 24 && offsetof(WebResult, planes) == 56);
static_assert(offsetof(WebResult, rate) == 104 && offsetof(WebResult, interlacing) == 120);

struct WebInspection {
    uint32_t columns;
    uint32_t rows;
    uint32_t units_per_sample;  // of a vector
    uint32_t count;
    const int32_t* values;  // kind, quantiser, bits and four vectors of each macroblock
};
constexpr size_t kValuesPerMacroblock = 11;

enum Option : uint32_t { kThreshold30 = 1, kIntraOnly = 2, kDeinterlace = 4, kFieldsStacked = 8 };

struct WebSession {
    mp4v::Session session;
    bool started = false;
    std::optional<mp4v::Session::Results> results{};
    mp4v::Session::Results::Iterator at{};
    std::string error_name{};
    WebResult result{};
    std::vector<int32_t> values{};
    WebInspection inspection{};
};

void Describe(WebSession& web, const mp4v::Result& from) {
    WebResult& to = web.result;
    to = {};
    to.number = static_cast<double>(from.number);
    to.offset = static_cast<double>(from.offset);
    to.seconds = from.seconds.value_or(std::numeric_limits<double>::quiet_NaN());
    to.bytes = static_cast<uint32_t>(from.bytes.size());
    to.coded = from.coded;
    if (from.error) {
        web.error_name = from.error.status ? from.error.name() : "";
        to.status = from.error.status;
        to.error = from.error.text.c_str();
        to.error_name = web.error_name.c_str();
    }
    if (!from.picture) return;
    to.type = static_cast<uint32_t>(from.picture->type);
    to.width = from.picture->width;
    to.height = from.picture->height;
    for (size_t i = 0; i < to.planes.size(); i++) {
        const mp4v::PlaneView& plane = from.picture->planes[i];
        to.planes[i] = {plane.samples, plane.width, plane.height, static_cast<uint32_t>(plane.pitch)};
    }
    const mp4v::VideoFormat format = web.session.Format();
    to.rate = {format.rate.numerator, format.rate.denominator};
    to.aspect = {format.aspect.numerator, format.aspect.denominator};
    to.interlacing = static_cast<uint8_t>(format.interlacing);
}

void Take(WebSession& web, mp4v::Session::Results results) {
    web.results = results;
    web.started = false;
}

}  // namespace

extern "C" {

EMSCRIPTEN_KEEPALIVE WebSession* WebOpen(uint32_t options, uint32_t look_ahead) {
    mp4v::SessionOptions session;
    if (options & kThreshold30) session.deblock_threshold = 30;
    session.intra_only = (options & kIntraOnly) != 0;
    session.deinterlace = (options & kDeinterlace) != 0;
    session.fields_stacked = (options & kFieldsStacked) != 0;
    session.look_ahead = look_ahead;
    return new WebSession{mp4v::Session(session)};
}

EMSCRIPTEN_KEEPALIVE void WebClose(WebSession* web) {
    delete web;
}

EMSCRIPTEN_KEEPALIVE void WebFeed(WebSession* web, const uint8_t* bytes, size_t size) {
    Take(*web, web->session.Feed({bytes, size}));
}

EMSCRIPTEN_KEEPALIVE void WebFinish(WebSession* web) {
    Take(*web, web->session.Finish());
}

// The next result, valid until the next call; null: there is none for now.
EMSCRIPTEN_KEEPALIVE const WebResult* WebNext(WebSession* web) {
    if (!web->results) return nullptr;
    if (web->started) {
        ++web->at;
    } else {
        web->at = web->results->begin();
        web->started = true;
    }
    if (web->at == std::default_sentinel) {
        web->results.reset();
        return nullptr;
    }
    Describe(*web, *web->at);
    return &web->result;
}

// What the picture of the latest result consists of, valid until the next call.
EMSCRIPTEN_KEEPALIVE const WebInspection* WebInspect(WebSession* web) {
    const mp4v::Inspection inspection = mp4v::Inspect(web->session);
    web->values.clear();
    for (const Mp4vMbView& mb : inspection.macroblocks) {
        web->values.insert(web->values.end(), {mb.eKind, mb.u8Quant, static_cast<int32_t>(mb.u32Bits)});
        for (const auto& mv : mb.aas32Mv) web->values.insert(web->values.end(), {mv[0], mv[1]});
    }
    const auto count = static_cast<uint32_t>(web->values.size() / kValuesPerMacroblock);
    web->inspection = {inspection.vop.u32MbWidth, inspection.vop.u32MbHeight, inspection.vop.u8QuarterSample ? 4u : 2u,
                       count, web->values.data()};
    return &web->inspection;
}

// For Mp4vDecoderOpen().
EMSCRIPTEN_KEEPALIVE void* WebMemory() {
    static auto* const memory = new mp4v::MemoryService;
    return memory;
}

}  // extern "C"
