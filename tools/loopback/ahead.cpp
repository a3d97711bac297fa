// tools/cross preloads this into the programs: the wall clock of each, its libraries' included, is
// SECONDS_AHEAD before the machine's, beyond what 32 bits of seconds can tell.

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

static_assert(sizeof(std::time_t) == 8);

namespace {

// The broker that a unit starts is the machine's own and cannot load this.
[[gnu::constructor]] void keep_from_children() {
    unsetenv("LD_PRELOAD");
}

}  // namespace

extern "C" {

#ifdef SYS_clock_gettime64
constexpr auto CLOCK_GETTIME = SYS_clock_gettime64;

// A library that asks for 32 bits of seconds gets what the C library has for it then: an error.
int no_time() {
    errno = EOVERFLOW;
    return -1;
}
[[gnu::alias("no_time")]] int time_32() asm("time");
[[gnu::alias("no_time")]] int gettimeofday_32() asm("gettimeofday");
int clock_gettime_32(clockid_t clock, void* now) asm("clock_gettime");
int clock_gettime_32(clockid_t clock, void* now) {
    if (clock == CLOCK_REALTIME) return no_time();
    return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
}
#else
constexpr auto CLOCK_GETTIME = SYS_clock_gettime;
#endif

int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const auto status = static_cast<int>(syscall(CLOCK_GETTIME, clock, now));
    if (status == 0 && clock == CLOCK_REALTIME) now->tv_sec += SECONDS_AHEAD;
    return status;
}

int gettimeofday(timeval* now, void* /*timezone*/) noexcept {
    timespec precise{};
    const int status = clock_gettime(CLOCK_REALTIME, &precise);
    *now = {precise.tv_sec, precise.tv_nsec / 1000};
    return status;
}

std::time_t time(std::time_t* now) noexcept {
    timespec precise{};
    clock_gettime(CLOCK_REALTIME, &precise);
    if (now != nullptr) *now = precise.tv_sec;
    return precise.tv_sec;
}
}
