#include "emulator/check/judgement.h"

#include "emulator/check/general_judgement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace orvane::emulator {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using namespace std::chrono_literals;
using namespace std::string_literals;

const std::string goodPolicy = R"({"etag": "v17", "guard_config": {}})";

Outcome answered(std::int64_t status, std::string body = "",
                 std::map<std::string, std::string> headers = {{"cache-control", "no-store"}}) {
    Outcome outcome;
    outcome.status = status;
    outcome.body = std::move(body);
    outcome.took = 20ms;
    outcome.headers = std::move(headers);
    return outcome;
}

Outcome failed(std::string error, std::chrono::milliseconds took = 20ms, std::int64_t status = 0) {
    Outcome outcome;
    outcome.status = status;
    outcome.error = std::move(error);
    outcome.took = took;
    return outcome;
}

Outcome outstanding() {
    Outcome outcome;
    outcome.isOutstanding = true;
    outcome.took = 5s;
    return outcome;
}

Outcome after(std::chrono::milliseconds took, Outcome outcome) {
    outcome.took = took;
    return outcome;
}

std::vector<std::string> textsOf(const Findings& findings) {
    std::vector<std::string> texts;
    for (const Finding& finding : findings) {
        texts.push_back(textOf(finding));
    }
    return texts;
}

std::vector<std::string> ofFirstPoll(const Outcome& outcome) {
    return textsOf(judgeFirstPoll(outcome));
}

TEST(AFinding, SaysInOneLineWhatCameWhatADaemonDoesAndWhatToDo) {
    EXPECT_THAT(ofFirstPoll(answered(418)),
                ElementsAre("A poll without an ETag: status 418 after 0.0 s. A daemon keeps what "
                            "it has and polls again after 60 s. Answer 200 with a JSON object."));
}

TEST(AFinding, QuotesWhatIsFitForATerminal) {
    EXPECT_EQ(excerptOf("a\x1b[2J\n\xff"), "\"a?[2J?\xef\xbf\xbd\"");
    EXPECT_EQ(excerptOf(std::string(61, 'x')), '"' + std::string(60, 'x') + "…\"");
}

TEST(TheFirstPoll, IsGoodWithAPolicy) {
    EXPECT_THAT(ofFirstPoll(answered(200, goodPolicy)), IsEmpty());
}

TEST(TheFirstPoll, HasToBeAnsweredAtOnce) {
    EXPECT_THAT(ofFirstPoll(outstanding()),
                ElementsAre(AllOf(HasSubstr("no answer within 5.0 s"), HasSubstr("--wait"))));
    EXPECT_THAT(ofFirstPoll(answered(304)),
                ElementsAre(AllOf(HasSubstr("status 304 after 0.0 s"),
                                  HasSubstr("polls again at once, as fast as"))));
}

TEST(TheFirstPoll, HasEachStatusExplained) {
    const std::vector<std::pair<int, std::string>> advice{{401, "Check the credentials"},
                                                          {403, "Check the credentials"},
                                                          {404, "slash at its end"},
                                                          {407, "credentials of its own"},
                                                          {502, "when the server is up"},
                                                          {503, "when the server is up"},
                                                          {504, "when the server is up"},
                                                          {204, "Answer 200"},
                                                          {500, "Answer 200"}};
    for (const auto& [status, text] : advice) {
        EXPECT_THAT(ofFirstPoll(answered(status)),
                    ElementsAre(AllOf(HasSubstr("status " + std::to_string(status)),
                                      HasSubstr("after 60 s"), HasSubstr(text))));
    }
}

TEST(TheFirstPoll, IsNotRedirected) {
    EXPECT_THAT(ofFirstPoll(answered(302, "", {{"location", "http://elsewhere/\x07"}})),
                ElementsAre(AllOf(HasSubstr("status 302 after 0.0 s, to \"http://elsewhere/?\""),
                                  HasSubstr("follows no redirect"))));
    EXPECT_THAT(ofFirstPoll(answered(300)), ElementsAre(HasSubstr("status 300 after 0.0 s. ")));
}

