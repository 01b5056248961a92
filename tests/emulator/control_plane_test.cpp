#include "emulator/control_plane.h"

#include "call.h"
#include "emulator/bad_input.h"
#include "emulator/chance.h"
#include "sample_account.h"
#include "support/sanitizers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace orvane::emulator {
namespace {

using namespace std::chrono_literals;

/// A control plane and what it reported to its watcher.
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

    ~AServer() override {
        plane_.reset();
        for (std::thread& poll : background_) {
            poll.join();
        }
    }

    std::string url(const std::string& target) const { return plane_->baseUrl() + target; }

    static Answer pollAt(const std::string& url, const std::string& ifNoneMatch) {
        Call call(url);
        call.header("X-Orv-Key: key");
        if (!ifNoneMatch.empty()) {
            call.header("If-None-Match: " + ifNoneMatch);
        }
        return call.send();
    }

    std::string pollUrl(const std::string& wait) const { return url(pollPath + ("?wait=" + wait)); }

    Answer poll(const std::string& wait, const std::string& ifNoneMatch = "") const {
        return pollAt(pollUrl(wait), ifNoneMatch);
    }

    // On a thread that is joined: what std::async starts may outlive its future, and even the
    // process's other threads, so that the libraries' memory of that thread counts as a leak.
    std::future<Answer> pollInBackground(const std::string& wait,
                                         const std::string& ifNoneMatch = "") {
        std::packaged_task<Answer()> task(
            [url = pollUrl(wait), ifNoneMatch] { return pollAt(url, ifNoneMatch); });
        auto answer = task.get_future();
        background_.emplace_back(std::move(task));
        return answer;
    }

    /// A poll that is given up while it is held.
    void giveUp() const {
        Call impatient(pollUrl("300"));
        EXPECT_EQ(impatient.header("X-Orv-Key: key").giveUpAfter(200ms).send().result,
                  CURLE_OPERATION_TIMEDOUT);
    }

    long putFaults(const std::string& json) const {
        return Call(url("/faults")).method("PUT").body(json).send().status;
    }

    Exchange lastPoll() {
        const std::scoped_lock lock(mutex_);
        const auto found = std::find_if(exchanges_.rbegin(), exchanges_.rend(),
                                        [](auto& each) { return each.isPoll; });
        return found == exchanges_.rend() ? Exchange{} : *found;
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
    std::vector<std::thread> background_;
};

TEST_F(AServer, ListensOnAFreePortOfTheLoopbackInterface) {
    EXPECT_NE(plane_->port(), 0);
    EXPECT_EQ(plane_->baseUrl(), "http://127.0.0.1:" + std::to_string(plane_->port()));
}

TEST_F(AServer, CannotTakeAPortThatIsTaken) {
    Options options;
    options.port = plane_->port();
    try {
        const ControlPlane second(options);
        FAIL();
    } catch (const BadInput& mistake) {
        EXPECT_EQ(mistake.what(), "cannot listen on 127.0.0.1:" + std::to_string(plane_->port()) +
                                      ": the port is taken; give another one with --port, or none "
                                      "for any");
    }
}

TEST_F(AServer, AnswersAFirstPollAtOnce) {
    plane_->setPolicy(firstText);
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
    giveUp();
    plane_->setPolicy(firstText);
    EXPECT_EQ(poll("300").status, 200);
}

TEST_F(AServer, NoticesAtOnceThatAnAgentHangsUp) {
    giveUp();
    const auto patience = std::chrono::steady_clock::now() + 10s;
    while (!lastExchange().hungUp && std::chrono::steady_clock::now() < patience) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_TRUE(lastExchange().hungUp);
    EXPECT_EQ(plane_->heldPolls(), 0U);
    EXPECT_EQ(lastExchange().status, 0U);
    EXPECT_LT(lastExchange().held, 100s);
}

TEST_F(AServer, HoldsNoLongerThanItIsTo) {
    Options options = optionsFor(*this);
    options.behavior.longestHold = 1s;
    plane_ = std::make_unique<ControlPlane>(options);
    EXPECT_EQ(poll("300").status, 304);
    EXPECT_GE(lastExchange().held, 1s);
}

TEST_F(AServer, AFaultStrikesWhatIsHeldAlreadyAndEndsWhenItIsSwitchedOff) {
    plane_->setPolicy(firstText);
    auto answer = pollInBackground("300", "\"a/1\"");
    untilHeld(1);
    EXPECT_EQ(putFaults(R"([{"name":"forbidden"}])"), 204);
    EXPECT_EQ(answer.get().status, 403);
    EXPECT_EQ(lastPoll().fault, "forbidden");
    EXPECT_EQ(Call(url("/faults")).send().body, R"([{"name":"forbidden"}])");
    EXPECT_EQ(putFaults("[]"), 204);
    EXPECT_EQ(poll("0").status, 200);
    EXPECT_EQ(lastPoll().fault, "");
}

TEST_F(AServer, AFaultOfOneDeviceLeavesOthersAlone) {
    plane_->setPolicy(firstText);
    plane_->setFaults({parseFault("unauthorized,device=laptop")});
    EXPECT_EQ(pollAt(pollUrl("0&agent_slug=laptop"), "").status, 401);
    EXPECT_EQ(pollAt(pollUrl("0&agent_slug=other"), "").status, 200);
}

TEST_F(AServer, KeepsItsFaultsWhenNewOnesAreUnusable) {
    plane_->setFaults({parseFault("truncate")});
    EXPECT_EQ(putFaults(R"([{"name":"slw"}])"), 400);
    EXPECT_EQ(Call(url("/faults")).send().body, R"([{"name":"truncate"}])");
}

TEST_F(AServer, NeverAnswersUntilTheFaultIsOver) {
    plane_->setPolicy(firstText);
    plane_->setFaults({parseFault("never-answer,seconds=1")});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(poll("0").status, 200);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 900ms);
    EXPECT_EQ(Call(url("/faults")).send().body, "[]");
}

