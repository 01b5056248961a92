#include "status/history.h"

#include "status/status_files.h"

#include <gtest/gtest.h>

namespace orvane::status {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;
using test::PollLine;

constexpr Time now = hours(1000);

TEST(WasStoredTest, AFileThatIsNotOlderThanTheAnswerHoldsIt) {
    const Time answer = now - minutes(5);
    EXPECT_TRUE(wasStored(answer, answer, now));
    EXPECT_TRUE(wasStored(answer, answer - seconds(2), now));
    EXPECT_TRUE(wasStored(answer, now, now));
    EXPECT_FALSE(wasStored(answer, answer - seconds(3), now));
    EXPECT_FALSE(wasStored(answer, std::nullopt, now));
}

TEST(WasStoredTest, StoringTakesSeconds) {
    EXPECT_TRUE(wasStored(now - seconds(9), std::nullopt, now));
    EXPECT_FALSE(wasStored(now - seconds(10), std::nullopt, now));
}

TEST(IsGoodTest, APollIsGoodWithoutNewsOrWithAPolicyThatWasStored) {
    const Time old = now - hours(1);
    for (const auto& [status, good] : {std::pair{304, true},
                                       {200, false},
                                       {0, false},
                                       {401, false},
                                       {403, false},
                                       {500, false}}) {
        EXPECT_EQ(isGood({now - minutes(1), true, status, 0, 0, "", ""}, old, now), good) << status;
    }
    EXPECT_TRUE(isGood({now - minutes(1), true, 200, 0, 0, "", ""}, now, now));
}

class HistoryTest : public ::testing::Test {
  protected:
    [[nodiscard]] LoggedHistory read() const {
        return readHistory(files.log().parent_path(), policyStoredAt,
                           std::chrono::system_clock::now().time_since_epoch());
    }

