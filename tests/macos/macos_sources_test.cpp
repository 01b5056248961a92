// The sources for macOS, compiled against small fakes of its headers: the order of their calls, and
// what they make of the system's errors.
#include "platform/files/flush.h"
#include "platform/http/tcp_socket.h"
#include "platform/log/logger.h"
#include "platform/machine/continuous_time.h"
#include "platform/machine/machine_id.h"
#include "platform/machine/network_changes.h"
#include "platform/process/child_descriptors.h"
#include "platform/process/heap.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mach/mach_time.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <notify.h>
#include <os/log.h>
#include <poll.h>
#include <spawn.h>
#include <sys/event.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

struct FakeLog {
    std::string subsystem;
    std::string category;
};

namespace orvane::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr int someFile = 4711;

/// The calls that were made, and the errors that they are to fail with, one after another.
struct System {
    std::vector<std::string> calls;
    std::map<std::string, std::vector<int>> errors;
    mach_timebase_info_data_t timebase{1, 1};
    std::uint64_t ticks = 0;
    std::vector<struct kevent> changes;
    int queues = 0;
    int notifier = -1;  ///< what is written there comes out of the descriptor of notify(3)

    int answer(const std::string& call) {
        calls.push_back(call);
        auto& left = errors[call];
        if (left.empty()) {
            return 0;
        }
        errno = left.front();
        left.erase(left.begin());
        return errno == 0 ? 0 : -1;
    }
};

System fake;

class MacSourcesTest : public ::testing::Test {
  protected:
    MacSourcesTest() { fake = {}; }
};

// ---- Flushing ----

TEST_F(MacSourcesTest, AFlushGoesToTheDrivesOwnStorage) {
    EXPECT_TRUE(files::flushToDisk(someFile));
    EXPECT_THAT(fake.calls, ElementsAre("F_FULLFSYNC"));
}

TEST_F(MacSourcesTest, WhatKnowsNoFullFlushGetsTheOrdinaryOne) {
    for (const int error : {ENOTSUP, EINVAL, ENOTTY, EPERM}) {
        fake = {};
        fake.errors["F_FULLFSYNC"] = {error};
        EXPECT_TRUE(files::flushToDisk(someFile));
        EXPECT_THAT(fake.calls, ElementsAre("F_FULLFSYNC", "fsync"));
    }
}

TEST_F(MacSourcesTest, AFailedWriteIsNotAskedAboutTwice) {
    for (const int error : {EIO, ENOSPC}) {
        fake = {};
        fake.errors["F_FULLFSYNC"] = {error};
        EXPECT_FALSE(files::flushToDisk(someFile));
        EXPECT_EQ(errno, error);
        EXPECT_THAT(fake.calls, ElementsAre("F_FULLFSYNC"));
    }
}

TEST_F(MacSourcesTest, AnOrdinaryFlushThatFailsIsAFailure) {
    fake.errors["F_FULLFSYNC"] = {ENOTSUP};
    fake.errors["fsync"] = {EIO};
    EXPECT_FALSE(files::flushToDisk(someFile));
    EXPECT_EQ(errno, EIO);
}

TEST_F(MacSourcesTest, AnInterruptedFlushIsRetried) {
    fake.errors["F_FULLFSYNC"] = {EINTR, EINTR, ENOTSUP};
    fake.errors["fsync"] = {EINTR};
    EXPECT_TRUE(files::flushToDisk(someFile));
    EXPECT_THAT(fake.calls,
                ElementsAre("F_FULLFSYNC", "F_FULLFSYNC", "F_FULLFSYNC", "fsync", "fsync"));
}

// ---- The log ----

TEST_F(MacSourcesTest, AMessageIsOnePublicStringAtItsLevel) {
    const Logger logger("the subsystem", "the category");
    logger.log("100 %{public}s", "%s");
    logger.debug("%{public}d", 5);
    logger.error("%{bool,public}d %ld", true, std::int64_t{7});
    const std::string to = "the subsystem/the category ";
    EXPECT_THAT(fake.calls, ElementsAre(to + "0 %{public}s 100 %s", to + "2 %{public}s 5",
                                        to + "16 %{public}s true 7"));
}

// ---- Children ----

