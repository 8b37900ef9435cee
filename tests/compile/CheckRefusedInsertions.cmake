# The output manager has no name for VCOM_OpeTyp, VCOM_Reason and
# VCOM_UAgent: inserting one into it must not compile (rather than print the
# number through operator<<(int)), while the same insertion into a sink must.
#
# Arguments: CXX, FLAGS and INCLUDES ("|"-separated), SOURCE.
string(REPLACE "|" ";" flags "${FLAGS}")
string(REPLACE "|" ";" includes "${INCLUDES}")
set(include_options "")
foreach(directory IN LISTS includes)
  if(directory)
    list(APPEND include_options "-I${directory}")
  endif()
endforeach()
# The diagnostics in plain ASCII quotes.
set(ENV{LC_ALL} C)

function(compile target value result diagnostics)
  execute_process(
    COMMAND ${CXX} ${flags} -std=c++17 -fsyntax-only ${include_options}
            -DTARGET=${target} -DVALUE=${value} ${SOURCE}
    RESULT_VARIABLE status ERROR_VARIABLE errors OUTPUT_VARIABLE errors)
  set(${result} ${status} PARENT_SCOPE)
  set(${diagnostics} "${errors}" PARENT_SCOPE)
endfunction()

foreach(value IN ITEMS VCOM_OpeTyp VCOM_Reason VCOM_UAgent)
  compile(DBG_Output ${value} status errors)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "inserting ${value} into a sink does not compile:\n${errors}")
  endif()
  compile(DBG_OutManager ${value} status errors)
  if(status EQUAL 0)
    message(FATAL_ERROR "inserting ${value} into the output manager compiles")
  endif()
  set(reason "use of deleted function 'DBG_OutManager& DBG_OutManager::operator<<(${value})'")
  string(FIND "${errors}" "${reason}" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "inserting ${value} into the output manager fails, but not with \"${reason}\":\n${errors}")
  endif()
  message(STATUS "${value}: refused by the output manager, taken by a sink")
endforeach()
