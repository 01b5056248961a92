#include "platform/log/logger.h"

#include "platform/process/environment.h"
#include "platform/system_calls.h"
#include "support/in_child.h"
#include "support/log_capture.h"
#include "support/test_files.h"
#include "support/virtual_clock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace orvane::test {

namespace {

using ::testing::ElementsAre;
using namespace std::string_literals;
using namespace std::chrono_literals;

class LoggerTest : public ::testing::Test {
  protected:
    LoggerTest() { ::unsetenv("JOURNAL_STREAM"); }
    LoggerTest(const LoggerTest&) = delete;
    LoggerTest& operator=(const LoggerTest&) = delete;
    ~LoggerTest() override {
        virtual_clock::reset();
        ::unsetenv("JOURNAL_STREAM");
    }
};

// --- Standard error

TEST_F(LoggerTest, AMessageIsOneLineOfTimeLevelCategoryPidAndText) {
    virtual_clock::setWallClock(1794813223s + 123ms);
    const LogCapture capture;
    Logger("dev.orvane", "policy").log("stored %ld bytes", std::int64_t{12});
    EXPECT_EQ(capture.raw(), "2026-11-16T07:13:43.123Z default policy " +
                                 std::to_string(processId()) + " stored 12 bytes\n");
}

TEST_F(LoggerTest, EachLevelHasItsWord) {
    const LogCapture capture;
    const Logger logger("dev.orvane", "policy");
    logger.log("one");
    logger.debug("two");
    logger.error("three");
    EXPECT_THAT(capture.messages(),
                ElementsAre(LoggedMessage{"default", "one"}, LoggedMessage{"debug", "two"},
                            LoggedMessage{"error", "three"}));
}

TEST_F(LoggerTest, ArgumentsOfEveryType) {
    const LogCapture capture;
    const Logger logger("dev.orvane", "policy");
    const std::string text = "text";
    const char* pointer = "pointer";
    logger.log("%{public}s %{public}s", text, std::string_view("view"));
    logger.log("%{public}s %{public}s", pointer, "literal");
    logger.log("%d %ld %{bool,public}d %{bool,public}d", std::int32_t{-1}, std::int64_t{1} << 40,
               true, false);
    logger.error("%s", text);
    EXPECT_THAT(capture.messages(),
                ElementsAre(LoggedMessage{"default", "text view"},
                            LoggedMessage{"default", "pointer literal"},
                            LoggedMessage{"default", "-1 1099511627776 true false"},
                            LoggedMessage{"error", "<private>"}));
}

TEST_F(LoggerTest, ALineBreakInAnArgumentMakesNoSecondLine) {
    const LogCapture capture;
    Logger("dev.orvane", "policy").log("got %{public}s.", "a\nb\r\x1B[31m"s);
    EXPECT_THAT(capture.messages(),
                ElementsAre(LoggedMessage{"default", "got a\\nb\\r\\u001b[31m."}));
}

TEST_F(LoggerTest, CopiesWriteToTheSamePlace) {
    const LogCapture capture;
    std::optional<Logger> original(std::in_place, "dev.orvane", "policy");
    const Logger copy = *original;
    original.reset();
    copy.log("still here");
    EXPECT_THAT(capture.messages(), ElementsAre(LoggedMessage{"default", "still here"}));
    EXPECT_THAT(capture.raw(), ::testing::HasSubstr(" policy "));
}

TEST_F(LoggerTest, AMessageIsOneWrite) {
    int writes = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int descriptor, std::size_t&) -> std::optional<ssize_t> {
        writes += descriptor == STDERR_FILENO ? 1 : 0;
        return std::nullopt;
    };
    const LogCapture capture;
    const Logger logger("dev.orvane", "policy");
    {
        const WithSystemCallHooks installed(hooks);
        logger.log("%{public}s", std::string(100'000, 'x'));
    }
    EXPECT_EQ(writes, 1);
}

TEST_F(LoggerTest, ShortAndInterruptedWritesAreContinued) {
    int calls = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t& size) -> std::optional<ssize_t> {
        if (++calls % 3 == 0) {
            return failWith(EINTR);
        }
        size = 1;
        return std::nullopt;
    };
    const LogCapture capture;
    const Logger logger("dev.orvane", "policy");
    {
        const WithSystemCallHooks installed(hooks);
        logger.log("the whole message arrives");
    }
    EXPECT_THAT(capture.messages(),
                ElementsAre(LoggedMessage{"default", "the whole message arrives"}));
}

TEST_F(LoggerTest, AFullStandardErrorLosesTheMessageOnly) {
    int writes = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t&) {
        ++writes;
        return std::optional<ssize_t>(failWith(ENOSPC));
    };
    const Logger logger("dev.orvane", "policy");
    {
        const WithSystemCallHooks installed(hooks);
        logger.error("nobody reads this");
    }
    EXPECT_EQ(writes, 1);
}

TEST_F(LoggerTest, AClosedStandardErrorLosesTheMessageOnly) {
    EXPECT_EQ(inChild([] {
                  ::close(STDERR_FILENO);
                  Logger("dev.orvane", "policy").error("nobody reads this");
                  return "alive";
              }),
              "alive");
}

TEST_F(LoggerTest, ABrokenPipeLosesTheMessageOnly) {
    EXPECT_EQ(inChild([] {
                  ignoreWriteSignals();
                  std::array<int, 2> ends{};
                  if (::pipe(ends.data()) != 0) {
                      return "no pipe";
                  }
                  ::dup2(ends[1], STDERR_FILENO);
                  ::close(ends[0]);
                  Logger("dev.orvane", "policy").error("nobody reads this");
                  return "alive";
              }),
              "alive");
}

TEST_F(LoggerTest, AWriteThatTakesNothingEndsTheMessage) {
    int writes = 0;
    SystemCallHooks hooks;
    hooks.write = [&](int, std::size_t&) -> std::optional<ssize_t> {
        errno = EINTR;  // left over from something else
        return ++writes < 3 ? 0 : failWith(EIO);
    };
    const Logger logger("dev.orvane", "policy");
    {
        const WithSystemCallHooks installed(hooks);
        logger.log("lost");
    }
    EXPECT_EQ(writes, 1);
}

TEST_F(LoggerTest, MessagesOfManyThreadsDoNotMix) {
    constexpr int threadCount = 4;
    constexpr int messageCount = 50;
    const LogCapture capture;
    const Logger logger("dev.orvane", "policy");
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&logger, i] {
            for (int message = 0; message < messageCount; ++message) {
                logger.log("%{public}s", std::string(40, static_cast<char>('a' + i)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const auto messages = capture.messages();
    EXPECT_EQ(messages.size(), static_cast<std::size_t>(threadCount * messageCount));
    for (const LoggedMessage& message : messages) {
        EXPECT_EQ(message.text, std::string(40, message.text.front()));
    }
}

}  // namespace

}  // namespace orvane::test
