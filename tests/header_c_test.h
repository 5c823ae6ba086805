/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */

/* What the C half of the header test offers to its C++ half. */
#ifndef MP4VDEC_TESTS_HEADER_C_TEST_H_
#define MP4VDEC_TESTS_HEADER_C_TEST_H_

#include <stddef.h>
#include <stdint.h>

#define HEADER_RECORDS 7

#ifdef __cplusplus
extern "C" {
#endif

size_t HeaderSizesInC(size_t sizes[HEADER_RECORDS]);
int DecoderNamedInC(const char* name);
uint32_t RefusedOpenInC(void** handle, int* context);

#ifdef __cplusplus
}
#endif

#endif /* MP4VDEC_TESTS_HEADER_C_TEST_H_ */
