# Installs a build into a staging directory (DESTDIR) and uses it the way a
# module does: cmake -P DbgConsumerTest.cmake with
#   MODE            find_package | cxx98 | pkg-config | other-abi | runtime-component | imc-standin
#   BUILD_DIR       the library's build tree
#   SOURCE_DIR      the library's source tree (examples/module)
#   WORK_DIR        scratch directory, emptied first and removed on success
#   INSTALL_PREFIX  CMAKE_INSTALL_PREFIX of the build
#   LIBDIR          CMAKE_INSTALL_LIBDIR of the build
#   CXX             the build's C++ compiler (pkg-config mode)
#   NM              the nm of the build's architecture
#   STRING_ABI      the build's std::string ABI, cxx11 or legacy
# and, for a cross build:
#   TOOLCHAIN_FILE  its toolchain file
#   SYSROOT_EXTRA   its DBG_PPC_SYSROOT_EXTRA, "|" between prefixes
#   EMULATOR        its CMAKE_CROSSCOMPILING_EMULATOR, "|" between words
#   TCL_INCLUDE_DIR, TCL_LIBRARY  the target Tcl the build used
# and BUILD_CXX_FLAGS, BUILD_LINK_FLAGS: the build's own flags, which the
# module shares (a sanitized library needs a sanitized program).
# The module's output must be examples/module/expected-output.txt, byte for
# byte, and the module must be in the library's std::string ABI without being
# told. In cxx98 mode it is built through find_package as C++98 with GNU
# extensions, the default of the compilers older than GCC 5 that use the
# legacy ABI. In other-abi mode the module forces the other ABI and its build
# must stop with the message that names both.
cmake_minimum_required(VERSION 3.25)

foreach(required MODE BUILD_DIR SOURCE_DIR WORK_DIR INSTALL_PREFIX LIBDIR NM STRING_ABI)
  if(NOT DEFINED ${required} OR "${${required}}" STREQUAL "")
    message(FATAL_ERROR "${required} is not given")
  endif()
endforeach()
string(REPLACE "|" ";" SYSROOT_EXTRA "${SYSROOT_EXTRA}")
string(REPLACE "|" ";" EMULATOR "${EMULATOR}")

# Runs a command that must succeed; its output goes to the variable `output`.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

if(STRING_ABI STREQUAL "legacy")
  set(cxx11_abi 0)
  set(other_abi "cxx11 ABI (_GLIBCXX_USE_CXX11_ABI=1)")
elseif(STRING_ABI STREQUAL "cxx11")
  set(cxx11_abi 1)
  set(other_abi "legacy ABI (_GLIBCXX_USE_CXX11_ABI=0)")
else()
  message(FATAL_ERROR "STRING_ABI is '${STRING_ABI}', not cxx11 or legacy")
endif()

file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")
set(stage "${WORK_DIR}/stage")
set(prefix "${stage}${INSTALL_PREFIX}")
set(libdir "${prefix}/${LIBDIR}")

# Stages the given components alone; `variable` gets the files installed,
# relative to the prefix, sorted.
function(stage_components variable)
  foreach(component IN LISTS ARGN)
    run(${CMAKE_COMMAND} -E env DESTDIR=${stage} ${CMAKE_COMMAND} --install ${BUILD_DIR} --component ${component})
  endforeach()
  file(GLOB_RECURSE installed LIST_DIRECTORIES false RELATIVE "${prefix}" "${stage}/*")
  list(SORT installed)
  set(${variable} "${installed}" PARENT_SCOPE)
endfunction()

if(MODE STREQUAL "runtime-component")
  # What an image with the maker's IMC and voice libraries installs.
  stage_components(installed runtime)
  set(expected "${LIBDIR}/libdbg.so.1;${LIBDIR}/libdbg.so.1.0.0")
  if(NOT installed STREQUAL expected)
    message(FATAL_ERROR "the runtime component installs [${installed}], not [${expected}]")
  endif()
  file(READ_SYMLINK "${libdir}/libdbg.so.1" target)
  if(NOT target STREQUAL "libdbg.so.1.0.0")
    message(FATAL_ERROR "libdbg.so.1 points to ${target}")
  endif()
  file(REMOVE_RECURSE "${WORK_DIR}")
  return()
endif()

