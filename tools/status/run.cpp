#include "status/run.h"

#include "platform/process/environment.h"
#include "status/gather.h"
#include "status/render.h"

#include <cstdio>
#include <string>

namespace orvane::status {

namespace {

void print(std::FILE* file, std::string_view text) {
    (void)std::fwrite(text.data(), 1, text.size(), file);
}

AccountReport reportOwn(const Arguments& arguments, const Style& style) {
    const Facts facts = gatherFacts();
    const Verdict verdict = judge(facts);
    return {.account = facts.account,
            .verdict = verdict,
            .text = render(facts, verdict, arguments, style)};
}

}  // namespace

int run(const std::vector<std::string_view>& words, std::uint32_t user) {
    const auto arguments = parseArguments(words);
    if (!arguments) {
        print(stderr, usage());
        return static_cast<int>(Level::unknown);
    }
    if (arguments->wantsHelp) {
        print(stdout, usage());
        return 0;
    }
    if (arguments->wantsVersion) {
        print(stdout, "orvane-policy-status " ORVANE_VERSION "\n");
        return 0;
    }
    const Style style = styleFor(*arguments, terminalWidth());
    if (!arguments->isForAll) {
        const AccountReport report = reportOwn(*arguments, style);
        print(stdout, output(report.text, *arguments));
        return static_cast<int>(report.verdict.level);
    }
    if (user != 0) {
        print(stderr, "orvane-policy-status: --all needs root\n");
        return static_cast<int>(Level::unknown);
    }
    const auto reports = reportsOfAll(allAccounts(), [&] { return reportOwn(*arguments, style); });
    print(stdout, outputForAll(reports, *arguments, style));
    return static_cast<int>(overall(reports).level);
}

}  // namespace orvane::status