TEST_F(MacSourcesTest, AChildInheritsItsStandardInputAndWhatItIsGiven) {
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
    (void)::posix_spawnattr_init(&attributes);
    (void)::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    fake.errors["setflags"] = {0};
    EXPECT_TRUE(closeAllOthersInChild(actions, attributes));
    EXPECT_THAT(
        fake.calls,
        ElementsAre("setflags " + std::to_string(POSIX_SPAWN_SETSIGDEF),
                    "setflags " + std::to_string(POSIX_SPAWN_SETSIGDEF | 0x4000), "inherit 0"));
}

TEST_F(MacSourcesTest, AChildThatWouldInheritMoreIsNotStarted) {
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
    (void)::posix_spawnattr_init(&attributes);
    fake.errors["setflags " + std::to_string(POSIX_SPAWN_CLOEXEC_DEFAULT)] = {EINVAL};
    EXPECT_FALSE(closeAllOthersInChild(actions, attributes));
    EXPECT_THAT(fake.calls, ElementsAre("setflags 16384"));
    fake = {};
    fake.errors["inherit 0"] = {ENOMEM};
    EXPECT_FALSE(closeAllOthersInChild(actions, attributes));
}

// ---- Sockets ----

TEST_F(MacSourcesTest, ASocketIsClosedOnExecAndGivesUpAfterThreeProbes) {
    const int socket = openTcpSocket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(socket, 0);
    EXPECT_NE(::fcntl(socket, F_GETFD) & FD_CLOEXEC, 0);
    int probes = 0;
    socklen_t size = sizeof probes;
    EXPECT_EQ(::getsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &probes, &size), 0);
    EXPECT_EQ(probes, 3);
    ::close(socket);
    EXPECT_EQ(openTcpSocket(-1, SOCK_STREAM, 0), -1);
}

// ---- Time ----

