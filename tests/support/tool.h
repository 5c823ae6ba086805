// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Runs the player as a user does, in a folder of its own.
#ifndef MP4VDEC_TESTS_SUPPORT_TOOL_H_
#define MP4VDEC_TESTS_SUPPORT_TOOL_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace mp4v::test {

using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

constexpr int kGood = 0;
constexpr int kDamage = 1;
constexpr int kUsage = 2;
constexpr int kFiles = 3;
constexpr int kInterrupted = 130;

inline std::string Text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

inline int ExitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class Tool : public testing::Test {
  protected:
    struct Result {
        int status;
        std::string out;
        std::string err;
    };

    void SetUp() override {
        std::string name = (fs::temp_directory_path() / "mp4vdec-tool-XXXXXX").string();
        ASSERT_NE(nullptr, mkdtemp(name.data()));
        folder_ = name;
        setenv("LSAN_OPTIONS", "suppressions=" MP4VDEC_TEST_DATA_DIR "/leaks.supp:print_suppressions=0", 0);
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::string Path(const std::string& name) const { return (folder_ / name).string(); }

    void WriteFile(const std::string& name, const Bytes& bytes) const {
        std::ofstream(Path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    std::string ReadFile(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    bool Exists(const std::string& name) const { return fs::exists(folder_ / name); }

    // A shell command in the test's folder; $P is the player.
    Result Shell(const std::string& command) const {
        const std::string line =
            "cd '" + folder_.string() + "' && P='" MP4VDEC_PLAYER "' && { " + command + "; } >stdout.txt 2>stderr.txt";
        const int status = system(line.c_str());
        return {ExitStatus(status), ReadFile("stdout.txt"), ReadFile("stderr.txt")};
    }

    Result Run(const std::string& arguments) const { return Shell("\"$P\" " + arguments); }

    fs::path folder_;
};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_TOOL_H_