TEST_F(AServer, AnswersLateWhenItIsSlow) {
    plane_->setPolicy(firstText);
    plane_->setFaults({parseFault("slow,delay=1")});
    EXPECT_EQ(poll("0").body, firstText);
    EXPECT_GE(lastExchange().held, 1s);
    EXPECT_EQ(lastExchange().fault, "slow");
}

TEST_F(AServer, LosesEveryConnectionInAnOutageButThoseOfPeople) {
    plane_->setPolicy(firstText);
    auto held = pollInBackground("300", "\"a/1\"");
    untilHeld(1);
    plane_->setFaults({parseFault("outage")});
    EXPECT_EQ(held.get().result, CURLE_GOT_NOTHING);
    EXPECT_EQ(poll("0").result, CURLE_GOT_NOTHING);
    Call effective(url(effectivePath));
    EXPECT_EQ(effective.header("X-Orv-Key: key").send().result, CURLE_GOT_NOTHING);
    EXPECT_EQ(lastExchange().fault, "outage");
    EXPECT_EQ(Call(url("/policy")).send().status, 200);
}

TEST_F(AServer, LosesTheConnectionInTheMiddleOfAPolicy) {
    plane_->setPolicy(firstText);
    plane_->setFaults({parseFault("drop-mid-body")});
    const Answer answer = poll("0");
    EXPECT_EQ(answer.result, CURLE_PARTIAL_FILE);
    EXPECT_EQ(answer.body, firstText.substr(0, firstText.size() / 2));
}

TEST_F(AServer, SendsWhatIsNotHttp) {
    plane_->setFaults({parseFault("garbage")});
    const CURLcode result = poll("0").result;
    EXPECT_TRUE(result == CURLE_UNSUPPORTED_PROTOCOL || result == CURLE_WEIRD_SERVER_REPLY)
        << curl_easy_strerror(result);
}

TEST_F(AServer, SendsAHugePolicyThatIsJson) {
    ORVANE_SKIP_UNDER_SANITIZERS("many megabytes take them minutes");
    plane_->setFaults({parseFault("huge")});
    const Answer answer = poll("0");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body.size(), 101U << 20U);
    EXPECT_EQ(answer.body.find_last_not_of(' '), answer.body.find('}'));
    EXPECT_EQ(lastExchange().bytes, 101U << 20U);
}

