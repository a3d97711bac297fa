# Writes the source of the build description. Run at every build:
#
#   cmake -DSOURCE=DIR -DVERSION=1.2.3 -DTYPE=Debug -DOUTPUT=FILE.cpp -P BuildDescription.cmake
#
# The file is touched only when it tells something new, so that a build of nothing links nothing.
# SOURCE_DATE_EPOCH in the environment takes the place of the time of the build.

# git_answer(VARIABLE DEFAULT ARGUMENTS...): git's answer about SOURCE itself; a directory above it
# that is under version control has nothing to say.
function(git_answer variable default)
    set(${variable} ${default} PARENT_SCOPE)
    if(NOT EXISTS ${SOURCE}/.git)
        return()
    endif()
    execute_process(COMMAND git -C ${SOURCE} ${ARGN}
        OUTPUT_VARIABLE answer RESULT_VARIABLE result ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(result EQUAL 0 AND answer)
        set(${variable} ${answer} PARENT_SCOPE)
    endif()
endfunction()

git_answer(branch unknown rev-parse --abbrev-ref HEAD)
git_answer(commit 0000000 rev-parse HEAD)
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

set(facts "// ${branch} ${VERSION} ${commit} ${type} ${epoch}")
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
#include \"main/build_description.h\"

const char* const build_description =
    \"${branch} - ${VERSION} - ${commit} - ${time} - ${type}\";
")
