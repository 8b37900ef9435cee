# Fails when a shipped IMC stand-in carries test machinery: cmake -P with
#   LIBRARY  the libimc.so to look at (stripped or not)
#   NM       the nm of the library's architecture
# Call records and injected faults belong to the test library (tests/support/
# ImcProbe); the shipped manager only calls a probe, and none is installed.
# Looked at: the dynamic symbols (nm -D --defined-only), every symbol a
# non-stripped library still has, the local ones too (nm -C), and the
# library's text for the fault's message.
cmake_minimum_required(VERSION 3.25)

foreach(required LIBRARY NM)
  if(NOT DEFINED ${required} OR "${${required}}" STREQUAL "")
    message(FATAL_ERROR "${required} is not given")
  endif()
endforeach()

# Demangled names of the recording and fault code: Fault, injectFault,
# clearFaults, InjectedFault, dueFault; setRecording, RecordingProbe; the
# record function; the call record and its operations.
set(test_code_patterns
  "Fault"
  "[Rr]ecording"
  "(^|[^A-Za-z_])record\\("
  "imc_standin::(Call|calls|clearCalls|Operation)([^A-Za-z_]|$)")

set(found "")
foreach(options "-D;--defined-only;-C" "-C")
  execute_process(COMMAND ${NM} ${options} ${LIBRARY}
    RESULT_VARIABLE result OUTPUT_VARIABLE symbols ERROR_VARIABLE errors)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${NM} ${options} ${LIBRARY} failed (${result}): ${errors}")
  endif()
  string(REPLACE "\n" ";" symbols "${symbols}")
  foreach(symbol IN LISTS symbols)
    foreach(pattern IN LISTS test_code_patterns)
      if(symbol MATCHES "${pattern}")
        list(APPEND found "${symbol}")
        break()
      endif()
    endforeach()
  endforeach()
endforeach()
file(STRINGS ${LIBRARY} messages REGEX "injected fault")
list(APPEND found ${messages})

if(found)
  list(REMOVE_DUPLICATES found)
  list(LENGTH found count)
  list(SUBLIST found 0 20 shown)
  list(JOIN shown "\n  " shown)
  message(FATAL_ERROR "${LIBRARY} carries test code (${count} symbols or texts), among them:\n  ${shown}")
endif()
message(STATUS "${LIBRARY}: no recording or fault code")
