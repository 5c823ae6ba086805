/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
/**
 * @file mp4vdec.hpp
 * @brief The decoder for C++20 programs: bytes of an elementary stream go in as they arrive, pictures come out.
 *
 * The library is libmp4vhost, for CMake mp4vdec::host. It throws nothing but std::bad_alloc: whatever a stream holds
 * comes back as a value. This decodes standard input to planar 4:2:0 on standard output:
 *
 *     mp4v::Session session;
 *     std::vector<uint8_t> block(65536);
 *     size_t size = 0;
 *     int status = 0;
 *     do {
 *         size = std::fread(block.data(), 1, block.size(), stdin);
 *         for (const mp4v::Result& result : size > 0 ? session.Feed({block.data(), size}) : session.Finish()) {
 *             if (result.error) {
 *                 std::cerr << "byte " << result.offset << ": " << result.error.text << "\n";
 *                 status = 1;
 *             }
 *             if (result.picture) {
 *                 const std::vector<uint8_t> samples = result.picture->Pack();
 *                 std::fwrite(samples.data(), 1, samples.size(), stdout);
 *             }
 *         }
 *     } while (size > 0);
 *     return status;
 *
 * A session is used by one thread at a time; different sessions are independent.
 */
#ifndef MP4VDEC_HPP_
#define MP4VDEC_HPP_

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/** @brief Everything of the C++ interface. */
namespace mp4v {

/** How a picture is coded. */
enum class PictureType : uint32_t { kIntra = 1, kPredicted = 2, kNotCoded = 3 };

/** Samples of one component. */
struct PlaneView {
    const uint8_t* samples = nullptr;  ///< the first row
    uint32_t width = 0;                ///< columns
    uint32_t height = 0;               ///< rows
    size_t pitch = 0;                  ///< bytes from one row to the next
};

/** A decoded picture, cropped to the stream's own size, planar 4:2:0; chroma of odd sizes is rounded up. */
struct Picture {
    PictureType type = PictureType::kIntra;  ///< of this picture
    uint32_t width = 0;                      ///< luma columns
    uint32_t height = 0;                     ///< luma rows
    std::array<PlaneView, 3> planes;         ///< Y, U, V

    /** Y, U and V without gaps. */
    std::vector<uint8_t> Pack() const;
    /** Bytes that Pack() gives. */
    size_t packed_size() const;
};

/** What is wrong with a chunk. */
struct Error {
    uint32_t status = 0;  ///< of the decoder, see mp4vdec.h; 0: it found nothing wrong
    std::string text;     ///< a plain sentence without a full stop; empty: no error

    /** The decoder's name for the status. */
    std::string name() const;
    /** Whether there is an error. */
    explicit operator bool() const { return !text.empty(); }
};

/** What became of one chunk: any headers, then at most one picture. */
struct Result {
    uint64_t number = 0;             ///< of the chunk, from 0
    uint64_t offset = 0;             ///< of its first byte among all that were fed
    bool coded = false;              ///< there is a picture in it, decoded or not
    std::span<const uint8_t> bytes;  ///< of the chunk, valid until the iterator moves on
    Error error;                     ///< what is wrong with the chunk, if anything
    std::optional<Picture> picture;  ///< its samples are valid until the iterator moves on
    std::optional<double> seconds;   ///< of a picture, by the stream's own clock
};

/** A fraction. */
struct Ratio {
    uint32_t numerator = 0;    ///< dividend
    uint32_t denominator = 0;  ///< divisor
};

/** What a file of pictures tells about them beside their size. */
struct VideoFormat {
    Ratio rate{25, 1};       ///< pictures per second
    Ratio aspect;            ///< of one sample; 0:0 is unknown
    char interlacing = 'p';  ///< as Y4M has it: p progressive, t top or b bottom field first, m mixed
};

/** How a session decodes. */
struct SessionOptions {
    unsigned deblock_threshold = 10;  ///< 10 or 30: block edges are smoothed where the quantiser is above it
    bool intra_only = false;          ///< predicted pictures are decoded, but not delivered
    bool deinterlace = false;         ///< pictures of 352, 704 or 720 x 480 or 576
    bool fields_stacked = false;      ///< each picture is coded as one field above the other; they are woven together
    bool headers_only = false;        ///< no picture is decoded; errors are those that the headers tell of
    size_t look_ahead = 0;            ///< chunks that are kept back so that Session::Format() knows the picture rate
};

/** Plays one elementary stream (ISO/IEC 14496-2) at the pace of whoever feeds it. */
class Session {
  public:
    class Results;

    /** Begins with nothing fed. */
    explicit Session(const SessionOptions& options = {});
    ~Session();
    /** What is moved from is of no more use but to be destroyed or assigned to. */
    Session(Session&&) noexcept;
    /** As with the constructor. */
    Session& operator=(Session&&) noexcept;

    /**
     * Takes the next bytes of the stream, cut anywhere. Iterating over the results decodes what is complete by now;
     * what is left when the iteration is given up comes first the next time.
     */
    Results Feed(std::span<const uint8_t> bytes);

    /** Tells that the stream has ended, and gives what is left. Bytes fed later are ignored. */
    Results Finish();

    /** Of the picture in the latest result. */
    VideoFormat Format() const;

  private:
    friend struct Inspection Inspect(const Session& session);  // for the player
    struct State;

    std::unique_ptr<State> state_;
};

/** Results one after the other, each decoded when the iterator gets there. Of use until the session is fed again. */
class Session::Results {
  public:
    /** An input iterator. */
    class Iterator {
        /** @cond */
      public:
        using value_type = Result;
        using difference_type = std::ptrdiff_t;

        Iterator() = default;
        explicit Iterator(State* state) : state_(state) { ++*this; }

        const Result& operator*() const;
        const Result* operator->() const { return &**this; }
        Iterator& operator++();
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return !state_; }

      private:
        State* state_ = nullptr;  // null: at the end
        /** @endcond */
    };

    /** Decodes the first. */
    Iterator begin() const { return Iterator(state_); }
    /** What the iterator becomes equal to. */
    std::default_sentinel_t end() const { return {}; }

  private:
    friend class Session;
    explicit Results(State* state) : state_(state) {}

    State* state_;
};

/** A field of a header, by its name in ISO/IEC 14496-2, clause 6.2. */
struct Field {
    const char* name;  ///< as in the standard
    uint32_t value;    ///< as it stands in the stream
};

/** What begins with a start code. */
enum class HeaderKind { kSequence, kVisualObject, kVideoObject, kLayer, kGroup, kUserData, kPicture, kShortHeader };

/** A header and its fields in the order of the stream. */
struct Header {
    HeaderKind kind = HeaderKind::kPicture;  ///< of this header
    size_t position = 0;                     ///< of the start code in the chunk
    bool whole = true;                       ///< false: the fields end early, at the chunk's end or at what is not read
    std::vector<Field> fields;               ///< what could be read

    /** The value of the first field of that name. */
    std::optional<uint32_t> Find(std::string_view name) const;
};

/** Reads the headers of a stream's chunks, one chunk after the other. */
class HeaderReader {
  public:
    /** Up to the header of the chunk's picture. */
    std::vector<Header> Read(std::span<const uint8_t> chunk);

  private:
    Header layer_;  // the latest; tells what picture headers hold
};

}  // namespace mp4v

#endif  // MP4VDEC_HPP_
