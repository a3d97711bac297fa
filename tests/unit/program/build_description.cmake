# The build description follows what it describes, and its file is left alone in between.

set(source ${SCRATCH}/source)
set(output ${SCRATCH}/description.cpp)
file(REMOVE_RECURSE ${SCRATCH})
file(MAKE_DIRECTORY ${source})

function(expect pattern)
    execute_process(COMMAND ${CMAKE_COMMAND} -DSOURCE=${source} -DVERSION=1.2.3 -DTYPE=Debug
                            -DOUTPUT=${output} -P ${SCRIPT}
        COMMAND_ERROR_IS_FATAL ANY)
    file(READ ${output} text)
    if(NOT text MATCHES "\n    \"${pattern} - DEBUG\";\n$")
        message(FATAL_ERROR "Instead of ${pattern}:\n${text}")
    endif()
endfunction()

function(git)
    execute_process(COMMAND git -C ${source} -c user.name=n -c user.email=e ${ARGN}
        COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

set(ENV{SOURCE_DATE_EPOCH} 86399)
set(ENV{TZ} IST-5:30)
expect("unknown - 1[.]2[.]3 - 0000000 - 1970-01-01 23:59:59 [+]0000")
unset(ENV{SOURCE_DATE_EPOCH})
expect("unknown - 1[.]2[.]3 - 0000000 - 20[0-9-]+ [0-9:]+ [+]0530")

git(init --quiet --initial-branch=a/branch)
git(commit --quiet --allow-empty -m first)
execute_process(COMMAND git -C ${source} rev-parse HEAD OUTPUT_VARIABLE commit)
string(SUBSTRING ${commit} 0 7 commit)
expect("a/branch - 1[.]2[.]3 - ${commit} - .*")

file(APPEND ${output} "    \"left alone - DEBUG\";\n")
expect("left alone")
git(checkout --quiet --detach)
expect("a/branch - 1[.]2[.]3 - ${commit} - .*")
git(commit --quiet --allow-empty -m second)
expect("detached - 1[.]2[.]3 - [0-9a-f]+ - .*")
execute_process(COMMAND id -u OUTPUT_VARIABLE user OUTPUT_STRIP_TRAILING_WHITESPACE)
if(user EQUAL 0)  # only root can give it away
    execute_process(COMMAND chown -R nobody ${source} COMMAND_ERROR_IS_FATAL ANY)
    expect("detached - 1[.]2[.]3 - [0-9a-f]+ - .*")
endif()
