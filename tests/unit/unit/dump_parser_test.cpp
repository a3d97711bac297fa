#include "unit/dump_parser.h"

#include <gmock/gmock.h>

#include "commands/print_sysparam.h"

namespace {

using ecu::lapi::pb::SystemParameterEntry;
using unit::parse_dump;

SystemParameterEntry record(std::uint32_t otaid, const std::string& data) {
    SystemParameterEntry entry;
    entry.set_otaid(otaid);
    entry.set_did(0xf190);
    entry.set_data(data);
    return entry;
}

std::string dump_of(const std::vector<SystemParameterEntry>& entries) {
    std::string dump;
    for (const auto& entry : entries) dump += commands::compose_sysparam(entry.otaid(), entry);
    return dump;
}

TEST(Dump, ComesBackByteForByteWhateverTheValues) {
    std::string every_byte;
    for (int byte = 0; byte < 256; ++byte) every_byte += static_cast<char>(byte);
    const std::string dump = dump_of({
        record(0, ""),
        record(5, every_byte),
        record(6, "'\n  data(hex) [0]: \nSysParam (7):\n"),
        record(4294967295, std::string(3, '\0')),
    });
    EXPECT_EQ(dump_of(parse_dump(dump, "x")), dump);
    EXPECT_TRUE(parse_dump("", "x").empty());
}

TEST(Dump, IsRefusedWithTheLineOfTheFault) {
    const std::string good = dump_of({record(1, "a\nb")});  // 7 lines
    const auto changed = [&good](const std::string& from, const std::string& to) {
        std::string text = good;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::pair<std::string, const char*> table[] = {
        {"OTAID has to be a number, ignore 'abc'\n", "x:1: expected \"SysParam (\""},
        {changed("(1)", "(-1)"), "x:1: expected a decimal number of 32 bits"},
        {changed("(1)", "(4294967296)"), "x:1: expected a decimal number of 32 bits"},
        {changed("OTAID: 1", "OTAID: 2"), "x:2: the record has another OTAID"},
        {changed("0x001", "0x002"), "x:2: the two forms of the OTAID differ"},
        {changed("f190", "F190g"), "x:3: expected the end of the line"},
        {changed("char) [3]", "char) [2]"), "x:6: expected \"'\""},
        {changed("char) [3]", "char) [ffff]"), "x:5: the value is longer than the rest"},
        {changed("hex) [3]", "hex) [4]"), "x:7: the two sizes of the value differ"},
        {changed("0x0a", "0x0b"), "x:7: the value's bytes differ from its characters"},
        {good + good.substr(0, good.size() - 1), "x:14: expected the end of the line"},
        {good + changed("f190", "f191"), "x:8: a second block of OTAID 1 says something else"},
        {changed("\n", "\r\n"), "x:1: expected the end of the line"},
    };
    for (const auto& [dump, complaint] : table) {
        try {
            parse_dump(dump, "x");
            ADD_FAILURE() << "taken: " << dump;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), testing::HasSubstr(complaint));
        }
    }
    EXPECT_EQ(parse_dump(good + good, "x").size(), 1U);
}

}  // namespace
