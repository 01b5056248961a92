#include "activity/activity_log.h"

#include "support/allocation_limit.h"
#include "support/daemon_test.h"
#include "support/in_child.h"
#include "support/rooted_paths.h"
#include "support/virtual_clock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace orvane::test {
namespace {

namespace fs = std::filesystem;

using namespace std::chrono_literals;
using namespace std::string_literals;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

static_assert(noexcept(ActivityLog::record(std::declval<const ActivityLog::Exchange&>())));

/// 2026-11-16T07:13:43.123Z
constexpr std::chrono::nanoseconds moment = 1794813223s + 123ms;

class ActivityLogTest : public DaemonTest {
  protected:
    ActivityLogTest() { virtual_clock::setWallClock(moment); }

    static fs::path directory() { return orvane() / "logs"; }
    static std::string content() { return readFile(activityFile()); }

    static void record(std::string_view summary = "", std::string_view error = "") {
        ActivityLog::record({.method = "GET",
                             .url = "https://h/p?wait=300",
                             .status = 200,
                             .ms = 45,
                             .bytes = 678,
                             .summary = summary,
                             .error = error});
    }
    /// The line of `record` with `more` after "method" and "status".
    static std::string line(const std::string& error = "", const std::string& summary = "") {
        return R"({"bytes":678,"daemon":"policy-daemon",)" + error +
               R"("method":"GET","ms":45,"pid":)" + std::to_string(::getpid()) +
               R"(,"status":200,)" + summary +
               R"("ts":"2026-11-16T07:13:43.123Z","url":"https:\/\/h\/p?wait=300"})"
               "\n";
    }
    /// The keys of the only line, in the order of the file.
    static std::vector<std::string> keys() {
        std::vector<std::string> names;
        const auto object = nlohmann::ordered_json::parse(content());
        for (const auto& member : object.items()) {
            names.push_back(member.key());
        }
        return names;
    }
};

TEST_F(ActivityLogTest, TheFirstLineMakesTheFile) {
    record();
    EXPECT_EQ(content(), line());
    EXPECT_THAT(namesIn(directory()), ElementsAre("policy-daemon.activity.jsonl"));
    EXPECT_THAT(namesIn(orvane()), ElementsAre("logs"));
}

TEST_F(ActivityLogTest, ALineHasEightKeysInOrder) {
    record();
    EXPECT_THAT(keys(),
                ElementsAre("bytes", "daemon", "method", "ms", "pid", "status", "ts", "url"));
}

TEST_F(ActivityLogTest, AnErrorFollowsTheDaemon) {
    record("", "timed out");
    EXPECT_EQ(content(), line(R"("error":"timed out",)"));
    EXPECT_THAT(keys(), ElementsAre("bytes", "daemon", "error", "method", "ms", "pid", "status",
                                    "ts", "url"));
}

TEST_F(ActivityLogTest, ASummaryFollowsTheStatus) {
    record("etag 1");
    EXPECT_EQ(content(), line("", R"("summary":"etag 1",)"));
    EXPECT_THAT(keys(), ElementsAre("bytes", "daemon", "method", "ms", "pid", "status", "summary",
                                    "ts", "url"));
}

TEST_F(ActivityLogTest, ALineHasAtMostTenKeys) {
    record("s", "e");
    EXPECT_EQ(content(), line(R"("error":"e",)", R"("summary":"s",)"));
    EXPECT_THAT(keys(), ElementsAre("bytes", "daemon", "error", "method", "ms", "pid", "status",
                                    "summary", "ts", "url"));
}

TEST_F(ActivityLogTest, AnEmptyErrorOrSummaryIsNone) {
    record("", "");
    EXPECT_EQ(content(), line());
}

TEST_F(ActivityLogTest, ASpaceIsNotEmpty) {
    record(" ", " \t");
    EXPECT_EQ(content(), line(R"("error":" \t",)", R"("summary":" ",)"));
}

TEST_F(ActivityLogTest, LaterLinesAreAppended) {
    record("1");
    record("2");
    record("", "3");
    EXPECT_EQ(content(), line("", R"("summary":"1",)") + line("", R"("summary":"2",)") +
                             line(R"("error":"3",)"));
}

TEST_F(ActivityLogTest, WhatIsThereAlreadyStaysByteForByte) {
    const std::string before = "no json\r\n\n{\"a\":\0\xFF}"s;
    writeFile(activityFile(), before);
    record();
    EXPECT_EQ(content(), before + line());
}

TEST_F(ActivityLogTest, AnEmptyFileIsAppendedTo) {
    writeFile(activityFile(), "");
    fs::permissions(activityFile(), fs::perms(0600));
    record();
    EXPECT_EQ(content(), line());
    EXPECT_EQ(modeOf(activityFile()), 0600U);
}

TEST_F(ActivityLogTest, AppendingKeepsTheFile) {
    record();
    fs::create_hard_link(activityFile(), root() / "same");
    record();
    EXPECT_EQ(readFile(root() / "same"), line() + line());
}

TEST_F(ActivityLogTest, AFileThatIsRenamedIsCreatedAgain) {
    record("1");
    fs::rename(activityFile(), directory() / "old");
    record("2");
    EXPECT_EQ(readFile(directory() / "old"), line("", R"("summary":"1",)"));
    EXPECT_EQ(content(), line("", R"("summary":"2",)"));
}

TEST_F(ActivityLogTest, ADirectoryThatIsRemovedIsCreatedAgain) {
    record("1");
    fs::remove_all(directory());
    record("2");
    EXPECT_EQ(content(), line("", R"("summary":"2",)"));
}

TEST_F(ActivityLogTest, EachLineGoesToTheHomeThatThereIsThen) {
    record("1");
    const TempDirectory other;
    rooted_paths::setRoot(other.path());
    record("2");
    EXPECT_EQ(content(), line("", R"("summary":"1",)"));
    EXPECT_EQ(readFile(other.path() / fs::relative(activityFile(), root())),
              line("", R"("summary":"2",)"));
}

TEST_F(ActivityLogTest, DirectoryAndFileGetTheMasksMode) {
    const mode_t former = ::umask(0027);
    record();
    (void)::umask(former);
    EXPECT_EQ(modeOf(orvane()), 0750U);
    EXPECT_EQ(modeOf(directory()), 0750U);
    EXPECT_EQ(modeOf(activityFile()), 0640U);
}

TEST_F(ActivityLogTest, EveryArgumentHasItsOwnPlace) {
    ActivityLog::record({.method = "POST",
                         .url = "u",
                         .status = 1,
                         .ms = 2,
                         .bytes = 3,
                         .summary = "s",
                         .error = "e"});
    EXPECT_EQ(content(),
              R"({"bytes":3,"daemon":"policy-daemon","error":"e","method":"POST","ms":2,)"
              R"("pid":)" +
                  std::to_string(::getpid()) +
                  R"(,"status":1,"summary":"s","ts":"2026-11-16T07:13:43.123Z",)"
                  "\"url\":\"u\"}\n");
}

/// The members of a line with all of them, with their types as the documents name them.
std::map<std::string, std::string> membersOf(const std::string& line) {
    std::map<std::string, std::string> members;
    const auto object = nlohmann::json::parse(line);
    for (const auto& [name, value] : object.items()) {
        members[name] = value.is_string() ? "string" : "integer";
    }
    return members;
}

/// The members in the table of the manual page on files.
std::map<std::string, std::string> documentedMembers() {
    std::string page = readFile(ORVANE_SOURCE_DIRECTORY "/docs/files.md");
    page.erase(0, page.find("\n## ~/.orvane/logs/"));
    std::map<std::string, std::string> members;
    const std::regex row(R"(\n\| `([a-z]+)` \| ([a-z]+))");
    for (std::sregex_iterator found(page.begin(), page.end(), row), end; found != end; ++found) {
        members[found->str(1)] = found->str(2);
    }
    return members;
}

/// The members that lnav's format knows.
std::map<std::string, std::string> formatMembers() {
    const auto file = nlohmann::json::parse(
        readFile(ORVANE_SOURCE_DIRECTORY "/packaging/lnav/orvane_activity.json"));
    const auto& format = file.at("orvane_activity");
    std::map<std::string, std::string> members{{format.at("timestamp-field"), "string"}};
    for (const auto& [name, value] : format.at("value").items()) {
        members[name] = value.at("kind");
    }
    return members;
}

TEST_F(ActivityLogTest, TheManualAndTheFormatForLnavHaveTheMembersOfALine) {
    record("summary", "error");
    const auto members = membersOf(content());
    EXPECT_EQ(documentedMembers(), members);
    EXPECT_EQ(formatMembers(), members);
}

TEST_F(ActivityLogTest, TheManualsSampleHasTheMembersOfAPoll) {
    const std::string page = readFile(ORVANE_SOURCE_DIRECTORY "/docs/files.md");
    const std::size_t sample = page.find("{\"bytes\":");
    ASSERT_NE(sample, std::string::npos);
    record();
    EXPECT_EQ(membersOf(page.substr(sample, page.find('\n', sample) - sample)),
              membersOf(content()));
}

TEST_F(ActivityLogTest, NumbersAreWrittenInFull) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    constexpr auto least = std::numeric_limits<std::int64_t>::min();
    ActivityLog::record({.status = most, .ms = least, .bytes = 0});
    ActivityLog::record({.status = -1, .ms = 0, .bytes = most});
    ActivityLog::record({.status = 0, .ms = most, .bytes = least});
    const std::string pid = std::to_string(::getpid());
    const std::string end = R"(,"ts":"2026-11-16T07:13:43.123Z","url":""})"
                            "\n";
    const std::string start = R"(,"daemon":"policy-daemon","method":"","ms":)";
    EXPECT_EQ(content(), R"({"bytes":0)" + start + R"(-9223372036854775808,"pid":)" + pid +
                             R"(,"status":9223372036854775807)" + end +
                             R"({"bytes":9223372036854775807)" + start + R"(0,"pid":)" + pid +
                             R"(,"status":-1)" + end + R"({"bytes":-9223372036854775808)" + start +
                             R"(9223372036854775807,"pid":)" + pid + R"(,"status":0)" + end);
}