TEST_F(AServer, RedirectsAndSendsPortalsWithTheirHeaders) {
    plane_->setFaults({parseFault("redirect,device=a"), parseFault("html-portal")});
    const Answer redirect = pollAt(pollUrl("0&agent_slug=a"), "");
    EXPECT_EQ(redirect.status, 302);
    EXPECT_NE(redirect.headers.find("Location: " + plane_->baseUrl() + "/moved/api/"),
              std::string::npos);
    EXPECT_NE(poll("0").headers.find("Content-Type: text/html"), std::string::npos);
}

TEST_F(AServer, TheSeedDecidesHowLongPollsAreHeld) {
    // A busy machine answers late, never early, so these are seeds with which polls are held long.
    const auto drawn = [](std::uint64_t seed) {
        return 1600ms + std::chrono::milliseconds(chance({seed, "laptop", 1}, 401));
    };
    std::uint64_t seed = 0;
    for (int times = 0; times < 3; ++times) {
        do {
            ++seed;
        } while (drawn(seed) < 1980ms);
        Options options = optionsFor(*this);
        options.behavior.jitter = true;
        options.behavior.seed = seed;
        plane_ = std::make_unique<ControlPlane>(options);
        poll("2&agent_slug=laptop");
        EXPECT_GE(lastExchange().held, drawn(seed)) << "seed " << seed;
    }
}

TEST_F(AServer, StreamsWhatHappens) {
    std::string received;
    Call stream(url("/events"));
    std::thread reader([&] { stream.until("\"status\":304", received); });
    plane_->setPolicy(firstText);
    EXPECT_EQ(putFaults(R"([{"name":"instant-304","device":"laptop"}])"), 204);
    EXPECT_EQ(pollAt(pollUrl("300&agent_slug=laptop"), "").status, 304);
    reader.join();
    EXPECT_NE(received.find("event: policy\ndata: {\"tag\":\"a/1\""), std::string::npos)
        << received;
    EXPECT_NE(received.find("event: faults\ndata: [{\"device\":\"laptop\""), std::string::npos);
    EXPECT_NE(received.find("event: devices\ndata: [{"), std::string::npos);
}

TEST_F(AServer, EndsItsStreamsWhenItStops) {
    std::string first;
    std::string second;
    Call(url("/events")).until("event: faults", first);
    Call stream(url("/events"));
    std::thread reader([&] { stream.until("never", second); });
    std::this_thread::sleep_for(200ms);
    const auto begin = std::chrono::steady_clock::now();
    plane_.reset();
    reader.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    EXPECT_EQ(first, second);
}

TEST_F(AServer, RefusesToBeChangedByAnotherSite) {
    plane_->setPolicy(firstText);
    Call foreign(url("/policy"));
    foreign.method("PUT").body(secondText).header("Origin: http://evil.example");
    EXPECT_EQ(foreign.send().status, 403);
    EXPECT_EQ(poll("0").body, firstText);
}

TEST_F(AServer, LetsGoOfHeldPollsWhenItStops) {
    auto answer = pollInBackground("300");
    untilHeld(1);
    plane_.reset();
    EXPECT_NE(answer.get().status, 200);
}

TEST_F(AServer, LetsGoOfWhatItNeverAnswersWhenItStops) {
    Options options = optionsFor(*this);
    std::promise<void> held;
    options.onHeld = [&held](const Exchange&) { held.set_value(); };
    plane_ = std::make_unique<ControlPlane>(std::move(options));
    plane_->setFaults({parseFault("never-answer")});
    auto answer = pollInBackground("300");
    held.get_future().wait();
    plane_.reset();
    EXPECT_EQ(answer.get().status, 0);
}

TEST_F(AServer, ReportsEachExchangeToItsWatcher) {
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
    EXPECT_THROW(plane_->setPolicy("[]"), BadInput);
    const Answer refused = Call(url("/policy")).method("PUT").body("nonsense").send();
    EXPECT_EQ(refused.status, 400);
    EXPECT_EQ(refused.body, R"({"error":"the policy is not valid JSON: see line 1, column 2"})");
    EXPECT_EQ(poll("0").body, firstText);
}

TEST_F(AServer, TakesALargePolicyAndRefusesATooLargeOne) {
    ORVANE_SKIP_UNDER_SANITIZERS("many megabytes take them minutes");
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

TEST_F(AServer, GivesADeviceItsOwnAddress) {
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

}  // namespace
}  // namespace orvane::emulator