TEST_F(MacSourcesTest, ATimerIsSetToAMomentThatCountsTheMachinesSleep) {
    // A tick is 125/3 ns on Apple silicon.
    fake.timebase = {125, 3};
    fake.ticks = 1'000'000;
    ContinuousTimer timer;
    EXPECT_EQ(timer.descriptor(), -1);
    timer.set(330s);
    EXPECT_EQ(timer.descriptor(), someFile);
    ASSERT_EQ(fake.changes.size(), 2U);
    EXPECT_EQ(fake.changes[0].flags, EV_DELETE);
    EXPECT_EQ(fake.changes[1].filter, EVFILT_TIMER);
    EXPECT_EQ(fake.changes[1].flags, EV_ADD | EV_ONESHOT);
    EXPECT_EQ(fake.changes[1].fflags, NOTE_MACHTIME | NOTE_ABSOLUTE | NOTE_MACH_CONTINUOUS_TIME);
    EXPECT_EQ(fake.changes[1].data, 1'000'000 + 330LL * 24'000'000);
    timer.set(1ms);
    EXPECT_EQ(fake.queues, 1);
    EXPECT_EQ(fake.changes.back().data, 1'000'000 + 24'000);
}

TEST_F(MacSourcesTest, TheLongestTimeFitsOnEveryTimebase) {
    constexpr std::chrono::milliseconds longest(std::int64_t{INT32_MAX});
    for (const mach_timebase_info_data_t base :
         {mach_timebase_info_data_t{1, 1}, {125, 3}, {1'000'000'000, 33'333'335}}) {
        fake = {};
        fake.timebase = base;
        ContinuousTimer timer;
        timer.set(longest);
        const long double expected = std::chrono::nanoseconds(longest).count() *
                                     static_cast<long double>(base.denom) / base.numer;
        EXPECT_NEAR(static_cast<double>(fake.changes.back().data), static_cast<double>(expected),
                    2.0);
    }
}

TEST_F(MacSourcesTest, NoTimeIsNoTimer) {
    ContinuousTimer timer;
    timer.set(0ms);
    ASSERT_EQ(fake.changes.size(), 1U);
    EXPECT_EQ(fake.changes[0].flags, EV_DELETE);
}

TEST_F(MacSourcesTest, WithoutAQueueATimerIsTriedAgain) {
    fake.errors["kqueue"] = {EMFILE};
    ContinuousTimer timer;
    timer.set(1s);
    EXPECT_EQ(timer.descriptor(), -1);
    timer.set(1s);
    EXPECT_EQ(timer.descriptor(), someFile);
}

// ---- Changes of the network ----

TEST_F(MacSourcesTest, AChangeOfTheNetworkIsReadOnce) {
    NetworkChanges changes;
    ASSERT_GE(changes.descriptor(), 0);
    EXPECT_NE(::fcntl(changes.descriptor(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_THAT(fake.calls, ElementsAre("notify com.apple.system.config.network_change 0"));
    constexpr int registration = 7;
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(::write(fake.notifier, &registration, sizeof registration), 4);
    }
    pollfd waited{changes.descriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&waited, 1, 0), 1);
    changes.clear();
    EXPECT_EQ(::poll(&waited, 1, 0), 0);
}

TEST_F(MacSourcesTest, TheRegistrationEndsWithItsOwner) {
    { const NetworkChanges changes; }
    EXPECT_THAT(fake.calls, ElementsAre(StartsWith("notify "), "cancel 7"));
}

TEST_F(MacSourcesTest, WithoutARegistrationNoChangeIsNoticed) {
    fake.errors["notify com.apple.system.config.network_change 0"] = {EIO};
    {
        NetworkChanges changes;
        EXPECT_EQ(changes.descriptor(), -1);
        changes.clear();
    }
    EXPECT_THAT(fake.calls, SizeIs(1));
}

// ---- What there is not ----

TEST_F(MacSourcesTest, TheHardwareRegistryAloneKnowsTheMachine) {
    EXPECT_EQ(machineId(), std::nullopt);
    keepHeapSmall();
    EXPECT_THAT(fake.calls, IsEmpty());
}

}  // namespace

}  // namespace orvane::test

using orvane::test::fake;

os_log_t os_log_create(const char* subsystem, const char* category) {
    static std::list<FakeLog> logs;  // never released, as with the system's
    logs.push_back({subsystem, category});
    return &logs.back();
}

void fakeLogWithType(os_log_t log, os_log_type_t type, const char* format, const char* text) {
    fake.calls.push_back(log->subsystem + "/" + log->category + " " + std::to_string(type) + " " +
                         format + " " + text);
}

int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t* /*actions*/,
                                           int descriptor) {
    return fake.answer("inherit " + std::to_string(descriptor)) == 0 ? 0 : errno;
}

int kqueue() {
    ++fake.queues;
    return fake.answer("kqueue") == 0 ? orvane::test::someFile : -1;
}

int kevent(int /*queue*/, const struct kevent* changes, int changeCount, struct kevent* /*events*/,
           int /*eventCount*/, const timespec* /*timeout*/) {
    fake.changes.insert(fake.changes.end(), changes, changes + changeCount);
    return 0;
}

int mach_timebase_info(mach_timebase_info_data_t* info) {
    *info = fake.timebase;
    return 0;
}

std::uint64_t mach_continuous_time() {
    return fake.ticks;
}

extern "C" {

std::uint32_t notify_register_file_descriptor(const char* name, int* descriptor, int flags,
                                              int* registration) {
    int ends[2];
    if (fake.answer("notify " + std::string(name) + " " + std::to_string(flags)) != 0 ||
        ::pipe(ends) != 0) {
        return 1;
    }
    *descriptor = ends[0];
    *registration = 7;
    fake.notifier = ends[1];
    return NOTIFY_STATUS_OK;
}

std::uint32_t notify_cancel(int registration) {
    (void)fake.answer("cancel " + std::to_string(registration));
    return NOTIFY_STATUS_OK;
}

int posix_spawnattr_setflags(posix_spawnattr_t* attributes, short flags) noexcept {
    if (fake.answer("setflags " + std::to_string(flags)) != 0) {
        return errno;
    }
    // Only Linux's own are known to the real one.
    attributes->__flags = flags;
    return 0;
}

int fsync(int descriptor) {
    if (descriptor == orvane::test::someFile) {
        return fake.answer("fsync");
    }
    static auto* const real = reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "fsync"));
    return real(descriptor);
}

int fcntl(int descriptor, int command, ...) {
    if (command == F_FULLFSYNC) {
        return fake.answer("F_FULLFSYNC");
    }
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    static auto* const real = reinterpret_cast<int (*)(int, int, ...)>(::dlsym(RTLD_NEXT, "fcntl"));
    return real(descriptor, command, argument);
}

}  // extern "C"
