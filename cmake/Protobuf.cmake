# Message classes from .proto files, on the lite runtime.

# korvid_proto(NAME DIR FILE.proto [LINKS ...]): a library of the classes generated from DIR/FILE.proto.
function(korvid_proto name dir file)
    cmake_parse_arguments(PROTO "" "" "LINKS" ${ARGN})
    string(REGEX REPLACE "\\.proto$" "" stem ${file})
    set(out ${CMAKE_BINARY_DIR}/generated/${name})
    file(MAKE_DIRECTORY ${out})
    add_custom_command(
        OUTPUT ${out}/${stem}.pb.cc ${out}/${stem}.pb.h
        COMMAND protobuf::protoc --cpp_out=${out} -I ${CMAKE_SOURCE_DIR}/src/platform -I ${dir} ${dir}/${file}
        DEPENDS ${dir}/${file}
        VERBATIM)
    add_library(${name} STATIC ${out}/${stem}.pb.cc ${out}/${stem}.pb.h)
    target_include_directories(${name} SYSTEM PUBLIC ${out})
    target_link_libraries(${name} PUBLIC protobuf::libprotobuf-lite ${PROTO_LINKS})
endfunction()
