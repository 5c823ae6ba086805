# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors

# The names that find_package gives, for projects that take this one in with add_subdirectory or FetchContent.
set_target_properties(mp4vdec_shared PROPERTIES EXPORT_NAME mp4vdec)
set_target_properties(mp4vdec_static PROPERTIES EXPORT_NAME static)
set_target_properties(mp4vdec_host PROPERTIES EXPORT_NAME host_archive)
set_target_properties(mp4vdec_hosted PROPERTIES EXPORT_NAME host)
foreach(target mp4vdec_shared mp4vdec_static mp4vdec_host mp4vdec_hosted)
  get_target_property(name ${target} EXPORT_NAME)
  add_library(mp4vdec::${name} ALIAS ${target})
endforeach()
