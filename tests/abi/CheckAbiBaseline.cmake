# Compares the binary interface of libdbg.so, as libabigail reads it from the
# library's DWARF (types, sizes, offsets, vtables, parameters), with the
# committed baseline of its variant.
# Usage: cmake -DABIDW=<abidw> -DABIDIFF=<abidiff> -DLIBRARY=<libdbg.so>
#              -DSOURCE_DIR=<checkout> -DBASELINE=<baseline> [-DUPDATE=ON]
#              -P CheckAbiBaseline.cmake
# The baseline is the same on every machine and in every build directory:
# no corpus or compilation path, no source location, type ids by hash, the
# translation units named relative to the checkout.
include(${CMAKE_CURRENT_LIST_DIR}/AbiRecord.cmake)

get_filename_component(directory ${LIBRARY} DIRECTORY)
set(actual ${directory}/libdbg.actual.abi)
execute_process(COMMAND ${ABIDW} --no-corpus-path --no-comp-dir-path --no-show-locs
                        --type-id-style hash --drop-undefined-syms --out-file ${actual} ${LIBRARY}
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${ABIDW} failed on ${LIBRARY} (status ${status}): built without -g?")
endif()
file(READ ${actual} text)
string(REPLACE "'${SOURCE_DIR}/" "'" text "${text}")
file(WRITE ${actual} "${text}")

dbg_update_or_require_record("${text}" ${BASELINE})
# Any status but 0 fails: a bit mask where 4 is a change abidiff deems
# compatible (an added function, say) and 8 an incompatible one; a flip of
# the std::string ABI gives 12.
execute_process(COMMAND ${ABIDIFF} ${BASELINE} ${actual} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "abidiff status ${status}: libdbg.so's binary interface differs from ${BASELINE} "
    "(report above: the baseline first, the build second). A deliberate change: ./run update-abi")
endif()
message(STATUS "libdbg.so has the binary interface of ${BASELINE}")
