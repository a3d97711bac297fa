#include "restore/run.h"

#include <iostream>
#include <stdexcept>
#include <vector>

#include "dump/parse.h"
#include "ecu/lapi/com.h"
#include "ecu/lapi/logging.h"
#include "ecu/lapi/var.h"
#include "program/input.h"
#include "program/progress_line.h"
#include "program/startup.h"
#include "program/sysparams.h"
#include "restore/change_line.h"
#include "restore/differences.h"
#include "restore/options.h"

namespace restore {
namespace {

namespace com = ecu::lapi::com;
namespace logging = ecu::lapi::logging;
using ecu::lapi::var::ISystemParameterClient;
using ecu::lapi::var::ParameterMap;
using Dump = std::vector<ecu::lapi::pb::SystemParameterEntry>;

/// Throws std::runtime_error for what is no dump. An empty one is what a `korvid get` that failed
/// leaves behind.
Dump read_dump(const std::string& file, program::ProgressLine& progress) {
    progress.begin("reading the dump");
    const std::string text = program::read_input(file, progress.hook());
    progress.begin("parsing the dump");
    Dump dump = dump::parse(text, program::input_name(file), progress.hook());
    if (dump.empty()) throw std::runtime_error(program::input_name(file) + " holds no parameter");
    return dump;
}

/// The changes on standard output, without those that were refused.
void print_changes(const ParameterMap& unit, const ParameterMap& changes,
                   const ParameterMap& refused) {
    auto stored = unit.begin();
    for (const auto& [otaid, entry] : changes) {
        while (stored != unit.end() && stored->first < otaid) ++stored;
        const bool is_new = stored == unit.end() || stored->first != otaid;
        if (refused.count(otaid) != 0) continue;
        std::cout << change_line(otaid, is_new ? nullptr : &stored->second, entry);
    }
    std::cout.flush();
}

void print_summary(const Differences& found, bool only_show, std::size_t refused) {
    if (logging::get_log_level() < logging::LEVEL_WARNING) return;
    std::cerr << PROGRAM_NAME << (only_show ? ": differ: " : ": written: ")
              << found.changes.size() - refused;
    if (!only_show) std::cerr << ", refused: " << refused;
    std::cerr << ", same: " << found.same << ", not in the dump: " << found.not_in_dump
              << std::endl;
}

bool bring_back(ISystemParameterClient& sysparams, Dump dump, bool only_show,
                program::ProgressLine& progress) {
    progress.begin("reading the unit");
    const ParameterMap unit = sysparams.get_parameters(0);
    Differences found = differences(unit, std::move(dump));
    std::pair<bool, ParameterMap> outcome{true, {}};
    if (!only_show && !found.changes.empty()) {
        progress.begin("writing the unit");
        sysparams.set_parameters(found.changes);
        outcome = sysparams.write_parameters();
    }
    progress.end();
    const auto& [written, refused] = outcome;
    if (!written) program::report_refused(refused);
    // What is not known to be written is not told to be.
    if (!written && refused.empty()) return false;
    print_changes(unit, found.changes, refused);
    print_summary(found, only_show, refused.size());
    return written;
}

bool restore(const Options& options) {
    auto configuration = program::load_configuration(PROGRAM_NAME, options.common);
    program::ProgressLine progress(PROGRAM_NAME);
    Dump dump = read_dump(options.file, progress);

    const auto client = program::create_transport(configuration);
    const bool restored = program::attempt(PROGRAM_NAME, [&] {
        const auto sysparams = program::create_sysparams(client);
        progress.watch(client);
        progress.begin("connecting");
        client->connect();
        client->start();
        return bring_back(*sysparams, std::move(dump), options.only_show, progress);
    });
    return program::close_connection(PROGRAM_NAME, *client) && restored;
}

}  // namespace

int run(int argc, char** argv) {
    return program::run_program(PROGRAM_NAME, [&] { return restore(parse_options(argc, argv)); });
}

}  // namespace restore
