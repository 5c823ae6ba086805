/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_GST_ELEMENT_H_
#define MP4VDEC_GST_ELEMENT_H_

#include <gst/gst.h>

namespace mp4v {

/** Registers the element `mp4vdec` with the plugin. */
bool RegisterElement(GstPlugin* plugin);

}  // namespace mp4v

/** Log messages of the plugin: GST_DEBUG=mp4vdec:5. */
GST_DEBUG_CATEGORY_EXTERN(mp4vdec_debug);

#endif  // MP4VDEC_GST_ELEMENT_H_
