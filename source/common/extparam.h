// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Extension parameters of open: typed records in the low 4 GiB, alone or in a list.
#ifndef MP4VDEC_SOURCE_COMMON_EXTPARAM_H_
#define MP4VDEC_SOURCE_COMMON_EXTPARAM_H_

#include "mp4vdec.h"

extern "C" {

// A record type that is looked for, and the slot that receives the 32-bit address of the record.
struct Mp4vDecTypeSlot {
    uint32_t u32Type;
    uint32_t* pu32Slot;
};

// Index of the first entry of the type, or -1.
MP4VDEC_API int32_t MPEG4DecIsTypeInList(uint32_t u32Type, const Mp4vDecTypeSlot* ptList, int32_t s32Count);

// Clears all slots, then fills those whose record is found; of several records of a type the last one wins.
MP4VDEC_API void MPEG4DecParseReservedType(uint32_t u32Ext, const Mp4vDecTypeSlot* ptList, int32_t s32Count);
}

#endif  // MP4VDEC_SOURCE_COMMON_EXTPARAM_H_
