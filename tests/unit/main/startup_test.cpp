#include "main/startup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace {

TEST(StandardStreams, AreOpenWhateverTheProgramWasStartedWith) {
    const auto start = [] {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        secure_standard_streams();
        std::raise(SIGPIPE);
        _exit(open("/dev/null", O_RDONLY) > STDERR_FILENO && write(STDOUT_FILENO, "x", 1) == 1 ? 7
                                                                                               : 1);
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(7), "");
}

}  // namespace
