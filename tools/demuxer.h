/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_DEMUXER_H_
#define MP4VDEC_TOOLS_DEMUXER_H_

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "tools/file.h"

namespace mp4v {

enum class Container { kNone, kAvi, kMp4, kMatroska };

/** Told by the first bytes of a file. */
Container ContainerOf(std::span<const uint8_t> head);

/** "AVI file" and the like. */
const char* NameOf(Container container);

/** How many bytes a file that is cut off lacks, by the sizes that it tells itself; 0: none, or unknown. */
uint64_t MissingBytes(Container container, InputFile& file);

/** Takes the elementary stream of the first MPEG-4 Part 2 track out of a container. */
class Demuxer {
  public:
    virtual ~Demuxer() = default;

    /** The next bytes, valid until the next call; none at the end, after a problem, or when interrupted. */
    virtual std::span<const uint8_t> Read() = 0;

    /** How far the file has been read. */
    virtual uint64_t position() const = 0;

    /** What ended the stream too early, as a sentence without a full stop; empty when all went well. */
    virtual const std::string& problem() const = 0;
};

/** `head` are the bytes that have been read from the file already. Throws FileError. */
std::unique_ptr<Demuxer> MakeDemuxer(Container container, InputFile& file, std::span<const uint8_t> head);

/** What reads containers, for the version of the player; null: this build cannot. */
const char* DemuxerVersion();

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_DEMUXER_H_