if(MODE STREQUAL "imc-standin")
  # What a workstation gets with the IMC stand-in: the manager and the
  # headers a host needs, and no test machinery in either.
  stage_components(installed imc-standin imc-standin-dev)
  list(FILTER installed INCLUDE REGEX "\\.h$")
  list(TRANSFORM installed REPLACE "^include/dbg/imc/" "")
  set(expected "IMC_CommandObserver.h;IMC_Manager.h;IMC_StandIn.h;imc_msg.h")
  if(NOT installed STREQUAL expected)
    message(FATAL_ERROR "the stand-in installs the headers [${installed}], not include/dbg/imc/[${expected}]")
  endif()
  run(${CMAKE_COMMAND} -DNM=${NM} -DLIBRARY=${libdir}/libimc.so.1 -P ${SOURCE_DIR}/cmake/DbgCheckNoTestCode.cmake)
  file(REMOVE_RECURSE "${WORK_DIR}")
  return()
endif()

run(${CMAKE_COMMAND} -E env DESTDIR=${stage} ${CMAKE_COMMAND} --install ${BUILD_DIR})
foreach(link libdbg.so:libdbg.so.1 libdbg.so.1:libdbg.so.1.0.0 libimc.so:libimc.so.1 libimc.so.1:libimc.so.1.0.0)
  string(REPLACE ":" ";" link "${link}")
  list(GET link 0 name)
  list(GET link 1 expected)
  file(READ_SYMLINK "${libdir}/${name}" target)
  if(NOT target STREQUAL expected)
    message(FATAL_ERROR "${name} points to '${target}', not to ${expected}")
  endif()
endforeach()

