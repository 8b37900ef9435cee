# The output manager has no name for VCOM_OpeTyp, VCOM_Reason and
# VCOM_UAgent. Inserting one into it compiles, as it did for modules written
# against the original interface, and the compiler warns that the number
# goes in; the same insertion into a sink compiles without a word. Both in
# the oldest standard a module may use and in the build's.
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

function(compile standard target value result diagnostics)
  execute_process(
    COMMAND ${CXX} ${flags} -std=${standard} -Wall -Wextra -fsyntax-only ${include_options}
            -DTARGET=${target} -DVALUE=${value} ${SOURCE}
    RESULT_VARIABLE status ERROR_VARIABLE errors OUTPUT_VARIABLE errors)
  set(${result} ${status} PARENT_SCOPE)
  set(${diagnostics} "${errors}" PARENT_SCOPE)
endfunction()

foreach(standard IN ITEMS c++98 c++17)
  foreach(value IN ITEMS VCOM_OpeTyp VCOM_Reason VCOM_UAgent)
    compile(${standard} DBG_Output ${value} status errors)
    if(NOT status EQUAL 0 OR errors)
      message(FATAL_ERROR "${standard}: inserting ${value} into a sink is not clean (status ${status}):\n${errors}")
    endif()
    compile(${standard} DBG_OutManager ${value} status errors)
    if(NOT status EQUAL 0)
      message(FATAL_ERROR "${standard}: inserting ${value} into the output manager does not compile:\n${errors}")
    endif()
    set(warning "the output manager has no name for a ${value}: it writes the number (a sink writes the name)")
    string(FIND "${errors}" "${warning}" found)
    if(found EQUAL -1 OR NOT errors MATCHES "-Wdeprecated-declarations")
      message(FATAL_ERROR "${standard}: inserting ${value} into the output manager compiles without the warning \"${warning}\":\n${errors}")
    endif()
    message(STATUS "${standard}: ${value}: the output manager warns and takes the number, a sink takes it silently")
  endforeach()
endforeach()
