/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "host/status.h"

#include "mp4vdec.h"

namespace mp4v {
namespace {

std::string Hex(uint32_t value) {
    char text[] = "0x00000000";
    for (size_t i = 9; i >= 2; i--, value >>= 4) text[i] = "0123456789ABCDEF"[value & 15];
    return text;
}

}  // namespace

std::string StatusName(uint32_t status) {
    if (status == MP4VDEC_OK) return "OK";
    if (status == MP4VDEC_END_OF_STREAM) return "END_OF_STREAM";
    char name[128];
    constexpr int32_t kLongest = sizeof name - 1;  // the decoder does not count the terminating zero
    const uint32_t result = ptVidDec_MPEG4->ptFuncs->pfAnalyzeErrorCode(status, kLongest, name);
    return result == MP4VDEC_OK ? name : Hex(status);
}

const char* ExplainStatus(uint32_t status) {
    switch (status) {
        case MP4VDEC_OK:
            return "decoded";
        case MP4VDEC_END_OF_STREAM:
            return "the stream has ended";
        case ERR_VID_MPEG4DEC_MALLOC_DEC_HANDLE:
        case ERR_VID_MPEG4DEC_MALLOC_DEC_VOP:
        case ERR_VID_MPEG4DEC_MALLOC_CUR_FRAME:
        case ERR_VID_MPEG4DEC_MALLOC_REF_FRAME:
        case ERR_VID_MPEG4DEC_MALLOC_MB_BUF:
        case ERR_VID_MPEG4DEC_MALLOC_CTX_INFO:
        case ERR_VID_MPEG4DEC_MALLOC_QPEL_BUF:
        case ERR_VID_MPEG4DEC_MALLOC_TRANS_BUF:
            return "there is not enough memory for pictures of this size";
        case ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID:
            return "the layer is of an object type outside the Simple and Advanced Simple profiles";
        case ERR_VID_MPEG4DEC_UNSUPPORT_SHAPE:
            return "the layer has a grayscale shape, which is not supported";
        case ERR_VID_MPEG4DEC_UNSUPPORT_OBMC:
            return "the layer uses overlapped motion compensation, which is not supported";
        case ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE:
            return "the layer uses sprites or global motion compensation, which are not supported";
        case ERR_VID_MPEG4DEC_UNSUPPORT_COMPLXES:
            return "the layer carries complexity estimation data, which is not supported";
        case ERR_VID_MPEG4DEC_UNSUPPORT_DP:
            return "the layer uses data partitioning, which is not supported";
        case ERR_VID_MPEG4DEC_UNSUPPORT_RRVOP:
            return "the layer uses reduced-resolution pictures, which are not supported";
        case ERR_VID_MPEG4DEC_UNSUPPORT_SCALABLE:
            return "the layer is scalable, which is not supported";
        case ERR_VID_MPEG4DEC_UNSUPPORT_VSOTYPE:
            return "the visual object is not video";
        case ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME:
            return "it is a B or sprite picture, which is not supported";
        case ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE:
            return "the picture is larger than 1920 x 1088";
        case ERR_VID_MPEG4DEC_UNSUPPORT_VOPTYPE:
            return "the picture is of an unknown type";
        case ERR_VID_MPEG4DEC_USERDATA:
            return "it carries more than 128 bytes of user data";
        case ERR_VID_MPEG4DEC_TIMEBASE:
            return "its time stamp is damaged";
        case ERR_VID_MPEG4DEC_BITSTREAM:
            return "the data end before the picture is complete, or hold no picture at all";
        case ERR_VID_MPEG4DEC_COEFF:
            return "the picture data are damaged";
        case ERR_VID_MPEG4DEC_OVER_INIT_SIZE:
            return "the picture is larger than the decoder was opened for";
        case ERR_VID_MPEG4DEC_INI_WIDTH_HEIGHT:
            return "the decoder cannot be opened for this size";
        case ERR_VID_MPEG4DEC_VOL_NOT_FOUND:
            return "no usable layer header came before it";
        case ERR_VID_MPEG4DEC_END_VALUE:
            return "it is empty";
        default:
            return "the decoder refused it";
    }
}

}  // namespace mp4v
