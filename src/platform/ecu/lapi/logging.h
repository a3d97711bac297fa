#pragma once

#include <memory>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>

/// Logging facility of the platform. Thread-safe through `write`.
namespace ecu::lapi::logging {

enum class LogMode {
    syslog = 0,
    console = 1,  ///< standard error, one record in one write: "LEVEL: text"
};

enum Level : int {
    LEVEL_EMERG = 0,
    LEVEL_ALERT = 1,
    LEVEL_CRITICAL = 2,
    LEVEL_ERROR = 3,
    LEVEL_WARNING = 4,
    LEVEL_NOTICE = 5,
    LEVEL_INFO = 6,
    LEVEL_DEBUG = 7,
};

/// Where records go from now on.
void set_log_mode(LogMode mode);

/// Sets the level up to which records are written, by its name. An unknown name means WARNING and
/// is reported in a WARNING record. Until the first call the level is WARNING.
void configure_logging(const std::string& level);

/// The number of the current level; statements with a greater number are not written.
int get_log_level();

namespace _internal {

/// A part of the system whose less severe statements can be switched off.
struct LogModule {
    bool enabled = true;
};

/// Collects the text of one statement.
class LogStreambuf : public std::stringbuf {
public:
    static std::shared_ptr<LogModule> get_active_module();
};

/// The log stream of one level.
class LogStream : public std::ostream {
public:
    explicit LogStream(Level level_of_stream);

    Level level() const { return stream_level; }

    /// Completes the current statement: its text becomes one record.
    void do_flush();

    /// Held for the length of a statement.
    std::mutex statement;

private:
    LogStreambuf buffer;
    Level stream_level;
};

}  // namespace _internal

extern _internal::LogStream ERROR;
extern _internal::LogStream WARNING;
extern _internal::LogStream NOTICE;
extern _internal::LogStream INFO;
extern _internal::LogStream DEBUG;

/// One log statement: skipped whole above the current level. Statements less severe than WARNING
/// are held back value by value while the active module is disabled. Thread-safe.
template <typename... Values>
void write(_internal::LogStream& stream, const Values&... values) {
    if (get_log_level() < stream.level()) return;
    const std::lock_guard<std::mutex> lock(stream.statement);
    const auto write_value = [&stream](const auto& value) {
        const bool admitted = stream.level() <= LEVEL_WARNING ||
                              (stream.level() <= get_log_level() &&
                               _internal::LogStreambuf::get_active_module()->enabled);
        if (admitted) stream << value;
    };
    (write_value(values), ...);
    stream.do_flush();
}

}  // namespace ecu::lapi::logging