TEST_F(ActivityLogTest, StringsAreEscapedAsDocumented) {
    struct {
        std::string text;
        const char* written;
    } const examples[] = {
        {"a/b//", R"(a\/b\/\/)"},
        {"\"\\", R"(\"\\)"},
        {"\b\t\n\f\r", R"(\b\t\n\f\r)"},
        {"\x01\x1F\x7F", "\\u0001\\u001f\x7F"},
        {"\0"s, R"(\u0000)"},
        {"\u00fc\u2028\U0001F600", "\u00fc\u2028\U0001F600"},
        {"\\/", R"(\\\/)"},
        {"a\xFF"
         "b",
         "a\uFFFDb"},
        {"\xC3", "\uFFFD"},
        {"", ""},
    };
    for (const auto& [text, written] : examples) {
        SCOPED_TRACE(testing::PrintToString(text));
        fs::remove(activityFile());
        ActivityLog::record({.method = text, .url = text, .summary = text, .error = text});
        const std::string pid = std::to_string(::getpid());
        const std::string w = written;
        const std::string error = w.empty() ? "" : R"("error":")" + w + R"(",)";
        const std::string summary = w.empty() ? "" : R"("summary":")" + w + R"(",)";
        EXPECT_EQ(content(), R"({"bytes":0,"daemon":"policy-daemon",)" + error + R"("method":")" +
                                 w + R"(","ms":0,"pid":)" + pid + R"(,"status":0,)" + summary +
                                 R"("ts":"2026-11-16T07:13:43.123Z","url":")" + w + "\"}\n");
    }
}

