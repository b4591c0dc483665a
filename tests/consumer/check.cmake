# Installs the built library into a scratch prefix, then configures, builds and runs a host
# project that finds it with find_package.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix
  RESULT_VARIABLE rc OUTPUT_QUIET)
if(rc)
  message(FATAL_ERROR "install failed: ${rc}")
endif()
# internal/ headers are the library's own business; a host never sees them.
file(GLOB_RECURSE installed_internal LIST_DIRECTORIES true ${WORK_DIR}/prefix/include/*)
list(FILTER installed_internal INCLUDE REGEX "/internal(/|$)")
if(installed_internal)
  message(FATAL_ERROR "internal headers installed: ${installed_internal}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/consumer/project -B ${WORK_DIR}/build
  -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "consumer configure failed: ${rc}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "consumer build failed: ${rc}")
endif()
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "consumer run failed: ${rc}")
endif()