    test::StatusFiles files;
    std::optional<Time> policyStoredAt =
        std::chrono::system_clock::now().time_since_epoch() - hours(1);
};

TEST_F(HistoryTest, PollsAreCountedByHours) {
    files.writeLog({{hours(25)},
                    {hours(23) + minutes(30), 500},
                    {minutes(90)},
                    {minutes(70), 0},
                    {seconds(10)}});
    const History history = read().history;
    EXPECT_EQ(history.day.polls, 4);
    EXPECT_EQ(history.day.failed, 2);
    EXPECT_EQ(history.hours[0].polls, 1);
    EXPECT_EQ(history.hours[1].polls, 2);
    EXPECT_EQ(history.hours[1].failed, 1);
    EXPECT_EQ(history.hours[23].polls, 1);
    EXPECT_EQ(history.hours[23].failed, 1);
    EXPECT_FALSE(history.countedSince);
}

TEST_F(HistoryTest, TheLastOfEachKindIsKept) {
    PollLine effective{seconds(199), 404};
    effective.url = "https://control.example/api/orvane/v1/guard/effective/";
    PollLine older = effective;
    older.ago = seconds(500);
    files.writeLog({{seconds(600), 200},
                    older,
                    {seconds(300), 304, 1},
                    {seconds(200), 200, 2},
                    effective,
                    {seconds(100), 503, 3},
                    {seconds(50), 502, 4}});
    const History history = read().history;
    EXPECT_EQ(history.lastPoll->status, 502);
    EXPECT_EQ(history.lastPoll->milliseconds, 4);
    EXPECT_EQ(history.lastUpdate->milliseconds, 2);
    EXPECT_EQ(history.lastEffective->status, 404);
    const auto age = std::chrono::system_clock::now().time_since_epoch() - *history.lastGoodPoll;
    EXPECT_GE(age, seconds(300));
    EXPECT_LT(age, seconds(400));
}

TEST_F(HistoryTest, ALastGoodPollIsFoundHoweverLongAgoItWas) {
    files.writeLog(
        {{hours(500), 304, 1}, {hours(400), 304, 2}, {hours(300), 0, 3}, {hours(200), 0}});
    const History history = read().history;
    EXPECT_EQ(history.lastPoll->status, 0);
    EXPECT_EQ(history.day.polls, 0);
    const auto age = std::chrono::system_clock::now().time_since_epoch() - *history.lastGoodPoll;
    EXPECT_EQ(std::chrono::round<hours>(age), hours(400));
}

TEST_F(HistoryTest, TornAndForeignLinesDoNotCount) {
    files.appendToLog("{\"bytes\":0,\"daemon\":\"pol\nnot a line of ours\n{}\n" +
                      std::string(1000, '\0') + "\n" + PollLine{seconds(5), 503}.text() +
                      PollLine{seconds(1)}.text().substr(0, 40));
    const History history = read().history;
    EXPECT_EQ(history.day.polls, 3);
    EXPECT_EQ(history.lastPoll->status, 503);
}

TEST_F(HistoryTest, ARotatedLogIsReadOn) {
    for (const char* suffix : {".1", ".0"}) {
        files.writeLog({{minutes(20)}, {minutes(10)}});
        std::filesystem::rename(files.log(), files.log().string() + suffix);
        EXPECT_EQ(read().history.day.polls, 2) << suffix;
        files.writeLog({{minutes(5)}});
        EXPECT_EQ(read().history.day.polls, 3) << suffix;
    }
}

TEST_F(HistoryTest, OnlyOneRotatedLogIsRead) {
    for (const char* suffix : {".0", ".1"}) {
        files.writeLog({{minutes(20)}});
        std::filesystem::rename(files.log(), files.log().string() + suffix);
    }
    EXPECT_EQ(read().history.day.polls, 1);
}

TEST_F(HistoryTest, ARotatedLogIsLeftAloneWhenItCanAddNothing) {
    files.writeLog({{hours(30)}, {minutes(5)}});
    std::filesystem::create_directory(files.log().string() + ".1");
    EXPECT_TRUE(read().isReadable);
}

TEST_F(HistoryTest, WithoutALogThereIsNoHistory) {
    std::filesystem::remove(files.log());
    const LoggedHistory logged = read();
    EXPECT_TRUE(logged.isReadable);
    EXPECT_FALSE(logged.history.lastPoll);
    EXPECT_EQ(logged.history.day.polls, 0);
}

TEST_F(HistoryTest, ALogThatCannotBeReadIsReported) {
    std::filesystem::remove(files.log());
    std::filesystem::create_directory(files.log());
    EXPECT_FALSE(read().isReadable);
}

TEST_F(HistoryTest, OfALogThatGrowsTooFastOnlyTheEndIsCounted) {
    const std::string line = PollLine{seconds(30)}.text();
    std::string text;
    for (int i = 0; i < 10000; ++i) {
        text += line;
    }
    test::writeFile(files.log(), text);
    const History history = read().history;
    EXPECT_NEAR(static_cast<double>(history.day.polls),
                1024.0 * 1024 / static_cast<double>(line.size()), 2);
    ASSERT_TRUE(history.countedSince);
    EXPECT_EQ(*history.countedSince, history.lastPoll->endedAt);
}

TEST_F(HistoryTest, ALogThatIsFullOfSomethingElseHasNoHistory) {
    test::writeFile(files.log(), std::string(2'000'000, 'x'));
    const History history = read().history;
    EXPECT_FALSE(history.lastPoll);
    EXPECT_FALSE(history.countedSince);
}

TEST_F(HistoryTest, WithoutAGoodPollTheWholeDayIsCountedAnyway) {
    const std::string line = PollLine{hours(30), 0}.text();
    std::string text;
    for (int i = 0; i < 8000; ++i) {
        text += line;
    }
    test::writeFile(files.log(), text + PollLine{hours(1), 0}.text());
    const History history = read().history;
    EXPECT_EQ(history.day.polls, 1);
    EXPECT_FALSE(history.countedSince);
}

TEST_F(HistoryTest, ALogThatCannotBeReadIsReportedWhateverTheRotatedOneSays) {
    std::filesystem::rename(files.log(), files.log().string() + ".1");
    std::filesystem::create_directory(files.log());
    EXPECT_FALSE(read().isReadable);
    EXPECT_TRUE(read().history.lastPoll);
}

TEST_F(HistoryTest, AnExchangeOfTheFutureCountsAsOneOfNow) {
    files.writeLog({{-hours(3)}});
    EXPECT_EQ(read().history.hours[0].polls, 1);
}

}  // namespace
}  // namespace orvane::status
