# Compares the dynamic symbols libdbg.so exports with the committed list.
# Usage: cmake -DNM=<nm> -DLIBRARY=<libdbg.so> -DPOINTER_SIZE=<bytes>
#              -DSTRING_ABI=cxx11|legacy -DEXPECTED=<list> [-DUPDATE=ON]
#              -P CheckExportedSymbols.cmake
# A vtable is listed with its number of entries, so an added, removed or
# moved virtual function shows too. A library of the legacy std::string ABI
# names no cxx11 string anywhere, in the list or in what it exports.
include(${CMAKE_CURRENT_LIST_DIR}/AbiRecord.cmake)

execute_process(COMMAND ${NM} -D -C -S --defined-only ${LIBRARY}
  OUTPUT_VARIABLE listing RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
endif()

# "<address> <size> <type> <name>" becomes "code <name>" or "data <name>": the type
# letters of data differ between architectures (small-data sections).
string(REPLACE "\n" ";" lines "${listing}")
set(actual "")
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-fA-F]+ ([0-9a-fA-F]+ )?([A-Za-z]) (.*)$")
    set(size "${CMAKE_MATCH_1}")
    set(type "${CMAKE_MATCH_2}")
    set(name "${CMAKE_MATCH_3}")
    if(name MATCHES "^vtable for ")
      string(STRIP "${size}" size)
      math(EXPR entries "0x${size} / ${POINTER_SIZE}")
      string(APPEND name " [${entries} entries]")
    endif()
    set(kind data)
    if(type MATCHES "^[TtWi]$")
      set(kind code)
    endif()
    list(APPEND actual "${kind} ${name}")
  endif()
endforeach()
list(SORT actual)
list(JOIN actual "\n" actual_text)
set(actual_text "${actual_text}\n")

if(STRING_ABI STREQUAL "legacy")
  set(cxx11_names "${actual}")
  list(FILTER cxx11_names INCLUDE REGEX "__cxx11|abi:cxx11")
  if(cxx11_names)
    list(JOIN cxx11_names "\n  " cxx11_names)
    message(FATAL_ERROR "${LIBRARY} is to be in the legacy std::string ABI, yet exports\n  ${cxx11_names}")
  endif()
elseif(NOT STRING_ABI STREQUAL "cxx11")
  message(FATAL_ERROR "STRING_ABI is '${STRING_ABI}', not cxx11 or legacy")
endif()

dbg_update_or_require_record("${actual_text}" ${EXPECTED})
get_filename_component(directory ${LIBRARY} DIRECTORY)
dbg_compare_record("${actual_text}" ${EXPECTED} ${directory} "libdbg.so exports a different interface than ${EXPECTED}")
list(LENGTH actual count)
message(STATUS "libdbg.so exports exactly the ${count} committed symbols")
