#include "unit/store/store.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "unit/parameter_service.h"

namespace {

using ecu::lapi::com::Message;
using unit::SqliteError;
using unit::Store;
using Bytes = std::vector<std::uint8_t>;

struct UnitStore : testing::Test {
    UnitStore() { std::filesystem::create_directories(folder); }
    ~UnitStore() override { std::filesystem::remove_all(folder); }
    bool opens() const try { return Store(path), true; } catch (const SqliteError&) {
        return false;
    }
    void execute(const std::string& sql) const {
        unit::Database(path, unit::Database::Access::read_write).execute(sql.c_str());
    }
    const std::string folder = testing::TempDir() + "korvid-store-" + std::to_string(getpid());
    const std::string path = folder + "/unit?1%.db";
};

TEST_F(UnitStore, IsNewOrWholeAfterFirstStartsThatCameAtOnceAndWereKilled) {
    for (unsigned round = 0; round < 60; ++round) {
        std::filesystem::remove(path);
        pid_t starts[2];
        for (auto& start : starts) {
            if ((start = fork()) == 0) _exit(opens() ? 0 : 1);
        }
        usleep(100 * round);
        kill(starts[0], SIGKILL);
        int status[2];
        for (const int i : {0, 1}) waitpid(starts[i], &status[i], 0);
        ASSERT_EQ(status[1], 0) << round;
        ASSERT_TRUE(opens()) << round;
    }
}

TEST_F(UnitStore, TakesNewFilesAndRefusesThoseThatAreNotItsOwn) {
    const char mark[] = "PRAGMA application_id = 1263948373;";
    const auto opens_after = [&](const std::string& sql, bool on_own) {
        std::filesystem::remove(path);
        if (on_own) Store store(path);
        execute(sql);
        return opens();
    };
    EXPECT_TRUE(opens_after("", false)) << "nothing in it";
    EXPECT_TRUE(opens_after("CREATE TABLE t (x); DROP TABLE t; VACUUM", false));
    EXPECT_TRUE(opens_after("ANALYZE", true));
    for (const std::string other :
         {"CREATE TABLE parameter (otaid)", "PRAGMA application_id = 7"}) {
        EXPECT_FALSE(opens_after(other, false)) << other;
        EXPECT_FALSE(opens_after(other + ";" + mark, false)) << other;
    }
    EXPECT_FALSE(
        opens_after("CREATE TRIGGER t AFTER INSERT ON secstore BEGIN SELECT 1; END", true));
    std::ofstream(path) << "not a database, but long enough to be taken for the header of one ...";
    EXPECT_FALSE(opens());
}

TEST_F(UnitStore, RunsNoTriggerThatWasAddedWhileItIsOpen) {
    Store store(path);
    execute("CREATE TRIGGER t AFTER INSERT ON secstore BEGIN DELETE FROM secstore; END");
    store.replace_blob({7});
    EXPECT_EQ(store.blob(), Bytes{7});
}

TEST_F(UnitStore, IsItsOwnersAndTakesNothingOnceAFileOfItIsGone) {
    for (const char* suffix : {"", "-wal", "-shm"}) {
        Store store(path);
        store.replace_blob({1});
        const std::string file = path + suffix;
        EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600))
            << file;
        std::filesystem::rename(file, folder + "/moved");
        std::ofstream(file) << "replacement";
        EXPECT_THROW(store.replace_blob({2}), std::runtime_error) << file;
        EXPECT_THROW(store.write({}), std::runtime_error) << file;
        EXPECT_EQ(store.blob(), Bytes{1}) << file;
        for (const char* gone : {"", "-wal", "-shm"}) std::filesystem::remove(path + gone);
        EXPECT_THROW(store.replace_blob({2}), std::runtime_error) << file;
        EXPECT_EQ(Store(file == path ? folder + "/moved" : path).blob(),
                  file == path ? Bytes{1} : Bytes());
    }
}

std::string removed_at_commit;

TEST_F(UnitStore, AcknowledgesNothingThatWentIntoAFileDeletedDuringTheCommit) {
    const auto remove_file = [](void*) { return std::filesystem::remove(removed_at_commit), 0; };
    static const auto hook = +remove_file;
    const auto add_hook = [](sqlite3* database, char**, const sqlite3_api_routines*) {
        sqlite3_commit_hook(database, hook, nullptr);
        return SQLITE_OK;
    };
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(+add_hook));
    Store store(path);
    sqlite3_reset_auto_extension();
    removed_at_commit = path;
    EXPECT_THROW(store.replace_blob({1}), std::runtime_error);
}

TEST_F(UnitStore, BoundsWhatOneRequestMayHold) {
    Store store(path);
    unit::ParameterService service(store, {});
    const auto repeated = [](const Bytes& unit, std::size_t count, Bytes all = {}) {
        for (; count > 0; --count) all.insert(all.end(), unit.begin(), unit.end());
        return Message(all);
    };
    const std::size_t max = 262'144, packed = max + 1;
    const Bytes head{0x0a, 0x81, 0x80, 0x10};  // a field of so many bytes
    EXPECT_EQ(service.write(repeated({0x0a, 2, 8, 5}, max)).payload,
              (Bytes{0x10, 0x80, 0x80, 0x10}));
    EXPECT_EQ(service.read(repeated({8, 5}, max)).payload, (Bytes{0x0a, 2, 8, 5, 0x10, 1}));
    EXPECT_THROW(service.write(repeated({0x0a, 2, 8, 5}, max + 1)), std::runtime_error);
    EXPECT_THROW(service.read(repeated({8, 5}, max + 1)), std::runtime_error);
    EXPECT_THROW(service.read(repeated({5}, packed, head)), std::runtime_error);
}

}  // namespace
