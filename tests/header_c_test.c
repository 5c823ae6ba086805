/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */

/* The public header as a C99 program sees it. It comes first, so that it must bring all that it needs. */
#include "header_c_test.h"

#include <stddef.h>
#include <string.h>

#include "mp4vdec.h"

/* C99 has no static assertion: a false condition makes an array of negative length. */
#define CHECK_JOIN(a, b) a##b
#define CHECK_NAME(line) CHECK_JOIN(check_, line)
#define CHECK(condition) typedef char CHECK_NAME(__LINE__)[(condition) ? 1 : -1] __attribute__((unused))
#define AT(record, member, offset) CHECK(offsetof(record, member) == (offset))

#if UINTPTR_MAX == UINT64_MAX
AT(Mp4vDecOpenParams, au32Reserved, 0);
AT(Mp4vDecOpenParams, u32Width, 8);
AT(Mp4vDecOpenParams, u32Height, 12);
AT(Mp4vDecOpenParams, u32ExtParam, 16);
CHECK(sizeof(Mp4vDecOpenParams) == 20);

AT(Mp4vDecInArgs, pu8Buf, 0);
AT(Mp4vDecInArgs, u32BufLen, 8);
AT(Mp4vDecInArgs, u64TimeStamp, 16);
AT(Mp4vDecInArgs, u8EndOfStream, 24);
AT(Mp4vDecInArgs, u32CtrlFlags, 28);
CHECK(sizeof(Mp4vDecInArgs) == 32);

AT(Mp4vDecOutArgs, pu8Dst, 0);
AT(Mp4vDecOutArgs, u32Width, 8);
AT(Mp4vDecOutArgs, u32Height, 12);
AT(Mp4vDecOutArgs, u32PicType, 16);
AT(Mp4vDecOutArgs, u32FrameReady, 20);
AT(Mp4vDecOutArgs, au32Reserved, 24);
AT(Mp4vDecOutArgs, u64TimeStamp, 32);
AT(Mp4vDecOutArgs, u8EndOfStream, 40);
CHECK(sizeof(Mp4vDecOutArgs) == 48);

AT(Mp4vDecStatus, u32CodecId, 0);
AT(Mp4vDecStatus, u32OpenWidth, 8);
AT(Mp4vDecStatus, u32OpenHeight, 12);
CHECK(sizeof(Mp4vDecStatus) == 16);

AT(Mp4vDecExtList, u32Magic, 0);
AT(Mp4vDecExtList, s32Count, 4);
AT(Mp4vDecExtList, pu32Records, 8);
CHECK(sizeof(Mp4vDecExtList) == 16);

AT(VidDecFuncs, pfOpen, 0);
AT(VidDecFuncs, pfProcess, 8);
AT(VidDecFuncs, pfClose, 16);
AT(VidDecFuncs, pfSetParams, 24);
AT(VidDecFuncs, pfGetVersion, 32);
AT(VidDecFuncs, pfGetStatus, 40);
AT(VidDecFuncs, pfDebug, 48);
AT(VidDecFuncs, pfAnalyzeErrorCode, 56);
AT(VidDecFuncs, pfGetMemSize, 64);
CHECK(sizeof(VidDecFuncs) == 72);

AT(VidDecDescriptor, u32CodecId, 0);
AT(VidDecDescriptor, ptFuncs, 8);
AT(VidDecDescriptor, ps8Name, 16);
CHECK(sizeof(VidDecDescriptor) == 24);
#endif

size_t HeaderSizesInC(size_t sizes[HEADER_RECORDS]) {
    size_t count = 0;
    sizes[count++] = sizeof(Mp4vDecOpenParams);
    sizes[count++] = sizeof(Mp4vDecInArgs);
    sizes[count++] = sizeof(Mp4vDecOutArgs);
    sizes[count++] = sizeof(Mp4vDecStatus);
    sizes[count++] = sizeof(Mp4vDecExtList);
    sizes[count++] = sizeof(VidDecFuncs);
    sizes[count++] = sizeof(VidDecDescriptor);
    return count;
}

int DecoderNamedInC(const char* name) {
    const VidDecDescriptor* descriptor = ptVidDec_MPEG4;
    return descriptor == &tVidDec_MPEG4 && descriptor->ptFuncs == &tMp4vDec &&
           descriptor->u32CodecId == MP4VDEC_CODEC_ID && strcmp(descriptor->ps8Name, name) == 0;
}

uint32_t RefusedOpenInC(void** handle, int* context) {
    Mp4vDecOpenParams params = {{0, 0}, 1080, 1920, 0};
    return ptVidDec_MPEG4->ptFuncs->pfOpen(handle, &params, context);
}
