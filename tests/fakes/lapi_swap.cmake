# Builds the programs over another platform library than ours, and runs them.

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

run(${CMAKE_COMMAND} -S ${SOURCE} -B ${SCRATCH} -G ${GENERATOR} -DCMAKE_BUILD_TYPE=${TYPE}
    -DKORVID_SANITIZE=${SANITIZE} -DKORVID_TESTS=OFF
    -DKORVID_LAPI=FakeLapi -DCMAKE_PREFIX_PATH=${CMAKE_CURRENT_LIST_DIR})
run(${CMAKE_COMMAND} --build ${SCRATCH})

execute_process(COMMAND ${SCRATCH}/bin/korvid get 0x120
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
set(expected "SysParam (288):
  OTAID: 288 - 0x120
  DID: ff
  XCPID: a
  data(char) [2]: 'Hi'
  data(hex) [2]: 0x48 0x69 \n")
if(NOT output STREQUAL expected)
    message(FATAL_ERROR "korvid get 0x120 printed\n${output}")
endif()

execute_process(COMMAND ${SCRATCH}/bin/korvid-monitor -v ERROR_VARIABLE output
    COMMAND_ERROR_IS_FATAL ANY)
if(NOT output MATCHES "^korvid-monitor: [^ ]+ - [0-9.]+ - [0-9a-f]+ - .* [+-][0-9]+ - [A-Z]+\n$")
    message(FATAL_ERROR "korvid-monitor -v printed\n${output}")
endif()
