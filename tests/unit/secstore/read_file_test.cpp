#include <gtest/gtest.h>

#include <fstream>

#include "secstore/sec_store.h"

namespace {

TEST(SecureStore, LoadsAFileWithoutWastingMemory) {
    const std::string path = testing::TempDir() + "file of " + std::to_string(getpid());
    std::ofstream(path) << std::string(1'000'000, 'x') << " \r\n";
    EXPECT_EQ(SecStore::read_file_to_str(path).capacity(), 1'000'003U);
    std::remove(path.c_str());
}

}  // namespace
