// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/quant_tables.h"

// clang-format off

#define MP4V_DEFAULT_INTRA_MATRIX   \
     8, 17, 18, 19, 21, 23, 25, 27, \
    17, 18, 19, 21, 23, 25, 27, 28, \
    20, 21, 22, 23, 24, 26, 28, 30, \
    21, 22, 23, 24, 26, 28, 30, 32, \
    22, 23, 24, 26, 28, 30, 32, 35, \
    23, 24, 26, 28, 30, 32, 35, 38, \
    25, 26, 28, 30, 32, 35, 38, 41, \
    27, 28, 30, 32, 35, 38, 41, 45

#define MP4V_DEFAULT_INTER_MATRIX   \
    16, 17, 18, 19, 20, 21, 22, 23, \
    17, 18, 19, 20, 21, 22, 23, 24, \
    18, 19, 20, 21, 22, 23, 24, 25, \
    19, 20, 21, 22, 23, 24, 26, 27, \
    20, 21, 22, 23, 25, 26, 27, 28, \
    21, 22, 23, 24, 26, 27, 28, 30, \
    22, 23, 24, 26, 27, 28, 30, 31, \
    23, 24, 25, 27, 28, 30, 31, 33

const uint16_t g_au16ZigzagScanTable[64] = {
     0,  1,  8, 16,  9,  2,  3, 10,
    17, 24, 32, 25, 18, 11,  4,  5,
    12, 19, 26, 33, 40, 48, 41, 34,
    27, 20, 13,  6,  7, 14, 21, 28,
    35, 42, 49, 56, 57, 50, 43, 36,
    29, 22, 15, 23, 30, 37, 44, 51,
    58, 59, 52, 45, 38, 31, 39, 46,
    53, 60, 61, 54, 47, 55, 62, 63};

const int16_t g_as16DefaultIntraMatrix[64] = {MP4V_DEFAULT_INTRA_MATRIX};
const int16_t g_as16DefaultInterMatrix[64] = {MP4V_DEFAULT_INTER_MATRIX};
const int16_t g_as16IntraMatrix[64] = {MP4V_DEFAULT_INTRA_MATRIX};
const int16_t g_as16InterMatrix[64] = {MP4V_DEFAULT_INTER_MATRIX};
