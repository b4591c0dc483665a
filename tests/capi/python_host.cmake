# Runs the Python host against libiam and checks what it saw: the display requests through the
# callback, the store link opened, and statistics equal to those of the same journey played
# through the C++ API by `iam simulate`.
execute_process(COMMAND ${PYTHON} ${SOURCE_DIR}/examples/python/host.py ${LIBRARY} ${TOOL}
  OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc TIMEOUT 100)
if(rc)
  message(FATAL_ERROR "host.py failed (${rc}):\n${out}\n${err}")
endif()
foreach(expected
    "display rate-after-level (trigger first-level) shown by the host"
    "open https://apps.example.com/app/puzzles"
    "display notes-in-shop (trigger shop-visit) shown by the host")
  string(FIND "${out}" "${expected}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "host.py did not print \"${expected}\":\n${out}")
  endif()
endforeach()
if(NOT out MATCHES "\nstats ([^\n]+)")
  message(FATAL_ERROR "host.py printed no statistics:\n${out}")
endif()
set(python_stats "${CMAKE_MATCH_1}")

execute_process(COMMAND ${TOOL} simulate --json --campaign ${SOURCE_DIR}/examples/python/campaign.json
    --journey ${SOURCE_DIR}/examples/python/journey.jsonl
  OUTPUT_VARIABLE timeline RESULT_VARIABLE rc TIMEOUT 100)
if(rc OR NOT timeline MATCHES "\n({[^\n]*\"kind\":\"stats\"[^\n]*})")
  message(FATAL_ERROR "iam simulate failed (${rc}):\n${timeline}")
endif()
set(cpp_stats "${CMAKE_MATCH_1}")
foreach(key advertisements events launches)
  string(JSON a GET "${python_stats}" ${key})
  string(JSON b GET "${cpp_stats}" ${key})
  string(JSON same EQUAL "${a}" "${b}")
  if(NOT same)
    message(FATAL_ERROR "${key} differ: through C ${a}, through C++ ${b}")
  endif()
endforeach()
