/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include <gst/gst.h>

#include "gst/element.h"

#define PACKAGE "mp4vdec"  // GST_PLUGIN_DEFINE asks for it

namespace {

gboolean Init(GstPlugin* plugin) {
    return mp4v::RegisterElement(plugin);
}

}  // namespace

extern "C" {
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, mp4vdec, "Decoder for MPEG-4 Part 2 video", Init,
                  MP4VDEC_VERSION, "BSD", "mp4vdec", "mp4vdec")
}
