# What the scripts of the binary interface's records share: each builds the
# built library's text of its record, then has it written or compared.

# With UPDATE, writes `text` into the committed `record` and ends the
# script; otherwise the record must be there.
macro(dbg_update_or_require_record text record)
  if(UPDATE)
    file(WRITE ${record} "${text}")
    message(STATUS "wrote ${record}")
    return()
  endif()
  if(NOT EXISTS ${record})
    message(FATAL_ERROR "No committed record for this variant: ${record} (./run update-abi writes it)")
  endif()
endmacro()

# Fails, showing the difference, when `text` of the library in `directory`
# is not the committed `record`; `what` says what differs.
function(dbg_compare_record text record directory what)
  file(READ ${record} committed)
  if(NOT text STREQUAL committed)
    get_filename_component(name ${record} NAME)
    file(WRITE ${directory}/${name}.built "${text}")
    execute_process(COMMAND diff -u ${record} ${directory}/${name}.built)
    message(FATAL_ERROR "${what} (diff above: - committed, + built). A deliberate change: ./run update-abi")
  endif()
endfunction()
