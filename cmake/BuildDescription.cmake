# Writes the source of the build description. Run at every build:
#
#   cmake -DSOURCE=DIR -DVERSION=1.2.3 -DTYPE=Debug -DOUTPUT=FILE.cpp -P BuildDescription.cmake
#
# The file is touched only when it tells something new, so that a build of nothing links nothing.
# SOURCE_DATE_EPOCH in the environment takes the place of the time of the build.

# git_answer(VARIABLE ARGUMENTS...): git's answer about SOURCE itself, empty when it has none; a
# directory above it that is under version control has nothing to say. Somebody else's checkout is
# asked about like our own: nothing of it is run.
function(git_answer variable)
    set(${variable} "" PARENT_SCOPE)
    if(NOT EXISTS ${SOURCE}/.git)
        return()
    endif()
    execute_process(COMMAND git -c safe.directory=${SOURCE} -C ${SOURCE} ${ARGN}
        OUTPUT_VARIABLE answer ERROR_VARIABLE cause RESULT_VARIABLE result
        OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_STRIP_TRAILING_WHITESPACE)
    if(result EQUAL 0)
        string(REGEX REPLACE "\n.*" "" answer "${answer}")
        set(${variable} "${answer}" PARENT_SCOPE)
    else()
        set(git_refusal "${result} ${cause}" PARENT_SCOPE)
    endif()
endfunction()

git_answer(commit rev-parse --verify HEAD)
if(EXISTS ${SOURCE}/.git AND NOT commit)
    message(WARNING "The build description will not name the commit: git: ${git_refusal}")
endif()
git_answer(branch symbolic-ref --quiet --short HEAD)
if(commit AND NOT branch)  # a detached checkout: what else has this commit's name
    git_answer(branch for-each-ref --points-at HEAD --format=%\(refname:short\)
               refs/heads refs/tags refs/remotes)
    if(NOT branch)
        set(branch detached)
    endif()
endif()
if(NOT commit)
    set(commit 0000000)
    set(branch unknown)
endif()
string(SUBSTRING ${commit} 0 7 commit)
string(TOUPPER "${TYPE}" type)
if(NOT type)
    set(type NONE)
endif()

set(epoch "$ENV{SOURCE_DATE_EPOCH}")
set(date_command date "+%Y-%m-%d %H:%M:%S %z")
if(epoch MATCHES "^[0-9]+$")
    set(date_command date -u -d @${epoch} "+%Y-%m-%d %H:%M:%S %z")
endif()

set(facts "// The build of ${branch} ${VERSION} ${commit} ${type} ${epoch}")
if(EXISTS ${OUTPUT})
    file(STRINGS ${OUTPUT} written LIMIT_COUNT 1)
    if(written STREQUAL facts)
        return()
    endif()
endif()

execute_process(COMMAND ${date_command} OUTPUT_VARIABLE time OUTPUT_STRIP_TRAILING_WHITESPACE
    COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE "\"" "\\\"" branch "${branch}")
file(WRITE ${OUTPUT} "${facts}
#include \"program/build_description.h\"

const char* const program::build_description =
    \"${branch} - ${VERSION} - ${commit} - ${time} - ${type}\";
")
