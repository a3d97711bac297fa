# What a build needs. Whatever is missing is told at once, with Debian's name of it.

set(missing "")

# korvid_need(VARIABLE WHAT PACKAGE): WHAT is missing, and is in Debian's PACKAGE, unless VARIABLE is true.
function(korvid_need variable what package)
    if(NOT ${variable})
        set(missing "${missing}\n  ${what} (on Debian: apt install ${package})" PARENT_SCOPE)
    endif()
endfunction()

find_program(KORVID_SCDOC scdoc)
korvid_need(KORVID_SCDOC "scdoc, which makes the manual pages" scdoc)
find_package(Protobuf 3.21 QUIET)
korvid_need(Protobuf_FOUND "Protocol Buffers 3.21 or later, the C++ library" libprotobuf-dev)
korvid_need(Protobuf_PROTOC_EXECUTABLE "protoc, the compiler of Protocol Buffers" protobuf-compiler)
find_path(RAPIDJSON_INCLUDE_DIR rapidjson/reader.h)
korvid_need(RAPIDJSON_INCLUDE_DIR "RapidJSON" rapidjson-dev)
find_path(RAPIDJSON_INCLUDE_DIR rapidjson/reader.h)
korvid_need(RAPIDJSON_INCLUDE_DIR "RapidJSON" rapidjson-dev)

if(KORVID_LAPI STREQUAL "mqtt")
    find_package(OpenSSL 3.0 QUIET)
    korvid_need(OPENSSL_FOUND "OpenSSL 3.0 or later" libssl-dev)
    find_package(PkgConfig QUIET)
    korvid_need(PKG_CONFIG_FOUND "pkg-config" pkg-config)
    pkg_check_modules(MOSQUITTO QUIET IMPORTED_TARGET libmosquitto>=2.0.11)
    korvid_need(MOSQUITTO_FOUND "libmosquitto 2.0.11 or later" libmosquitto-dev)
    pkg_check_modules(SQLite QUIET IMPORTED_TARGET sqlite3>=3.40)
    korvid_need(SQLite_FOUND "SQLite 3.40 or later" libsqlite3-dev)
endif()

if(KORVID_TESTS)
    find_package(GTest QUIET)
    korvid_need(GTest_FOUND "GoogleTest with GoogleMock, unless KORVID_TESTS is OFF" libgmock-dev)
    find_program(KORVID_PYTHON python3)
    korvid_need(KORVID_PYTHON "Python 3, unless KORVID_TESTS is OFF" python3)
endif()

if(missing)
    message(FATAL_ERROR "korvid cannot be built without:${missing}")
endif()
