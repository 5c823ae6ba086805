// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The code tables as data (tests/data/tables.tsv), and an encoder for symbols.
#ifndef MP4VDEC_TESTS_SUPPORT_VLC_CODES_H_
#define MP4VDEC_TESTS_SUPPORT_VLC_CODES_H_

#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace mp4v::test {

struct CodeRow {
    std::string code;             // scans, matrices and scalers: the index
    std::array<int, 3> fields{};  // as the file's head names them; -1 for the escape code
};

using CodeTable = std::vector<CodeRow>;

// The table of that name, as "B-6" or "SCAN0".
inline const CodeTable& TableRows(const std::string& name) {
    static const std::map<std::string, CodeTable> tables = [] {
        std::map<std::string, CodeTable> result;
        std::ifstream file(std::string(MP4VDEC_TEST_DATA_DIR) + "/data/tables.tsv");
        for (std::string line; std::getline(file, line);) {
            if (line.empty() || line[0] == '#') continue;
            std::istringstream in(line);
            std::string table;
            CodeRow row;
            in >> table >> row.code;
            for (int& field : row.fields) in >> field;
            result[table].push_back(row);
        }
        return result;
    }();
    const auto found = tables.find(name);
    if (found == tables.end()) throw std::runtime_error("no table " + name);
    return found->second;
}

inline bool IsEscape(const CodeRow& row) {
    return row.code == "0000011" && row.fields[0] == -1;
}

// The row whose code the digits begin with, or null.
inline const CodeRow* FindCode(const std::string& table, const std::string& digits) {
    for (const CodeRow& row : TableRows(table)) {
        if (digits.compare(0, row.code.size(), row.code) == 0) return &row;
    }
    return nullptr;
}

// The code of a symbol, or "" when the table has none.
inline std::string CodeOf(const std::string& table, int field0, int field1 = 0, int field2 = 0) {
    for (const CodeRow& row : TableRows(table)) {
        if (row.fields == std::array{field0, field1, field2}) return row.code;
    }
    return "";
}

// The low `count` bits of `value`.
inline std::string Digits(int value, unsigned count) {
    std::string digits;
    while (count--) digits += static_cast<unsigned>(value) >> count & 1 ? '1' : '0';
    return digits;
}

inline std::string McbpcIntraCode(int mb_type, int cbpc) {
    return CodeOf("B-6", mb_type, cbpc);
}
inline std::string McbpcInterCode(int mb_type, int cbpc) {
    return CodeOf("B-7", mb_type, cbpc);
}
inline std::string StuffingCode() {
    return "000000001";
}
inline std::string CbpyCode(int cbpy, bool intra) {
    return CodeOf("B-8", intra ? cbpy : 15 - cbpy);
}

// -32..32
inline std::string MotionCode(int motion_code) {
    const std::string magnitude = CodeOf("B-12", std::abs(motion_code));
    return motion_code == 0 ? magnitude : magnitude + (motion_code < 0 ? "1" : "0");
}

inline int DcSizeOf(int differential) {
    int size = 0;
    while (std::abs(differential) >> size) size++;
    return size;
}

// dct_dc_size, dct_dc_differential and the marker: a whole DC of -2048..2047.
inline std::string DcCode(int differential, bool luma) {
    const int size = DcSizeOf(differential);
    std::string code = CodeOf(luma ? "B-13" : "B-14", size);
    if (size) code += Digits(differential < 0 ? differential - 1 : differential, static_cast<unsigned>(size));
    return size > 8 ? code + "1" : code;
}

// Escape mode 3: last, run 0..63, level -2048..2047.
inline std::string EscapedTcoefCode(int last, int run, int level) {
    return "0000011"
           "11" +
           Digits(last, 1) + Digits(run, 6) + "1" + Digits(level, 12) + "1";
}

// An event with its sign; escaped with mode 3 when the table does not have it.
inline std::string TcoefCode(bool intra, int last, int run, int level) {
    const std::string code = CodeOf(intra ? "B-16" : "B-17", last, run, std::abs(level));
    return code.empty() ? EscapedTcoefCode(last, run, level) : code + (level < 0 ? "1" : "0");
}

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_VLC_CODES_H_
