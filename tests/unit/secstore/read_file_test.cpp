#include "over_fake_lapi.h"
#include "secstore/sec_store.h"

namespace {

struct FileLoader : OverFakeLapi {
    FileLoader() { lapi.log_level = ecu::lapi::logging::LEVEL_DEBUG; }
};

TEST_F(FileLoader, ReturnsEveryByteWithoutWastingMemory) {
    std::string bytes(" \r\n\0\xff", 5);
    for (int i = 0; bytes.size() < 1'000'000; ++i) bytes += std::to_string(i);
    const std::string content = SecStore::read_file_to_str(write_file(bytes));
    EXPECT_TRUE(content == bytes);
    EXPECT_EQ(content.capacity(), bytes.size());
    const std::string size = std::to_string(bytes.size());
    EXPECT_EQ(lapi.records, (Strings{"DEBUG: Tellg size for provided file: " + size,
                                     "INFO: Read " + size + " bytes from file: " + path}));
}

TEST_F(FileLoader, SurvivesSizesThatAreNone) {
    EXPECT_NE(SecStore::read_file_to_str("/proc/self/status"), "");
    EXPECT_EQ(SecStore::read_file_to_str(testing::TempDir()), "");
    EXPECT_EQ(lapi.records.back(), "INFO: Read 0 bytes from file: " + testing::TempDir());
}

}  // namespace