TEST(TheFirstPoll, HasFailuresExplained) {
    const std::vector<std::pair<std::string, std::string>> advice{
        {"A server with the specified hostname could not be found.", "Check the address"},
        {"Could not connect to the server.", "something listens there"},
        {"The certificate for this server is invalid.", "--ca FILE"},
        {"An SSL error has occurred", "TLS 1.2"},
        {"The server requires a client certificate, and none", "Do not demand one"},
        {"the response is larger than 104857600 bytes", "below 100 MiB"},
        {"the response does not start with a valid HTTP status line", "an HTTP server"},
        {"The network connection was lost.", "front end log"}};
    for (const auto& [error, text] : advice) {
        EXPECT_THAT(ofFirstPoll(failed(error)), ElementsAre(HasSubstr(text)));
    }
    EXPECT_THAT(ofFirstPoll(failed("The network connection was lost.", 20ms, 200)),
                ElementsAre(HasSubstr(
                    ": status 200, then \"The network connection was lost\" after 0.0 s. ")));
}

TEST(TheFirstPoll, HasToBringAJsonObject) {
    const std::vector<std::pair<std::string, std::string>> mistakes{
        {"", "with no body"},
        {"{\"a\": \"\xff\"}", "not UTF-8"},
        {" <!DOCTYPE html><html>", "a page instead of JSON: \"<!DOCTYPE html>"},
        {"[1, 2]", "JSON that is not an object: \"[1, 2]\""},
        {"17", "JSON that is not an object: \"17\""},
        {R"({"etag": "v)", "JSON that ends too early, after 11 bytes"},
        {R"({"etag": "v"} x)", "no valid JSON from byte 15 on: \"x\""},
        {R"({"etag": 'v'})", "no valid JSON from byte 10 on"},
        {R"({"n": 1e999})", "a number that no double holds"},
        {R"({"a":)" + std::string(600, '[') + std::string(600, ']') + '}', "nested too deep"}};
    for (const auto& [body, text] : mistakes) {
        EXPECT_THAT(ofFirstPoll(answered(200, body)),
                    ElementsAre(AllOf(HasSubstr("status 200 with "), HasSubstr(text),
                                      HasSubstr("polls again at once, at full speed"))));
    }
}

TEST(TheFirstPoll, MustNotBeCached) {
    EXPECT_THAT(ofFirstPoll(answered(200, goodPolicy, {})),
                ElementsAre(HasSubstr("without Cache-Control")));
    EXPECT_THAT(ofFirstPoll(answered(200, goodPolicy, {{"cache-control", "max-age=60"}})),
                ElementsAre(HasSubstr("Cache-Control \"max-age=60\"")));
    EXPECT_THAT(ofFirstPoll(answered(200, goodPolicy, {{"cache-control", "private, No-Store"}})),
                IsEmpty());
}

std::vector<std::string> ofTag(const std::string& policy, bool hasHeader = false) {
    std::map<std::string, std::string> headers;
    if (hasHeader) {
        headers["etag"] = "\"v17\"";
    }
    return textsOf(judgeTag(answered(200, policy, headers)));
}

TEST(ATag, IsGoodWhenItIsShortAndPlain) {
    EXPECT_THAT(ofTag(goodPolicy), IsEmpty());
    EXPECT_THAT(ofTag(R"({"etag": ")" + std::string(1000, 'x') + "\"}"), IsEmpty());
}

TEST(ATag, IsAStringInTheBody) {
    EXPECT_THAT(ofTag("{}"), ElementsAre(HasSubstr("without the member \"etag\". A daemon")));
    EXPECT_THAT(ofTag("{}", true), ElementsAre(HasSubstr("the header ETag is not read")));
    EXPECT_THAT(ofTag(R"({"etag": 17})"), ElementsAre(HasSubstr("is not a string: \"17\"")));
    EXPECT_THAT(ofTag(R"({"etag": null})"), ElementsAre(HasSubstr("is not a string: \"null\"")));
    EXPECT_THAT(ofTag(R"({"etag": ""})"), ElementsAre(HasSubstr("\"etag\" is empty")));
}

TEST(ATag, FitsIntoAHeader) {
    EXPECT_THAT(ofTag(R"({"etag": ")" + std::string(1001, 'x') + "\"}"),
                ElementsAre(HasSubstr("an \"etag\" of 1001 bytes")));
    EXPECT_THAT(ofTag(R"({"etag": "a\nb"})"), ElementsAre(HasSubstr("control character: \"a?b\"")));
    for (const char* tag : {R"(W/\"a\")", R"(a\\b)", "caf\xc3\xa9"}) {
        EXPECT_THAT(ofTag(R"({"etag": ")" + std::string(tag) + "\"}"),
                    ElementsAre(HasSubstr("quotes or other such characters")));
    }
}

