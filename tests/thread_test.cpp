// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Different instances are independent: many of them in several threads give what each gives alone. Under
// ThreadSanitizer (preset tsan) this also shows that they share nothing that anybody writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <fstream>
#include <functional>
#include <iterator>
#include <latch>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/chunk_decoder.h"
#include "host/memory.h"
#include "host/splitter.h"
#include "host/status.h"
#include "host/vol_header.h"
#include "mp4vdec.h"
#include "support/random.h"

namespace mp4v::test {
namespace {

constexpr size_t kThreads = 8;
constexpr size_t kPerThread = 4;
constexpr size_t kInstances = kThreads * kPerThread;
constexpr size_t kRounds = 2;

using Bytes = std::vector<uint8_t>;

// The beginning of a stream.
struct Job {
    std::vector<Bytes> chunks;  // as they are in the stream
    std::vector<Bytes> padded;  // sizes rounded up, for the decoder itself
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t flags = 0;
};

struct Outcome {
    uint32_t status = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t type = 0;
    size_t samples = 0;  // hash of the whole buffer

    bool operator==(const Outcome&) const = default;
};
using Outcomes = std::vector<Outcome>;

size_t Hash(const Bytes& bytes) {
    return std::hash<std::string_view>{}({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

Job Load(const std::string& name, uint32_t flags, bool damaged) {
    constexpr size_t kChunks = 10;
    std::ifstream file(std::string(MP4VDEC_TEST_DATA_DIR) + "/streams/" + name + ".m4v", std::ios::binary);
    Splitter splitter;
    splitter.Append(Bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
    splitter.Finish();
    Job job;
    job.flags = flags;
    Random random(1);
    for (Chunk chunk; job.chunks.size() < kChunks && splitter.Next(chunk);) {
        Bytes& data = chunk.data;
        const ChunkHeaders headers = ScanHeaders(data);
        if (damaged && !job.chunks.empty() && data.size() > 40) {
            for (int i = 0; i < 3; i++) data[20 + random.Below(static_cast<uint32_t>(data.size() - 20))] ^= 0x55;
        }
        job.chunks.push_back(data);
        RoundVolSizes(data, headers);
        data.resize(data.size() + MP4VDEC_CHUNK_PADDING);
        job.padded.push_back(data);
        for (const VolHeader& vol : headers.vols) {
            job.width = std::max(job.width, RoundUpTo16(vol.width));
            job.height = std::max(job.height, RoundUpTo16(vol.height));
        }
    }
    return job;
}

std::vector<Job> LoadAll() {
    const std::vector<std::string> names = {"o02_qcif_camera_q8",  "o06_pal_interlaced",  "o07_ntsc_interlaced_altscan",
                                            "o10_odd120x90_noise", "o11_odd426x240_q31",  "o15_mpegquant_matrices",
                                            "o17_not_coded",       "o23_dquant_qprd",     "o24_intra_acpred",
                                            "o25_tiny48x32",       "o27_interlaced_qpel", "o28_user_data_frame",
                                            "o31_fast_pan_qpel",   "o32_rotation_4mv",    "o36_size_change",
                                            "oq01_sweep"};
    constexpr uint32_t kFlags[] = {0, 3, MP4VDEC_CTRL_DEINTERLACE, 3 | MP4VDEC_CTRL_INTRA_ONLY};
    std::vector<Job> jobs;
    for (const bool damaged : {false, true}) {
        for (const std::string& name : names) jobs.push_back(Load(name, kFlags[(jobs.size() + damaged) % 4], damaged));
    }
    return jobs;
}

// Each instance gets another stream in each round.
const Job& JobOf(size_t instance, size_t round) {
    static const std::vector<Job> jobs = LoadAll();
    return jobs[(instance + 5 * round) % jobs.size()];
}

class Instance {
  public:
    Instance(const Job& job, MemoryService& memory)
        : job_(job), picture_(size_t{job.width} * job.height * 3 / 2, 0xA5) {
        Mp4vDecOpenParams params{};
        params.u32Width = job.width;
        params.u32Height = job.height;
        EXPECT_EQ(ptVidDec_MPEG4->ptFuncs->pfOpen(&handle_, &params, &memory), MP4VDEC_OK);
    }
    ~Instance() { EXPECT_EQ(ptVidDec_MPEG4->ptFuncs->pfClose(handle_), MP4VDEC_OK); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    // Decodes the next chunk. False: there is none.
    bool Step() {
        const size_t next = outcomes_.size();
        if (next == job_.padded.size()) return false;
        Mp4vDecInArgs in{};
        in.pu8Buf = job_.padded[next].data();
        in.u32BufLen = static_cast<uint32_t>(job_.chunks[next].size());
        in.u32CtrlFlags = job_.flags;
        Mp4vDecOutArgs out{};
        out.pu8Dst = picture_.data();
        const uint32_t status = ptVidDec_MPEG4->ptFuncs->pfProcess(handle_, &in, &out);
        outcomes_.push_back({status, out.u32Width, out.u32Height, out.u32PicType, Hash(picture_)});
        return true;
    }
    const Outcomes& outcomes() const { return outcomes_; }

  private:
    const Job& job_;
    Bytes picture_;
    void* handle_ = nullptr;
    Outcomes outcomes_;
};

// The same through the host's session, which opens and pads for itself.
class HostInstance {
  public:
    explicit HostInstance(const Job& job) : job_(job), session_({job.flags}) {}

    bool Step() {
        if (outcomes_.size() == job_.chunks.size()) return false;
        const DecodeResult result = session_.Decode(job_.chunks[outcomes_.size()]);
        const Picture& picture = result.picture;
        outcomes_.push_back({result.status, picture.width, picture.height, static_cast<uint32_t>(picture.type),
                             result.has_picture ? Hash(picture.Pack()) : 0});
        return true;
    }
    const Outcomes& outcomes() const { return outcomes_; }

  private:
    const Job& job_;
    ChunkDecoder session_;
    Outcomes outcomes_;
};

void InThreads(const std::function<void(size_t)>& call) {
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < kThreads; t++) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            call(t);
        });
    }
    for (std::thread& thread : threads) thread.join();
}

// By round and instance. Each thread keeps its instances alive together and goes round them chunk by chunk.
template <typename T>
std::vector<Outcomes> PlayInThreads(const std::function<std::unique_ptr<T>(const Job&, size_t instance)>& open) {
    JobOf(0, 0);  // reads the files
    std::vector<Outcomes> all(kRounds * kInstances);
    InThreads([&](size_t thread) {
        for (size_t round = 0; round < kRounds; round++) {
            std::vector<std::unique_ptr<T>> own;
            for (size_t i = thread * kPerThread; i < (thread + 1) * kPerThread; i++) {
                own.push_back(open(JobOf(i, round), i));
            }
            for (bool more = true; more;) {
                more = false;
                for (const std::unique_ptr<T>& instance : own) more = instance->Step() || more;
            }
            for (size_t i = 0; i < kPerThread; i++) {
                all[round * kInstances + thread * kPerThread + i] = own[i]->outcomes();
            }
        }
    });
    return all;
}

template <typename T>
Outcomes PlayAlone(T&& instance) {
    while (instance.Step()) {
    }
    return instance.outcomes();
}

std::vector<Outcomes> Expected() {
    std::vector<Outcomes> all;
    for (size_t round = 0; round < kRounds; round++) {
        for (size_t i = 0; i < kInstances; i++) {
            MemoryService memory;
            all.push_back(PlayAlone(Instance(JobOf(i, round), memory)));
        }
    }
    return all;
}

void ExpectSame(const std::vector<Outcomes>& expected, const std::vector<Outcomes>& got) {
    ASSERT_EQ(expected.size(), got.size());
    for (size_t i = 0; i < got.size(); i++) {
        EXPECT_TRUE(expected[i] == got[i]) << "round " << i / kInstances << ", instance " << i % kInstances;
    }
}

void PlayWith(std::deque<MemoryService>& services) {
    const std::vector<Outcomes> got = PlayInThreads<Instance>([&](const Job& job, size_t instance) {
        return std::make_unique<Instance>(job, services[instance % services.size()]);
    });
    for (const MemoryService& service : services) {
        EXPECT_GT(service.allocations(), 0u);
        EXPECT_EQ(service.live_blocks(), 0u);
        EXPECT_TRUE(service.bad_frees().empty());
    }
    static const std::vector<Outcomes> expected = Expected();
    ExpectSame(expected, got);
}

// Comes first in this program: nothing has touched the decoder yet, so whatever it sets up late it would set up here.
TEST(Threads, FirstUseMayBeInAllOfThemAtOnce) {
    std::vector<std::string> texts(kThreads);
    std::vector<Outcomes> outcomes(kThreads);
    JobOf(0, 0);
    InThreads([&](size_t thread) {
        const VidDecFuncs& functions = *ptVidDec_MPEG4->ptFuncs;
        char banner[100] = {};
        int32_t length = 0;
        EXPECT_EQ(functions.pfGetVersion(banner, sizeof banner, &length), MP4VDEC_OK);
        texts[thread] = std::string(ptVidDec_MPEG4->ps8Name) + banner + StatusName(ERR_VID_MPEG4DEC_COEFF);
        MemoryService memory;
        outcomes[thread] = PlayAlone(Instance(JobOf(1, 0), memory));
    });
    for (const std::string& text : texts) {
        EXPECT_EQ(text, texts[0]);
        EXPECT_EQ(text.substr(0, 9), "MPEG4_DEC");
    }
    MemoryService memory;
    const Outcomes expected = PlayAlone(Instance(JobOf(1, 0), memory));
    ASSERT_FALSE(expected.empty());
    for (const Outcomes& got : outcomes) EXPECT_TRUE(got == expected);
}

TEST(Threads, InstancesWithMemoryOfTheirOwnDecodeAsAlone) {
    std::deque<MemoryService> services(kInstances);
    PlayWith(services);
}

TEST(Threads, InstancesWithOneMemoryServiceDecodeAsAlone) {
    std::deque<MemoryService> services(1);
    PlayWith(services);
}

TEST(Threads, SessionsDecodeAsAlone) {
    const std::vector<Outcomes> got =
        PlayInThreads<HostInstance>([](const Job& job, size_t) { return std::make_unique<HostInstance>(job); });
    std::vector<Outcomes> expected;
    for (size_t i = 0; i < kRounds * kInstances; i++) {
        expected.push_back(PlayAlone(HostInstance(JobOf(i % kInstances, i / kInstances))));
    }
    ExpectSame(expected, got);
}

TEST(Threads, TheStreamsAreWorthComparing) {
    std::set<uint32_t> statuses;
    std::set<uint32_t> types;
    std::set<size_t> pictures;
    for (size_t i = 0; i < kInstances; i++) {
        MemoryService memory;
        for (const Outcome& outcome : PlayAlone(Instance(JobOf(i, 0), memory))) {
            statuses.insert(outcome.status);
            if (outcome.status == MP4VDEC_OK) types.insert(outcome.type);
            pictures.insert(outcome.samples);
        }
    }
    EXPECT_GE(statuses.size(), 3u);
    EXPECT_EQ(types, (std::set<uint32_t>{MP4VDEC_PIC_INTRA, MP4VDEC_PIC_PREDICTED, MP4VDEC_PIC_NOT_CODED}));
    EXPECT_GT(pictures.size(), 150u);
}

}  // namespace
}  // namespace mp4v::test
