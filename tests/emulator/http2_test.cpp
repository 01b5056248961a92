// The control plane over HTTP/2, and what its faults are there.
#include "call.h"
#include "emulator/certificate.h"
#include "emulator/control_plane.h"
#include "emulator/policy_file.h"
#include "sample_account.h"
#include "scratch_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace orvane::emulator {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using namespace std::chrono_literals;

class AControlPlaneOverHttp2 : public ScratchDirectory {
  protected:
    static Options optionsFor(const TlsFiles& files) {
        Options options;
        options.account = anAccount();
        options.certificatePem = *readFile(files.certificate);
        options.privateKeyPem = *readFile(files.privateKey);
        return options;
    }

    Call call(const std::string& path) {
        Call call(plane.baseUrl() + path);
        call.trust(files.authority).header("X-Orv-Key: key");
        return call;
    }
    Call poll(const std::string& wait = "300") {
        return call(std::string(pollPath) + "?wait=" + wait);
    }

    /// Blocks until a poll is held.
    void waitForHold() const {
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (plane.heldPolls() == 0 && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(1ms);
        }
        EXPECT_EQ(plane.heldPolls(), 1U);
    }

    const TlsFiles files = makeTlsFiles(path_ / "tls", "127.0.0.1");
    ControlPlane plane{optionsFor(files)};
};

TEST_F(AControlPlaneOverHttp2, ServesThePolicyAndHoldsPolls) {
    plane.setPolicy(firstText);
    const Answer first = poll().send();
    EXPECT_EQ(first.version, CURL_HTTP_VERSION_2_0);
    EXPECT_EQ(first.status, 200);
    EXPECT_EQ(first.body, firstText);
    const Answer second = poll("1").header("If-None-Match: \"a/1\"").send();
    EXPECT_EQ(second.version, CURL_HTTP_VERSION_2_0);
    EXPECT_EQ(second.status, 304);
    EXPECT_THAT(second.headers, HasSubstr("cache-control: no-store\r\n"));
}

TEST_F(AControlPlaneOverHttp2, SpeaksHttp11WithThoseWhoDoNotOfferIt) {
    plane.setPolicy(firstText);
    const Answer answer = poll().offerOnly(CURL_HTTP_VERSION_1_1).send();
    EXPECT_EQ(answer.version, CURL_HTTP_VERSION_1_1);
    EXPECT_EQ(answer.body, firstText);
}

TEST_F(AControlPlaneOverHttp2, TakesPoliciesOfKnownAndUnknownLength) {
    const std::string large = R"({"etag":"large","x":")" + std::string(3'000'000, 'x') + "\"}";
    for (const char* const header : {"Accept: */*", "Transfer-Encoding: chunked"}) {
        EXPECT_EQ(call("/policy").method("PUT").header(header).body(large).send().status, 204);
        EXPECT_TRUE(call("/policy").send().body == large);
        plane.setPolicy(firstText);
    }
}

TEST_F(AControlPlaneOverHttp2, AnswersWithAHeadAlone) {
    Call head = call("/");
    head.withoutBody();
    const Answer answer = head.send();
    EXPECT_EQ(answer.result, CURLE_OK);
    EXPECT_EQ(answer.status, 405);
    EXPECT_EQ(answer.body, "");
}

TEST_F(AControlPlaneOverHttp2, StreamsEvents) {
    std::string received;
    std::thread reader([&] { call("/events").until("a/1", received); });
    plane.setPolicy(firstText);
    reader.join();
    EXPECT_THAT(received, StartsWith("retry: 1000\n\n"));
    EXPECT_THAT(received, HasSubstr("a/1"));
}

TEST_F(AControlPlaneOverHttp2, KnowsItsOwnAddressAndOthers) {
    EXPECT_EQ(call("/faults").send().status, 200);
    EXPECT_EQ(call("/faults").header("Host: evil.example").send().status, 403);
    EXPECT_EQ(call("/faults")
                  .method("PUT")
                  .header("Origin: https://evil.example")
                  .body("[]")
                  .send()
                  .status,
              403);
}

