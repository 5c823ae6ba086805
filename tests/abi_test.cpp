// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The shared library as a host finds it: what it exports, what it needs, and that it works when loaded at run time.
// This program defines the memory service and holds no part of the decoder itself.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "mp4vdec.h"
#include "vector_replay.h"

namespace mp4v::test {
namespace {

#ifdef MP4VDEC_TEST_INSTRUMENTED
constexpr bool kInstrumented = true;  // the run-time library of a sanitizer or of coverage comes along
#else
constexpr bool kInstrumented = false;
#endif

struct Symbol {
    unsigned char type;
    unsigned char binding;
    size_t size;
    bool defined;
};

// The dynamic part of an ELF file of this machine's kind.
class ElfFile {
  public:
    explicit ElfFile(const std::string& path) : bytes_(ReadFile(path)) {
        const auto* header = At<ElfW(Ehdr)>(0);
        const auto* sections = At<ElfW(Shdr)>(header->e_shoff);
        for (size_t i = 0; i < header->e_shnum; i++) {
            const char* strings =
                sections[i].sh_link < header->e_shnum ? At<char>(sections[sections[i].sh_link].sh_offset) : nullptr;
            if (sections[i].sh_type == SHT_DYNSYM) {
                ReadSymbols(sections[i], strings);
            } else if (sections[i].sh_type == SHT_DYNAMIC) {
                ReadDynamic(sections[i], strings);
            }
        }
        const auto* segments = At<ElfW(Phdr)>(header->e_phoff);
        for (size_t i = 0; i < header->e_phnum; i++) {
            segments_.push_back(segments[i]);
        }
    }

    const std::map<std::string, Symbol>& symbols() const { return symbols_; }
    const std::vector<std::string>& needed() const { return needed_; }
    const std::string& soname() const { return soname_; }
    const std::vector<ElfW(Phdr)>& segments() const { return segments_; }
    bool Has(ElfW(Sxword) tag) const { return values_.count(tag) != 0; }
    ElfW(Xword) Value(ElfW(Sxword) tag) const { return Has(tag) ? values_.at(tag) : 0; }

  private:
    template <typename T>
    const T* At(size_t offset) const {
        return reinterpret_cast<const T*>(bytes_.data() + offset);
    }

    void ReadSymbols(const ElfW(Shdr) & section, const char* strings) {
        const auto* symbol = At<ElfW(Sym)>(section.sh_offset);
        for (size_t i = 1; i < section.sh_size / sizeof(ElfW(Sym)); i++) {
            if (ELF64_ST_TYPE(symbol[i].st_info) == STT_SECTION) {
                continue;  // some linkers list them, without a name
            }
            symbols_[strings + symbol[i].st_name] = {static_cast<unsigned char>(ELF64_ST_TYPE(symbol[i].st_info)),
                                                     static_cast<unsigned char>(ELF64_ST_BIND(symbol[i].st_info)),
                                                     static_cast<size_t>(symbol[i].st_size),
                                                     symbol[i].st_shndx != SHN_UNDEF};
        }
    }

    void ReadDynamic(const ElfW(Shdr) & section, const char* strings) {
        for (const auto* entry = At<ElfW(Dyn)>(section.sh_offset); entry->d_tag != DT_NULL; entry++) {
            values_[entry->d_tag] = entry->d_un.d_val;
            if (entry->d_tag == DT_NEEDED) {
                needed_.push_back(strings + entry->d_un.d_val);
            } else if (entry->d_tag == DT_SONAME) {
                soname_ = strings + entry->d_un.d_val;
            }
        }
    }