set(example "${SOURCE_DIR}/examples/module")
set(build "${WORK_DIR}/module")
# The installed headers must be as clean as the library's own build.
set(warnings "${BUILD_CXX_FLAGS} -Wall -Wextra -Werror")
if(MODE MATCHES "^(find_package|cxx98|other-abi)$")
  set(module_cxx_flags "${warnings}")
  if(MODE STREQUAL "cxx98")
    string(APPEND module_cxx_flags " -std=gnu++98")
  elseif(MODE STREQUAL "other-abi")
    math(EXPR forced_abi "1 - ${cxx11_abi}")
    string(APPEND module_cxx_flags " -D_GLIBCXX_USE_CXX11_ABI=${forced_abi}")
  endif()
  set(arguments -S ${example} -B ${build} -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS=${module_cxx_flags}"
                "-DCMAKE_EXE_LINKER_FLAGS=${BUILD_LINK_FLAGS}")
  if(TOOLCHAIN_FILE)
    # The staged prefix joins the target roots; a list goes in through an
    # initial cache file.
    file(WRITE "${WORK_DIR}/initial-cache.cmake"
      "set(DBG_PPC_SYSROOT_EXTRA \"${prefix};${SYSROOT_EXTRA}\" CACHE STRING \"\")\n")
    list(APPEND arguments -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE} -C ${WORK_DIR}/initial-cache.cmake)
  else()
    list(APPEND arguments -DCMAKE_PREFIX_PATH=${prefix})
  endif()
  run(${CMAKE_COMMAND} ${arguments})
  string(FIND "${output}" "dbg std::string ABI: ${STRING_ABI}\n" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "find_package(dbg) does not say the ABI is ${STRING_ABI}:\n${output}")
  endif()
  if(MODE STREQUAL "other-abi")
    execute_process(COMMAND ${CMAKE_COMMAND} --build ${build}
      RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    set(reason "libdbg is built in the ${STRING_ABI} std::string ABI (_GLIBCXX_USE_CXX11_ABI=${cxx11_abi}), this module in the ${other_abi}")
    string(FIND "${output}" "${reason}" found)
    if(result EQUAL 0 OR found EQUAL -1)
      message(FATAL_ERROR "a module forcing the other ABI must stop at compile time with\n[${reason}]\nbut its build (status ${result}) said:\n${output}")
    endif()
    file(REMOVE_RECURSE "${WORK_DIR}")
    message(STATUS "other-abi: the module's build stops naming both ABIs")
    return()
  endif()
  # The output lock needs libpthread loaded where the C library is older
  # than 2.34: dbg::dbg brings Threads::Threads, which is -pthread there
  # (and nothing where the C library has the threads).
  file(READ "${libdir}/cmake/dbg/dbg-targets.cmake" targets)
  if(NOT targets MATCHES "INTERFACE_LINK_LIBRARIES \"[^\"]*Threads::Threads")
    message(FATAL_ERROR "dbg::dbg does not bring Threads::Threads:\n${targets}")
  endif()
  run(${CMAKE_COMMAND} --build ${build})
elseif(MODE STREQUAL "pkg-config")
  find_program(PKG_CONFIG NAMES pkg-config pkgconf REQUIRED)
  set(search "${libdir}/pkgconfig")
  set(environment PKG_CONFIG_PATH=${search})
  if(TOOLCHAIN_FILE)
    # Only the target's .pc files: tcl8.6.pc as the target's Tcl package
    # would have it, for the Tcl the cross build was made with.
    get_filename_component(tcl_libdir "${TCL_LIBRARY}" DIRECTORY)
    file(WRITE "${WORK_DIR}/target-pc/tcl8.6.pc"
      "Name: Tcl\nDescription: Tcl 8.6 of the target\nVersion: 8.6\n"
      "Cflags: -I${TCL_INCLUDE_DIR}\nLibs: -L${tcl_libdir} -ltcl8.6\n")
    set(environment PKG_CONFIG_LIBDIR=${search}:${WORK_DIR}/target-pc)
  endif()
  run(${CMAKE_COMMAND} -E env ${environment} ${PKG_CONFIG} --variable=string_abi dbg)
  if(NOT output STREQUAL "${STRING_ABI}\n")
    message(FATAL_ERROR "dbg.pc says the ABI is '${output}', not ${STRING_ABI}")
  endif()
  # The output lock needs libpthread loaded where the C library is older
  # than 2.34: the module links -pthread.
  run(${CMAKE_COMMAND} -E env ${environment} ${PKG_CONFIG} --libs dbg)
  if(NOT output MATCHES "(^| )-pthread( |\n|$)")
    message(FATAL_ERROR "pkg-config --libs dbg lacks -pthread: ${output}")
  endif()
  file(MAKE_DIRECTORY "${build}")
  run(${CMAKE_COMMAND} -E env ${environment}
      make -C ${build} -f ${example}/Makefile VPATH=${example} PKG_CONFIG=${PKG_CONFIG} CXX=${CXX}
      "CXXFLAGS=-O2 ${warnings}" "LDFLAGS=${BUILD_LINK_FLAGS}")
else()
  message(FATAL_ERROR "unknown MODE ${MODE}")
endif()

# The module's undefined symbols name std::__cxx11 only in the cxx11 ABI.
run(${NM} -D -C --undefined-only ${build}/module)
string(FIND "${output}" "std::__cxx11::" found)
if(STRING_ABI STREQUAL "legacy" AND NOT found EQUAL -1)
  message(FATAL_ERROR "the module is to be in the legacy ABI, yet needs:\n${output}")
elseif(STRING_ABI STREQUAL "cxx11" AND found EQUAL -1)
  message(FATAL_ERROR "the module is to be in the cxx11 ABI, yet needs no std::__cxx11 symbol:\n${output}")
endif()

# The module runs against the staged libraries only.
set(library_path "${libdir}")
if(TCL_LIBRARY)
  get_filename_component(tcl_libdir "${TCL_LIBRARY}" DIRECTORY)
  string(APPEND library_path ":${tcl_libdir}")
endif()
if(EMULATOR)
  # qemu-user gives the variable to the target program only.
  set(command ${EMULATOR} -E LD_LIBRARY_PATH=${library_path} ${build}/module)
else()
  set(command ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${library_path} ${build}/module)
endif()
execute_process(COMMAND ${command} ${WORK_DIR}/module.trace
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the module failed (${result}): ${errors}")
endif()
file(READ "${example}/expected-output.txt" expected)
if(NOT output STREQUAL expected)
  message(FATAL_ERROR "the module wrote\n[${output}]\nnot\n[${expected}]")
endif()
if(errors)
  message(FATAL_ERROR "the module complained: ${errors}")
endif()
file(REMOVE_RECURSE "${WORK_DIR}")
message(STATUS "${MODE}: the module's output is as expected")
