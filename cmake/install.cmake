# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors

# What is installed, in four components: library, dev, tools and gstreamer.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)
set(MP4VDEC_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/mp4vdec)

# Compresses packaging/NAME without a time in it; sets OUT to the file.
function(mp4vdec_gzip name out)
  set(from ${PROJECT_SOURCE_DIR}/packaging/${name})
  set(to ${PROJECT_BINARY_DIR}/packaging/${name}.gz)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${from})
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/packaging)
  execute_process(COMMAND gzip -9nc ${from} OUTPUT_FILE ${to} COMMAND_ERROR_IS_FATAL ANY)
  set(${out} ${to} PARENT_SCOPE)
endfunction()

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT licence)
install(FILES ${PROJECT_SOURCE_DIR}/include/mp4vdec.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

install(TARGETS mp4vdec_shared mp4vdec_static EXPORT mp4vdec
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT dev
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(FILES ${PROJECT_SOURCE_DIR}/include/mp4vdec.hpp DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(TARGETS mp4vdec_host mp4vdec_hosted EXPORT mp4vdec
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT mp4vdec NAMESPACE mp4vdec:: FILE mp4vdecConfig.cmake DESTINATION ${MP4VDEC_CMAKE_DIR} COMPONENT dev)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/mp4vdecConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/mp4vdecConfigVersion.cmake DESTINATION ${MP4VDEC_CMAKE_DIR} COMPONENT dev)

# What is installed may be moved, except in the system's own folders, where pkg-config knows paths by their names.
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(MP4VDEC_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
else()
  string(REGEX REPLACE "[^/]+" ".." up ${pc_dir})
  set(MP4VDEC_PC_PREFIX "\${pcfiledir}/${up}")
endif()
foreach(name mp4vdec mp4vhost)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${pc_dir} COMPONENT dev)
endforeach()

if(TARGET mp4vdec_player)
  install(TARGETS mp4vdec_player RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  mp4vdec_gzip(mp4vdec.1 manual)
  install(FILES ${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/completion.bash
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME mp4vdec COMPONENT tools)
endif()

if(TARGET mp4vdec_gst)
  install(TARGETS mp4vdec_gst LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/gstreamer-1.0 COMPONENT gstreamer)
endif()
