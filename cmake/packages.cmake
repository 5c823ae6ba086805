# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors

# Debian packages of the components, made by cpack; scripts/packages configures for them and checks them. Paths go
# into the files that are installed, so there are packages only of what is configured for /usr,
# and only with the player.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr" OR NOT TARGET mp4vdec_player)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # else it comes before every description
set(CPACK_COMPONENTS_ALL library dev tools)
if(TARGET mp4vdec_gst)
  list(APPEND CPACK_COMPONENTS_ALL gstreamer)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/packages_finish.cmake)

# The changelog has the last word on the version.
set(changelog ${PROJECT_SOURCE_DIR}/packaging/changelog)
file(STRINGS ${changelog} version LIMIT_COUNT 1)
if(NOT version MATCHES "^mp4vdec \\(([0-9.]+)-([0-9]+)\\)" OR NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "${changelog} does not begin with version ${PROJECT_VERSION}: ${version}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_2})
set(version ${PROJECT_VERSION}-${CMAKE_MATCH_2})

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE mp4vdec)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "mp4vdec authors <maintainers@mp4vdec.invalid>")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_CROSSCOMPILING)
  execute_process(COMMAND dpkg-architecture --host-type ${MP4VDEC_TRIPLET} --query DEB_HOST_ARCH
                  OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE
                  COMMAND_ERROR_IS_FATAL ANY)
endif()

set(about
    "mp4vdec decodes MPEG-4 Part 2 video (ISO/IEC 14496-2): rectangular video up
to 1920 x 1088, progressive and interlaced, without B-pictures. Whatever the
bytes in a stream, it stays inside the buffers that it was given.
")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libmp4vdec${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
file(WRITE ${PROJECT_BINARY_DIR}/packaging/shlibs
     "libmp4vdec ${PROJECT_VERSION_MAJOR} libmp4vdec${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/packaging/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/packaging/shlibs
                                               ${PROJECT_BINARY_DIR}/packaging/triggers)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "decoder for MPEG-4 Part 2 video - shared library
${about}
This package contains the shared library. The program that uses it brings the
memory service, VideoMemMalloc_c and VideoMemFree_c.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libmp4vdec-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libmp4vdec${PROJECT_VERSION_MAJOR} (= ${version})")
set(CPACK_DEBIAN_DEV_DESCRIPTION "decoder for MPEG-4 Part 2 video - development files
${about}
This package contains the headers, the static library, files for pkg-config
and CMake, and a static C++ library that splits elementary streams, brings the
memory service and crops the pictures.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME mp4vdec-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
if(MP4VDEC_READS_CONTAINERS)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "gstreamer1.0-plugins-base, gstreamer1.0-plugins-good")
endif()
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "decoder for MPEG-4 Part 2 video - command-line tool
${about}
This package contains mp4vdec, which writes the pictures of a stream as Y4M
or raw video, their MD5, or a contact sheet.")

set(CPACK_DEBIAN_GSTREAMER_PACKAGE_NAME gstreamer1.0-mp4vdec)
set(CPACK_DEBIAN_GSTREAMER_PACKAGE_SECTION video)
set(CPACK_DEBIAN_GSTREAMER_DESCRIPTION "decoder for MPEG-4 Part 2 video - GStreamer plugin
${about}
This package contains a plugin with the element mp4vdec, by which GStreamer's
players and pipelines decode this format.")

mp4vdec_gzip(changelog changelog_gz)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
          COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${changelog_gz} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} RENAME changelog.Debian.gz
          COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
