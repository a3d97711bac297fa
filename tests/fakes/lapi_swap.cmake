# Builds the programs over another platform library than ours, and runs them.

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

run(${CMAKE_COMMAND} -S ${SOURCE} -B ${SCRATCH} -G ${GENERATOR} -DCMAKE_BUILD_TYPE=${TYPE}
    -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DKORVID_SANITIZE=${SANITIZE} -DKORVID_TESTS=OFF
    -DKORVID_LAPI=FakeLapi -DCMAKE_PREFIX_PATH=${CMAKE_CURRENT_LIST_DIR})
run(${CMAKE_COMMAND} --build ${SCRATCH})

# Runs a program and holds what it writes to a stream (OUTPUT or ERROR) against a pattern.
function(expect stream pattern program)
    execute_process(COMMAND ${EMULATOR} ${SCRATCH}/bin/${program} ${ARGN}
        ${stream}_VARIABLE written COMMAND_ERROR_IS_FATAL ANY)
    if(NOT written MATCHES "^${pattern}\n$")
        message(FATAL_ERROR "${program} wrote\n${written}")
    endif()
endfunction()

expect(OUTPUT "SysParam [(]288[)]:\n  OTAID: 288 .*: 'Hi'\n  .*: 0x48 0x69 " korvid get 0x120)
expect(ERROR "korvid-restore: differ: 40, same: 1, not in the dump: 0" korvid-restore -n ${SOURCE}/share/demo-unit.txt)
expect(OUTPUT "korvid-monitor: [^ ]+ - [0-9.]+ - [0-9a-f]+ - .* [+-][0-9]+ - [A-Z]+" korvid-monitor -v)
