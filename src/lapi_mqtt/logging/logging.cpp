#include "ecu/lapi/logging.h"

#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "lapi_mqtt/logging/printable.h"

namespace ecu::lapi::logging {
namespace {

constexpr const char* LEVEL_NAMES[] = {"EMERG",   "ALERT",  "CRITICAL", "ERROR",
                                       "WARNING", "NOTICE", "INFO",     "DEBUG"};

/// The level of a name; -1 for an unknown one.
int level_of(const std::string& name) {
    for (int level = LEVEL_EMERG; level <= LEVEL_DEBUG; ++level) {
        if (name == LEVEL_NAMES[level]) return level;
    }
    return -1;
}

std::atomic<int> current_level{LEVEL_WARNING};
std::atomic<LogMode> current_mode{LogMode::console};

/// One write for the whole record, so that the records of several threads never mix.
void write_to_console(const std::string& line) {
    std::size_t written = 0;
    while (written < line.size()) {
        const ssize_t count = ::write(STDERR_FILENO, line.data() + written, line.size() - written);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        written += static_cast<std::size_t>(count);
    }
}

}  // namespace

void set_log_mode(LogMode mode) {
    current_mode = mode;
}

void configure_logging(const std::string& level) {
    const int number = level_of(level);
    current_level = number < 0 ? static_cast<int>(LEVEL_WARNING) : number;
    if (number >= 0) return;
    std::string known;
    for (const char* name : LEVEL_NAMES) known.append(known.empty() ? "" : ", ").append(name);
    write(WARNING, "Unknown log level '", level, "', WARNING is used; the levels are ", known);
}

int get_log_level() {
    return current_level;
}

namespace _internal {

std::shared_ptr<LogModule> LogStreambuf::get_active_module() {
    static const auto module = std::make_shared<LogModule>();
    return module;
}

LogStream::LogStream(Level level_of_stream) : std::ostream(nullptr), stream_level(level_of_stream) {
    rdbuf(&buffer);
}

void LogStream::do_flush() {
    clear();
    const std::string record = lapi_mqtt::printable(buffer.str());
    buffer.str("");
    if (record.empty()) return;
    if (current_mode == LogMode::console) {
        write_to_console(std::string(LEVEL_NAMES[stream_level]) + ": " + record + "\n");
    } else {
        syslog(stream_level, "%s", record.c_str());
    }
}

}  // namespace _internal

_internal::LogStream ERROR{LEVEL_ERROR};
_internal::LogStream WARNING{LEVEL_WARNING};
_internal::LogStream NOTICE{LEVEL_NOTICE};
_internal::LogStream INFO{LEVEL_INFO};
_internal::LogStream DEBUG{LEVEL_DEBUG};

}  // namespace ecu::lapi::logging