TEST_F(ActivityLogTest, ALineFeedInAStringDoesNotBreakTheLine) {
    ActivityLog::record({.method = "GET", .url = "a\nb", .summary = "c\nd", .error = "e\nf"});
    EXPECT_EQ(std::ranges::count(content(), '\n'), 1);
    EXPECT_THAT(content(), testing::EndsWith("}\n"));
}

TEST_F(ActivityLogTest, TheTimeIsRoundedToTheNearestMillisecond) {
    struct {
        std::chrono::nanoseconds time;
        const char* text;
    } const examples[] = {
        {moment, "2026-11-16T07:13:43.123Z"},
        {moment + 499999ns, "2026-11-16T07:13:43.123Z"},
        {moment + 500000ns, "2026-11-16T07:13:43.124Z"},
        {moment - 123ms, "2026-11-16T07:13:43.000Z"},
        {moment - 118ms, "2026-11-16T07:13:43.005Z"},
        {moment + 876499us, "2026-11-16T07:13:43.999Z"},
        {moment + 876500us, "2026-11-16T07:13:44.000Z"},
        {0ns, "1970-01-01T00:00:00.000Z"},
        {951782399999500us, "2000-02-29T00:00:00.000Z"},
    };
    for (const auto& [time, text] : examples) {
        SCOPED_TRACE(text);
        virtual_clock::setWallClock(time);
        record();
        EXPECT_EQ(activity().back().at("ts"), text);
    }
}

TEST_F(ActivityLogTest, TheTimeIsThatOfTheCall) {
    virtual_clock::setWallClock(std::nullopt);
    const auto seconds = [] { return std::time(nullptr); };
    const std::time_t earliest = seconds();
    record();
    const std::time_t latest = seconds() + 1;
    const std::string text = activity().back().at("ts");
    EXPECT_THAT(text,
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z"));
    std::tm utc{};
    ASSERT_NE(::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &utc), nullptr);
    EXPECT_THAT(::timegm(&utc), testing::AllOf(testing::Ge(earliest), testing::Le(latest)));
}

TEST_F(ActivityLogTest, ALinkToAFileIsFollowed) {
    writeFile(root() / "elsewhere", "before\n");
    fs::create_directories(directory());
    fs::create_symlink(root() / "elsewhere", activityFile());
    record();
    EXPECT_EQ(readFile(root() / "elsewhere"), "before\n" + line());
    EXPECT_TRUE(fs::is_symlink(activityFile()));
}

