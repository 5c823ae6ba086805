// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "vector_replay.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>

namespace mp4v::test {
namespace {

constexpr uint8_t kRubbish = 0xCD;  // fills memory that the decoder has not written yet
constexpr uint8_t kCanary = 0x5A;   // fills what lies between a buffer and its page's borders
constexpr uint8_t kPicture = 0xA5;
constexpr int kUntouched = 0xDD;

size_t PageSize() {
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// A buffer between two pages without access. It begins at the first one, or ends at the second one as far as the
// alignment allows.
class GuardedBuffer {
  public:
    GuardedBuffer(size_t size, size_t align, uint8_t fill, Flush flush = Flush::kRight) : size_(size) {
        const size_t page = PageSize();
        body_ = (size + page - 1) / page * page;
        body_ = std::max(body_, page);
        map_ = static_cast<uint8_t*>(
            mmap(nullptr, body_ + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        if (map_ == MAP_FAILED || mprotect(map_ + page, body_, PROT_READ | PROT_WRITE) != 0) {
            perror("mmap");
            abort();
        }
        data_ = map_ + page + (flush == Flush::kLeft ? 0 : (body_ - size) / align * align);
        memset(map_ + page, kCanary, body_);
        memset(data_, fill, size);
    }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    ~GuardedBuffer() { munmap(map_, body_ + 2 * PageSize()); }

    uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    std::span<const uint8_t> bytes() const { return {data_, size_}; }
    void MakeReadOnly() const { mprotect(map_ + PageSize(), body_, PROT_READ); }

    // What lies before and behind the buffer in its pages is still as it was.
    bool Intact() const {
        const uint8_t* first = map_ + PageSize();
        const auto canary = [](uint8_t byte) { return byte == kCanary; };
        return std::all_of(first, static_cast<const uint8_t*>(data_), canary) &&
               std::all_of(static_cast<const uint8_t*>(data_) + size_, first + body_, canary);
    }

  private:
    size_t size_;
    size_t body_;
    uint8_t* map_;
    uint8_t* data_;
};

// The memory context of a replay.
struct GuardedMemory {
    Flush flush = Flush::kRight;
    std::map<void*, std::unique_ptr<GuardedBuffer>> live{};
    std::vector<std::string> problems{};

    void* Allocate(uint32_t size, uint32_t align) {
        auto buffer = std::make_unique<GuardedBuffer>(size, align, kRubbish, flush);
        void* memory = buffer->data();
        live.emplace(memory, std::move(buffer));
        return memory;
    }

    void Free(void* memory) {
        const auto found = live.find(memory);
        if (found == live.end()) {
            problems.push_back("memory was freed that is not allocated");
            return;
        }
        CheckIntact(*found->second);
        live.erase(found);
    }

    void CheckIntact(const GuardedBuffer& buffer) {
        if (!buffer.Intact()) {
            problems.push_back("written outside an allocation of " + std::to_string(buffer.size()) + " bytes");
        }
    }
};

// Extension records are found through 32-bit addresses.
class LowMemory {
  public:
    explicit LowMemory(size_t size) : size_(size) {
#ifdef MAP_32BIT
        map_ = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
#else
        for (uintptr_t hint = 0x10000000; hint < 0xF0000000; hint += 0x01000000) {
            map_ =
                mmap(reinterpret_cast<void*>(hint), size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (map_ == MAP_FAILED || reinterpret_cast<uintptr_t>(map_) + size <= 0xFFFFFFFF) {
                break;
            }
            munmap(map_, size);
            map_ = MAP_FAILED;
        }
#endif
        if (map_ == MAP_FAILED) {
            fprintf(stderr, "no memory below 4 GiB\n");
            abort();
        }
    }
    LowMemory(const LowMemory&) = delete;
    LowMemory& operator=(const LowMemory&) = delete;
    ~LowMemory() {
        munmap(map_, size_);
    }

    template <typename T>
    T* At(size_t offset) const {
        return reinterpret_cast<T*>(static_cast<uint8_t*>(map_) + offset);
    }
    uint32_t Address(size_t offset) const {
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(At<uint8_t>(offset)));
    }

  private:
    size_t size_;
    void* map_ = MAP_FAILED;
};

class Extension {
  public:
    explicit Extension(const VectorCase& vector) : memory_(kRecords + 16 * (vector.ext_records.size() + 1)) {
        const size_t count = vector.ext_records.size();
        for (size_t i = 0; i < count; i++) {
            memcpy(memory_.At<uint32_t>(kRecords + 16 * i), vector.ext_records[i].data(), 16);
        }
        if (vector.ext_mode == 1 && count > 0) {
            address_ = memory_.Address(kRecords);
        }
        if (vector.ext_mode == 2) {
            auto* list = memory_.At<Mp4vDecExtList>(0);
            auto* records = memory_.At<uint32_t>(kAddresses);
            for (size_t i = 0; i < count; i++) {
                records[i] = memory_.Address(kRecords + 16 * i);
            }
            *list = {MP4VDEC_EXT_LIST_MAGIC, static_cast<int32_t>(count), records};
            address_ = memory_.Address(0);
        }
    }

    uint32_t Address() const { return address_; }

  private:
    static constexpr size_t kAddresses = 64;
    static constexpr size_t kRecords = 1024;  // room for 240 addresses; cases have a handful
    LowMemory memory_;
    uint32_t address_ = 0;
};

#ifdef MP4VDEC_TEST_SANITIZED
// The sanitizer's own report says more.
bool RunGuarded(const std::function<void()>& call, std::string*) {
    call();
    return true;
}
#else
sigjmp_buf g_fault_return;
void* volatile g_fault_address;
volatile sig_atomic_t g_fault_signal;

void OnFault(int signal, siginfo_t* info, void*) {
    g_fault_address = info->si_addr;
    g_fault_signal = signal;
    siglongjmp(g_fault_return, 1);
}

// False when the call ran into a page without access or the like; what it owned is lost.
bool RunGuarded(const std::function<void()>& call, std::string* what) {
    struct sigaction action = {}, old_segv, old_bus, old_fpe;
    action.sa_sigaction = OnFault;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaction(SIGSEGV, &action, &old_segv);
    sigaction(SIGBUS, &action, &old_bus);
    sigaction(SIGFPE, &action, &old_fpe);
    volatile bool fine = false;
    if (sigsetjmp(g_fault_return, 1) == 0) {
        call();
        fine = true;
    }
    sigaction(SIGSEGV, &old_segv, nullptr);
    sigaction(SIGBUS, &old_bus, nullptr);
    sigaction(SIGFPE, &old_fpe, nullptr);
    if (!fine) {
        char text[80];
        snprintf(text, sizeof(text), "signal %d at address %p", static_cast<int>(g_fault_signal),
                 static_cast<void*>(g_fault_address));
        *what = text;
    }
    return fine;
}
#endif

class Reader {
  public:
    explicit Reader(std::span<const uint8_t> bytes) : rest_(bytes) {}

    uint64_t Little(size_t count) {
        uint64_t value = 0;
        for (size_t i = 0; i < count; i++) {
            value |= static_cast<uint64_t>(Byte()) << (8 * i);
        }
        return value;
    }
    uint32_t U32() { return static_cast<uint32_t>(Little(4)); }
    uint8_t Byte() {
        if (rest_.empty()) {
            complete_ = false;
            return 0;
        }
        const uint8_t byte = rest_.front();
        rest_ = rest_.subspan(1);
        return byte;
    }
    std::vector<uint8_t> Bytes(size_t count) {
        complete_ = complete_ && count <= rest_.size();
        count = std::min(count, rest_.size());
        std::vector<uint8_t> bytes(rest_.begin(), rest_.begin() + static_cast<ptrdiff_t>(count));
        rest_ = rest_.subspan(count);
        return bytes;
    }
    bool complete() const { return complete_; }
    bool at_end() const { return rest_.empty(); }

  private:
    std::span<const uint8_t> rest_;
    bool complete_ = true;
};

template <typename... Args>
std::string Format(const char* format, Args... args) {
    char text[256];
    snprintf(text, sizeof(text), format, args...);
    return text;
}

// One instance and the buffers around it. With a model, pictures have the sizes and contents that they had there.
class Session {
  public:
    Session(const DecoderApi& api, const VectorCase& vector, const ReplayResult* model = nullptr,
            Flush flush = Flush::kRight)
        : api_(api),
          vector_(vector),
          model_(model),
          flush_(flush),
          extension_(vector),
          memory_{flush},
          width_(vector.open_width),
          height_(vector.open_height) {
        const size_t size = model ? 0 : static_cast<size_t>(vector.open_width) * vector.open_height * 3 / 2;
        picture_.emplace(size, 1, kPicture, flush);
    }

    ReplayResult Run() {
        if (Open()) {
            size_t number = 0;
            while (number < Chunks() && Feed(number)) {
                number++;
            }
            if (number == Chunks()) {
                Close();
            }
        }
        result_.problems.insert(result_.problems.end(), memory_.problems.begin(), memory_.problems.end());
        return std::move(result_);
    }

  private:
    // As many as the model got through.
    size_t Chunks() const { return model_ ? model_->lines.size() - 1 : vector_.chunks.size(); }

    bool Open() {
        const Mp4vDecOpenParams params = {
            {0xFFFFFFFF, 0xFFFFFFFF}, vector_.open_width, vector_.open_height, extension_.Address()};
        uint32_t status = 0;
        std::string fault;
        if (!RunGuarded([&] { status = api_.functions->pfOpen(&handle_, &params, &memory_); }, &fault)) {
            result_.problems.push_back("open: " + fault);
            return false;
        }
        AddLine(false, Format("open width=%u height=%u status=%08x", vector_.open_width, vector_.open_height, status));
        return status == MP4VDEC_OK;
    }

    bool Feed(size_t number) {
        const VectorChunk& chunk = vector_.chunks[number];
        GuardedBuffer bytes(chunk.data.size() + chunk.tail.size(), 1, 0, flush_);
        std::copy(chunk.data.begin(), chunk.data.end(), bytes.data());
        std::copy(chunk.tail.begin(), chunk.tail.end(), bytes.data() + chunk.data.size());
        bytes.MakeReadOnly();
        if (model_) {
            const size_t size = model_->lines[number + 1].picture_bytes;
            picture_.emplace(size, 1, kPicture, flush_);
            std::copy_n(model_->lines[number].buffer.begin(), size, picture_->data());
        }

        Mp4vDecInArgs in = {};
        in.pu8Buf = bytes.data();
        in.u32BufLen = static_cast<uint32_t>(chunk.data.size());
        in.u64TimeStamp = chunk.time_stamp;
        in.u8EndOfStream = static_cast<uint8_t>(chunk.end_of_stream);
        in.u32CtrlFlags = chunk.flags;
        Mp4vDecOutArgs out;
        memset(&out, kUntouched, sizeof(out));
        out.pu8Dst = picture_->data();

        uint32_t status = 0;
        std::string fault;
        const bool fine = RunGuarded(
            [&] {
                status = chunk.headers_only ? api_.pre_decode(handle_, &in, &out.u32Width, &out.u32Height)
                                            : api_.functions->pfProcess(handle_, &in, &out);
            },
            &fault);
        if (!fine) {
            result_.problems.push_back(Format("chunk %zu: ", number) + fault);
            return false;
        }
        const bool reported = chunk.headers_only ? out.u32Width != 0xDDDDDDDD : status == MP4VDEC_OK;
        if (reported) {
            width_ = out.u32Width;
            height_ = out.u32Height;
        }
        CheckRecords(number, out);
        AddLine(!chunk.headers_only && status == MP4VDEC_OK,
                Format("%zu %s status=%08x width=%x height=%x type=%x ready=%x time=%llx eos=%x buffer=%016llx", number,
                       chunk.headers_only ? "predec" : "process", status, out.u32Width, out.u32Height, out.u32PicType,
                       out.u32FrameReady, static_cast<unsigned long long>(out.u64TimeStamp), out.u8EndOfStream,
                       static_cast<unsigned long long>(model_ ? 0 : Fnv1a64(picture_->bytes(), kBufferBasis))));
        return true;
    }

    void CheckRecords(size_t number, const Mp4vDecOutArgs& out) {
        if (out.pu8Dst != picture_->data() || out.au32Reserved[0] != 0xDDDDDDDD || out.au32Reserved[1] != 0xDDDDDDDD) {
            result_.problems.push_back(Format("chunk %zu: a member of the host's was written", number));
        }
        if (!picture_->Intact()) {
            result_.problems.push_back(Format("chunk %zu: written outside the picture", number));
        }
    }

    void Close() {
        std::string fault;
        uint32_t status = 0;
        if (!RunGuarded([&] { status = api_.functions->pfClose(handle_); }, &fault)) {
            result_.problems.push_back("close: " + fault);
        } else if (status != MP4VDEC_OK) {
            result_.problems.push_back(Format("close returned %08x", status));
        } else if (!memory_.live.empty()) {
            result_.problems.push_back(Format("%zu allocations were not freed", memory_.live.size()));
        }
    }

    void AddLine(bool delivered, std::string text) {
        const auto bytes = picture_->bytes();
        result_.lines.push_back({std::move(text), {bytes.begin(), bytes.end()}, width_, height_, delivered});
        if (api_.current_size && handle_) {
            uint32_t width = 0, height = 0;
            api_.current_size(handle_, &width, &height);
            result_.lines.back().picture_bytes = static_cast<size_t>(width) * height * 3 / 2;
        }
    }

    const DecoderApi& api_;
    const VectorCase& vector_;
    const ReplayResult* model_;
    Flush flush_;
    Extension extension_;
    std::optional<GuardedBuffer> picture_;
    GuardedMemory memory_;
    void* handle_ = nullptr;
    uint32_t width_;
    uint32_t height_;
    ReplayResult result_;
};

void SplitExpected(const std::string& line, std::string* text, std::string* digests) {
    const size_t at = line.find(" mb=");
    *text = line.substr(0, at);
    *digests = at == std::string::npos ? "" : line.substr(at + 4);
}

// Where two lists of macroblock digests differ first; empty when they cannot be compared or agree.
std::string DescribeMacroblock(const ReplayLine& line, const std::string& expected) {
    const std::string got = MacroblockDigests(line.buffer, line.width, line.height);
    if (expected.empty() || got.size() != expected.size()) {
        return "";
    }
    const size_t columns = (line.width + 15) / 16;
    size_t differing = 0;
    std::string first;
    for (size_t i = 0; i < got.size() / 4; i++) {
        if (got.compare(4 * i, 4, expected, 4 * i, 4) != 0 && differing++ == 0) {
            first = Format("macroblock %zu (column %zu, row %zu)", i, i % columns, i / columns);
        }
    }
    return differing == 0 ? "" : "\n  first at " + first + Format(", %zu macroblocks differ", differing);
}

}  // namespace

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> ReadLines(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

bool ParseCase(std::span<const uint8_t> bytes, VectorCase* result, std::string* error) {
    Reader reader(bytes);
    if (reader.U32() != 0x4334504D) {  // "MP4C"
        *error = "not a case";
        return false;
    }
    *result = {};
    result->open_width = reader.U32();
    result->open_height = reader.U32();
    result->ext_mode = reader.U32();
    const uint32_t records = reader.U32();
    for (uint32_t i = 0; i < records && reader.complete(); i++) {
        std::array<uint32_t, 4> record;
        for (uint32_t& word : record) {
            word = reader.U32();
        }
        result->ext_records.push_back(record);
    }
    const uint32_t chunks = reader.U32();
    for (uint32_t i = 0; i < chunks && reader.complete(); i++) {
        VectorChunk chunk;
        chunk.headers_only = reader.U32() == 1;
        chunk.flags = reader.U32();
        chunk.end_of_stream = reader.U32();
        chunk.time_stamp = reader.Little(8);
        chunk.data = reader.Bytes(reader.U32());
        const std::vector<uint8_t> tail = reader.Bytes(chunk.tail.size());
        std::copy(tail.begin(), tail.end(), chunk.tail.begin());
        result->chunks.push_back(std::move(chunk));
    }
    if (!reader.complete() || !reader.at_end()) {
        *error = reader.complete() ? "bytes are left over" : "it ends too early";
        return false;
    }
    return true;
}

ReplayResult Replay(const DecoderApi& api, const VectorCase& vector) {
    return Session(api, vector).Run();
}

std::vector<std::string> FindEscapes(const DecoderApi& api, const VectorCase& vector, const ReplayResult& replay,
                                     Flush flush) {
    if (!replay.problems.empty() || replay.lines.empty()) {
        return {"nothing to compare with"};
    }
    for (const ReplayLine& line : replay.lines) {
        if (line.picture_bytes > line.buffer.size()) {
            return {"the current size is larger than the size at open, after " + line.text};
        }
    }
    const ReplayResult result = Session(api, vector, &replay, flush).Run();
    std::vector<std::string> escapes = result.problems;
    if (result.lines.size() != replay.lines.size()) {
        escapes.push_back("another number of results");
        return escapes;
    }
    const auto text_of = [](const ReplayLine& line) { return line.text.substr(0, line.text.find(" buffer=")); };
    for (size_t i = 0; i < result.lines.size(); i++) {
        const ReplayLine& want = replay.lines[i];
        const ReplayLine& got = result.lines[i];
        if (text_of(got) != text_of(want) || got.picture_bytes != want.picture_bytes) {
            escapes.push_back("want " + text_of(want) + "\n  got  " + text_of(got));
        } else if (!std::equal(got.buffer.begin(), got.buffer.end(), want.buffer.begin())) {
            escapes.push_back("other samples than in the larger buffer: " + text_of(got));
        }
    }
    return escapes;
}

std::string Compare(const ReplayResult& result, const std::vector<std::string>& expected, Extent extent) {
    for (size_t i = 0; i < std::max(result.lines.size(), expected.size()); i++) {
        std::string want, digests;
        SplitExpected(i < expected.size() ? expected[i] : "(no more lines)", &want, &digests);
        const bool present = i < result.lines.size();
        std::string got = present ? result.lines[i].text : "(no more lines)";
        if (extent != Extent::kAll) {
            want = want.substr(0, want.find(" buffer="));
            got = got.substr(0, got.find(" buffer="));
        }
        const bool samples = present && extent != Extent::kRecords;
        const std::string macroblock = samples ? DescribeMacroblock(result.lines[i], digests) : "";
        if (want != got || (result.lines[i].delivered && !macroblock.empty())) {
            std::string report = "line " + std::to_string(i + 1) + "\n  want " + want + "\n  got  " + got + macroblock;
            return result.problems.empty() ? report : report + "\n  " + result.problems.front();
        }
    }
    return result.problems.empty() ? "" : result.problems.front();
}

uint64_t Fnv1a64(std::span<const uint8_t> bytes, uint64_t basis) {
    uint64_t hash = basis;
    for (const uint8_t byte : bytes) {
        hash = (hash ^ byte) * 0x100000001b3;
    }
    return hash;
}

std::string MacroblockDigests(std::span<const uint8_t> picture, uint32_t width, uint32_t height) {
    struct Plane {
        size_t offset, width, height, block;
    };
    const size_t luma = static_cast<size_t>(width) * height;
    const Plane planes[] = {
        {0, width, height, 16}, {luma, width / 2, height / 2, 8}, {luma + luma / 4, width / 2, height / 2, 8}};
    std::string digests;
    if (luma * 3 / 2 > picture.size()) {
        return digests;
    }
    std::vector<uint8_t> samples;
    for (size_t row = 0; row < (height + 15) / 16; row++) {
        for (size_t column = 0; column < (width + 15) / 16; column++) {
            samples.clear();
            for (const Plane& plane : planes) {
                const size_t right = std::min((column + 1) * plane.block, plane.width);
                const size_t bottom = std::min((row + 1) * plane.block, plane.height);
                for (size_t y = row * plane.block; y < bottom; y++) {
                    for (size_t x = column * plane.block; x < right; x++) {
                        samples.push_back(picture[plane.offset + y * plane.width + x]);
                    }
                }
            }
            const uint64_t hash = Fnv1a64(samples);
            digests += Format("%04x", static_cast<unsigned>((hash ^ hash >> 16 ^ hash >> 32 ^ hash >> 48) & 0xFFFF));
        }
    }
    return digests;
}

}  // namespace mp4v::test

// The host's memory service, as the decoder calls it.
extern "C" void* VideoMemMalloc_c(void* context, uint32_t size, uint32_t align, int32_t, const char*, int32_t) {
    return static_cast<mp4v::test::GuardedMemory*>(context)->Allocate(size, align);
}

extern "C" void VideoMemFree_c(void* context, void* memory, int32_t, const char*, int32_t) {
    static_cast<mp4v::test::GuardedMemory*>(context)->Free(memory);
}
