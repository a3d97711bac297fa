#include "unit/store/store.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>

#include "unit/parameter_service.h"

namespace {

using unit::Store;
using namespace std::string_literals;
namespace fs = std::filesystem;

const std::string FOLDER = testing::TempDir() + "korvid-store-" + std::to_string(getpid());
const std::string PATH = FOLDER + "/unit?1%.db";

struct UnitStore : testing::Test {
    UnitStore() { fs::create_directories(FOLDER); }
    ~UnitStore() override { fs::remove_all(FOLDER); }
};

bool opens() try { return Store(PATH), true; } catch (const unit::SqliteError&) {
    return false;
}

TEST_F(UnitStore, IsNewOrWholeAfterFirstStartsThatCameAtOnceAndWereKilled) {
    for (unsigned round = 0; round < 60; ++round) {
        fs::remove(PATH);
        pid_t starts[4];
        for (auto& start : starts) {
            if ((start = fork()) == 0) _exit(opens() ? 0 : 1);
        }
        usleep(100 * round);
        kill(starts[0], SIGKILL);
        for (const auto start : starts) {
            int status = 0;
            waitpid(start, &status, 0);
            ASSERT_TRUE(status == 0 || start == starts[0]) << round;
        }
        ASSERT_TRUE(opens()) << round;
    }
}

std::string removed_at_commit;

TEST_F(UnitStore, AcknowledgesNothingThatWentIntoAFileDeletedDuringTheCommit) {
    const auto add_hook = [](sqlite3* database, char**, const sqlite3_api_routines*) {
        const auto remove_file = [](void*) { return fs::remove(removed_at_commit), 0; };
        sqlite3_commit_hook(database, remove_file, nullptr);
        return SQLITE_OK;
    };
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(+add_hook));
    Store store(PATH);
    sqlite3_reset_auto_extension();
    removed_at_commit = PATH;
    EXPECT_THROW(store.replace_blob({1}), std::runtime_error);
}

TEST_F(UnitStore, BoundsWhatOneRequestMayHold) {
    Store store(PATH);
    unit::ParameterService service(store, {});
    const auto repeated = [](const std::string& element, std::size_t count) {
        std::string all;
        for (; count > 0; --count) all += element;
        return ecu::lapi::com::Message({all.begin(), all.end()});
    };
    const std::size_t max = 262'144;
    const std::string record = "\x0a\2\x08\5", unknown = "\x10\5";
    EXPECT_NO_THROW(service.write(repeated(record, max)));
    EXPECT_THROW(service.write(repeated(record, max + 1)), std::runtime_error);
    const std::string longest = std::string(9, '\x81') + '\1';
    for (const std::string& otaid :
         {"\x08\5"s, "\x0a\1\5"s, "\x08" + longest, "\x0a\x0a" + longest}) {
        EXPECT_NO_THROW(service.read(repeated(otaid, max)));
        EXPECT_THROW(service.read(repeated(otaid, max + 1)), std::runtime_error);
    }
    EXPECT_NO_THROW(service.read(repeated(unknown, 6 * max)));
}

}  // namespace
