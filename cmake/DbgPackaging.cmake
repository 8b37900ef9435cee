# Debian packages through CPack (./run package): one package per install
# component, for the host or, in a cross build, for the target.

set(DBG_DEB_MAINTAINER "SIP Trunk Gateway Team <sipgw-dev@example.org>")
set(DBG_DEB_SOURCE dbg)
set(DBG_DEB_RELEASE 1)
set(DBG_DEB_VERSION ${PROJECT_VERSION}-${DBG_DEB_RELEASE})

# The packages of the cxx11 std::string ABI.
set(dbg_deb_packages
  runtime libdbg1
  development libdbg-dev
  imc-standin libimc1
  imc-standin-dev libimc-dev
  vcom-standin libvcom-dev
  tools dbg-tools)

# The packages of the older std::string ABI (DBG_LEGACY_STRING_ABI) are
# another variant: each package whose files depend on the ABI has its name
# with "-legacy-abi" (before "-dev"). The voice enumerations, headers of
# plain enumerations, are one package for both.
set(dbg_deb_abi_suffix "")
set(dbg_deb_other_abi_suffix -legacy-abi)
if(DBG_LEGACY_STRING_ABI)
  set(dbg_deb_abi_suffix -legacy-abi)
  set(dbg_deb_other_abi_suffix "")
endif()
# `variable` gets the name of the package `package` (of the cxx11 ABI) in
# the variant of `suffix`.
function(dbg_deb_name variable package suffix)
  if(package STREQUAL "libvcom-dev")
    set(${variable} ${package} PARENT_SCOPE)
  elseif(package MATCHES "^(.*)-dev$")
    set(${variable} ${CMAKE_MATCH_1}${suffix}-dev PARENT_SCOPE)
  else()
    set(${variable} ${package}${suffix} PARENT_SCOPE)
  endif()
endfunction()
dbg_deb_name(dbg_deb_libdbg1 libdbg1 "${dbg_deb_abi_suffix}")
dbg_deb_name(dbg_deb_libimc1 libimc1 "${dbg_deb_abi_suffix}")
dbg_deb_name(dbg_deb_libimc_dev libimc-dev "${dbg_deb_abi_suffix}")

# Debian wants copyright and changelog.Debian.gz in every package's doc
# directory, the changelog compressed with gzip -9n.
if(DBG_INSTALL_DEBIAN_DOCS)
  find_program(DBG_GZIP gzip REQUIRED)
  configure_file(cmake/debian/changelog.in ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.Debian @ONLY)
  execute_process(COMMAND ${DBG_GZIP} -9nf ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.Debian
    RESULT_VARIABLE dbg_gzip_result)
  if(NOT dbg_gzip_result EQUAL 0)
    message(FATAL_ERROR "gzip of changelog.Debian failed: ${dbg_gzip_result}")
  endif()
  foreach(page dbgctl dbg-gateway dbg-fleet-pki)
    configure_file(cmake/debian/${page}.1 ${CMAKE_CURRENT_BINARY_DIR}/debian/${page}.1 COPYONLY)
    execute_process(COMMAND ${DBG_GZIP} -9nf ${CMAKE_CURRENT_BINARY_DIR}/debian/${page}.1)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/debian/${page}.1.gz
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  endforeach()
  set(dbg_remaining ${dbg_deb_packages})
  while(dbg_remaining)
    list(POP_FRONT dbg_remaining component cxx11_package)
    dbg_deb_name(package ${cxx11_package} "${dbg_deb_abi_suffix}")
    install(FILES cmake/debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.Debian.gz
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
    # Internal packages: there is no bug in Debian's tracker to close.
    set(overrides "# Internal package, never uploaded to Debian: no ITP bug to close.\n"
      "${package}: initial-upload-closes-no-bugs\n")
    if(component MATCHES "^(runtime|imc-standin)$")
      list(APPEND overrides
        "# Empty on purpose: without scripts of its own the package would get\n"
        "# CPack's, which call ldconfig; the ldconfig trigger does that work.\n"
        "${package}: maintainer-script-empty [postinst]\n"
        "${package}: maintainer-script-empty [postrm]\n")
      if(DBG_LEGACY_STRING_ABI)
        list(APPEND overrides
          "# The older std::string ABI's variant: the library's soname, another name.\n"
          "${package}: package-name-doesnt-match-sonames\n")
      endif()
    endif()
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/overrides/${package} ${overrides})
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/debian/overrides/${package}
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides COMPONENT ${component})
  endwhile()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${DBG_DEB_SOURCE})
