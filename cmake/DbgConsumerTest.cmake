# Installs a build into a staging directory (DESTDIR) and uses it the way a
# module does: cmake -P DbgConsumerTest.cmake with
#   MODE            find_package | pkg-config | runtime-component | imc-standin
#   BUILD_DIR       the library's build tree
#   SOURCE_DIR      the library's source tree (examples/module)
#   WORK_DIR        scratch directory, emptied first and removed on success
#   INSTALL_PREFIX  CMAKE_INSTALL_PREFIX of the build
#   LIBDIR          CMAKE_INSTALL_LIBDIR of the build
#   CXX             the build's C++ compiler (pkg-config mode)
#   NM              the nm of the build's architecture (imc-standin mode)
# and, for a cross build:
#   TOOLCHAIN_FILE  its toolchain file
#   SYSROOT_EXTRA   its DBG_PPC_SYSROOT_EXTRA, "|" between prefixes
#   EMULATOR        its CMAKE_CROSSCOMPILING_EMULATOR, "|" between words
#   TCL_INCLUDE_DIR, TCL_LIBRARY  the target Tcl the build used
# and BUILD_CXX_FLAGS, BUILD_LINK_FLAGS: the build's own flags, which the
# module shares (a sanitized library needs a sanitized program).
# The module's output must be examples/module/expected-output.txt, byte for
# byte.
cmake_minimum_required(VERSION 3.25)

foreach(required MODE BUILD_DIR SOURCE_DIR WORK_DIR INSTALL_PREFIX LIBDIR)
  if(NOT DEFINED ${required} OR "${${required}}" STREQUAL "")
    message(FATAL_ERROR "${required} is not given")
  endif()
endforeach()
string(REPLACE "|" ";" SYSROOT_EXTRA "${SYSROOT_EXTRA}")
string(REPLACE "|" ";" EMULATOR "${EMULATOR}")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${output}")
  endif()
endfunction()

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
if(MODE STREQUAL "find_package")
  set(arguments -S ${example} -B ${build} -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS=${warnings}"
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
  file(MAKE_DIRECTORY "${build}")
  run(${CMAKE_COMMAND} -E env ${environment}
      make -C ${build} -f ${example}/Makefile VPATH=${example} PKG_CONFIG=${PKG_CONFIG} CXX=${CXX}
      "CXXFLAGS=-O2 ${warnings}" "LDFLAGS=${BUILD_LINK_FLAGS}")
else()
  message(FATAL_ERROR "unknown MODE ${MODE}")
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
