# Builds the programs over another platform library than ours, and runs them.
unset(ENV{SOURCE_DATE_EPOCH})

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

# A program that is linked again tells the new time.
function(read_version variable)
    execute_process(COMMAND ${EMULATOR} ${SCRATCH}/bin/korvid-monitor -v
        OUTPUT_VARIABLE version COMMAND_ERROR_IS_FATAL ANY)
    set(${variable} "${version}" PARENT_SCOPE)
endfunction()
read_version(before)
file(REMOVE ${SCRATCH}/bin/korvid-monitor)
run(${CMAKE_COMMAND} -E sleep 1)
run(${CMAKE_COMMAND} --build ${SCRATCH})
read_version(after)
if(NOT before OR before STREQUAL after)
    message(FATAL_ERROR "Linked again: ${after}")
endif()