set(CPACK_PACKAGE_VENDOR "SIP Trunk Gateway Team")
set(CPACK_PACKAGE_CONTACT "${DBG_DEB_MAINTAINER}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Each package's description has its own synopsis line; CPack would put any
# summary but its default in front of it.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/packages CACHE PATH "Where CPack puts the packages")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${DBG_DEB_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SOURCE ${DBG_DEB_SOURCE})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${DBG_DEB_RELEASE})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

# The GCC release whose libstdc++ brought each version node.
set(dbg_deb_libstdcxx_releases
  CXXABI_1.3 3.4 CXXABI_1.3.7 4.8 CXXABI_1.3.8 4.9 CXXABI_1.3.9 5 CXXABI_1.3.10 6 CXXABI_1.3.11 7
  CXXABI_1.3.12 9 CXXABI_1.3.13 11
  GLIBCXX_3.4.20 4.9 GLIBCXX_3.4.21 5 GLIBCXX_3.4.22 6 GLIBCXX_3.4.23 7 GLIBCXX_3.4.24 7
  GLIBCXX_3.4.25 8 GLIBCXX_3.4.26 9 GLIBCXX_3.4.28 10 GLIBCXX_3.4.29 11 GLIBCXX_3.4.30 12)

# `variable` gets the library's dependencies on the system's, made of the
# highest symbol versions it needs of each (tests/abi/symbol-versions-*.txt,
# which ./run package checks against the packaged library).
function(dbg_deb_library_system_depends variable)
  set(record ${PROJECT_SOURCE_DIR}/tests/abi/symbol-versions-${CMAKE_SYSTEM_PROCESSOR}${dbg_deb_abi_suffix}.txt)
  file(STRINGS ${record} needs)
  # The highest package version each of the three needs.
  set(libc6 0)
  set(libgcc-s1 0)
  set(libstdc++6 0)
  foreach(need IN LISTS needs)
    string(REGEX REPLACE "^.* ([A-Z]+)_([0-9.]+)$" "\\1;\\2" node "${need}")
    list(GET node 0 prefix)
    list(GET node 1 version)
    if(prefix STREQUAL "GLIBC")
      set(package libc6)
    elseif(prefix STREQUAL "GCC")
      set(package libgcc-s1)
    elseif(prefix MATCHES "^(GLIBCXX|CXXABI)$")
      set(package libstdc++6)
      list(FIND dbg_deb_libstdcxx_releases ${prefix}_${version} index)
      if(index EQUAL -1)
        message(FATAL_ERROR "${record}: which GCC release brought ${prefix}_${version}? Add it to dbg_deb_libstdcxx_releases.")
      endif()
      math(EXPR index "${index} + 1")
      list(GET dbg_deb_libstdcxx_releases ${index} version)
    else()
      message(FATAL_ERROR "${record}: no package known for ${need}")
    endif()
    if(version VERSION_GREATER ${package})
      set(${package} ${version})
    endif()
  endforeach()
  set(${variable} "libc6 (>= ${libc6}), libgcc-s1 (>= ${libgcc-s1}), libstdc++6 (>= ${libstdc++6})" PARENT_SCOPE)
endfunction()

# Architecture and the dependencies on system libraries: the host's from
# dpkg-shlibdeps; a cross build's named here, since dpkg-shlibdeps knows
# only the host's packages: the library's from the symbol versions it
# needs, the stand-in's and the tools' (built as this machine builds) from
# Debian 12's.
set(dbg_deb_system_depends "")
set(dbg_deb_library_system_depends "")
if(CMAKE_CROSSCOMPILING)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "powerpc")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE powerpc)
  else()
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR})
  endif()
  set(dbg_deb_system_depends "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 11)")
  dbg_deb_library_system_depends(dbg_deb_library_system_depends)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # libimc.so.1 is built here, not installed: let dpkg-shlibdeps see it.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR}/platform ${CMAKE_CURRENT_BINARY_DIR})
endif()
# dbg_deb_depends(<variable> <system libraries> <packages built here> [<system packages>]):
# the system libraries and packages are named only in a cross build; on the
# host dpkg-shlibdeps finds them, and naming them too would list them twice.
macro(dbg_deb_depends variable system own)
  set(${variable} "${own}")
  if(CMAKE_CROSSCOMPILING)
    string(JOIN ", " ${variable} ${system} ${ARGN} ${own})
  endif()
endmacro()

set(CPACK_COMPONENTS_ALL runtime development tools)
if(dbg_standin_imc)
  list(APPEND CPACK_COMPONENTS_ALL imc-standin imc-standin-dev)
endif()
if(dbg_standin_vcom)
  list(APPEND CPACK_COMPONENTS_ALL vcom-standin)
endif()

