// The log under a service manager: the journal.
#include "platform/log/logger.h"

#include "platform/own_mounts_linux.h"
#include "platform/system_calls.h"
#include "support/in_child.h"
#include "support/log_capture.h"
#include "support/test_files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::test {

namespace {

using ::testing::ElementsAre;
using namespace std::string_literals;

/// How JOURNAL_STREAM names what standard error leads to now.
std::string standardErrorStream() {
    struct stat status {};
    if (::fstat(STDERR_FILENO, &status) != 0) {
        throw std::runtime_error("no standard error");
    }
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

class JournalTest : public ::testing::Test {
  protected:
    JournalTest() = default;
    JournalTest(const JournalTest&) = delete;
    JournalTest& operator=(const JournalTest&) = delete;
    ~JournalTest() override { ::unsetenv("JOURNAL_STREAM"); }
};

TEST_F(JournalTest, AJournalStreamOfAnotherProcessChangesNothing) {
    ::setenv("JOURNAL_STREAM", "1:2", 1);
    const LogCapture capture;
    Logger("dev.orvane", "policy").log("line");
    EXPECT_THAT(capture.messages(), ElementsAre(LoggedMessage{"default", "line"}));
}

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

TEST_F(JournalTest, TheJournalGetsTheFieldsOfEachLevel) {
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

TEST_F(JournalTest, AJournalStreamThatIsNotStandardErrorIsNoJournal) {
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

TEST_F(JournalTest, WithoutTheJournalsSocketTheMessageGoesToStandardError) {
    const LogCapture capture;
    ORVANE_BESIDE_A_FAKE_JOURNAL(ignored, [] {
        ::setenv("JOURNAL_STREAM", standardErrorStream().c_str(), 1);
        Logger("dev.orvane", "policy").log("line");
        return ""s;
    });
    EXPECT_EQ(ignored, "");
    EXPECT_THAT(capture.messages(), ElementsAre(LoggedMessage{"default", "line"}));
}

TEST_F(JournalTest, AMessageTooLargeForTheJournalGoesToStandardError) {
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

TEST_F(JournalTest, AJournalThatHasGoneLosesNothing) {
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

TEST_F(JournalTest, AnInterruptedSendIsRepeated) {
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
    const auto all = openDescriptors();
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(), [](int each) { return ::fcntl(each, F_GETFD) == 0; }));
}

TEST_F(JournalTest, TheJournalsSocketIsNotInheritedByChildren) {
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
