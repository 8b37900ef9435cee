# The records of libdbg.so's binary interface, committed in tests/abi/ per
# architecture and std::string ABI (the variant):
#   exported-symbols[-legacy-abi].txt      the symbols it exports (both
#                                          architectures share the list)
#   symbol-versions-<variant>.txt          the highest symbol versions it needs
#                                          of the C library, libstdc++ and
#                                          libgcc: what the board must have
#   libdbg-<variant>.abi                   libabigail's reading of its DWARF
# Each record is a script that compares the built library with it, or
# rewrites it with -DUPDATE=ON. Target check-abi compares every record this
# build has, update-abi rewrites them (./run update-abi: every variant);
# with the tests, each record is a test as well.
#
# Which build has which record: the symbol versions are those of the
# packaged library, exactly (an unoptimised build calls out of line what an
# optimised one inlines, and the other way round): every other build is held
# to no newer ones. The baseline needs DWARF and the plain code of a debug
# build.

set(dbg_abi_dir ${PROJECT_SOURCE_DIR}/tests/abi)
set(dbg_abi_variant ${CMAKE_SYSTEM_PROCESSOR})
set(dbg_abi_exported exported-symbols.txt)
if(DBG_LEGACY_STRING_ABI)
  string(APPEND dbg_abi_variant -legacy-abi)
  set(dbg_abi_exported exported-symbols-legacy-abi.txt)
endif()

set(dbg_abi_checks "")
set(dbg_abi_updates "")
# dbg_abi_record(<test name> <script> UPDATABLE|CHECK_ONLY <script arguments>...)
macro(dbg_abi_record test_name script updatable)
  set(dbg_abi_command ${CMAKE_COMMAND} -DLIBRARY=$<TARGET_FILE:dbg> ${ARGN} -P ${dbg_abi_dir}/${script})
  list(APPEND dbg_abi_checks COMMAND ${dbg_abi_command})
  if(${updatable} STREQUAL UPDATABLE)
    list(APPEND dbg_abi_updates COMMAND ${CMAKE_COMMAND} -DUPDATE=ON -DLIBRARY=$<TARGET_FILE:dbg> ${ARGN}
                                        -P ${dbg_abi_dir}/${script})
  endif()
  if(DBG_BUILD_TESTS AND NOT DBG_IMC_INCLUDE_DIR)
    add_test(NAME ${test_name} COMMAND ${dbg_abi_command})
  endif()
endmacro()

dbg_abi_record(ExportedSymbols.MatchTheCommittedList CheckExportedSymbols.cmake UPDATABLE
  -DNM=${CMAKE_NM} -DPOINTER_SIZE=${CMAKE_SIZEOF_VOID_P} -DSTRING_ABI=${DBG_STRING_ABI}
  -DEXPECTED=${dbg_abi_dir}/${dbg_abi_exported})

# Sanitizers add code of their own: neither record holds for what they build.
set(dbg_abi_sanitized FALSE)
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  set(dbg_abi_sanitized TRUE)
endif()

set(dbg_abi_versions -DREADELF=${CMAKE_READELF} -DEXPECTED=${dbg_abi_dir}/symbol-versions-${dbg_abi_variant}.txt)
if(DBG_INSTALL_DEBIAN_DOCS)
  dbg_abi_record(SymbolVersions.MatchTheCommittedFloors CheckSymbolVersions.cmake UPDATABLE ${dbg_abi_versions})
elseif(NOT dbg_abi_sanitized)
  dbg_abi_record(SymbolVersions.NoNewerThanTheCommittedFloors CheckSymbolVersions.cmake CHECK_ONLY
    ${dbg_abi_versions} -DAT_MOST=ON)
endif()

# The baselines are g++'s, the compiler the packages are built with: clang
# describes the same interface in other debugging information (its
# destructors, for one), which abidiff would report as a change.
if(CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT dbg_abi_sanitized AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  find_program(DBG_ABIDW abidw REQUIRED)
  find_program(DBG_ABIDIFF abidiff REQUIRED)
  dbg_abi_record(AbiBaseline.AbidiffFindsNoChange CheckAbiBaseline.cmake UPDATABLE
    -DABIDW=${DBG_ABIDW} -DABIDIFF=${DBG_ABIDIFF} -DSOURCE_DIR=${PROJECT_SOURCE_DIR}
    -DBASELINE=${dbg_abi_dir}/libdbg-${dbg_abi_variant}.abi)
endif()

add_custom_target(check-abi ${dbg_abi_checks} VERBATIM)
add_custom_target(update-abi ${dbg_abi_updates} VERBATIM)
add_dependencies(check-abi dbg)
add_dependencies(update-abi dbg)
