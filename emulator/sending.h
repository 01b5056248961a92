// Decisions, carried out with libmicrohttpd.
#pragma once

#include "emulator/decision.h"

#include <microhttpd.h>

namespace orvane::emulator {

/// Queues the answer; MHD_NO, on which the library closes the connection, when there is no memory.
MHD_Result send(MHD_Connection* connection, Reply reply);

/// Sends the bytes past the HTTP library, and has it close the connection.
MHD_Result send(MHD_Connection* connection, const Drop& drop);

}  // namespace orvane::emulator
