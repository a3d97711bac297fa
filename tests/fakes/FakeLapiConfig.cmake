# The package FakeLapi: a platform library other than ours, for -DKORVID_LAPI=FakeLapi.
add_subdirectory(${CMAKE_CURRENT_LIST_DIR} ${CMAKE_BINARY_DIR}/fakes)
add_library(ecu::lapi ALIAS fake_lapi)
