/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
/**
 * @file mp4vdec.h
 * @brief Decoder for MPEG-4 Part 2 video (ISO/IEC 14496-2): descriptor, entry points, records and
 *        status codes. Compiles as C99 and as C++.
 *
 * A host finds everything through one symbol, @ref ptVidDec_MPEG4. The library needs the C library
 * and two functions of the host, VideoMemMalloc_c() and VideoMemFree_c(); see the end of this file.
 *
 * An instance is used by one thread at a time; different instances are independent.
 */
#ifndef MP4VDEC_H_
#define MP4VDEC_H_

#include <stdint.h>

#if defined(__GNUC__) && !defined(MP4VDEC_NO_VISIBILITY)
#define MP4VDEC_API __attribute__((visibility("default")))
#else
#define MP4VDEC_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @name Status codes
 * 0 is success; errors are 0xA2C00000 plus the index of their name in
 * @ref pas8MP4DecSelfAnalyzeErrorCode.
 * @{
 */
#define MP4VDEC_OK UINT32_C(0)            /**< success */
#define MP4VDEC_END_OF_STREAM UINT32_C(1) /**< Mp4vDecoderProcess() was told that no data follow */

#define ERR_VID_MPEG4DEC_START_VALUE UINT32_C(0xA2C00000)            /**< table start, never returned */
#define ERR_VID_MPEG4DEC_OPEN_INPUT_POINT UINT32_C(0xA2C00001)       /**< null argument to open */
#define ERR_VID_MPEG4DEC_PROC_INPUT_POINT UINT32_C(0xA2C00002)       /**< null argument to process */
#define ERR_VID_MPEG4DEC_CLOSE_INPUT_POINT UINT32_C(0xA2C00003)      /**< null handle to close */
#define ERR_VID_MPEG4DEC_SETPARAM_INPUT_POINT UINT32_C(0xA2C00004)   /**< never returned */
#define ERR_VID_MPEG4DEC_GETSTATUS_INPUT_POINT UINT32_C(0xA2C00005)  /**< null argument to get-status */
#define ERR_VID_MPEG4DEC_GETMEMSIZE_INPUT_POINT UINT32_C(0xA2C00006) /**< null argument to get-mem-size */
#define ERR_VID_MPEG4DEC_MALLOC_DEC_HANDLE UINT32_C(0xA2C00007)      /**< no memory for the instance */
#define ERR_VID_MPEG4DEC_MALLOC_DEC_VOP UINT32_C(0xA2C00008)         /**< no memory for a frame (internal) */
#define ERR_VID_MPEG4DEC_MALLOC_CUR_FRAME UINT32_C(0xA2C00009)       /**< no memory for the current frame */
#define ERR_VID_MPEG4DEC_MALLOC_REF_FRAME UINT32_C(0xA2C0000A)       /**< no memory for the reference frame */
#define ERR_VID_MPEG4DEC_MALLOC_MB_BUF UINT32_C(0xA2C0000B)          /**< never returned */
#define ERR_VID_MPEG4DEC_MALLOC_CTX_INFO UINT32_C(0xA2C0000C)        /**< no memory for macroblock records or scratch */
#define ERR_VID_MPEG4DEC_MALLOC_QPEL_BUF UINT32_C(0xA2C0000D)        /**< no memory for the quarter-sample scratch */
#define ERR_VID_MPEG4DEC_MALLOC_TRANS_BUF UINT32_C(0xA2C0000E)       /**< never returned */
#define ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID UINT32_C(0xA2C0000F)     /**< video_object_type_indication not 0, 1 or 17 */
#define ERR_VID_MPEG4DEC_UNSUPPORT_SHAPE UINT32_C(0xA2C00010)        /**< grayscale shape */
#define ERR_VID_MPEG4DEC_UNSUPPORT_OBMC UINT32_C(0xA2C00011)         /**< overlapped block motion compensation */
#define ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE UINT32_C(0xA2C00012)       /**< sprites or global motion compensation */
#define ERR_VID_MPEG4DEC_UNSUPPORT_COMPLXES UINT32_C(0xA2C00013)     /**< complexity estimation */
#define ERR_VID_MPEG4DEC_UNSUPPORT_RES UINT32_C(0xA2C00014)          /**< never returned */
#define ERR_VID_MPEG4DEC_UNSUPPORT_DP UINT32_C(0xA2C00015)           /**< data partitioning */
#define ERR_VID_MPEG4DEC_UNSUPPORT_RRVOP UINT32_C(0xA2C00016)        /**< reduced-resolution VOPs */
#define ERR_VID_MPEG4DEC_UNSUPPORT_SCALABLE UINT32_C(0xA2C00017)     /**< scalability */
#define ERR_VID_MPEG4DEC_UNSUPPORT_VSOTYPE UINT32_C(0xA2C00018)      /**< visual_object_type is not video */
#define ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME UINT32_C(0xA2C00019)       /**< B- or S-VOP */
#define ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE UINT32_C(0xA2C0001A)   /**< picture above 1920 x 1088 */
#define ERR_VID_MPEG4DEC_UNSUPPORT_VOPTYPE UINT32_C(0xA2C0001B)      /**< unknown picture type */
#define ERR_VID_MPEG4DEC_USERDATA UINT32_C(0xA2C0001C)               /**< more than 128 bytes of user data in a chunk */
#define ERR_VID_MPEG4DEC_TIMEBASE UINT32_C(0xA2C0001D)               /**< modulo_time_base above 128 */
#define ERR_VID_MPEG4DEC_BITSTREAM UINT32_C(0xA2C0001E)              /**< the chunk ended too early */
#define ERR_VID_MPEG4DEC_COEFF UINT32_C(0xA2C0001F)                  /**< bad coefficient or macroblock code */
#define ERR_VID_MPEG4DEC_GET_VERSION UINT32_C(0xA2C00020)            /**< version buffer too small */
#define ERR_VID_MPEG4DEC_OVER_INIT_SIZE UINT32_C(0xA2C00021)         /**< picture larger than the size at open */
#define ERR_VID_MPEG4DEC_INI_WIDTH_HEIGHT UINT32_C(0xA2C00022)       /**< open size not a multiple of 16 x 8 */
#define ERR_VID_MPEG4DEC_VOL_NOT_FOUND UINT32_C(0xA2C00023)          /**< no VOL header accepted yet */
#define ERR_VID_MPEG4DEC_END_VALUE UINT32_C(0xA2C00024)              /**< table end; also: empty chunk */

#define MP4VDEC_ERROR_COUNT 37                            /**< names in the error table */
#define MP4VDEC_ANALYZE_UNKNOWN_CODE UINT32_C(0xE0000001) /**< Mp4vDecoderAnalyzeErrorCode(): no such code */
#define MP4VDEC_ANALYZE_SMALL_BUFFER UINT32_C(0xE0000002) /**< Mp4vDecoderAnalyzeErrorCode(): buffer too small */
/** @} */

/**
 * @name Control flags of a chunk (Mp4vDecInArgs::u32CtrlFlags)
 * @{
 */
#define MP4VDEC_CTRL_DEBLOCK_MASK UINT32_C(0x0F) /**< 0..2: deblock above quantiser 10; 3..15: above 30 */
#define MP4VDEC_CTRL_INTRA_ONLY UINT32_C(0x10)   /**< decode P-VOPs without writing them out */
#define MP4VDEC_CTRL_DEINTERLACE UINT32_C(0x20)  /**< deinterlace pictures of 352, 704 or 720 x 480 or 576 */
/** @} */

#define MP4VDEC_CODEC_ID UINT32_C(5) /**< codec identifier of the descriptor and of Mp4vDecStatus */

#define MP4VDEC_MAX_WIDTH 1920  /**< largest width that any VOL may announce, in luma samples */
#define MP4VDEC_MAX_HEIGHT 1088 /**< largest height that any VOL may announce, in luma samples */

/** Bytes behind a chunk that must be readable; their content does not matter. */
#define MP4VDEC_CHUNK_PADDING 8

/** What Mp4vDecoderOpen() is told. */
typedef struct Mp4vDecOpenParams {
    uint32_t au32Reserved[2]; /**< the host's; not read */
    uint32_t u32Width;        /**< largest luma width, a multiple of 16 */
    uint32_t u32Height;       /**< largest luma height, a multiple of 8 */
    uint32_t u32ExtParam;     /**< address of an extension record or list in the low 4 GiB, or 0 */
} Mp4vDecOpenParams;

/** One chunk: any headers, then at most one VOP. Read only. */
typedef struct Mp4vDecInArgs {
    const uint8_t* pu8Buf; /**< first byte, any alignment; 8 readable bytes follow the last one */
    uint32_t u32BufLen;    /**< bytes, at least 1 */
    uint64_t u64TimeStamp; /**< handed through */
    uint8_t u8EndOfStream; /**< 1: no more data; the chunk is not looked at */
    uint32_t u32CtrlFlags; /**< MP4VDEC_CTRL_* */
} Mp4vDecInArgs;

/** What one Mp4vDecoderProcess() call delivers. `pu8Dst` is the caller's, the decoder writes the rest. */
typedef struct Mp4vDecOutArgs {
    uint8_t* pu8Dst;          /**< in: picture, width * height * 3 / 2 bytes, Y then U then V, no padding;
                                   null: decode without output */
    uint32_t u32Width;        /**< luma columns of the picture */
    uint32_t u32Height;       /**< luma rows of the picture */
    uint32_t u32PicType;      /**< 1 intra, 2 predicted, 3 not coded (the last picture again) */
    uint32_t u32FrameReady;   /**< 1 when a picture was produced, else left as it was */
    uint32_t au32Reserved[2]; /**< the host's; neither read nor written */
    uint64_t u64TimeStamp;    /**< Mp4vDecInArgs::u64TimeStamp */
    uint8_t u8EndOfStream;    /**< set to 1 when the input said so, else left as it was */
} Mp4vDecOutArgs;

#define MP4VDEC_PIC_INTRA UINT32_C(1)     /**< decoded by itself */
#define MP4VDEC_PIC_PREDICTED UINT32_C(2) /**< decoded from the one before */
#define MP4VDEC_PIC_NOT_CODED UINT32_C(3) /**< the one before, again */

/** What Mp4vDecoderGetStatus() reports. */
typedef struct Mp4vDecStatus {
    uint32_t u32CodecId;    /**< MP4VDEC_CODEC_ID */
    uint32_t u32Reserved;   /**< not written */
    uint32_t u32OpenWidth;  /**< size given at open, luma samples */
    uint32_t u32OpenHeight; /**< size given at open, luma samples */
} Mp4vDecStatus;

/** First word of an @ref Mp4vDecExtList; any other first word is the type of a single record. */
#define MP4VDEC_EXT_LIST_MAGIC UINT32_C(0xFEDCBA98)
/** Type of the record whose fourth word is the picture structure; 2 means fields stored one above the other. */
#define MP4VDEC_EXT_PIC_STRUCT UINT32_C(103)

/** List of extension records. */
typedef struct Mp4vDecExtList {
    uint32_t u32Magic;           /**< MP4VDEC_EXT_LIST_MAGIC */
    int32_t s32Count;            /**< elements */
    const uint32_t* pu32Records; /**< addresses of records in the low 4 GiB; 0 is skipped */
} Mp4vDecExtList;

/** Opaque instance. */
typedef struct Mp4vDecCtx Mp4vDecCtx;

/**
 * Creates an instance with all its memory.
 *
 * @param ppvHandle receives the instance; set to null again when open fails after storing it
 * @param ptParams  largest picture size and extension parameters
 * @param pvMemCtx  handed to VideoMemMalloc_c() and VideoMemFree_c(); not null
 * @return 0; OPEN_INPUT_POINT for a null argument; INI_WIDTH_HEIGHT for a size that is not a multiple of
 *         16 x 8; MALLOC_DEC_HANDLE, MALLOC_QPEL_BUF, MALLOC_CUR_FRAME, MALLOC_REF_FRAME or
 *         MALLOC_CTX_INFO when memory runs out (everything is freed again)
 */
MP4VDEC_API uint32_t Mp4vDecoderOpen(void** ppvHandle, const Mp4vDecOpenParams* ptParams, void* pvMemCtx);

/**
 * Decodes one chunk into the caller's picture.
 *
 * A refused or damaged chunk never becomes the reference picture; decoding goes on with the next chunk.
 * After a refused VOL header every chunk is refused until a VOL header is accepted.
 *
 * @return 0 with a picture; 1 at the end of the stream; PROC_INPUT_POINT for a null argument; END_VALUE for an
 *         empty chunk; VOL_NOT_FOUND before the first VOL header; the UNSUPPORT_*, OVER_*, USERDATA and TIMEBASE
 *         codes for headers outside the supported subset; BITSTREAM or COEFF for damaged data
 */
MP4VDEC_API uint32_t Mp4vDecoderProcess(void* pvHandle, const Mp4vDecInArgs* ptIn, Mp4vDecOutArgs* ptOut);

/** Frees the instance. @return 0, or CLOSE_INPUT_POINT for a null handle */
MP4VDEC_API uint32_t Mp4vDecoderClose(void* pvHandle);

/**
 * Reads the headers of a chunk without decoding its VOP, to learn the picture size.
 *
 * @param pvHandle    the instance
 * @param ptIn        only pu8Buf and u32BufLen are used
 * @param pu32Width   receives the luma columns
 * @param pu32Height  receives the luma rows
 * @return the error of the first refused header (outputs untouched); PROC_INPUT_POINT for a null argument;
 *         otherwise the height, which callers take for success
 */
MP4VDEC_API uint32_t Mp4vPreDecBs(void* pvHandle, const Mp4vDecInArgs* ptIn, uint32_t* pu32Width, uint32_t* pu32Height);

/** Accepts anything, does nothing. @return 0 */
MP4VDEC_API uint32_t Mp4vDecoderSetParams(void* pvHandle, void* pvParams);

/**
 * Writes the version banner (70 characters and a terminating zero).
 *
 * @param ps8Buf     receives the text
 * @param s32Size    bytes in ps8Buf, at least 100
 * @param ps32Length receives 70
 * @return 0, or GET_VERSION when s32Size is below 100 or a pointer is null
 */
MP4VDEC_API uint32_t Mp4vDecoderGetVersion(char* ps8Buf, int32_t s32Size, int32_t* ps32Length);

/** Reports the size given at open. @return 0, or GETSTATUS_INPUT_POINT for a null argument */
MP4VDEC_API uint32_t Mp4vDecoderGetStatus(void* pvHandle, Mp4vDecStatus* ptStatus);

/** Accepts anything, does nothing. @return 0 */
MP4VDEC_API uint32_t Mp4vDecoderDebug(void* pvHandle, void* pvArgs);

/**
 * Writes the name of a status code.
 *
 * @param u32Code the status
 * @param s32Size capacity of ps8Buf minus one: a name of exactly s32Size characters is accepted and its
 *                terminating zero goes to ps8Buf[s32Size]
 * @param ps8Buf  receives the name
 * @return 0; MP4VDEC_ANALYZE_UNKNOWN_CODE; MP4VDEC_ANALYZE_SMALL_BUFFER (also for a null buffer)
 */
MP4VDEC_API uint32_t Mp4vDecoderAnalyzeErrorCode(uint32_t u32Code, int32_t s32Size, char* ps8Buf);

/**
 * Bytes that an instance for the given size allocates, in round figures:
 * (mbh + 1) * (mbw + 1) * 236 + 2864 + (mbw + 4) * (mbh + 4) * 768, in 32 bits.
 *
 * @return 0, or GETMEMSIZE_INPUT_POINT for a null argument
 */
MP4VDEC_API uint32_t Mp4vDecoderGetMemSize(const Mp4vDecOpenParams* ptParams, uint32_t* pu32Size);

/** The entry points, in the order in which hosts call through the table. */
typedef struct VidDecFuncs {
    /** Mp4vDecoderOpen() */
    uint32_t (*pfOpen)(void** ppvHandle, const Mp4vDecOpenParams* ptParams, void* pvMemCtx);
    /** Mp4vDecoderProcess() */
    uint32_t (*pfProcess)(void* pvHandle, const Mp4vDecInArgs* ptIn, Mp4vDecOutArgs* ptOut);
    /** Mp4vDecoderClose() */
    uint32_t (*pfClose)(void* pvHandle);
    /** Mp4vDecoderSetParams() */
    uint32_t (*pfSetParams)(void* pvHandle, void* pvParams);
    /** Mp4vDecoderGetVersion() */
    uint32_t (*pfGetVersion)(char* ps8Buf, int32_t s32Size, int32_t* ps32Length);
    /** Mp4vDecoderGetStatus() */
    uint32_t (*pfGetStatus)(void* pvHandle, Mp4vDecStatus* ptStatus);
    /** Mp4vDecoderDebug() */
    uint32_t (*pfDebug)(void* pvHandle, void* pvArgs);
    /** Mp4vDecoderAnalyzeErrorCode() */
    uint32_t (*pfAnalyzeErrorCode)(uint32_t u32Code, int32_t s32Size, char* ps8Buf);
    /** Mp4vDecoderGetMemSize() */
    uint32_t (*pfGetMemSize)(const Mp4vDecOpenParams* ptParams, uint32_t* pu32Size);
} VidDecFuncs;

/** What a host reads first. */
typedef struct VidDecDescriptor {
    uint32_t u32CodecId;        /**< MP4VDEC_CODEC_ID */
    const VidDecFuncs* ptFuncs; /**< &tMp4vDec */
    const char* ps8Name;        /**< "MPEG4_DEC" */
} VidDecDescriptor;

/** The entry points. */
extern MP4VDEC_API const VidDecFuncs tMp4vDec;
/** The descriptor. */
extern MP4VDEC_API const VidDecDescriptor tVidDec_MPEG4;
/** The one symbol that a host looks up. */
extern MP4VDEC_API const VidDecDescriptor* const ptVidDec_MPEG4;
/** Names of the status codes, by index. */
extern MP4VDEC_API const char* const pas8MP4DecSelfAnalyzeErrorCode[MP4VDEC_ERROR_COUNT];

/**
 * @name The host's media memory service
 * Defined by the host; the shared library leaves them undefined until load time.
 * @{
 */

/**
 * @param pvMemCtx  what Mp4vDecoderOpen() was given
 * @param u32Size   bytes
 * @param u32Align  power of two
 * @param s32Tag    -38 for the instance record, -36 otherwise
 * @param ps8File   text naming the allocating source file
 * @param s32Line   number of the call site
 * @return aligned memory, or null
 */
void* VideoMemMalloc_c(void* pvMemCtx, uint32_t u32Size, uint32_t u32Align, int32_t s32Tag, const char* ps8File,
                       int32_t s32Line);

/** Frees what VideoMemMalloc_c() returned; the tag is -38 for every free. */
void VideoMemFree_c(void* pvMemCtx, void* pvMem, int32_t s32Tag, const char* ps8File, int32_t s32Line);
/** @} */

#ifdef __cplusplus
}
#endif

#endif /* MP4VDEC_H_ */
