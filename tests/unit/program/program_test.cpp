#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "over_fake_lapi.h"
#include "program/options.h"
#include "program/otaid.h"
#include "program/termination.h"

namespace {

using namespace program;

TEST(Otaid, IsTheWholeText) {
    EXPECT_EQ(parse_whole_otaid("-1"), 0xffffffffU);
    EXPECT_EQ(parse_whole_otaid("0xffffffff"), 0xffffffffU);
    for (const auto* text : {"", "7a", "4294967296", "-2147483649", "99999999999999999999"}) {
        EXPECT_EQ(parse_whole_otaid(text), std::nullopt) << text;
    }
}

/// "FLAG TEXT ARGUMENTS..." as a command line leaves them, or what is wrong with it.
std::string parsed(const Strings& words) {
    bool flag = false;
    std::string text = "none";
    const auto parse = [&](int argc, char** argv) {
        return parse_command_line(
            argc, argv, Help(),
            {flag_option('f', "flag", "", flag), text_option(0, "text", "T", "", text)}, {});
    };
    try {
        std::string shown;
        for (const auto& argument : invoke(parse, words)) shown += " " + argument;
        return std::to_string(flag) + " " + text + shown;
    } catch (const UsageError& error) {
        return error.what();
    }
}

TEST(Options, AreTakenOrRefusedInOneLine) {
    const std::pair<Strings, std::string> cases[] = {
        {{}, "0 none"},
        {{"a", "-f", "b", "--te=1", "--", "-f"}, "1 1 a b -f"},
        {{"--text", "1", "--text", "2"}, "0 2"},
        {{"--text"}, "option --text needs a value; try -h"},
        {{"--text="}, "option --text needs a value; try -h"},
        {{"--flag=1"}, "option --flag takes no value; try -h"},
        {{"-fx"}, "unknown or ambiguous option '-x'; try -h"},
        {{"--other"}, "unknown or ambiguous option '--other'; try -h"},
    };
    for (const auto& [words, expected] : cases) EXPECT_EQ(parsed(words), expected);
}

constexpr std::chrono::seconds LEAVE_TIMEOUT{1};
constexpr int LEFT = 7;

/// Waits in a process of its own, then leaves as `leave` does.
void wait_and(void (*leave)(), WaitEnd expected) {
    end_at_termination_signals();
    std::thread ending([expected] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        if (expected == WaitEnd::signal) kill(getpid(), SIGINT);
        if (expected == WaitEnd::event) end_wait();
    });
    const auto ended = wait_for_termination(-1, 0, LEAVE_TIMEOUT);
    ending.join();
    if (ended != expected) _exit(99);
    leave();
    _exit(LEFT);
}

void signal_ahead_of_the_wait() {
    end_at_termination_signals();
    defer_termination_signals();
    kill(getpid(), SIGTERM);
    _exit(wait_for_termination(-1, 0, LEAVE_TIMEOUT) == WaitEnd::signal ? LEFT : 99);
}

TEST(Termination, EndsTheStartTheWaitAndTheLeaving) {
    const auto signalled_again = [] { kill(getpid(), SIGTERM); };
    const auto never = [] { std::this_thread::sleep_for(10 * LEAVE_TIMEOUT); };
    using with = testing::ExitedWithCode;
    EXPECT_EXIT(signal_ahead_of_the_wait(), with(LEFT), "");
    EXPECT_EXIT(wait_and(signalled_again, WaitEnd::signal), with(0), "");
    EXPECT_EXIT(wait_and(never, WaitEnd::signal), with(0), "");
    EXPECT_EXIT(wait_and(never, WaitEnd::event), with(1), "");
}

}  // namespace
