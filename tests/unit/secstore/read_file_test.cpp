#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <thread>

#include "lapi_fake.h"
#include "secstore/sec_store.h"

namespace {

using Strings = std::vector<std::string>;

class FileLoader : public testing::Test {
protected:
    void SetUp() override {
        fake::reset();
        ecu::lapi::logging::configure_logging("DEBUG");
    }
    void TearDown() override { std::remove(path.c_str()); }

    const std::string path = testing::TempDir() + "a file of " + std::to_string(getpid());
};

TEST_F(FileLoader, ReturnsEveryByteWithoutWastingMemory) {
    std::string bytes(" \r\n\0\xff", 5);
    for (int i = 0; bytes.size() < 1'000'000; ++i) bytes += std::to_string(i);
    std::ofstream(path, std::ios::binary) << bytes;
    const std::string content = SecStore::read_file_to_str(path);
    EXPECT_TRUE(content == bytes);
    EXPECT_EQ(content.capacity(), bytes.size());
    const std::string size = std::to_string(bytes.size());
    EXPECT_EQ(fake::lapi().records, (Strings{"DEBUG: Tellg size for provided file: " + size,
                                             "INFO: Read " + size + " bytes from file: " + path}));
}

TEST_F(FileLoader, ReportsAMissingFile) {
    EXPECT_EQ(SecStore::read_file_to_str(path), "");
    EXPECT_EQ(fake::lapi().records, Strings{"INFO: The file " + path + " could not be open!"});
}

TEST_F(FileLoader, ReadsAPipeToItsEnd) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const std::string bytes(3'000'000, 'p');
    std::thread writer([&] { std::ofstream(path) << bytes; });
    EXPECT_TRUE(SecStore::read_file_to_str(path) == bytes);
    writer.join();
    EXPECT_EQ(fake::lapi().records.front(), "DEBUG: Tellg size for provided file: -1");
}

TEST_F(FileLoader, ReadsMoreThanTheSizeTells) {
    EXPECT_NE(SecStore::read_file_to_str("/proc/self/status"), "");
}

TEST_F(FileLoader, SurvivesADirectory) {
    EXPECT_EQ(SecStore::read_file_to_str(testing::TempDir()), "");
    EXPECT_EQ(fake::lapi().records.back(), "INFO: Read 0 bytes from file: " + testing::TempDir());
}

}  // namespace
