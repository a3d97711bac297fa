# Warnings, sanitizers, hardening and the link of a release.

find_package(Threads REQUIRED)

# What every module of ours is compiled with; generated code is not.
add_library(korvid_warnings INTERFACE)
target_compile_options(korvid_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${KORVID_WERROR}>:-Werror>)

# Where time has 32 bits unless 64 are asked for, it would end in 2038.
include(CheckTypeSize)
set(CMAKE_EXTRA_INCLUDE_FILES ctime)
check_type_size(std::time_t TIME_T_SIZE LANGUAGE CXX)
unset(CMAKE_EXTRA_INCLUDE_FILES)
if(TIME_T_SIZE EQUAL 4)
    add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

if(KORVID_SANITIZE)
    add_compile_options(-fsanitize=${KORVID_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${KORVID_SANITIZE})
endif()

# What a stranger's bytes might overwrite ends the program instead of serving the stranger. In every
# build but the sanitizers', which bring checks of their own; tools/check-hardening looks for it.
if(NOT KORVID_SANITIZE)
    include(CheckCXXCompilerFlag)
    set(KORVID_HARDENING -fPIE -fstack-protector-strong)
    # The last two are of x86 and of arm64.
    foreach(flag -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
        string(MAKE_C_IDENTIFIER "KORVID_HAS${flag}" has)
        check_cxx_compiler_flag(${flag} ${has})
        if(${has})
            list(APPEND KORVID_HARDENING ${flag})
        endif()
    endforeach()
    if(CMAKE_BUILD_TYPE MATCHES "^Rel")  # it takes an optimising build
        list(APPEND KORVID_HARDENING -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
    endif()
    add_compile_options(${KORVID_HARDENING})
    add_link_options(-pie -Wl,-z,relro,-z,now,-z,noexecstack)
endif()

# The C++ runtimes are linked statically into a release: a cold start is a third shorter.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT KORVID_SANITIZE)
    set(Protobuf_USE_STATIC_LIBS ON)
    set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
    add_compile_options(-ffunction-sections -fdata-sections)
    add_link_options(-static-libstdc++ -static-libgcc -Wl,--gc-sections)
    include(CheckLinkerFlag)  # for some targets the linker only warns that it knows no such thing
    check_linker_flag(CXX -Wl,--fatal-warnings,-z,pack-relative-relocs KORVID_HAS_RELR)
    if(KORVID_HAS_RELR)
        add_link_options(-Wl,-z,pack-relative-relocs)
    endif()
endif()

# korvid_describe(VARIABLE FILE.cpp): the command that writes a description of this build.
function(korvid_describe variable file)
    set(${variable} ${CMAKE_COMMAND} -DSOURCE=${CMAKE_SOURCE_DIR} -DVERSION=${PROJECT_VERSION}
        -DTYPE=${CMAKE_BUILD_TYPE} -DOUTPUT=${file} -P ${CMAKE_SOURCE_DIR}/cmake/BuildDescription.cmake
        PARENT_SCOPE)
endfunction()

# korvid_executable(NAME LINKS ...): the program of main.cpp. It shows the time of its own link: each link
# makes a new description, which takes the place of the one in a library. A release is built for size.
function(korvid_executable name)
    cmake_parse_arguments(EXECUTABLE "" "" "LINKS" ${ARGN})
    set(description ${CMAKE_BINARY_DIR}/generated/build_description/${name})
    korvid_describe(describe ${description}.cpp)
    add_executable(${name} main.cpp)
    add_custom_command(TARGET ${name} PRE_LINK
        COMMAND ${CMAKE_COMMAND} -E rm -f ${description}.cpp
        COMMAND ${describe}
        COMMAND ${CMAKE_CXX_COMPILER} -fPIE -I ${CMAKE_SOURCE_DIR}/src -c ${description}.cpp -o ${description}.o
        VERBATIM)
    target_link_options(${name} PRIVATE ${description}.o)
    target_link_libraries(${name} PRIVATE korvid_warnings ${EXECUTABLE_LINKS})
    target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-Os>)
endfunction()

# korvid_module(NAME [FAST] SOURCES... [LINKS ...]): a module of src/ as one library. A release is built for
# speed where each of a hundred thousand parameters passes (FAST), elsewhere for size.
function(korvid_module name)
    cmake_parse_arguments(MODULE "FAST" "" "SOURCES;LINKS" ${ARGN})
    add_library(${name} STATIC ${MODULE_SOURCES})
    target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
    target_link_libraries(${name} PRIVATE korvid_warnings PUBLIC ${MODULE_LINKS})
    target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:$<IF:$<BOOL:${MODULE_FAST}>,-O2,-Os>>)
endfunction()
