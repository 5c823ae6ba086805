/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */

/* The smallest program that decodes a file: it loads the library at run time, finds the decoder through its one symbol,
 * and writes planar 4:2:0 pictures.
 *
 *   minimal_host LIBRARY STREAM.m4v > PICTURES.yuv
 *
 * The sizes of the stream must be multiples of 16; host/ shows what a host does about others. */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mp4vdec.h"

/* The memory service. The library looks these two up in the program, which must export them (-rdynamic). */
void* VideoMemMalloc_c(void* pvMemCtx, uint32_t u32Size, uint32_t u32Align, int32_t s32Tag, const char* ps8File,
                       int32_t s32Line) {
    void* memory = NULL;
    (void)pvMemCtx, (void)s32Tag, (void)ps8File, (void)s32Line;
    if (u32Align < sizeof(void*)) u32Align = sizeof(void*);
    return posix_memalign(&memory, u32Align, u32Size) == 0 ? memory : NULL;
}

void VideoMemFree_c(void* pvMemCtx, void* pvMem, int32_t s32Tag, const char* ps8File, int32_t s32Line) {
    (void)pvMemCtx, (void)s32Tag, (void)ps8File, (void)s32Line;
    free(pvMem);
}

/* The whole file, with MP4VDEC_CHUNK_PADDING readable bytes behind it. */
static uint8_t* ReadFile(const char* name, size_t* size) {
    FILE* file = fopen(name, "rb");
    long length;
    uint8_t* bytes = NULL;
    if (file && fseek(file, 0, SEEK_END) == 0 && (length = ftell(file)) >= 0) {
        rewind(file);
        bytes = calloc((size_t)length + MP4VDEC_CHUNK_PADDING, 1);
        *size = bytes ? fread(bytes, 1, (size_t)length, file) : 0;
    }
    if (file) fclose(file);
    return bytes;
}

/* A chunk is any headers and one picture: it ends where something follows a VOP start code (00 00 01 B6). */
static size_t ChunkLength(const uint8_t* bytes, size_t size) {
    int has_picture = 0;
    size_t i;
    for (i = 0; i + 3 < size; i++) {
        if (bytes[i] != 0 || bytes[i + 1] != 0 || bytes[i + 2] != 1) continue;
        if (has_picture) return i;
        has_picture = bytes[i + 3] == 0xB6;
    }
    return size;
}

static const VidDecDescriptor* FindDecoder(const char* library) {
    void* handle = dlopen(library, RTLD_NOW);
    /* The symbol is a pointer variable. */
    const VidDecDescriptor* const* symbol = handle ? dlsym(handle, "ptVidDec_MPEG4") : NULL;
    if (!symbol) fprintf(stderr, "%s\n", dlerror());
    return symbol ? *symbol : NULL;
}

/* Returns how many chunks were refused or damaged. */
static unsigned DecodeAll(const VidDecFuncs* functions, void* decoder, const uint8_t* stream, size_t size,
                          uint8_t* picture) {
    unsigned bad = 0;
    size_t at, length;
    for (at = 0; at < size; at += length) {
        Mp4vDecInArgs in = {0};
        Mp4vDecOutArgs out = {0};
        uint32_t status;
        length = ChunkLength(stream + at, size - at);
        in.pu8Buf = stream + at;
        in.u32BufLen = (uint32_t)length;
        out.pu8Dst = picture;
        status = functions->pfProcess(decoder, &in, &out);
        if (status == MP4VDEC_OK) {
            fwrite(picture, 1, (size_t)out.u32Width * out.u32Height * 3 / 2, stdout);
        } else {
            char name[64] = "unknown status";
            functions->pfAnalyzeErrorCode(status, sizeof name - 1, name);
            fprintf(stderr, "byte %zu: %s\n", at, name);
            bad++; /* a refused chunk harms nothing: the next good picture decodes */
        }
    }
    return bad;
}

int main(int argc, char** argv) {
    /* The largest size of any stream; a device would say what it has memory for. */
    const Mp4vDecOpenParams params = {{0, 0}, MP4VDEC_MAX_WIDTH, MP4VDEC_MAX_HEIGHT, 0};
    const VidDecDescriptor* descriptor;
    uint8_t *stream, *picture;
    void* decoder = NULL;
    size_t size = 0;
    int result = 3;
    if (argc != 3) return fprintf(stderr, "usage: minimal_host LIBRARY STREAM\n"), 2;
    descriptor = FindDecoder(argv[1]);
    stream = ReadFile(argv[2], &size);
    picture = malloc((size_t)params.u32Width * params.u32Height * 3 / 2);
    if (!stream) fprintf(stderr, "%s: cannot be read\n", argv[2]);
    /* The last argument comes back in every call of the memory service; it must not be null. */
    if (descriptor && stream && picture && descriptor->ptFuncs->pfOpen(&decoder, &params, picture) == MP4VDEC_OK) {
        result = DecodeAll(descriptor->ptFuncs, decoder, stream, size, picture) ? 1 : 0;
        descriptor->ptFuncs->pfClose(decoder);
    }
    free(picture);
    free(stream);
    return result;
}