    std::vector<uint8_t> bytes_;
    std::map<std::string, Symbol> symbols_;
    std::map<ElfW(Sxword), ElfW(Xword)> values_;
    std::vector<std::string> needed_;
    std::string soname_;
    std::vector<ElfW(Phdr)> segments_;
};

const ElfFile& Library() {
    static const ElfFile file(MP4VDEC_SHARED_LIBRARY);
    return file;
}

std::vector<std::string> ExportList() {
    std::vector<std::string> names;
    for (const std::string& line : ReadLines(MP4VDEC_EXPORT_LIST)) {
        if (!line.empty() && line[0] != '#') {
            names.push_back(line);
        }
    }
    return names;
}

void* Load() {
    static void* const handle = dlopen(MP4VDEC_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    return handle;
}

template <typename T>
T* Find(const std::string& name) {
    return reinterpret_cast<T*>(dlsym(Load(), name.c_str()));
}

struct Kernel {
    const char* variable;
    const char* target;
};
const Kernel kKernels[] = {
    {"VopOutput", "VopOutput_c"},
    {"GetMedian", "MPEG4DecGetMedian_c"},
    {"Deblock8x8Horiz", "Deblock8x8HorizFast_c"},
    {"Mp4vDecTranspose16x16", "Mp4vDecTranspose16x16_c"},
    {"Mp4vDecTranspose8x8", "Mp4vDecTranspose8x8_c"},
    {"DeInterlaceFieldMB", "DeInterlaceFieldMB_c"},
    {"DeInterlaceFrameMB", "DeInterlaceFrameMB_c"},
    {"VertPassAvgUp8", "VertPassAvgUp8_c"},
    {"VertPassAvgUp16", "VertPassAvgUp16_c"},
    {"VertPass8", "VertPass8_c"},
    {"VertPass16", "VertPass16_c"},
    {"VertPassAvg8", "VertPassAvg8_c"},
    {"VertPassAvg16", "VertPassAvg16_c"},
    {"HorzPassAvgUp8", "HorzPassAvgUp8_c"},
    {"HorzPassAvgUp16", "HorzPassAvgUp16_c"},
    {"HorzPassAvg8", "HorzPassAvg8_c"},
    {"HorzPassAvg16", "HorzPassAvg16_c"},
    {"HorzPass8", "HorzPass8_c"},
    {"HorzPass16", "HorzPass16_c"},
    {"Interpolate8x4HV", "Interpolate8x4HV_c"},
    {"Interpolate8x4V", "Interpolate8x4V_c"},
    {"Interpolate8x4H", "Interpolate8x4H_c"},
    {"Interpolate8x8HV", "Interpolate8x8HV_c"},
    {"Interpolate8x8V", "Interpolate8x8V_c"},
    {"Interpolate8x8H", "Interpolate8x8H_c"},
    {"Interpolate16x16HV", "Interpolate16x16HV_c"},
    {"Interpolate16x16V", "Interpolate16x16V_c"},
    {"Interpolate16x16H", "Interpolate16x16H_c"},
    {"MemCopyStride8x4", "MemCopyStride8x4_c"},
    {"MemCopyStride8x8", "MemCopyStride8x8_c"},
    {"MemCopyStride16x8", "MemCopyStride16x8_c"},
    {"MemCopyStride16x16", "MemCopyStride16x16_c"},
    {"MemSet16", "MP4DecMemSet_c"},
    {"MemSetAlign16", "MP4DecMemSet_c"},
    {"MemSet", "MP4DecMemSet_c"},
    {"MemCopy8", "MP4DecMemCopy_c"},
    {"MemCopyAlign16", "MP4DecMemCopy_c"},
    {"McAdd16to8", "McAdd16to8_c"},
    {"McCopy16to8", "McCopy16to8_c"},
    {"MemCopy8x4", "MP4DecMemCopy8x4_c"},
    {"MemCopy8x8", "MP4DecMemCopy8x8_c"},
    {"MemCopy16x16", "MP4DecMemCopy16x16_c"},
    {"DequantMpegInter", "DequantMpegInter_c"},
    {"DequantMpegIntra", "DequantMpegIntra_c"},
    {"DequantH263Inter", "DequantH263Inter_c"},
    {"DequantH263Intra", "DequantH263Intra_c"},
    {"AddIdct8x8Multi", "Mp4DecAddiDCT8x8Multi_c"},
    {"AddIdct8x8", "Mp4DecAddiDCT8x8Stride_c"},
    {"Idct8x8", "Mp4vDecIdct8x8_c"},
};  // and ClearMMX, whose target is not exported

std::vector<std::string> CasesOf(const std::string& folder) {
    std::vector<std::string> paths;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(MP4VDEC_TEST_DATA_DIR) + "/vectors/" + folder)) {
        if (entry.path().extension() == ".case") {
            paths.push_back(entry.path().string());
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

DecoderApi LoadedApi() {
    const auto* descriptor = Find<const VidDecDescriptor* const>("ptVidDec_MPEG4");
    return {descriptor == nullptr ? nullptr : (*descriptor)->ptFuncs,
            reinterpret_cast<decltype(DecoderApi::pre_decode)>(dlsym(Load(), "Mp4vPreDecBs"))};
}

class SharedLibrary : public testing::Test {
  protected:
    void SetUp() override { ASSERT_NE(Load(), nullptr) << dlerror(); }
};

TEST_F(SharedLibrary, ExportsWhatIsOnTheListAndNothingElse) {
    std::set<std::string> listed, exported;
    for (const std::string& name : ExportList()) {
        EXPECT_TRUE(listed.insert(name).second) << name << " is listed twice";
    }
    for (const auto& [name, symbol] : Library().symbols()) {
        if (symbol.defined) {
            exported.insert(name);
        }
    }
    for (const std::string& name : listed) {
        EXPECT_TRUE(exported.count(name)) << name << " is listed but not exported";
    }
    for (const std::string& name : exported) {
        EXPECT_TRUE(listed.count(name)) << name << " is exported but not listed";
    }
    EXPECT_GE(exported.size(), 140u);
}

TEST_F(SharedLibrary, KeepsItsInternalFunctionsAndTablesToItself) {
    for (const char* name : {"GetMatrix", "Deinterlacing_c", "InterpolateQuarterPel8x8", "emms_c", "g_as16Clip",
                             "g_ps16Clp", "g_atMcbpcIntraTable", "g_au16ZigzagScanTable"}) {
        EXPECT_EQ(dlsym(Load(), name), nullptr) << name;
    }
}

TEST_F(SharedLibrary, LeavesOnlyTheMemoryServiceAndTheCLibraryUndefined) {
    if (kInstrumented) {
        GTEST_SKIP() << "instrumentation needs its run-time library";
    }
    void* const libc = dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(libc, nullptr);
    std::set<std::string> of_the_host;
    for (const auto& [name, symbol] : Library().symbols()) {
        if (!symbol.defined && symbol.binding != STB_WEAK && dlsym(libc, name.c_str()) == nullptr) {
            of_the_host.insert(name);
        }
    }
    EXPECT_EQ(of_the_host, (std::set<std::string>{"VideoMemFree_c", "VideoMemMalloc_c"}));
    dlclose(libc);
}

TEST_F(SharedLibrary, NeedsTheCLibraryOnly) {
    if (kInstrumented) {
        GTEST_SKIP() << "instrumentation needs its run-time library";
    }
    EXPECT_EQ(Library().needed(), std::vector<std::string>{"libc.so.6"});
}

TEST_F(SharedLibrary, HasItsSoname) {
    EXPECT_EQ(Library().soname(), "libmp4vdec.so.1");
}

TEST_F(SharedLibrary, BindsDataToTheHostsDefinitions) {
    EXPECT_FALSE(Library().Has(DT_SYMBOLIC));
    EXPECT_EQ(Library().Value(DT_FLAGS) & DF_SYMBOLIC, 0u);
}

TEST_F(SharedLibrary, NeedsNeitherTextRelocationsNorAnExecutableStack) {
    EXPECT_FALSE(Library().Has(DT_TEXTREL));
    EXPECT_EQ(Library().Value(DT_FLAGS) & DF_TEXTREL, 0u);
    int stacks = 0;
    for (const auto& segment : Library().segments()) {
        EXPECT_FALSE((segment.p_flags & PF_X) != 0 && (segment.p_flags & PF_W) != 0) << "writable and executable";
        if (segment.p_type == PT_GNU_STACK) {
            stacks++;
            EXPECT_EQ(segment.p_flags & PF_X, 0u);
        }
    }
    EXPECT_EQ(stacks, 1);
}

TEST_F(SharedLibrary, RunsNothingWhenItIsLoaded) {
    if (kInstrumented) {
        GTEST_SKIP() << "instrumentation registers itself";
    }
    // The compiler's start-up file puts in one entry of its own.
    EXPECT_LE(Library().Value(DT_INIT_ARRAYSZ), sizeof(void*));
}

TEST_F(SharedLibrary, ExportsFunctionsAsCodeAndTablesAsData) {
    std::set<std::string> data = {"ptVidDec_MPEG4", "tVidDec_MPEG4", "tMp4vDec", "pas8MP4DecSelfAnalyzeErrorCode",
                                  "ClearMMX"};
    for (const Kernel& kernel : kKernels) {
        data.insert(kernel.variable);
    }
    ASSERT_EQ(data.size(), 54u);
    for (const std::string& name : ExportList()) {
        const auto found = Library().symbols().find(name);
        ASSERT_NE(found, Library().symbols().end()) << name;
        EXPECT_EQ(found->second.type, data.count(name) ? STT_OBJECT : STT_FUNC) << name;
    }
    // Sanitizers add a margin to data.
    if (!kInstrumented) {
        EXPECT_EQ(Library().symbols().at("Idct8x8").size, sizeof(void*));
        EXPECT_EQ(Library().symbols().at("tMp4vDec").size, sizeof(VidDecFuncs));
        EXPECT_EQ(Library().symbols().at("pas8MP4DecSelfAnalyzeErrorCode").size, 37 * sizeof(char*));
    }
}

TEST_F(SharedLibrary, KernelVariablesStartAtThePortableKernels) {
    ASSERT_EQ(std::size(kKernels), 49u);
    for (const Kernel& kernel : kKernels) {
        void** const variable = Find<void*>(kernel.variable);
        void* const target = dlsym(Load(), kernel.target);
        ASSERT_NE(variable, nullptr) << kernel.variable;
        ASSERT_NE(target, nullptr) << kernel.target;
        EXPECT_EQ(*variable, target) << kernel.variable;
    }
}

TEST_F(SharedLibrary, ClearMmxReturnsItsArgument) {
    auto* const variable = Find<int32_t (*)(int32_t)>("ClearMMX");
    ASSERT_NE(variable, nullptr);
    EXPECT_EQ((*variable)(0), 0);
    EXPECT_EQ((*variable)(-123456789), -123456789);
}

TEST_F(SharedLibrary, DescribesItself) {
    const auto* descriptor = Find<const VidDecDescriptor* const>("ptVidDec_MPEG4");
    ASSERT_NE(descriptor, nullptr);
    EXPECT_EQ(*descriptor, Find<const VidDecDescriptor>("tVidDec_MPEG4"));
    EXPECT_EQ((*descriptor)->u32CodecId, 5u);
    EXPECT_STREQ((*descriptor)->ps8Name, "MPEG4_DEC");
    EXPECT_EQ((*descriptor)->ptFuncs, Find<const VidDecFuncs>("tMp4vDec"));
    EXPECT_EQ(reinterpret_cast<void*>((*descriptor)->ptFuncs->pfOpen), dlsym(Load(), "Mp4vDecoderOpen"));
}

TEST_F(SharedLibrary, DecodesWhenLoadedAtRunTime) {
    const DecoderApi api = LoadedApi();
    ASSERT_NE(api.functions, nullptr);
    ASSERT_NE(api.pre_decode, nullptr);
    for (const char* folder : {"basics", "qpel"}) {
        const std::vector<std::string> cases = CasesOf(folder);
        ASSERT_GE(cases.size(), 24u);
        for (const std::string& path : cases) {
            VectorCase vector;
            std::string error;
            ASSERT_TRUE(ParseCase(ReadFile(path), &vector, &error)) << path << ": " << error;
            const std::string expected = path.substr(0, path.size() - 4) + "expect";
            const std::string difference = Compare(Replay(api, vector), ReadLines(expected));
            ASSERT_TRUE(difference.empty()) << path << ", " << difference;
        }
    }
}

int g_transforms;
void (*g_portable_transform)(int16_t*);
void CountTransform(int16_t* block) {
    g_transforms++;
    g_portable_transform(block);
}

TEST_F(SharedLibrary, CallsWhatIsAssignedToAKernelVariable) {
    auto** const variable = Find<void (*)(int16_t*)>("Idct8x8");
    ASSERT_NE(variable, nullptr);
    g_portable_transform = *variable;
    const std::string path = CasesOf("intra").front();
    VectorCase vector;
    std::string error;
    ASSERT_TRUE(ParseCase(ReadFile(path), &vector, &error)) << error;

    *variable = CountTransform;
    const ReplayResult result = Replay(LoadedApi(), vector);
    *variable = g_portable_transform;
    EXPECT_GT(g_transforms, 0);
    EXPECT_EQ(Compare(result, ReadLines(path.substr(0, path.size() - 4) + "expect")), "");
}

}  // namespace
}  // namespace mp4v::test
