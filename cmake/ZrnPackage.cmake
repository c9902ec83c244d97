# Installation and the CMake package config, so that a host writes
#   find_package(zrn)
#   target_link_libraries(host PRIVATE zrn::zrn)
# against an install prefix or against this build tree; and a pkg-config file
# for hosts built with other tools.
include(CMakePackageConfigHelpers)

set(ZRN_CONFIG_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/zrn")

install(TARGETS zrn zrn_store EXPORT zrnTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/zrn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET zrn-inspect)
  install(TARGETS zrn-inspect RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(FILES "${PROJECT_BINARY_DIR}/include/zrn/Version.h"
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zrn)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

# zrn.pc finds its prefix from its own folder, so the installed tree can move.
set(ZRN_PC_PREFIX "\${pcfiledir}")
string(REPLACE "/" ";" ZRN_PC_DEPTH "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
foreach(component IN LISTS ZRN_PC_DEPTH)
  string(APPEND ZRN_PC_PREFIX "/..")
endforeach()
configure_file(cmake/zrn.pc.in "${PROJECT_BINARY_DIR}/zrn.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/zrn.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(EXPORT zrnTargets NAMESPACE zrn:: DESTINATION ${ZRN_CONFIG_DIR})

configure_package_config_file(cmake/zrnConfig.cmake.in
  "${PROJECT_BINARY_DIR}/zrnConfig.cmake" INSTALL_DESTINATION ${ZRN_CONFIG_DIR})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/zrnConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/zrnConfig.cmake"
              "${PROJECT_BINARY_DIR}/zrnConfigVersion.cmake"
              cmake/FindTinyXML.cmake
        DESTINATION ${ZRN_CONFIG_DIR})

# The build tree is a package too.
export(EXPORT zrnTargets NAMESPACE zrn:: FILE "${PROJECT_BINARY_DIR}/zrnTargets.cmake")
configure_file(cmake/FindTinyXML.cmake "${PROJECT_BINARY_DIR}/FindTinyXML.cmake" COPYONLY)
