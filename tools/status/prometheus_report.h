// The report as metrics, in Prometheus' text exposition format.
#pragma once

#include "status/verdict.h"

#include <string>
#include <string_view>

namespace orvane::status {

/// The samples of one account, one in a line. What is not known is left out. Pure.
std::string prometheusSamples(const Facts& facts, const Verdict& verdict);

/// The whole exposition: the samples of all accounts, grouped by metric, with the metrics' help
/// and types. Pure.
std::string prometheusExposition(std::string_view samples);

}  // namespace orvane::status
