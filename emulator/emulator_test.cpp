#include "emulator/control_plane.h"
#include "emulator/decision.h"
#include "emulator/flags.h"
#include "emulator/policy.h"
#include "emulator/policy_file.h"

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

namespace orvane::emulator {
namespace {

using namespace std::chrono_literals;

constexpr const char* pollPath = "/api/orvane/v1/connect/guard-config/";
constexpr const char* effectivePath = "/api/orvane/v1/guard/effective/";
constexpr const char* agentConfigPath = "/api/orvane/v1/endpoint/agent-config/";

const std::string firstText = R"({ "etag": "a/1", "guard_config": {"capture": {}} })";
const std::string secondText = R"({"etag":"a/2"})";

Account anAccount() {
    return {.apiKey = "key",
            .deviceToken = "device",
            .tenantSlug = "tenant",
            .agentSlug = "slug",
            .agentType = "type",
            .apiUrl = "http://base"};
}

Request aRequest(const std::string& path) {
    Request request;
    request.method = "GET";
    request.path = path;
    request.apiKey = "key";
    return request;
}

Request aPoll(const std::string& wait, const std::string& ifNoneMatch = "\"a/1\"") {
    Request request = aRequest(pollPath);
    request.query["wait"] = wait;
    request.ifNoneMatch = ifNoneMatch;
    return request;
}

Decision decideWithPolicy(const Request& request) {
    return decide(request, anAccount(), readPolicy(firstText));
}

Reply replyTo(const Request& request, const std::optional<Policy>& policy = readPolicy(firstText)) {
    return std::get<Reply>(decide(request, anAccount(), policy));
}

// ---- The policy --------------------------------------------------------------------------------

TEST(Policy, OneWithATagIsKeptByteForByte) {
    const auto policy = readPolicy(firstText);
    ASSERT_TRUE(policy);
    EXPECT_EQ(policy->text, firstText);
    EXPECT_EQ(policy->etag, "a/1");
    EXPECT_EQ(policy->guardConfig, R"({"capture":{}})");
}

TEST(Policy, OneWithoutATagIsGivenOneAsItsFirstMember) {
    const auto policy = readPolicy(R"({"config":{}})");
    ASSERT_TRUE(policy);
    EXPECT_EQ(policy->etag.size(), 16U);
    EXPECT_EQ(policy->text, R"({"etag":")" + policy->etag + R"(","config":{}})");
}

TEST(Policy, AnEmptyObjectIsGivenATagAlone) {
    const auto policy = readPolicy("{}");
    ASSERT_TRUE(policy);
    EXPECT_EQ(policy->text, R"({"etag":")" + policy->etag + "\"}");
    EXPECT_EQ(policy->guardConfig, "{}");
}

TEST(Policy, ATagThatIsNoTextOrEmptyIsReplaced) {
    for (const std::string unusable : {"7", "null", "\"\"", "{}"}) {
        const auto policy = readPolicy(R"({"a":1,"etag":)" + unusable + "}");
        ASSERT_TRUE(policy) << unusable;
        EXPECT_EQ(policy->text, R"({"etag":")" + policy->etag + R"(","a":1})");
    }
}

TEST(Policy, TheGivenTagFollowsTheContent) {
    EXPECT_EQ(readPolicy(R"({"a":1})")->etag, readPolicy(R"({"a":1})")->etag);
    EXPECT_NE(readPolicy(R"({"a":1})")->etag, readPolicy(R"({"a":2})")->etag);
}

TEST(Policy, WhatIsNotAJsonObjectIsRefused) {
    for (const std::string text : {"", "[]", "7", "null", "{", "{} x", "{\"a\":\"\xff\"}"}) {
        EXPECT_FALSE(readPolicy(text)) << text;
    }
}

TEST(Policy, AbsurdNestingIsRefused) {
    const std::string deep = R"({"guard_config":)" + std::string(200'000, '[');
    EXPECT_FALSE(readPolicy(deep + std::string(200'000, ']') + "}"));
    EXPECT_TRUE(readPolicy(R"({"a":)" + std::string(600, '[') + std::string(600, ']') + "}"));
}

// ---- What to do about a request ----------------------------------------------------------------

TEST(Decision, APollWithAnotherTagOrNoneIsAnsweredAtOnce) {
    for (const std::string tag : {"", "\"a/0\"", "a/1", "W/\"a/1\"", "\"a/1"}) {
        const Reply reply = replyTo(aPoll("300", tag));
        EXPECT_EQ(reply.status, 200U) << tag;
        EXPECT_EQ(reply.body, firstText);
    }
}

TEST(Decision, APollWithTheCurrentTagIsHeldAsLongAsItAsks) {
    EXPECT_EQ(std::get<Hold>(decideWithPolicy(aPoll("17"))).atMost, 17s);
}

TEST(Decision, APollIsHeldWhileThereIsNoPolicy) {
    const Decision decision = decide(aPoll("17", ""), anAccount(), std::nullopt);
    EXPECT_EQ(std::get<Hold>(decision).atMost, 17s);
}

TEST(Decision, AWaitThatIsMissingOrUnusableIsZeroAndALongOneIsCapped) {
    const std::vector<std::pair<std::string, std::chrono::seconds>> cases{
        {"", 0s},
        {"x", 0s},
        {"-1", 0s},
        {"1.5", 0s},
        {" 1", 0s},
        {"0", 0s},
        {"300", 300s},
        {"301", 300s},
        {"0x10", 0s},
        {"99999x", 0s},
        {std::string(40, '9'), 300s}};
    for (const auto& [wait, expected] : cases) {
        EXPECT_EQ(std::get<Hold>(decideWithPolicy(aPoll(wait))).atMost, expected) << wait;
    }
    Request bare = aPoll("");
    bare.query.clear();
    EXPECT_EQ(std::get<Hold>(decideWithPolicy(bare)).atMost, 0s);
}

TEST(Decision, TheKeyMustMatchWhole) {
    for (const std::string path : {pollPath, effectivePath}) {
        for (const std::string key : {"", "ke", "keyy", "kex", "Key"}) {
            Request request = aRequest(path);
            request.apiKey = key;
            EXPECT_EQ(replyTo(request).status, 401U) << path << key;
        }
    }
}

TEST(Decision, ASecretLeftEmptyMatchesNothing) {
    Request request = aRequest(agentConfigPath);
    EXPECT_EQ(std::get<Reply>(decide(request, {}, std::nullopt)).status, 401U);
    request = aRequest(pollPath);
    request.apiKey.clear();
    EXPECT_EQ(std::get<Reply>(decide(request, {}, std::nullopt)).status, 401U);
}

TEST(Decision, TheEffectiveConfigurationSaysForWhomItIs) {
    Request request = aRequest(effectivePath);
    EXPECT_EQ(replyTo(request).body,
              R"({"agent_slug":"","etag":"a/1","hardware_uuid":"","guard_config":{"capture":{}}})");
    request.query = {{"agent_slug", "s\"\xff"}, {"hardware_uuid", "u"}};
    EXPECT_EQ(replyTo(request).body,
              "{\"agent_slug\":\"s\\\"\xef\xbf\xbd\",\"etag\":\"a/1\","
              R"("hardware_uuid":"u","guard_config":{"capture":{}}})");
}

TEST(Decision, WithoutAPolicyThereIsNothingToRead) {
    EXPECT_EQ(replyTo(aRequest(effectivePath), std::nullopt).status, 404U);
    EXPECT_EQ(replyTo(aRequest("/policy"), std::nullopt).status, 404U);
}

TEST(Decision, AKnownDeviceIsToldItsAccount) {
    Request request = aRequest(agentConfigPath);
    request.device = "device";
    request.tenant = "tenant";
    const Reply reply = replyTo(request);
    EXPECT_EQ(reply.status, 200U);
    EXPECT_EQ(reply.body, R"({"agent_slug":"slug","agent_type":"type",)"
                          R"("api_url":"http://base","upload_api_key":"key"})");
}

TEST(Decision, ADeviceWithAWrongTokenOrTenantIsRefused) {
    Request request = aRequest(agentConfigPath);
    request.device = "device";
    request.tenant = "other";
    EXPECT_EQ(replyTo(request).status, 401U);
    request.device = "other";
    request.tenant = "tenant";
    EXPECT_EQ(replyTo(request).status, 401U);
}

TEST(Decision, APolicyThatIsPutIsAccepted) {
    Request request = aRequest("/policy");
    request.method = "PUT";
    request.body = secondText;
    EXPECT_EQ(std::get<Accept>(decideWithPolicy(request)).policy.etag, "a/2");
    request.body = "[]";
    EXPECT_EQ(replyTo(request).status, 400U);
    request.bodyTooLong = true;
    EXPECT_EQ(replyTo(request).status, 413U);
}

TEST(Decision, AnUnknownPathIsNotFound) {
    for (const std::string path : {"/", "", "/policy/", "/api/orvane/v1/guard/effective"}) {
        EXPECT_EQ(replyTo(aRequest(path)).status, 404U) << path;
    }
}

TEST(Decision, AWrongMethodIsToldTheRightOnes) {
    Request request = aRequest(pollPath);
    request.method = "POST";
    EXPECT_EQ(replyTo(request).status, 405U);
    EXPECT_EQ(replyTo(request).allow, "GET");
    request.path = "/policy";
    EXPECT_EQ(replyTo(request).allow, "GET, PUT");
}

// ---- The program's flags and files -------------------------------------------------------------

std::optional<Flags> flagsOf(const std::vector<const char*>& arguments) {
    return readFlags(arguments);
}

TEST(Flags, AllAreRead) {
    const auto flags = flagsOf({"--key",
                                "k",
                                "--port",
                                "65535",
                                "--policy",
                                "p",
                                "--device",
                                "d",
                                "--tenant",
                                "t",
                                "--agent-slug",
                                "s",
                                "--agent-type",
                                "y",
                                "--cert",
                                "c",
                                "--private-key",
                                "q",
                                "--port-file",
                                "f",
                                "--jitter",
                                "--fail-every",
                                "3",
                                "--with",
                                "429"});
    ASSERT_TRUE(flags);
    EXPECT_EQ(flags->port, 65535);
    EXPECT_EQ(flags->account.apiKey, "k");
    EXPECT_EQ(flags->account.deviceToken, "d");
    EXPECT_EQ(flags->account.tenantSlug, "t");
    EXPECT_EQ(flags->account.agentSlug, "s");
    EXPECT_EQ(flags->account.agentType, "y");
    EXPECT_EQ(flags->policy, "p");
    EXPECT_EQ(flags->certificate, "c");
    EXPECT_EQ(flags->privateKey, "q");
    EXPECT_EQ(flags->portFile, "f");
    EXPECT_TRUE(flags->behavior.jitter);
    EXPECT_EQ(flags->behavior.failEvery, 3U);
    EXPECT_EQ(flags->behavior.failStatus, 429U);
}

TEST(Flags, WhatMakesNoSenseIsRefused) {
    EXPECT_FALSE(flagsOf({}));
    EXPECT_FALSE(flagsOf({"--key"}));
    EXPECT_FALSE(flagsOf({"--key", ""}));
    EXPECT_FALSE(flagsOf({"--key", "k", "--nonsense", "1"}));
    EXPECT_FALSE(flagsOf({"--key", "k", "stray"}));
    EXPECT_FALSE(flagsOf({"--key", "k", "--cert", "c"}));
    for (const char* count : {"0", "-1", "x", "1000001"}) {
        EXPECT_FALSE(flagsOf({"--key", "k", "--fail-every", count})) << count;
    }
    for (const char* status : {"399", "600", "x"}) {
        EXPECT_FALSE(flagsOf({"--key", "k", "--fail-every", "2", "--with", status})) << status;
    }
    for (const char* port : {"65536", "-1", "x", "80x", ""}) {
        EXPECT_FALSE(flagsOf({"--key", "k", "--port", port})) << port;
    }
}

TEST(Flags, HelpNeedsNothingElse) {
    const auto flags = flagsOf({"--help"});
    ASSERT_TRUE(flags);
    EXPECT_TRUE(flags->help);
}

/// A directory of its own that goes away with the test.
class ScratchDirectory : public testing::Test {
  public:
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  protected:
    ScratchDirectory() {
        std::string name = testing::TempDir() + "emulator-XXXXXX";
        path_ = ::mkdtemp(name.data());
    }
    ~ScratchDirectory() override { std::filesystem::remove_all(path_); }

    std::filesystem::path write(const std::string& name, const std::string& content) const {
        std::ofstream(path_ / name) << content;
        return path_ / name;
    }

    std::filesystem::path path_;
};

using AFile = ScratchDirectory;

TEST_F(AFile, IsReadWholeAndOneThatIsNotThereIsToldApartFromAnEmptyOne) {
    EXPECT_EQ(readFile(write("some", "text\n")), "text\n");
    EXPECT_EQ(readFile(write("empty", "")), "");
    EXPECT_FALSE(readFile(path_ / "none"));
    EXPECT_FALSE(readFile(path_));
}

TEST_F(AFile, IsSeenToAppearToChangeToBeReplacedAndToGo) {
    WatchedFile file(path_ / "policy");
    EXPECT_TRUE(file.changed());
    EXPECT_FALSE(file.changed());
    write("policy", "1");
    EXPECT_TRUE(file.changed());
    EXPECT_FALSE(file.changed());
    write("policy", "22");
    EXPECT_TRUE(file.changed());
    std::filesystem::rename(write("other", "33"), path_ / "policy");
    EXPECT_TRUE(file.changed());
    std::filesystem::remove(path_ / "policy");
    EXPECT_TRUE(file.changed());
    EXPECT_FALSE(file.changed());
}

// ---- The server, over real sockets -------------------------------------------------------------

struct Answer {
    CURLcode result = CURLE_OK;
    long status = 0;
    std::string body;
    std::string headers;
};

std::size_t collect(char* bytes, std::size_t size, std::size_t count, void* text) {
    static_cast<std::string*>(text)->append(bytes, size * count);
    return size * count;
}

/// One HTTP request with libcurl, set up in steps and sent at the end.
class Call {
  public:
    explicit Call(const std::string& url) {
        curl_easy_setopt(curl_.get(), CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl_.get(), CURLOPT_NOPROXY, "*");
        curl_easy_setopt(curl_.get(), CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl_.get(), CURLOPT_TIMEOUT, 20L);
    }

    Call& header(const std::string& line) {
        headers_.reset(curl_slist_append(headers_.release(), line.c_str()));
        return *this;
    }
    Call& method(const std::string& name) {
        curl_easy_setopt(curl_.get(), CURLOPT_CUSTOMREQUEST, name.c_str());
        return *this;
    }
    Call& body(const std::string& text) {
        curl_easy_setopt(curl_.get(), CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(text.size()));
        curl_easy_setopt(curl_.get(), CURLOPT_COPYPOSTFIELDS, text.c_str());
        return *this;
    }
    Call& trust(const std::filesystem::path& certificate) {
        curl_easy_setopt(curl_.get(), CURLOPT_CAINFO, certificate.c_str());
        return *this;
    }
    Call& giveUpAfter(std::chrono::milliseconds time) {
        curl_easy_setopt(curl_.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(time.count()));
        return *this;
    }

    Answer send() {
        Answer answer;
        curl_easy_setopt(curl_.get(), CURLOPT_HTTPHEADER, headers_.get());
        curl_easy_setopt(curl_.get(), CURLOPT_WRITEFUNCTION, collect);
        curl_easy_setopt(curl_.get(), CURLOPT_WRITEDATA, &answer.body);
        curl_easy_setopt(curl_.get(), CURLOPT_HEADERFUNCTION, collect);
        curl_easy_setopt(curl_.get(), CURLOPT_HEADERDATA, &answer.headers);
        answer.result = curl_easy_perform(curl_.get());
        curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &answer.status);
        return answer;
    }

  private:
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl_{curl_easy_init(), curl_easy_cleanup};
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers_{nullptr,
                                                                         curl_slist_free_all};
};

/// A control plane and what it told its watcher.
class AServer : public testing::Test {
  protected:
    static Options optionsFor(AServer& test) {
        Options options;
        options.account = anAccount();
        options.account.apiUrl.clear();
        options.onExchange = [&test](const Exchange& exchange) {
            const std::scoped_lock lock(test.mutex_);
            test.exchanges_.push_back(exchange);
        };
        return options;
    }

    std::string url(const std::string& target) const { return plane_->baseUrl() + target; }

    Answer poll(const std::string& wait, const std::string& ifNoneMatch = "") const {
        Call call(url(pollPath + ("?wait=" + wait)));
        call.header("X-Orv-Key: key");
        if (!ifNoneMatch.empty()) {
            call.header("If-None-Match: " + ifNoneMatch);
        }
        return call.send();
    }

    std::future<Answer> pollInBackground(const std::string& wait,
                                         const std::string& ifNoneMatch = "") const {
        return std::async(std::launch::async, [=, this] { return poll(wait, ifNoneMatch); });
    }

    void untilHeld(std::size_t count) const {
        const auto giveUp = std::chrono::steady_clock::now() + 10s;
        while (plane_->heldPolls() != count && std::chrono::steady_clock::now() < giveUp) {
            std::this_thread::sleep_for(1ms);
        }
        ASSERT_EQ(plane_->heldPolls(), count);
    }

    Exchange lastExchange() {
        const std::scoped_lock lock(mutex_);
        return exchanges_.empty() ? Exchange{} : exchanges_.back();
    }

    std::mutex mutex_;
    std::vector<Exchange> exchanges_;
    std::unique_ptr<ControlPlane> plane_ = std::make_unique<ControlPlane>(optionsFor(*this));
};

TEST_F(AServer, ListensOnAFreePortOfTheLoopbackInterface) {
    EXPECT_NE(plane_->port(), 0);
    EXPECT_EQ(plane_->baseUrl(), "http://127.0.0.1:" + std::to_string(plane_->port()));
}

TEST_F(AServer, CannotTakeAPortThatIsTaken) {
    Options options;
    options.port = plane_->port();
    EXPECT_THROW(ControlPlane{options}, std::runtime_error);
}

TEST_F(AServer, AnswersAFirstPollAtOnce) {
    ASSERT_TRUE(plane_->setPolicy(firstText));
    const Answer answer = poll("300");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, firstText);
    EXPECT_NE(answer.headers.find("Content-Type: application/json\r\n"), std::string::npos);
}

TEST_F(AServer, AHeldPollIsAnsweredWhenThePolicyChanges) {
    plane_->setPolicy(firstText);
    auto answer = pollInBackground("300", "\"a/1\"");
    untilHeld(1);
    plane_->setPolicy(secondText);
    EXPECT_EQ(answer.get().body, secondText);
    EXPECT_EQ(plane_->heldPolls(), 0U);
}

TEST_F(AServer, AHeldPollIsAnsweredWhenTheFirstPolicyArrives) {
    auto answer = pollInBackground("300");
    untilHeld(1);
    plane_->setPolicy(firstText);
    EXPECT_EQ(answer.get().body, firstText);
}

TEST_F(AServer, AHeldPollStaysHeldWhenThePolicyIsSetAgain) {
    plane_->setPolicy(firstText);
    auto answer = pollInBackground("300", "\"a/1\"");
    untilHeld(1);
    plane_->setPolicy(firstText);
    untilHeld(1);
    plane_->setPolicy(secondText);
    EXPECT_EQ(answer.get().body, secondText);
}

TEST_F(AServer, AHeldPollEndsUnchangedWhenItsTimeIsUp) {
    plane_->setPolicy(firstText);
    const Answer answer = poll("1", "\"a/1\"");
    EXPECT_EQ(answer.status, 304);
    EXPECT_EQ(answer.body, "");
    EXPECT_GE(lastExchange().held, 1s);
    EXPECT_LT(lastExchange().held, 3s);
}

TEST_F(AServer, APollThatDoesNotWantToWaitIsNotHeld) {
    EXPECT_EQ(poll("0").status, 304);
    EXPECT_LT(lastExchange().held, 1s);
}

TEST_F(AServer, AShortPollDoesNotWaitForALongOne) {
    auto longer = pollInBackground("300");
    untilHeld(1);
    EXPECT_EQ(poll("1").status, 304);
    plane_->setPolicy(firstText);
    EXPECT_EQ(longer.get().status, 200);
}

TEST_F(AServer, RefusesEveryNthPollAndNothingElse) {
    Options options = optionsFor(*this);
    options.behavior.failEvery = 3;
    options.behavior.failStatus = 429;
    plane_ = std::make_unique<ControlPlane>(options);
    plane_->setPolicy(firstText);
    std::vector<long> statuses;
    for (int i = 0; i < 6; ++i) {
        statuses.push_back(poll("0").status);
        EXPECT_EQ(Call(url("/policy")).send().status, 200);
    }
    EXPECT_EQ(statuses, (std::vector<long>{200, 200, 429, 200, 200, 429}));
}

TEST_F(AServer, CountsAPollThatIsHeldOnce) {
    Options options = optionsFor(*this);
    options.behavior.failEvery = 2;
    plane_ = std::make_unique<ControlPlane>(options);
    plane_->setPolicy(firstText);
    auto answer = pollInBackground("300", "\"a/1\"");
    untilHeld(1);
    plane_->setPolicy(secondText);
    EXPECT_EQ(answer.get().status, 200);
    EXPECT_EQ(poll("0").status, 503);
}

TEST_F(AServer, JittersItsHoldsWhenAskedTo) {
    Options options = optionsFor(*this);
    options.behavior.jitter = true;
    plane_ = std::make_unique<ControlPlane>(options);
    plane_->setPolicy(firstText);
    std::vector<std::future<Answer>> polls(20);
    for (auto& held : polls) {
        held = pollInBackground("2", "\"a/1\"");
    }
    for (auto& held : polls) {
        EXPECT_EQ(held.get().status, 304);
    }
    const std::scoped_lock lock(mutex_);
    ASSERT_EQ(exchanges_.size(), 20U);
    const auto byHold = [](const Exchange& a, const Exchange& b) { return a.held < b.held; };
    EXPECT_GE(std::min_element(exchanges_.begin(), exchanges_.end(), byHold)->held, 1600ms);
    EXPECT_LT(std::min_element(exchanges_.begin(), exchanges_.end(), byHold)->held, 2000ms);
}

TEST_F(AServer, ManyHeldPollsAreAnsweredTogether) {
    std::vector<std::future<Answer>> answers(50);
    for (auto& answer : answers) {
        answer = pollInBackground("300");
    }
    untilHeld(answers.size());
    plane_->setPolicy(firstText);
    for (auto& answer : answers) {
        EXPECT_EQ(answer.get().body, firstText);
    }
}

TEST_F(AServer, AnAgentThatHangsUpWhileHeldDoesNoHarm) {
    Call impatient(url(std::string(pollPath) + "?wait=300"));
    EXPECT_EQ(impatient.header("X-Orv-Key: key").giveUpAfter(200ms).send().result,
              CURLE_OPERATION_TIMEDOUT);
    plane_->setPolicy(firstText);
    EXPECT_EQ(poll("300").status, 200);
}

TEST_F(AServer, LetsGoOfHeldPollsWhenItStops) {
    auto answer = pollInBackground("300");
    untilHeld(1);
    plane_.reset();
    EXPECT_EQ(answer.wait_for(5s), std::future_status::ready);
}

TEST_F(AServer, TellsItsWatcherOfEachExchange) {
    plane_->setPolicy(firstText);
    poll("300", "\"a/0\"");
    const Exchange exchange = lastExchange();
    EXPECT_EQ(exchange.method, "GET");
    EXPECT_EQ(exchange.target, std::string(pollPath) + "?wait=300");
    EXPECT_EQ(exchange.ifNoneMatch, "\"a/0\"");
    EXPECT_EQ(exchange.status, 200U);
    EXPECT_EQ(exchange.bytes, firstText.size());
}

TEST_F(AServer, TakesAPolicyThatIsPutAndGivesItBack) {
    auto held = pollInBackground("300");
    untilHeld(1);
    EXPECT_EQ(Call(url("/policy")).method("PUT").body(secondText).send().status, 204);
    EXPECT_EQ(held.get().body, secondText);
    EXPECT_EQ(Call(url("/policy")).send().body, secondText);
}

TEST_F(AServer, KeepsItsPolicyWhenANewOneIsUnusable) {
    plane_->setPolicy(firstText);
    EXPECT_FALSE(plane_->setPolicy("[]"));
    const Answer refused = Call(url("/policy")).method("PUT").body("nonsense").send();
    EXPECT_EQ(refused.status, 400);
    EXPECT_EQ(refused.body, R"({"error":"the policy is not a JSON object"})");
    EXPECT_EQ(poll("0").body, firstText);
}

TEST_F(AServer, TakesALargePolicyAndRefusesATooLargeOne) {
    const auto policyOf = [](std::size_t size) {
        return R"({"etag":"large","filler":")" + std::string(size, 'x') + "\"}";
    };
    const std::string large = policyOf(std::size_t{5} << 20);
    EXPECT_EQ(Call(url("/policy")).method("PUT").body(large).send().status, 204);
    EXPECT_EQ(poll("0").body, large);
    const std::string tooLarge = policyOf(std::size_t{64} << 20);
    EXPECT_EQ(Call(url("/policy")).method("PUT").body(tooLarge).send().status, 413);
    EXPECT_EQ(poll("0").body, large);
}

TEST_F(AServer, DecodesWhatIsAskedFor) {
    plane_->setPolicy(secondText);
    Call call(
        url(effectivePath + std::string("?agent_slug=a%20b%26c&hardware_uuid=u&agent_slug=z")));
    EXPECT_EQ(call.header("X-Orv-Key: key").send().body,
              R"({"agent_slug":"a b&c","etag":"a/2","hardware_uuid":"u","guard_config":{}})");
}

TEST_F(AServer, TellsADeviceItsOwnAddress) {
    Call call(url(agentConfigPath + std::string("?process=claude")));
    const Answer answer = call.header("X-Orv-Device: device").header("X-Orv-Tenant: tenant").send();
    EXPECT_EQ(answer.status, 200);
    EXPECT_NE(answer.body.find("\"api_url\":\"" + plane_->baseUrl() + '"'), std::string::npos);
}

TEST_F(AServer, RefusesWhatItDoesNotKnow) {
    EXPECT_EQ(Call(url(pollPath)).send().status, 401);
    EXPECT_EQ(Call(url("/elsewhere")).send().status, 404);
    const Answer answer = Call(url(pollPath)).method("DELETE").send();
    EXPECT_EQ(answer.status, 405);
    EXPECT_NE(answer.headers.find("Allow: GET\r\n"), std::string::npos);
}

using AServerWithACertificate = ScratchDirectory;

TEST_F(AServerWithACertificate, SpeaksHttpsAndHoldsPollsThere) {
    const std::string key = path_ / "key.pem";
    const std::string certificate = path_ / "certificate.pem";
    const std::string command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
        "-subj /CN=localhost -addext subjectAltName=IP:127.0.0.1 -keyout '" +
        key + "' -out '" + certificate + "' 2>'" + (path_ / "log").string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    Options options;
    options.account = anAccount();
    options.certificatePem = *readFile(certificate);
    options.privateKeyPem = *readFile(key);
    ControlPlane plane(options);
    EXPECT_EQ(plane.baseUrl(), "https://127.0.0.1:" + std::to_string(plane.port()));

    Call poll(plane.baseUrl() + pollPath + "?wait=1");
    poll.trust(certificate).header("X-Orv-Key: key");
    EXPECT_EQ(poll.send().status, 304);
    plane.setPolicy(firstText);
    EXPECT_EQ(poll.send().body, firstText);
}

TEST(AServerWithAnUnusableCertificate, DoesNotStart) {
    Options options;
    options.certificatePem = "nonsense";
    options.privateKeyPem = "nonsense";
    EXPECT_THROW(ControlPlane{options}, std::runtime_error);
}

}  // namespace
}  // namespace orvane::emulator