TEST_F(ActivityLogTest, ADanglingLinkIsReplacedByALine) {
    fs::create_directories(directory());
    fs::create_symlink(root() / "nowhere", activityFile());
    record();
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(activityFile())));
    EXPECT_EQ(content(), line());
    EXPECT_FALSE(fs::exists(root() / "nowhere"));
}

TEST_F(ActivityLogTest, AFifoNobodyReadsIsReplacedByALine) {
    fs::create_directories(directory());
    ASSERT_EQ(::mkfifo(activityFile().c_str(), 0600), 0);
    record();
    EXPECT_TRUE(fs::is_regular_file(activityFile()));
    EXPECT_EQ(content(), line());
}

TEST_F(ActivityLogTest, AFifoWithAReaderGetsTheLine) {
    fs::create_directories(directory());
    ASSERT_EQ(::mkfifo(activityFile().c_str(), 0600), 0);
    const int reader = ::open(activityFile().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    record();
    std::array<char, 1024> buffer{};
    const ssize_t count = ::read(reader, buffer.data(), buffer.size());
    (void)::close(reader);
    ASSERT_GT(count, 0);
    EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(count)), line());
    EXPECT_TRUE(fs::is_fifo(activityFile()));
}

TEST_F(ActivityLogTest, AReadOnlyFileIsReplacedByOneLine) {
    writeFile(activityFile(), "before\n");
    fs::permissions(root(), fs::perms(0755));
    fs::permissions(directory(), fs::perms(0777));
    fs::permissions(activityFile(), fs::perms(0444));
    EXPECT_TRUE(asOrdinaryUser([] {
        record();
        return true;
    }));
    EXPECT_THAT(content(), MatchesRegex("\\{\"bytes\":678,.*\\}\n"));
    EXPECT_EQ(std::ranges::count(content(), '\n'), 1);
    EXPECT_THAT(namesIn(directory()), ElementsAre("policy-daemon.activity.jsonl"));
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ActivityLogTest, AFileThatCannotBeReplacedStays) {
    writeFile(activityFile(), "before\n");
    fs::permissions(root(), fs::perms(0755));
    fs::permissions(directory(), fs::perms(0555));
    fs::permissions(activityFile(), fs::perms(0444));
    EXPECT_TRUE(asOrdinaryUser([] {
        record();
        return true;
    }));
    fs::permissions(directory(), fs::perms(0755));
    EXPECT_EQ(content(), "before\n");
    EXPECT_THAT(namesIn(directory()), ElementsAre("policy-daemon.activity.jsonl"));
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ActivityLogTest, ADirectoryInItsPlaceStays) {
    fs::create_directories(activityFile());
    record();
    EXPECT_TRUE(fs::is_directory(activityFile()));
    EXPECT_THAT(namesIn(activityFile()), IsEmpty());
    EXPECT_THAT(namesIn(directory()), ElementsAre("policy-daemon.activity.jsonl"));
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ActivityLogTest, AFileInThePlaceOfADirectoryStays) {
    writeFile(orvane(), "kept");
    record();
    EXPECT_EQ(readFile(orvane()), "kept");
    fs::remove(orvane());
    writeFile(directory(), "kept");
    record();
    EXPECT_EQ(readFile(directory()), "kept");
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ActivityLogTest, AHomeThatCannotBeWrittenHasNoEffect) {
    fs::create_directories(root() / "home");
    fs::permissions(root(), fs::perms(0755));
    fs::permissions(root() / "home", fs::perms(0555));
    EXPECT_TRUE(asOrdinaryUser([] {
        record();
        return true;
    }));
    fs::permissions(root() / "home", fs::perms(0755));
    EXPECT_THAT(namesIn(root() / "home"), IsEmpty());
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ActivityLogTest, AFullDiskHasNoEffect) {
    if (!fs::exists("/dev/full")) {
        GTEST_SKIP() << "this system has no /dev/full";
    }
    fs::create_directories(directory());
    fs::create_symlink("/dev/full", activityFile());
    record();
    EXPECT_TRUE(fs::is_symlink(activityFile())) << "a file that opens is not replaced";
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ActivityLogTest, NothingIsLogged) {
    record("s", "e");
    record();
    EXPECT_EQ(log.raw(), "");
}

TEST_F(ActivityLogTest, ThreadsMayRecordAtTheSameTime) {
    constexpr int each = 50;
    writeFile(activityFile(), "");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < each; ++n) {
                record();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(content(), SizeIs(line().size() * 4 * each));
    EXPECT_EQ(std::ranges::count(content(), '\n'), 4 * each);
}

TEST_F(ActivityLogTest, WithoutMemoryTheLineIsLostAndNothingElse) {
    {
        const AllocationLimit none(0);
        record();
    }
    EXPECT_FALSE(fs::exists(activityFile()));
    record();
    EXPECT_TRUE(fs::exists(activityFile()));
}

}  // namespace
}  // namespace orvane::test