# The two variants of a package hold the same files: each conflicts with
# and replaces the other. The legacy variants of the development and tool
# packages also stand in for the others (a module's build dependency on
# libdbg-dev is met by either: the package gives the module its ABI); the
# libraries do not, their ABI is what differs.
set(dbg_remaining ${dbg_deb_packages})
while(dbg_remaining)
  list(POP_FRONT dbg_remaining component cxx11_package)
  string(TOUPPER ${component} COMPONENT)
  dbg_deb_name(package ${cxx11_package} "${dbg_deb_abi_suffix}")
  dbg_deb_name(other ${cxx11_package} "${dbg_deb_other_abi_suffix}")
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${package})
  if(NOT package STREQUAL other)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_CONFLICTS ${other})
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_REPLACES ${other})
    if(DBG_LEGACY_STRING_ABI AND component MATCHES "^(development|imc-standin-dev|tools)$")
      set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_PROVIDES ${other})
    endif()
  endif()
endwhile()

# Shared libraries: the linker cache is refreshed by the ldconfig trigger;
# these maintainer scripts replace CPack's, which call ldconfig themselves.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(dbg_deb_library_control
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/triggers
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/postinst
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/postrm)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${dbg_deb_library_control})
set(CPACK_DEBIAN_IMC-STANDIN_PACKAGE_CONTROL_EXTRA ${dbg_deb_library_control})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
dbg_deb_depends(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${dbg_deb_library_system_depends}"
  "${dbg_deb_libimc1} (>= 1.0.0)" "libtcl8.6 (>= 8.6.0)")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"debug support library of the SIP trunk gateway
libdbg gives the gateway's modules one trace output that an operator
switches at run time between the console, a file and the IMC manager,
readable names for telephony values, a trace and error logger, and an
operator console on the Tcl event loop.
.
This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${dbg_deb_libdbg1} (= ${DBG_DEB_VERSION}), ${dbg_deb_libimc_dev}, libvcom-dev, tcl8.6-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"debug support library of the SIP trunk gateway - development files
libdbg gives the gateway's modules one trace output that an operator
switches at run time between the console, a file and the IMC manager.
.
This package holds the headers, the CMake package (find_package(dbg),
target dbg::dbg) and the pkg-config file dbg.pc.")

set(CPACK_DEBIAN_IMC-STANDIN_PACKAGE_SECTION libs)
dbg_deb_depends(CPACK_DEBIAN_IMC-STANDIN_PACKAGE_DEPENDS "${dbg_deb_system_depends}" "")
set(CPACK_COMPONENT_IMC-STANDIN_DESCRIPTION
"IMC manager stand-in for the SIP trunk gateway
A small inter-module communication manager with the interface of the
board maker's IMC library: command routing, answers, traces and posted
records. Images that carry the maker's library do not install it.")

set(CPACK_DEBIAN_IMC-STANDIN-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_IMC-STANDIN-DEV_PACKAGE_DEPENDS "${dbg_deb_libimc1} (= ${DBG_DEB_VERSION})")
set(CPACK_COMPONENT_IMC-STANDIN-DEV_DESCRIPTION
"IMC manager stand-in for the SIP trunk gateway - development files
The headers of the IMC manager stand-in, its host control interface and
the CMake target dbg::imc.")

set(CPACK_DEBIAN_VCOM-STANDIN_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_VCOM-STANDIN_DESCRIPTION
"voice enumeration stand-in for the SIP trunk gateway
The voice library's enumeration types (codecs, release causes, numbering
plans and the others) as the debug library renders them, with the CMake
target dbg::vcom.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION admin)
dbg_deb_depends(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${dbg_deb_system_depends}"
  "${dbg_deb_libdbg1} (= ${DBG_DEB_VERSION}), ${dbg_deb_libimc1} (>= 1.0.0)" "libtcl8.6 (>= 8.6.0)")
# What the examples and dbg-fleet-pki run; the tools work without them.
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "logrotate, rsyslog, rsyslog-relp, openssl")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"operator tools of the SIP trunk gateway debug library
dbgctl sends one debug command line to a running gateway host and prints
its answer, so the debug output of a daemonised gateway can be switched.
dbg-gateway is the demo gateway host: the debug library at work with an
IMC manager, the console, the command socket dbgctl talks to and
simulated call traffic. Examples: rotation of a trace file with logrotate,
and rsyslog configurations that carry the trace files of many gateways
to one collector over RELP in mutual TLS; dbg-fleet-pki makes a lab CA
and the hosts' certificates for them.")

if(DBG_LEGACY_STRING_ABI)
  foreach(COMPONENT IN ITEMS RUNTIME DEVELOPMENT IMC-STANDIN IMC-STANDIN-DEV TOOLS)
    string(APPEND CPACK_COMPONENT_${COMPONENT}_DESCRIPTION "
.
Built in the older std::string ABI (_GLIBCXX_USE_CXX11_ABI=0), for
modules built by toolchains older than GCC 5 or with that setting.")
  endforeach()
endif()

include(CPack)
