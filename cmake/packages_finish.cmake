# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors

# Run by cpack on the packages it made: puts right what CMake 3.25 has no setting for. It knows no Multi-Arch, and it
# writes maintainer scripts that call ldconfig although there is a trigger for that.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(tree ${CPACK_TEMPORARY_DIRECTORY}/finish)
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
  if(package MATCHES "/(lib|gstreamer)[^/]*$")
    set(multi_arch same)
  else()
    set(multi_arch foreign)
  endif()
  file(READ ${tree}/DEBIAN/control control)
  file(WRITE ${tree}/DEBIAN/control "Multi-Arch: ${multi_arch}\n${control}")
  execute_process(COMMAND dpkg-deb --root-owner-group --build ${tree} ${package} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