TEST(TheEffectiveConfiguration, MayBeMissing) {
    EXPECT_THAT(judgeEffective(answered(404)), IsEmpty());
    EXPECT_THAT(judgeEffective(answered(200, "{}")), IsEmpty());
    EXPECT_THAT(textsOf(judgeEffective(answered(500))),
                ElementsAre(AllOf(HasSubstr("status 500"), HasSubstr("until the next policy"))));
    EXPECT_THAT(textsOf(judgeEffective(answered(200, "[]"))),
                ElementsAre(AllOf(HasSubstr("not an object"), HasSubstr("until the next policy"))));
    EXPECT_THAT(textsOf(judgeEffective(answered(200, "{}", {}))),
                ElementsAre(HasSubstr("Cache-Control")));
    EXPECT_THAT(textsOf(judgeEffective(outstanding())), ElementsAre(HasSubstr("no answer")));
}

TEST(AWrongKey, IsRejectedAtOnce) {
    EXPECT_THAT(judgePollWithWrongKey(answered(401)), IsEmpty());
    EXPECT_THAT(judgePollWithWrongKey(answered(403)), IsEmpty());
    EXPECT_THAT(textsOf(judgePollWithWrongKey(answered(200, goodPolicy))),
                ElementsAre(HasSubstr("whatever key they send")));
    for (const Outcome& outcome : {answered(404), answered(304), answered(500), outstanding(),
                                   failed("The network connection was lost.")}) {
        EXPECT_THAT(textsOf(judgePollWithWrongKey(outcome)),
                    ElementsAre(HasSubstr("does not say that its key is rejected")));
    }
}

TEST(AWrongKey, GetsNoEffectiveConfiguration) {
    EXPECT_THAT(judgeEffectiveWithWrongKey(answered(401)), IsEmpty());
    EXPECT_THAT(judgeEffectiveWithWrongKey(answered(404)), IsEmpty());
    EXPECT_THAT(textsOf(judgeEffectiveWithWrongKey(answered(200, "{}"))),
                ElementsAre(HasSubstr("The effective configuration with a wrong key: status 200")));
}

TEST(AnUnknownTag, BringsThePolicyAtOnce) {
    const Trial& trial = trials::pollWithUnknownTag;
    EXPECT_THAT(judgeUnknownTag(trial, answered(200, goodPolicy)), IsEmpty());
    for (const Outcome& outcome : {answered(304), outstanding()}) {
        EXPECT_THAT(textsOf(judgeUnknownTag(trial, outcome)),
                    ElementsAre(HasSubstr("with an older policy does not get this one")));
    }
    EXPECT_THAT(textsOf(judgeUnknownTag(trial, answered(500))),
                ElementsAre(HasSubstr("A poll with an unknown ETag: status 500")));
}

TEST(ALongTag, MayBeRefusedInFourWays) {
    for (const int status : {400, 413, 414, 431}) {
        EXPECT_THAT(judgeLongTag(answered(status)), IsEmpty());
    }
    EXPECT_THAT(judgeLongTag(failed("The network connection was lost.")), IsEmpty());
    EXPECT_THAT(judgeLongTag(answered(200, goodPolicy)), IsEmpty());
    for (const int status : {401, 404, 500, 502}) {
        EXPECT_THAT(textsOf(judgeLongTag(answered(status))),
                    ElementsAre(HasSubstr("never gets past it")));
    }
    EXPECT_THAT(textsOf(judgeLongTag(answered(304))), ElementsAre(HasSubstr("older policy")));
    EXPECT_THAT(textsOf(judgeLongTag(outstanding())), ElementsAre(HasSubstr("older policy")));
}

TEST(AShortPoll, EndsWith304) {
    EXPECT_THAT(judgeShortPoll(answered(304)), IsEmpty());
    EXPECT_THAT(textsOf(judgeShortPoll(answered(200, goodPolicy))),
                ElementsAre(HasSubstr("polls again at once, at full speed")));
    EXPECT_THAT(textsOf(judgeShortPoll(outstanding())),
                ElementsAre(HasSubstr("when the seconds in wait are over")));
    EXPECT_THAT(textsOf(judgeShortPoll(answered(500))), ElementsAre(HasSubstr("status 500")));
}

