// What is sent to a control plane that is checked, and what is said of real ones.
#include "emulator/check/check.h"

#include "control_plane/api.h"
#include "emulator/bad_input.h"
#include "emulator/certificate.h"
#include "emulator/check/client.h"
#include "emulator/check/trusted_authority.h"
#include "emulator/control_plane.h"
#include "emulator/policy_file.h"
#include "sample_account.h"
#include "scratch_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace orvane::emulator {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using namespace std::chrono_literals;

/// For a machine that is busy, too; where nothing is held, none of it goes by.
constexpr std::chrono::seconds ample{30};

Subject aSubject(const std::string& url, std::chrono::seconds wait = 1s) {
    return {.profile = {.name = "check",
                        .apiUrl = url,
                        .apiKey = "key",
                        .agentSlug = "slug",
                        .tenant = std::nullopt},
            .enrollment = std::nullopt,
            .wait = wait};
}

Subject anEnrolledSubject(const std::string& url, std::chrono::seconds wait = 1s) {
    Subject subject = aSubject(url, wait);
    subject.profile.apiKey = "not-the-key";
    subject.enrollment =
        DeviceEnrollment{.deviceToken = "device", .tenantSlug = "tenant", .apiUrl = url};
    return subject;
}

std::vector<std::string> textsIn(const Report& report) {
    std::vector<std::string> texts(report.findings.size());
    std::transform(report.findings.begin(), report.findings.end(), texts.begin(), textOf);
    return texts;
}

/// What is sent to a control plane that answers each request with the next of `outcomes`.
struct Course {
    std::vector<std::string> requests;
    Report report;
};

Course courseWith(std::vector<Outcome> outcomes, const Subject& subject = aSubject("http://h")) {
    Course course;
    std::size_t next = 0;
    course.report = check(
        subject,
        [&](const HttpRequest& request, std::chrono::milliseconds patience) {
            std::string text = request.url.text();
            for (const HttpHeader& header : request.headers) {
                text += ' ' + header.value.substr(0, 30);
            }
            course.requests.push_back(text + ' ' + std::to_string(patience.count()));
            return next < outcomes.size() ? outcomes[next++] : Outcome{.isOutstanding = true};
        },
        [](const Finding&) {});
    return course;
}

Outcome aPolicyAnswer(const std::string& tag) {
    return {.status = 200,
            .body = R"({"etag":")" + tag + "\"}",
            .headers = {{"cache-control", "no-store"}}};
}

Outcome aStatusAnswer(std::int64_t status) {
    return {.status = status, .body = ""};
}

TEST(ACheck, SendsWhatADaemonSends) {
    const std::string json = " application/json";
    const std::string poll =
        "http://h/api/orvane/v1/connect/guard-config/?wait=300&agent_slug=slug";
    const std::string fetch =
        "http://h/api/orvane/v1/guard/effective/"
        "?agent_slug=slug&hardware_uuid=00000000-0000-0000-0000-000000000000";
    const Course course = courseWith({aPolicyAnswer("v1"), aStatusAnswer(404), aStatusAnswer(401),
                                      aStatusAnswer(401), aPolicyAnswer("v1"), aStatusAnswer(431),
                                      aPolicyAnswer("v1"), aStatusAnswer(304)});
    EXPECT_THAT(
        course.requests,
        ElementsAre(poll + " key" + json + " 1000", fetch + " key 1000",
                    poll + " orvane-check-not-valid" + json + " 1000",
                    fetch + " orvane-check-not-valid 1000",
                    poll + " key" + json + " \"orvane-check-unknown\" 1000",
                    poll + " key" + json + " \"xxxxxxxxxxxxxxxxxxxxxxxxxxxxx 1000",
                    poll + " key" + json + " 1000",
                    "http://h/api/orvane/v1/connect/guard-config/?wait=1&agent_slug=slug key" +
                        json + " \"v1\" 2000",
                    poll + " key" + json + " \"v1\" 1000"));
    EXPECT_THAT(textsIn(course.report), IsEmpty());
    EXPECT_EQ(course.report.requests, 9U);
    EXPECT_TRUE(course.report.isComplete);
}

TEST(ACheck, UsesWhatTheLookupOfTheDeviceBrings) {
    const Outcome config{
        .status = 200,
        .body = R"({"upload_api_key":"k2","agent_slug":"s2","api_url":"http://h2/base/"})",
        .headers = {{"cache-control", "no-store"}}};
    const Course course = courseWith({config, aStatusAnswer(401)}, anEnrolledSubject("http://h"));
    const std::string lookup = "http://h/api/orvane/v1/endpoint/agent-config/?process=claude";
    EXPECT_THAT(
        course.requests,
        ElementsAre(lookup + " device tenant 1000", lookup + " orvane-check-not-valid tenant 1000",
                    "http://h2/base/api/orvane/v1/connect/guard-config/?wait=300&agent_slug=s2 k2 "
                    "application/json 1000"));
    EXPECT_THAT(textsIn(course.report),
                ElementsAre(HasSubstr("A poll without an ETag: no answer")));
    EXPECT_FALSE(course.report.isComplete);
}

