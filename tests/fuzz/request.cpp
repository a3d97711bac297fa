// Any read or write is answered or refused, and a write that is refused changes nothing.
#include <unistd.h>

#include <filesystem>

#include "fuzz/fuzz.h"
#include "lapi_mqtt/sysparam/read_reply.h"
#include "unit/parameter_service.h"

namespace {

using ecu::lapi::com::Message;
namespace fs = std::filesystem;

/// A unit whose store fails at OTAID 7.
struct Desk {
    Desk() {
        beside.execute(
            "DROP TABLE parameter; "
            "CREATE TABLE parameter (otaid INTEGER PRIMARY KEY CHECK (otaid != 7), "
            "did INTEGER, xcpid INTEGER, data BLOB)");
    }
    ~Desk() { fs::remove_all(folder); }

    const fs::path folder = fs::temp_directory_path() / ("korvid-fuzz-" + std::to_string(getpid()));
    const bool is_made = fs::create_directory(folder);
    unit::Store store{folder / "store"};
    unit::Database beside{folder / "store", unit::Database::Access::read_write};
    unit::ParameterService service{store, {3}};
};

/// The reply; nothing when the unit refuses.
template <typename Operation>
std::string answer_of(Operation operation) try {
    const auto reply = operation().payload;
    return {reply.begin(), reply.end()};
} catch (const std::runtime_error&) {
    return {};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Desk desk;
    desk.beside.execute(
        "DELETE FROM parameter; INSERT INTO parameter VALUES (1, 2, 3, x'0400'), (2, NULL, 0, "
        "x''), "
        "(3, 255, NULL, NULL), (4294967295, 4294967295, 4294967295, x'ff')");
    const Message message(std::vector<std::uint8_t>(data, data + size));
    const auto all = [&] { return desk.service.read(Message()); };
    const std::string before = answer_of(all);
    answer_of([&] { return desk.service.read(message); });
    const std::string written = answer_of([&] { return desk.service.write(message); });
    const std::string after = answer_of(all);
    require(!written.empty() || after == before);
    require(lapi_mqtt::decode_read_reply({after.begin(), after.end()})->size() >= 4);
    return 0;
}