std::vector<std::string> ofHold(const Outcome& outcome) {
    return textsOf(judgeHold(outcome, "v17"));
}

TEST(AHold, LastsForSomeSecondsAtLeast) {
    EXPECT_THAT(ofHold(outstanding()), IsEmpty());
    EXPECT_THAT(ofHold(after(10s, answered(304))), IsEmpty());
    EXPECT_THAT(ofHold(after(9999ms, answered(304))),
                ElementsAre(AllOf(HasSubstr("A poll with the live ETag: status 304 after 10.0 s"),
                                  HasSubstr("as fast as the answers come"))));
}

TEST(AHold, IsNotEndedByTheSamePolicy) {
    EXPECT_THAT(ofHold(answered(200, goodPolicy)),
                ElementsAre(AllOf(HasSubstr("with the same ETag"), HasSubstr("Compare"))));
    EXPECT_THAT(ofHold(answered(200, R"({"etag": "v18"})")),
                ElementsAre(AllOf(HasSubstr("without the same ETag"),
                                  HasSubstr("Change the ETag only when"))));
}

TEST(AHold, IsNotLongerThanADaemonWaits) {
    EXPECT_THAT(ofHold(failed("The request timed out.", 330s)),
                ElementsAre(HasSubstr("after 330 s without a byte a daemon gives up")));
}

TEST(AHold, IsNotCutByWhatIsInBetween) {
    for (const Outcome& outcome : {failed("The network connection was lost.", 60s),
                                   after(60s, answered(504)), after(60s, answered(502))}) {
        EXPECT_THAT(ofHold(outcome),
                    ElementsAre(AllOf(HasSubstr("after 60.0 s"), HasSubstr("idle timeout"))));
    }
    EXPECT_THAT(ofHold(answered(502)), ElementsAre(HasSubstr("when the server is up")));
    EXPECT_THAT(ofHold(answered(500)), ElementsAre(HasSubstr("status 500")));
}

const std::string goodConfig =
    R"({"upload_api_key": "k", "agent_slug": "s", "api_url": "https://control.example"})";

std::vector<std::string> ofLookup(const std::string& body) {
    return textsOf(judgeLookup(answered(200, body)));
}

TEST(ALookup, BringsAKeyAndASlug) {
    EXPECT_THAT(ofLookup(goodConfig), IsEmpty());
    EXPECT_THAT(ofLookup(R"({"upload_api_key": "k", "agent_slug": "s"})"), IsEmpty());
    EXPECT_THAT(ofLookup(R"({"agent_slug": "s"})"),
                ElementsAre(HasSubstr("no \"upload_api_key\"")));
    EXPECT_THAT(ofLookup(R"({"upload_api_key": "", "agent_slug": "s"})"),
                ElementsAre(HasSubstr("no \"upload_api_key\"")));
    EXPECT_THAT(ofLookup(R"({"upload_api_key": "k"})"),
                ElementsAre(AllOf(HasSubstr("no \"agent_slug\""), HasSubstr("config file"))));
    for (const char* url : {"", "control.example", "ftp://control.example", "http://a b"}) {
        EXPECT_THAT(ofLookup(R"({"upload_api_key": "k", "agent_slug": "s", "api_url": ")" +
                             std::string(url) + "\"}"),
                    ElementsAre(HasSubstr("an \"api_url\" that is none: \"" + std::string(url))));
    }
    EXPECT_THAT(ofLookup("[]"), ElementsAre(HasSubstr("not an object")));
    EXPECT_THAT(textsOf(judgeLookup(answered(401))),
                ElementsAre(HasSubstr("Check the credentials")));
    EXPECT_THAT(textsOf(judgeLookup(outstanding())), ElementsAre(HasSubstr("no answer")));
}

TEST(ALookup, BringsNothingForAWrongToken) {
    EXPECT_THAT(judgeLookupWithWrongToken(answered(401)), IsEmpty());
    EXPECT_THAT(judgeLookupWithWrongToken(answered(200, "{}")), IsEmpty());
    EXPECT_THAT(judgeLookupWithWrongToken(outstanding()), IsEmpty());
    EXPECT_THAT(textsOf(judgeLookupWithWrongToken(answered(200, goodConfig))),
                ElementsAre(HasSubstr("whatever token they send")));
}

}  // namespace
}  // namespace orvane::emulator
