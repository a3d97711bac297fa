#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "dump/read.h"
#include "ecu/lapi/com.h"
#include "ecu/lapi/logging.h"
#include "ecu/lapi/var.h"
#include "program/input.h"
#include "program/process.h"
#include "program/progress_line.h"
#include "program/startup.h"
#include "program/sysparams.h"
#include "restore/change.h"
#include "restore/differences.h"
#include "restore/options.h"

namespace restore {
namespace {

namespace logging = ecu::lapi::logging;
using ecu::lapi::var::ISystemParameterClient;
using ecu::lapi::var::ParameterMap;

/// diff(1) ends with 1, which stands for a failure here.
constexpr int DIFFERENT = 3;

/// On standard output: the refused ones only as JSON, the unit's own only where they count.
void print_changes(const Options& options, const ParameterMap& unit, const Differences& found,
                   const ParameterMap& refused) {
    const auto print = [&](const Change& change) {
        if (options.json) {
            std::cout << change_json(change);
        } else if (!change.refused) {
            std::cout << change_line(change);
        }
    };
    auto stored = unit.begin();
    for (const auto& [otaid, entry] : found.changes) {
        while (stored != unit.end() && stored->first < otaid) ++stored;
        const bool is_new = stored == unit.end() || stored->first != otaid;
        print({otaid, is_new ? nullptr : &stored->second, &entry, refused.count(otaid) != 0});
    }
    if (!options.exit_code) return;
    for (const auto otaid : found.not_in_file) print({otaid, &unit.at(otaid), nullptr, false});
}

void print_summary(const Options& options, const Differences& found, std::size_t refused) {
    if (options.exit_code || logging::get_log_level() < logging::LEVEL_WARNING) return;
    std::cerr << PROGRAM_NAME << (options.only_show ? ": differ: " : ": written: ")
              << found.changes.size() - refused;
    if (!options.only_show) std::cerr << ", refused: " << refused;
    std::cerr << ", same: " << found.same << ", not in the dump: " << found.not_in_file.size()
              << std::endl;
}

/// Returns the exit status.
int compare_and_write(const Options& options, ParameterMap file, ISystemParameterClient& sysparams,
                      program::ProgressLine& progress) {
    const ParameterMap unit = sysparams.get_parameters(0);
    Differences found = differences(unit, std::move(file));
    std::pair<bool, ParameterMap> outcome{true, {}};
    if (!options.only_show && !found.changes.empty()) {
        sysparams.set_parameters(found.changes);
        outcome = sysparams.write_parameters();
    }
    progress.end();
    const auto& [written, refused] = outcome;
    if (!written) program::report_refused(refused);
    // Only confirmed writes are reported.
    if (!written && refused.empty()) return EXIT_FAILURE;
    print_changes(options, unit, found, refused);
    print_summary(options, found, refused.size());
    program::flush_standard_output();
    if (!written) return EXIT_FAILURE;
    const bool differs = !found.changes.empty() || !found.not_in_file.empty();
    return options.exit_code && differs ? DIFFERENT : EXIT_SUCCESS;
}

int restore(const Options& options) {
    auto configuration = program::load_configuration(PROGRAM_NAME, options.common);
    ParameterMap file = dump::read_file(options.file);
    // An empty file is what a `korvid get` that failed leaves behind.
    if (file.empty()) {
        throw std::runtime_error(program::input_name(options.file) + " holds no parameter");
    }
    const auto client = program::create_transport(configuration);
    return program::run_connected(PROGRAM_NAME, *client, [&] {
        const auto sysparams = program::create_sysparams(client);
        program::ProgressLine progress(PROGRAM_NAME, client);
        client->connect();
        client->start();
        return compare_and_write(options, std::move(file), *sysparams, progress);
    });
}

}  // namespace
}  // namespace restore

int main(int argc, char** argv) {
    program::grow_heap_in_large_steps();
    program::widen_standard_output();
    return program::run_program(restore::PROGRAM_NAME, [&] {
        return restore::restore(restore::parse_options(argc, argv));
    });
}
