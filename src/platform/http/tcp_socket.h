#pragma once

namespace orvane {

/// After so many probes without an acknowledgment a connection ends.
inline constexpr int tcpProbes = 3;

/// A stream socket as socket(2) creates it, closed on exec, whose connection ends with an error if
/// its peer has acknowledged nothing for about a minute: neither what was sent nor the probes of
/// SO_KEEPALIVE. The system watches that without waking this process. The caller enables the probes
/// and sets their interval. -1 with errno set if there is no socket. Safe on any thread.
int openTcpSocket(int family, int type, int protocol) noexcept;

}  // namespace orvane
