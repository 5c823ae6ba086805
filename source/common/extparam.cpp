// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/extparam.h"

#include <string.h>

namespace {

const void* AtAddress(uint32_t u32Address) {
    return reinterpret_cast<const void*>((uintptr_t)u32Address);  // NOLINT(performance-no-int-to-ptr): 32-bit addresses
}

uint32_t TypeOf(uint32_t u32Record) {
    uint32_t u32Type;
    memcpy(&u32Type, AtAddress(u32Record), sizeof u32Type);
    return u32Type;
}

void Offer(uint32_t u32Record, const Mp4vDecTypeSlot* ptList, int32_t s32Count) {
    const int32_t s32Index = MPEG4DecIsTypeInList(TypeOf(u32Record), ptList, s32Count);
    if (s32Index >= 0) *ptList[s32Index].pu32Slot = u32Record;
}

}  // namespace

int32_t MPEG4DecIsTypeInList(uint32_t u32Type, const Mp4vDecTypeSlot* ptList, int32_t s32Count) {
    for (int32_t i = 0; i < s32Count; i++) {
        if (ptList[i].u32Type == u32Type) return i;
    }
    return -1;
}

void MPEG4DecParseReservedType(uint32_t u32Ext, const Mp4vDecTypeSlot* ptList, int32_t s32Count) {
    for (int32_t i = 0; i < s32Count; i++) *ptList[i].pu32Slot = 0;
    if (u32Ext == 0) return;
    if (TypeOf(u32Ext) != MP4VDEC_EXT_LIST_MAGIC) {
        Offer(u32Ext, ptList, s32Count);
        return;
    }
    const auto* const ptExt = static_cast<const Mp4vDecExtList*>(AtAddress(u32Ext));
    if (!ptExt->pu32Records) return;
    for (int32_t i = 0; i < ptExt->s32Count; i++) {
        const uint32_t u32Record = ptExt->pu32Records[i];
        if (u32Record) Offer(u32Record, ptList, s32Count);
    }
}
