#include "platform/logger.h"

#include "platform/environment.h"
#include "platform/in_child.h"
#include "platform/system_calls.h"
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

/// How JOURNAL_STREAM names what standard error leads to now.
std::string standardErrorStream() {
    struct stat status {};
    if (::fstat(STDERR_FILENO, &status) != 0) {
        throw std::runtime_error("no standard error");
    }
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

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
    EXPECT_EQ(inChild([] {
                  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
                  ::dup2(full, STDERR_FILENO);
                  Logger("dev.orvane", "policy").error("nobody reads this");
                  return "alive";
              }),
              "alive");
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
                  ignoreBrokenPipes();
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

TEST_F(LoggerTest, AJournalStreamOfAnotherProcessChangesNothing) {
    ::setenv("JOURNAL_STREAM", "1:2", 1);
    const LogCapture capture;
    Logger("dev.orvane", "policy").log("line");
    EXPECT_THAT(capture.messages(), ElementsAre(LoggedMessage{"default", "line"}));
}

// --- The journal

/// A journal's socket where the real one is. For a process with mounts of its own.
class FakeJournal {
  public:
    static constexpr const char* socketPath = "/run/systemd/journal/socket";

    FakeJournal() {
        std::filesystem::create_directories("/run/systemd/journal");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string_view(socketPath).copy(address.sun_path, sizeof address.sun_path - 1);
        if (::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("cannot bind the journal's socket");
        }
        ::setenv("JOURNAL_STREAM", standardErrorStream().c_str(), 1);
    }
    FakeJournal(const FakeJournal&) = delete;
    FakeJournal& operator=(const FakeJournal&) = delete;
    ~FakeJournal() { ::close(socket_); }

    /// The next entry; empty when there is none.
    [[nodiscard]] std::string entry() const {
        std::string bytes(65536, '\0');
        const ssize_t count = ::recv(socket_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return bytes;
    }

  private:
    int socket_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

/// What `body` returned in a child with an empty /run of its own; absent, with the reason in
/// `reason`, where that is not permitted.
template <typename Body>
std::optional<std::string> besideAFakeJournal(Body body, std::string& reason) {
    const TempDirectory run;
    const std::string answer = inChild([&]() -> std::string {
        const std::string refusal = useOwnMounts();
        if (!refusal.empty()) {
            return refusal;
        }
        mountOver(run.path(), "/run");
        return "+" + body();
    });
    if (answer.starts_with('+')) {
        return answer.substr(1);
    }
    reason = answer;
    return std::nullopt;
}

#define ORVANE_BESIDE_A_FAKE_JOURNAL(answer, ...)                     \
    std::string reasonToSkip;                                         \
    const auto found = besideAFakeJournal(__VA_ARGS__, reasonToSkip); \
    if (!found) {                                                     \
        GTEST_SKIP() << reasonToSkip;                                 \
    }                                                                 \
    const std::string& answer = *found

TEST_F(LoggerTest, TheJournalGetsTheFieldsOfEachLevel) {
    const LogCapture capture;
    ORVANE_BESIDE_A_FAKE_JOURNAL(entries, [] {
        const FakeJournal journal;
        const Logger logger("dev.orvane", "policy");
        std::string all;
        logger.log("stored %{public}s", "a\nb"s);
        all += journal.entry() + "--\n";
        logger.debug("two");
        all += journal.entry() + "--\n";
        logger.error("three");
        all += journal.entry() + "--\n";
        return all + journal.entry();
    });
    const std::string same =
        "SYSLOG_IDENTIFIER=OrvanePolicyDaemon\nSUBSYSTEM=dev.orvane\nCATEGORY=policy\n";
    EXPECT_EQ(entries, "PRIORITY=5\n" + same + "MESSAGE=stored a\\nb\n--\n" + "PRIORITY=7\n" +
                           same + "MESSAGE=two\n--\n" + "PRIORITY=3\n" + same +
                           "MESSAGE=three\n--\n");
    EXPECT_EQ(capture.raw(), "");
}

TEST_F(LoggerTest, AJournalStreamThatIsNotStandardErrorIsNoJournal) {
    const LogCapture capture;
    ORVANE_BESIDE_A_FAKE_JOURNAL(entries, [] {
        const FakeJournal journal;
        const std::string stream = standardErrorStream();
        const auto colon = stream.find(':');
        for (const std::string& other :
             {""s, "1:2"s, stream + "0", "9" + stream, stream.substr(0, colon) + ":1",
              "1" + stream.substr(colon), stream + " "}) {
            ::setenv("JOURNAL_STREAM", other.c_str(), 1);
            Logger("dev.orvane", "policy").log("line");
        }
        return journal.entry();
    });
    EXPECT_EQ(entries, "");
    EXPECT_EQ(capture.messages(), std::vector(7, LoggedMessage{"default", "line"}));
}

TEST_F(LoggerTest, WithoutTheJournalsSocketTheMessageGoesToStandardError) {
    const LogCapture capture;
    ORVANE_BESIDE_A_FAKE_JOURNAL(ignored, [] {
        ::setenv("JOURNAL_STREAM", standardErrorStream().c_str(), 1);
        Logger("dev.orvane", "policy").log("line");
        return ""s;
    });
    EXPECT_EQ(ignored, "");
    EXPECT_THAT(capture.messages(), ElementsAre(LoggedMessage{"default", "line"}));
}

TEST_F(LoggerTest, AMessageTooLargeForTheJournalGoesToStandardError) {
    const LogCapture capture;
    const std::string large(std::size_t{1} * 1024 * 1024, 'x');
    ORVANE_BESIDE_A_FAKE_JOURNAL(entries, [&] {
        const FakeJournal journal;
        const Logger logger("dev.orvane", "policy");
        logger.log("%{public}s", large);
        logger.log("the next one");
        return journal.entry();
    });
    EXPECT_THAT(capture.messages(), ElementsAre(LoggedMessage{"default", large}));
    EXPECT_THAT(entries, ::testing::HasSubstr("MESSAGE=the next one\n"));
}

TEST_F(LoggerTest, AJournalThatHasGoneLosesNothing) {
    const LogCapture capture;
    ORVANE_BESIDE_A_FAKE_JOURNAL(ignored, [] {
        std::optional<FakeJournal> journal(std::in_place);
        const Logger logger("dev.orvane", "policy");
        journal.reset();
        logger.log("line");
        return ""s;
    });
    EXPECT_EQ(ignored, "");
    EXPECT_THAT(capture.messages(), ElementsAre(LoggedMessage{"default", "line"}));
}

TEST_F(LoggerTest, AnInterruptedSendIsRepeated) {
    const LogCapture capture;
    ORVANE_BESIDE_A_FAKE_JOURNAL(entries, [] {
        const FakeJournal journal;
        const Logger logger("dev.orvane", "policy");
        int interruptions = 2;
        SystemCallHooks hooks;
        hooks.send = [&](int) {
            return interruptions-- > 0 ? std::optional<ssize_t>(failWith(EINTR)) : std::nullopt;
        };
        const WithSystemCallHooks installed(hooks);
        logger.log("line");
        return journal.entry();
    });
    EXPECT_THAT(entries, ::testing::EndsWith("MESSAGE=line\n"));
    EXPECT_EQ(capture.raw(), "");
}

/// How many descriptors children of this process would inherit.
std::size_t inheritableDescriptors() {
    const auto names = namesIn("/proc/self/fd");
    return static_cast<std::size_t>(std::count_if(
        names.begin(), names.end(),
        [](const std::string& name) { return ::fcntl(std::stoi(name), F_GETFD) == 0; }));
}

TEST_F(LoggerTest, TheJournalsSocketIsNotInheritedByChildren) {
    ORVANE_BESIDE_A_FAKE_JOURNAL(more, [] {
        const FakeJournal journal;
        const auto before = inheritableDescriptors();
        const Logger logger("dev.orvane", "policy");
        return std::to_string(inheritableDescriptors() - before);
    });
    EXPECT_EQ(more, "0");
}

}  // namespace

}  // namespace orvane::test
