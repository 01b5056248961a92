#pragma once

namespace orvane {

/// A stream socket as socket(2) makes it, closed on exec, whose connection ends with an error when
/// nothing has been heard from its peer for about a minute: neither what was sent nor the probes of
/// SO_KEEPALIVE were acknowledged. The system watches that without waking this process. Who uses
/// the socket turns the probes on and sets their interval. -1 with errno set when there is none.
/// Safe on any thread.
int openTcpSocket(int family, int type, int protocol) noexcept;

}  // namespace orvane
