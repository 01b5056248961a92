// Gathers what is known about the daemon of the account that runs this. Reads files and asks the
// service manager; sends nothing and writes nothing.
#pragma once

#include "status/facts.h"

namespace orvane::status {

Facts gatherFacts();

}  // namespace orvane::status
