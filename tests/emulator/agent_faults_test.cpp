#include "emulator/agent_requests.h"
#include "emulator/front/front.h"
#include "sample_account.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <variant>

namespace orvane::emulator {
namespace {

Request aPollToStrike(const std::string& ifNoneMatch = "") {
    Request request;
    request.method = "GET";
    request.path = pollPath;
    request.apiKey = "key";
    request.query["wait"] = "300";
    request.ifNoneMatch = ifNoneMatch;
    return request;
}

Decision struckBy(FaultKind kind, const Request& request = aPollToStrike(),
                  const std::optional<Policy>& policy = readPolicy(firstText)) {
    return decideWithFault({.kind = kind}, request, anAccount(), policy);
}

Reply replyWith(FaultKind kind, const Request& request = aPollToStrike(),
                const std::optional<Policy>& policy = readPolicy(firstText)) {
    return std::get<Reply>(struckBy(kind, request, policy));
}

TEST(AFault, MayBeAStatus) {
    EXPECT_EQ(replyWith(FaultKind::unauthorized).status, 401U);
    EXPECT_EQ(replyWith(FaultKind::forbidden).status, 403U);
    EXPECT_EQ(replyWith(FaultKind::notFound).status, 404U);
    EXPECT_EQ(replyWith(FaultKind::tooLargeHeader).status, 431U);
    EXPECT_EQ(replyWith(FaultKind::serverError).status, 500U);
    EXPECT_EQ(replyWith(FaultKind::instant304).status, 304U);
}

TEST(AFault, MayBeSilenceOrALostConnection) {
    EXPECT_TRUE(std::holds_alternative<Silence>(struckBy(FaultKind::neverAnswer)));
    EXPECT_EQ(std::get<Drop>(struckBy(FaultKind::outage)).bytes, "");
    const std::string garbage = std::get<Drop>(struckBy(FaultKind::garbage)).bytes;
    EXPECT_GT(garbage.size(), 4U);
    EXPECT_FALSE(garbage.starts_with("HTTP"));
}

TEST(AFault, MayBeAGatewayThatShutsDown) {
    Request request = aPollToStrike();
    EXPECT_EQ(std::get<Drop>(struckBy(FaultKind::goAway, request)).bytes, "");
    request.isHttp2 = true;
    EXPECT_EQ(std::get<Drop>(struckBy(FaultKind::goAway, request)).bytes, front::goAway);
}

TEST(AFault, MayDropTheConnectionInTheMiddleOfThePolicy) {
    const Reply reply = replyWith(FaultKind::dropMidBody);
    EXPECT_EQ(reply.status, 200U);
    EXPECT_EQ(reply.body, firstText.substr(0, firstText.size() / 2));
    EXPECT_EQ(reply.rest, Rest::lost);
    EXPECT_EQ(reply.promised, firstText.size());
    EXPECT_GT(replyWith(FaultKind::dropMidBody, aPollToStrike(), std::nullopt).body.size(), 0U);
}

TEST(AFault, MayTruncateThePolicy) {
    const Reply reply = replyWith(FaultKind::truncate);
    EXPECT_EQ(reply.status, 200U);
    EXPECT_EQ(reply.body, firstText.substr(0, firstText.size() / 2));
    EXPECT_EQ(reply.rest, Rest::nothing);
}

TEST(AFault, MayBeACaptivePortal) {
    const Reply reply = replyWith(FaultKind::htmlPortal);
    EXPECT_EQ(reply.status, 200U);
    EXPECT_EQ(reply.contentType, "text/html");
    EXPECT_TRUE(reply.body.starts_with("<!DOCTYPE html>"));
}

TEST(AFault, MayBeARedirect) {
    const Reply reply = replyWith(FaultKind::redirect);
    EXPECT_EQ(reply.status, 302U);
    EXPECT_EQ(reply.headers.at(0).second, "http://base/moved" + std::string(pollPath));
}

TEST(AFault, MayLeaveOutTheTag) {
    EXPECT_FALSE(nlohmann::json::parse(replyWith(FaultKind::noEtag).body).contains("etag"));
    EXPECT_EQ(replyWith(FaultKind::noEtag, aPollToStrike(), std::nullopt).body, "{}");
}

TEST(AFault, MayMakeTheTagLongAndTakesItBack) {
    const std::string tag =
        nlohmann::json::parse(replyWith(FaultKind::longEtag).body)["etag"].get<std::string>();
    EXPECT_EQ(tag.size(), 9000U);
    EXPECT_TRUE(tag.starts_with("a/1-"));
    const Decision next = struckBy(FaultKind::longEtag, aPollToStrike('"' + tag + '"'));
    EXPECT_TRUE(std::holds_alternative<Hold>(next));
    EXPECT_TRUE(
        std::holds_alternative<Hold>(struckBy(FaultKind::longEtag, aPollToStrike(), std::nullopt)));
}

TEST(AFault, MayBeAHugePolicy) {
    const Reply reply = replyWith(FaultKind::huge);
    EXPECT_EQ(reply.rest, Rest::spaces);
    EXPECT_EQ(reply.promised, 101U << 20U);
    EXPECT_TRUE(nlohmann::json::accept(reply.body));
}

TEST(AFault, ThatIsSlownessLeavesTheAnswerAsItIs) {
    EXPECT_EQ(replyWith(FaultKind::slow).body, firstText);
}

}  // namespace
}  // namespace orvane::emulator
