# Install rules, the exported CMake package, dbg.pc and the Debian packages.
#
# Components:
#   runtime          libdbg.so.1                                (libdbg1)
#   development      headers, libdbg.so, dbgConfig.cmake, dbg.pc (libdbg-dev)
#   imc-standin      libimc.so.1, the IMC manager stand-in      (libimc1)
#   imc-standin-dev  its headers, libimc.so, dbg::imc           (libimc-dev)
#   vcom-standin     the voice enumeration headers, dbg::vcom   (libvcom-dev)
#   tools            dbgctl, the demo gateway host, dbg-fleet-pki, the logrotate and rsyslog examples (dbg-tools)
# An image that carries the maker's IMC and voice libraries installs only
# runtime (and development to build modules against them).

include(CMakePackageConfigHelpers)

set(DBG_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/dbg CACHE STRING
    "Where dbgConfig.cmake goes, relative to the prefix")
option(DBG_INSTALL_DEBIAN_DOCS "Install copyright and changelog.Debian.gz per Debian package" OFF)

# Shared libraries are not programs.
set(dbg_library_permissions OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

install(TARGETS dbg EXPORT dbg-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    PERMISSIONS ${dbg_library_permissions}
    COMPONENT runtime
    NAMELINK_COMPONENT development)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/dbg
  COMPONENT development FILES_MATCHING PATTERN "*.h")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/include/DBG_StringAbi.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/dbg
  COMPONENT development)
install(EXPORT dbg-targets NAMESPACE dbg:: FILE dbg-targets.cmake
  DESTINATION ${DBG_INSTALL_CMAKEDIR} COMPONENT development)

set(dbg_standin_imc OFF)
set(dbg_standin_vcom OFF)
if(NOT DBG_IMC_INCLUDE_DIR)
  set(dbg_standin_imc ON)
  install(TARGETS dbg_imc EXPORT dbg-imc-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
      PERMISSIONS ${dbg_library_permissions}
      COMPONENT imc-standin
      NAMELINK_COMPONENT imc-standin-dev)
  install(DIRECTORY platform/imc/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/dbg/imc
    COMPONENT imc-standin-dev FILES_MATCHING PATTERN "*.h")
  install(EXPORT dbg-imc-targets NAMESPACE dbg:: FILE dbg-imc-targets.cmake
    DESTINATION ${DBG_INSTALL_CMAKEDIR} COMPONENT imc-standin-dev)
endif()
if(NOT DBG_VCOM_INCLUDE_DIR)
  set(dbg_standin_vcom ON)
  install(TARGETS dbg_vcom EXPORT dbg-vcom-targets)
  install(DIRECTORY platform/vcom/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/dbg/vcom
    COMPONENT vcom-standin FILES_MATCHING PATTERN "*.h")
  install(EXPORT dbg-vcom-targets NAMESPACE dbg:: FILE dbg-vcom-targets.cmake
    DESTINATION ${DBG_INSTALL_CMAKEDIR} COMPONENT vcom-standin)
endif()

if(TARGET dbg-gateway)
  install(TARGETS dbgctl dbg-gateway RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  # The lab CA and host certificates for the fleet's RELP in TLS.
  install(PROGRAMS tools/dbg-fleet-pki DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  # Rotation of a trace file that loses nothing: rename, then the same name
  # again through dbgctl.
  install(FILES examples/logrotate/dbg-gateway
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/dbg-tools/examples/logrotate COMPONENT tools)
  # The trace file carried to a central host over RELP: the gateway's side
  # and the collector's.
  install(FILES examples/rsyslog/gateway.conf examples/rsyslog/collector.conf
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/dbg-tools/examples/rsyslog COMPONENT tools)
endif()

configure_package_config_file(cmake/dbgConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/dbgConfig.cmake
  INSTALL_DESTINATION ${DBG_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/dbgConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/dbgConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/dbgConfigVersion.cmake
  DESTINATION ${DBG_INSTALL_CMAKEDIR} COMPONENT development)

# dbg.pc finds its prefix from its own place, so a tree installed with
# DESTDIR or moved elsewhere still works.
set(dbg_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH dbg_pc_to_prefix /${dbg_pc_dir} /)
string(REGEX REPLACE "/$" "" dbg_pc_to_prefix "${dbg_pc_to_prefix}")
set(dbg_pc_cflags "-D_GLIBCXX_USE_CXX11_ABI=${DBG_CXX11_ABI} -I\${includedir}/dbg")
set(dbg_pc_libs "-L\${libdir} -ldbg")
if(dbg_standin_imc)
  string(APPEND dbg_pc_cflags " -I\${includedir}/dbg/imc")
  string(APPEND dbg_pc_libs " -limc")
else()
  string(APPEND dbg_pc_cflags " -I${DBG_IMC_INCLUDE_DIR}")
  string(APPEND dbg_pc_libs " ${DBG_IMC_LIBRARY}")
endif()
if(dbg_standin_vcom)
  string(APPEND dbg_pc_cflags " -I\${includedir}/dbg/vcom")
else()
  string(APPEND dbg_pc_cflags " -I${DBG_VCOM_INCLUDE_DIR}")
endif()
configure_file(cmake/dbg.pc.in ${CMAKE_CURRENT_BINARY_DIR}/dbg.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/dbg.pc DESTINATION ${dbg_pc_dir} COMPONENT development)

include(cmake/DbgPackaging.cmake)
