# SPDX-License-Identifier: BSD-2-Clause
# Copyright (c) 2026, the mp4vdec authors
include(GNUInstallDirs)

install(FILES ${PROJECT_SOURCE_DIR}/include/mp4vdec.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(TARGETS mp4vdec_shared mp4vdec_static
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET mp4vdec_player)
  install(TARGETS mp4vdec_player RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
