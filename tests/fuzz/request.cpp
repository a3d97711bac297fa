// What the unit makes of a write is what the generated classes read in it, and a write that is
// refused or fails changes nothing.
#include <unistd.h>

#include <filesystem>

#include "fuzz/fuzz.h"
#include "lapi_mqtt/sysparam/read_reply.h"
#include "sysparam.pb.h"
#include "unit/parameter_service.h"

namespace {

using ecu::lapi::com::Message;
using Records = ecu::lapi::var::ParameterMap;
namespace fs = std::filesystem;

constexpr std::uint32_t READ_ONLY = 3, WORN_OUT = 7;

struct Desk {
    Desk() {
        beside.execute(
            "DROP TABLE parameter; CREATE TABLE parameter (otaid INTEGER PRIMARY KEY CHECK (otaid != 7), "
            "did INTEGER, xcpid INTEGER, data BLOB)");
    }
    ~Desk() { fs::remove_all(folder); }

    const fs::path folder = fs::temp_directory_path() / ("korvid-fuzz-" + std::to_string(getpid()));
    const bool is_made = fs::create_directory(folder);
    unit::Store store{folder / "store"};
    unit::Database beside{folder / "store", unit::Database::Access::read_write};
    unit::ParameterService service{store, {READ_ONLY}};
};

std::string bytes_of(const Records& records) {
    protocol::ReadReply reply;
    for (const auto& [otaid, entry] : records) *reply.add_entry() = entry;
    reply.set_count(static_cast<std::uint32_t>(records.size()));
    return reply.SerializeAsString();
}

/// The reply; nothing when the unit refuses.
template <typename Operation>
std::string answer_of(Operation operation) try {
    const auto reply = operation().payload;
    return {reply.begin(), reply.end()};
} catch (const std::runtime_error&) {
    return {};
}

void check_write(protocol::WriteRequest& request, Records expected, const std::string& answer,
                 const std::string& after) {
    bool is_possible = true;
    protocol::WriteReply reply;
    for (auto& entry : *request.mutable_entry()) {
        entry.mutable_unknown_fields()->clear();
        is_possible = is_possible && entry.has_otaid() && entry.otaid() != WORN_OUT;
        entry.otaid() == READ_ONLY ? reply.add_refused(READ_ONLY) : expected[entry.otaid()].MergeFrom(entry);
    }
    reply.set_written(static_cast<std::uint32_t>(request.entry_size() - reply.refused_size()));
    require(answer == (is_possible ? reply.SerializeAsString() : ""));
    require(!is_possible || after == bytes_of(expected));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Desk desk;
    desk.beside.execute(
        "DELETE FROM parameter; INSERT INTO parameter VALUES (1, 2, 3, x'0400'), (2, NULL, 0, x''), "
        "(3, 255, NULL, NULL), (4294967295, 4294967295, 4294967295, x'ff')");
    const Message message(std::vector<std::uint8_t>(data, data + size));
    const auto all = [&] { return desk.service.read(Message()); };
    const std::string before = answer_of(all);
    answer_of([&] { return desk.service.read(message); });
    const Records records = *lapi_mqtt::decode_read_reply({before.begin(), before.end()});
    const std::string written = answer_of([&] { return desk.service.write(message); }), after = answer_of(all);
    require(records.size() == 4 && (!written.empty() || after == before));
    // The generated classes are stricter only about numbers with superfluous bytes.
    protocol::WriteRequest write_request;
    if (write_request.ParseFromArray(data, static_cast<int>(size))) check_write(write_request, records, written, after);
    return 0;
}
