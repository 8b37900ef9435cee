# Compares the highest symbol versions libdbg.so needs of each system
# library (GLIBC_, GLIBCXX_, CXXABI_, GCC_) with the committed list: what
# the board's C library, libstdc++ and libgcc must provide at least.
# Usage: cmake -DREADELF=<readelf> -DLIBRARY=<libdbg.so> -DEXPECTED=<list>
#              [-DAT_MOST=ON | -DUPDATE=ON] -P CheckSymbolVersions.cmake
# A line of the list is "<library> <highest version node>", for instance
# "libstdc++.so.6 GLIBCXX_3.4.20". The list is the shipped library's, built
# optimised: an unoptimised build calls out of line what the optimised one
# inlines, and the other way round, so it is held to AT_MOST those versions.
include(${CMAKE_CURRENT_LIST_DIR}/AbiRecord.cmake)

execute_process(COMMAND ${READELF} -V -W ${LIBRARY}
  OUTPUT_VARIABLE listing RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${READELF} failed on ${LIBRARY}")
endif()

# The version needs section: a "File: <library>" line, then one
# "Name: <node>" line per version node needed from it.
string(REGEX REPLACE "^.*'\\.gnu\\.version_r'" "" needs "${listing}")
string(REPLACE "\n" ";" lines "${needs}")
set(families "")
foreach(line IN LISTS lines)
  if(line MATCHES "File: ([^ ]+)")
    set(file "${CMAKE_MATCH_1}")
  elseif(line MATCHES "Name: ([A-Za-z_]+)_([0-9][0-9.]*) ")
    # One family per library and prefix; keep its highest version.
    set(family "${file} ${CMAKE_MATCH_1}")
    string(MAKE_C_IDENTIFIER "${family}" key)
    if(NOT DEFINED highest_${key})
      list(APPEND families "${family}")
      set(highest_${key} "${CMAKE_MATCH_2}")
    elseif(CMAKE_MATCH_2 VERSION_GREATER highest_${key})
      set(highest_${key} "${CMAKE_MATCH_2}")
    endif()
  endif()
endforeach()
set(actual "")
foreach(family IN LISTS families)
  string(MAKE_C_IDENTIFIER "${family}" key)
  list(APPEND actual "${family}_${highest_${key}}")
endforeach()
if(NOT actual)
  message(FATAL_ERROR "${LIBRARY} needs no versioned symbol at all: not a library of this build?")
endif()
list(SORT actual)
list(JOIN actual "\n" actual_text)
set(actual_text "${actual_text}\n")

dbg_update_or_require_record("${actual_text}" ${EXPECTED})

if(AT_MOST)
  file(STRINGS ${EXPECTED} expected)
  set(newer "")
  foreach(needed IN LISTS actual)
    string(REGEX REPLACE "_[0-9.]+$" "" family "${needed}")
    string(REGEX REPLACE "^.*_" "" version "${needed}")
    set(limit "")
    foreach(line IN LISTS expected)
      string(REGEX REPLACE "_[0-9.]+$" "" committed_family "${line}")
      if(committed_family STREQUAL family)
        string(REGEX REPLACE "^.*_" "" limit "${line}")
      endif()
    endforeach()
    if(limit STREQUAL "" OR version VERSION_GREATER limit)
      list(APPEND newer "${needed}")
    endif()
  endforeach()
  if(newer)
    list(JOIN newer "\n  " newer)
    message(FATAL_ERROR "libdbg.so needs newer symbol versions than ${EXPECTED} names:\n  ${newer}\n"
      "A higher one shuts out the boards whose system libraries are older; a deliberate change: ./run update-abi")
  endif()
  message(STATUS "libdbg.so needs no newer symbol versions than ${EXPECTED} names")
  return()
endif()

get_filename_component(directory ${LIBRARY} DIRECTORY)
dbg_compare_record("${actual_text}" ${EXPECTED} ${directory}
  "libdbg.so needs other symbol versions than ${EXPECTED}: a higher one shuts out the boards whose system libraries are older")
message(STATUS "libdbg.so needs exactly the highest symbol versions ${EXPECTED} names")
