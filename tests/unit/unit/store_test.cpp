#include "unit/store.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "unit/parameter_service.h"

namespace {

using ecu::lapi::com::Message;
using unit::SqliteError;
using unit::Store;

struct UnitStore : testing::Test {
    UnitStore() { std::filesystem::create_directories(folder); }
    ~UnitStore() override { std::filesystem::remove_all(folder); }
    const std::string folder = testing::TempDir() + "korvid-store-" + std::to_string(getpid());
    const std::string path = folder + "/unit?1%.db";
};

TEST_F(UnitStore, KeepsWhatAWriteLeavesOutAndFindsItAfterReopening) {
    unit::Entry whole, part;
    whole.set_otaid(0xffffffff);
    whole.set_did(1);
    whole.set_data(std::string("\0x", 2));
    part.set_otaid(0xffffffff);
    part.set_xcpid(2);
    Store(path).write({whole});
    Store(path).write({part});
    whole.MergeFrom(part);
    const auto found = Store(path).find(0xffffffff);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->SerializeAsString(), whole.SerializeAsString());
    EXPECT_FALSE(Store(path).find(1));
    EXPECT_EQ(Store(path).blob(), "");
    Store(path).replace_blob({1, 0});
    Store(path).replace_blob({0, 7});
    EXPECT_EQ(Store(path).blob(), std::string("\0\7", 2));
}

TEST_F(UnitStore, RefusesFilesThatAreNotItsOwn) {
    std::ofstream(path) << "not a database, but long enough to be taken for the header of one ...";
    EXPECT_THROW(Store store(path), SqliteError);
    std::filesystem::remove(path);
    unit::Database(path, unit::Database::Access::read_write).execute("CREATE TABLE t (x)");
    EXPECT_THROW(Store store(path), SqliteError);
}

TEST_F(UnitStore, AnswersRequestsInBytesOfTheProtocol) {
    Store store(path);
    unit::ParameterService service(store, {7});
    using Bytes = std::vector<std::uint8_t>;
    const auto write = [&](Bytes bytes) { return service.write(Message(bytes)).payload; };
    // Records 5 (data "a") and 7, which is read-only: one written, 7 refused.
    EXPECT_EQ(write({0x0a, 5, 8, 5, 0x22, 1, 'a', 0x0a, 2, 8, 7}), (Bytes{0x0a, 1, 7, 0x10, 1}));
    EXPECT_EQ(service.read(Message()).payload, (Bytes{0x0a, 5, 8, 5, 0x22, 1, 'a', 0x10, 1}));
    EXPECT_EQ(service.read(Message({0x0a, 1, 9})).payload, (Bytes{0x10, 0}));
    EXPECT_THROW(write({0x0a, 0}), std::runtime_error) << "a record without OTAID";
    EXPECT_THROW(write({0x0a, 9, 8}), std::runtime_error);
    EXPECT_THROW(service.read(Message({0xff})), std::runtime_error);
}

}  // namespace
