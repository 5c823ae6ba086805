/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */

/* Decodes standard input to planar 4:2:0 on standard output. It is linked with the decoder, shared or static, and
 * brings the memory service along. Sizes are multiples of 16. */
#include <mp4vdec.h>
#include <stdio.h>
#include <stdlib.h>

void* VideoMemMalloc_c(void* pvMemCtx, uint32_t u32Size, uint32_t u32Align, int32_t s32Tag, const char* ps8File,
                       int32_t s32Line) {
    (void)pvMemCtx, (void)s32Tag, (void)ps8File, (void)s32Line;
    return aligned_alloc(u32Align, (u32Size + u32Align - 1) / u32Align * u32Align);
}

void VideoMemFree_c(void* pvMemCtx, void* pvMem, int32_t s32Tag, const char* ps8File, int32_t s32Line) {
    (void)pvMemCtx, (void)s32Tag, (void)ps8File, (void)s32Line;
    free(pvMem);
}

/* Up to what follows the first VOP (00 00 01 B6). */
static size_t ChunkLength(const uint8_t* bytes, size_t size) {
    int has_picture = 0;
    for (size_t i = 0; i + 3 < size; i++) {
        if (bytes[i] != 0 || bytes[i + 1] != 0 || bytes[i + 2] != 1) continue;
        if (has_picture) return i;
        has_picture = bytes[i + 3] == 0xB6;
    }
    return size;
}

int main(void) {
    static uint8_t stream[1 << 20];
    static uint8_t picture[720 * 576 * 3 / 2];
    const Mp4vDecOpenParams params = {{0, 0}, 720, 576, 0};
    const size_t size = fread(stream, 1, sizeof stream - MP4VDEC_CHUNK_PADDING, stdin);
    void* decoder;
    int status = 0;
    if (ptVidDec_MPEG4->ptFuncs->pfOpen(&decoder, &params, picture) != MP4VDEC_OK) return 2;
    for (size_t at = 0, length; at < size; at += length) {
        Mp4vDecInArgs in = {0};
        Mp4vDecOutArgs out = {0};
        length = ChunkLength(stream + at, size - at);
        in.pu8Buf = stream + at;
        in.u32BufLen = (uint32_t)length;
        out.pu8Dst = picture;
        if (ptVidDec_MPEG4->ptFuncs->pfProcess(decoder, &in, &out) == MP4VDEC_OK) {
            fwrite(picture, 1, (size_t)out.u32Width * out.u32Height * 3 / 2, stdout);
        } else {
            status = 1;
        }
    }
    ptVidDec_MPEG4->ptFuncs->pfClose(decoder);
    return status;
}