TEST_F(AControlPlaneOverHttp2, NoticesAtOnceThatAnAgentHangsUp) {
    EXPECT_EQ(poll().giveUpAfter(500ms).send().result, CURLE_OPERATION_TIMEDOUT);
    const auto end = std::chrono::steady_clock::now() + 5s;
    while (plane.heldPolls() > 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(plane.heldPolls(), 0U);
}

TEST_F(AControlPlaneOverHttp2, LetsGoOfAPollThatIsResetAndKeepsTheOtherOfItsConnection) {
    const std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)> multi(curl_multi_init(),
                                                                      curl_multi_cleanup);
    int running = 0;
    const auto transferUntil = [&](const auto& condition) {
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (!condition() && std::chrono::steady_clock::now() < end) {
            curl_multi_perform(multi.get(), &running);
            curl_multi_poll(multi.get(), nullptr, 0, 1, nullptr);
        }
        EXPECT_TRUE(condition());
    };
    Call reset = poll();
    Call kept = poll();
    Answer none;
    Answer answer;
    curl_multi_add_handle(multi.get(), reset.handle(none));
    transferUntil([&] { return plane.heldPolls() == 1; });
    curl_multi_add_handle(multi.get(), kept.handle(answer));
    transferUntil([&] { return plane.heldPolls() == 2; });
    curl_multi_remove_handle(multi.get(), reset.handle(none));
    Call other = call("/faults");  // together with which the library sends the reset
    Answer faults;
    curl_multi_add_handle(multi.get(), other.handle(faults));
    transferUntil([&] { return plane.heldPolls() == 1; });
    plane.setPolicy(firstText);
    transferUntil([&] { return running == 0; });
    EXPECT_EQ(answer.body, firstText);
    long connections = -1;
    curl_easy_getinfo(kept.handle(answer), CURLINFO_NUM_CONNECTS, &connections);
    EXPECT_EQ(connections, 0);
    curl_multi_remove_handle(multi.get(), other.handle(faults));
    curl_multi_remove_handle(multi.get(), kept.handle(answer));
}

/// What a client sees of a fault, over whichever version of HTTP. Which error it is differs between
/// the versions of libcurl.
struct Seen {
    FaultKind kind;
    bool isError = true;
    long status = 0;
    std::chrono::milliseconds patience = 20s;
};

TEST_F(AControlPlaneOverHttp2, HasTheSameFaultsBelowHttpInBothVersions) {
    plane.setPolicy(firstText);
    for (const Seen& seen :
         {Seen{FaultKind::goAway}, Seen{FaultKind::outage}, Seen{FaultKind::garbage},
          Seen{FaultKind::truncate, false, 200}, Seen{FaultKind::neverAnswer, true, 0, 500ms}}) {
        for (const long version : {CURL_HTTP_VERSION_2TLS, CURL_HTTP_VERSION_1_1}) {
            SCOPED_TRACE(std::string(nameOf(seen.kind)) + ' ' + std::to_string(version));
            plane.setFaults({{.kind = seen.kind}});
            const Answer answer = poll().offerOnly(version).giveUpAfter(seen.patience).send();
            EXPECT_EQ(answer.result != CURLE_OK, seen.isError) << answer.result;
            EXPECT_EQ(answer.result == CURLE_OPERATION_TIMEDOUT, seen.patience < 1s);
            EXPECT_EQ(answer.status, seen.status);
            EXPECT_EQ(answer.body,
                      firstText.substr(0, seen.status == 0 ? 0 : firstText.size() / 2));
        }
    }
    plane.setFaults({});
    EXPECT_EQ(poll().send().body, firstText);
}

TEST_F(AControlPlaneOverHttp2, ResetsTheStreamInTheMiddleOfThePolicy) {
    plane.setPolicy(firstText);
    plane.setFaults({{.kind = FaultKind::dropMidBody}});
    const Answer answer = poll().send();
    EXPECT_EQ(answer.result, CURLE_HTTP2_STREAM);
    // Not every version of libcurl hands on what it has at that moment.
    EXPECT_LE(answer.body.size(), firstText.size() / 2);
}

TEST_F(AControlPlaneOverHttp2, EndsHeldPollsWithGoAway) {
    Answer answer;
    std::thread agent([&] { answer = poll().giveUpAfter(20s).send(); });
    waitForHold();
    plane.setFaults({{.kind = FaultKind::goAway}});
    agent.join();
    EXPECT_NE(answer.result, CURLE_OK);
    EXPECT_NE(answer.result, CURLE_OPERATION_TIMEDOUT);
    EXPECT_EQ(plane.heldPolls(), 0U);
}

}  // namespace
}  // namespace orvane::emulator
