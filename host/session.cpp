/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include <algorithm>
#include <deque>
#include <utility>

#include "host/chunk_decoder.h"
#include "host/inspection.h"
#include "host/low_memory.h"
#include "host/settings.h"
#include "host/splitter.h"
#include "host/status.h"
#include "host/video_format.h"
#include "mp4vdec.h"
#include "mp4vdec.hpp"

namespace mp4v {
namespace {

Error ErrorOf(const Chunk& chunk, const DecodeResult& decoded) {
    if (decoded.status != MP4VDEC_OK) return {decoded.status, ExplainStatus(decoded.status)};
    if (chunk.dropped > 0) {
        return {0, "it is too long: " + std::to_string(chunk.dropped) +
                       (chunk.dropped == 1 ? " byte is" : " bytes are") + " left out"};
    }
    if (!decoded.has_picture && !decoded.hidden) return {0, "its layer header tells a picture without samples"};
    return {};
}

}  // namespace

std::string Error::name() const {
    return StatusName(status);
}

struct Session::State {
    explicit State(const SessionOptions& options)
        : look_ahead(options.look_ahead),
          headers_only(options.headers_only),
          extensions(ExtensionRecords(options)),
          decoder({.control_flags = ControlFlags(options), .ext_param = extensions.param()}) {}

    bool Next();
    void Fill();
    void Decode();

    const size_t look_ahead;
    const bool headers_only;
    ExtensionList extensions;
    ChunkDecoder decoder;
    Splitter splitter;
    std::deque<Chunk> ahead;
    bool finished = false;
    Chunk chunk;  // of the latest result
    Result result;
    PictureClock clock;
    uint64_t chunks = 0;
};

bool Session::State::Next() {
    Fill();
    if (ahead.empty() || (!finished && ahead.size() <= look_ahead)) return false;
    chunk = std::move(ahead.front());
    ahead.pop_front();
    Decode();
    return true;
}

// One more than is kept back, so that the splitter rather than the queue holds what nobody has asked for yet.
void Session::State::Fill() {
    Chunk next;
    while (ahead.size() <= look_ahead && splitter.Next(next)) ahead.push_back(std::move(next));
}

void Session::State::Decode() {
    result = {};
    result.number = chunks++;
    result.offset = chunk.offset;
    result.coded = chunk.has_picture;
    result.bytes = chunk.data;
    if (!extensions.problem().empty()) {
        result.error.text = extensions.problem();
        return;
    }
    if (headers_only) {
        const uint32_t status = decoder.Judge(chunk.data);
        if (status != MP4VDEC_OK) result.error = {status, ExplainStatus(status)};
        if (decoder.layer()) result.seconds = clock.SecondsOf(chunk, *decoder.layer());
        return;
    }
    const DecodeResult decoded = decoder.Decode(chunk.data, chunk.offset);
    result.error = ErrorOf(chunk, decoded);
    if (!decoded.has_picture) return;
    result.picture = decoded.picture;
    if (decoder.layer()) result.seconds = clock.SecondsOf(chunk, *decoder.layer());
}

Session::Session(const SessionOptions& options) : state_(std::make_unique<State>(options)) {}
Session::~Session() = default;
Session::Session(Session&&) noexcept = default;
Session& Session::operator=(Session&&) noexcept = default;

Session::Results Session::Feed(std::span<const uint8_t> bytes) {
    state_->splitter.Append(bytes);
    return Results(state_.get());
}

Session::Results Session::Finish() {
    state_->splitter.Finish();
    state_->finished = true;
    return Results(state_.get());
}

VideoFormat Session::Format() const {
    const VolHeader* const layer = state_->decoder.layer();
    return layer ? FormatOf(*layer, state_->chunk, state_->ahead) : VideoFormat{};
}

const Result& Session::Results::Iterator::operator*() const {
    return state_->result;
}

Session::Results::Iterator& Session::Results::Iterator::operator++() {
    if (!state_->Next()) state_ = nullptr;
    return *this;
}

Inspection Inspect(const Session& session) {
    return session.state_->decoder.Inspect();
}

}  // namespace mp4v