TEST(ACheck, EndsWithoutAKey) {
    const Course course =
        courseWith({aStatusAnswer(401), aStatusAnswer(401)}, anEnrolledSubject("http://h"));
    EXPECT_THAT(course.requests, SizeIs(2));
    EXPECT_THAT(textsIn(course.report), ElementsAre(HasSubstr("The lookup of the device")));
}

TEST(ACheck, LeavesTagsOutThatADaemonNeverSends) {
    for (const std::string& tag : {std::string("a\\nb"), std::string(65'535, 'x'), std::string()}) {
        EXPECT_THAT(
            courseWith({aPolicyAnswer(tag), aStatusAnswer(404), aStatusAnswer(401)}).requests,
            SizeIs(4))
            << tag.size();
    }
}

TEST(ACheck, AllowsThePolicyToChangeMeanwhile) {
    std::vector<Outcome> outcomes{aPolicyAnswer("v1"), aStatusAnswer(404),  aStatusAnswer(401),
                                  aStatusAnswer(401),  aPolicyAnswer("v1"), aPolicyAnswer("v1"),
                                  aStatusAnswer(304),  aPolicyAnswer("v2")};
    const Course course = courseWith(outcomes);
    EXPECT_THAT(course.requests.back(), HasSubstr("\"v2\""));
    EXPECT_THAT(textsIn(course.report), IsEmpty());
    outcomes.push_back(aPolicyAnswer("v3"));
    EXPECT_THAT(textsIn(courseWith(outcomes).report),
                ElementsAre(HasSubstr("without the same ETag")));
}

TEST(ACheck, EndsWithASummary) {
    Report report{.findings = {}, .requests = 9, .isComplete = true};
    EXPECT_EQ(summaryOf(report, anEnrolledSubject("http://h")),
              "9 requests, nothing wrong; a hold was watched for 1 s, --wait SECONDS changes that");
    report = {.findings = Findings(1), .requests = 1, .isComplete = false};
    EXPECT_EQ(summaryOf(report, aSubject("http://h")),
              "1 request, 1 finding; without a policy that has an ETag there is no more to try; "
              "the lookup of devices was not tried, which takes --device and --tenant");
    report.findings.resize(2);
    EXPECT_THAT(summaryOf(report, aSubject("http://h")), HasSubstr("1 request, 2 findings"));
}

Report checked(const Subject& subject) {
    Client client;
    return check(
        subject,
        [&client](const auto& request, auto patience) { return client.ask(request, patience); },
        [](const Finding&) {});
}

Options optionsOfAGoodOne() {
    Options options;
    options.account = anAccount();
    options.account.apiUrl.clear();  // its own
    return options;
}

TEST(AGoodControlPlane, HasNothingWrong) {
    ControlPlane plane(optionsOfAGoodOne());
    plane.setPolicy(firstText);
    const Report report = checked(anEnrolledSubject(plane.baseUrl(), 3s));
    EXPECT_THAT(textsIn(report), IsEmpty());
    EXPECT_EQ(report.requests, 10U);
    EXPECT_TRUE(report.isComplete);
}

struct FaultCase {
    FaultKind kind;
    const char* text;
    std::chrono::seconds wait = ample;
};

const std::vector<FaultCase>& faultCases() {
    static const std::vector<FaultCase> cases{
        {FaultKind::unauthorized, "status 401"},
        {FaultKind::forbidden, "status 403"},
        {FaultKind::notFound, "Serve this address"},
        {FaultKind::tooLargeHeader, "status 431"},
        {FaultKind::serverError, "status 500"},
        {FaultKind::slow, "no answer within 1.", 1s},
        {FaultKind::neverAnswer, "no answer within 1.", 1s},
        {FaultKind::dropMidBody, "status 200, then \"The network connection was lost\""},
        {FaultKind::truncate, "JSON that ends too early"},
        {FaultKind::garbage, "does not start with a valid HTTP status line"},
        {FaultKind::htmlPortal, "a page instead of JSON"},
        {FaultKind::redirect, "follows no redirect"},
        {FaultKind::instant304, "as fast as the answers come"},
        {FaultKind::noEtag, "without the member \"etag\""},
        {FaultKind::longEtag, "an \"etag\" of 9000 bytes", 1s},
        {FaultKind::huge, "larger than 104857600 bytes"},
        {FaultKind::goAway, "The network connection was lost"},
        {FaultKind::outage, "The network connection was lost"}};
    return cases;
}

class AFaultyControlPlane : public testing::TestWithParam<FaultCase> {};

TEST_P(AFaultyControlPlane, HasItsFaultNamed) {
    ControlPlane plane(optionsOfAGoodOne());
    plane.setPolicy(firstText);
    plane.setFaults({{.kind = GetParam().kind}});
    EXPECT_THAT(textsIn(checked(aSubject(plane.baseUrl(), GetParam().wait))),
                Contains(HasSubstr(GetParam().text)));
}

std::string nameOfFault(const testing::TestParamInfo<FaultCase>& info) {
    std::string name(nameOf(info.param.kind));
    std::erase(name, '-');
    return name;
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, AFaultyControlPlane, testing::ValuesIn(faultCases()),
                         nameOfFault);

TEST(FaultsThatAreNamed, AreAllThereAre) {
    std::set<FaultKind> kinds;
    for (const FaultCase& each : faultCases()) {
        kinds.insert(each.kind);
    }
    EXPECT_EQ(kinds.size(), faultDescriptions().size());
}

TEST(AControlPlaneThatHoldsNothing, IsABusyLoop) {
    Options options = optionsOfAGoodOne();
    options.behavior.longestHold = 0s;
    ControlPlane plane(options);
    plane.setPolicy(firstText);
    EXPECT_THAT(textsIn(checked(aSubject(plane.baseUrl(), ample))),
                ElementsAre(AllOf(HasSubstr("A poll with the live ETag: status 304 after"),
                                  HasSubstr("Hold it until there is another policy"))));
}

TEST(NoControlPlane, IsOneFinding) {
    EXPECT_THAT(textsIn(checked(aSubject("http://127.0.0.1:1", ample))),
                ElementsAre(HasSubstr("Could not connect to the server")));
}

using ACheckOverHttps = ScratchDirectory;

Options httpsOptions(const TlsFiles& files) {
    Options options = optionsOfAGoodOne();
    options.certificatePem = *readFile(files.certificate);
    options.privateKeyPem = *readFile(files.privateKey);
    return options;
}

TEST_F(ACheckOverHttps, TrustsTheAuthorityThatItIsGiven) {
    const TlsFiles files = makeTlsFiles(path_, "127.0.0.1");
    ControlPlane plane(httpsOptions(files));
    plane.setPolicy(firstText);
    EXPECT_THAT(textsIn(checked(aSubject(plane.baseUrl(), ample))),
                ElementsAre(HasSubstr("--ca FILE")));
    std::filesystem::path place;
    {
        const TrustedAuthority authority(files.authority);
        place = TrustedAuthority::directory();
        EXPECT_THAT(textsIn(checked(aSubject(plane.baseUrl(), 3s))), IsEmpty());
    }
    EXPECT_FALSE(std::filesystem::exists(place));
    EXPECT_EQ(TrustedAuthority::directory(), "");
}

/// What exactly is wrong differs between the versions of libcurl.
TEST_F(ACheckOverHttps, NamesTheFaultsBelowHttp2) {
    const TlsFiles files = makeTlsFiles(path_, "127.0.0.1");
    ControlPlane plane(httpsOptions(files));
    plane.setPolicy(firstText);
    const TrustedAuthority authority(files.authority);
    for (const FaultKind kind : {FaultKind::goAway, FaultKind::outage, FaultKind::garbage}) {
        plane.setFaults({{.kind = kind}});
        EXPECT_THAT(textsIn(checked(aSubject(plane.baseUrl(), ample))),
                    ElementsAre(AllOf(HasSubstr("A poll without an ETag: \""),
                                      HasSubstr("polls again after 60 s"))))
            << nameOf(kind);
    }
}

TEST_F(ACheckOverHttps, TakesFilesWithSeveralAuthorities) {
    const TlsFiles one = makeTlsFiles(path_ / "one", "127.0.0.1");
    const TlsFiles other = makeTlsFiles(path_ / "other", "127.0.0.1");
    const auto file = write("both", *readFile(one.authority) + *readFile(other.authority));
    const TrustedAuthority authority(file);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(TrustedAuthority::directory()), {}),
              2);
}

TEST_F(ACheckOverHttps, RefusesFilesWithoutACertificate) {
    for (const auto& file : {write("file", "no certificate"), path_ / "none"}) {
        EXPECT_THROW(TrustedAuthority{file}, BadInput);
        EXPECT_EQ(TrustedAuthority::directory(), "");
    }
}

}  // namespace
}  // namespace orvane::emulator
