// Limits and timeouts of one HTTP listener's connections.
#pragma once

#include <chrono>
#include <cstddef>

namespace korva::gateway {

struct ServerLimits {
    // Request head larger than this: 431 and the connection is closed.
    std::size_t maxHeaderBytes = 16 * 1024;
    // Request target longer than this: 414 and the connection is closed.
    std::size_t maxTargetBytes = 8192;
    // Request body larger than this: 413 and the connection is closed.
    std::size_t maxBodyBytes = 1024 * 1024;
    // A whole request (from the first byte awaited to the last byte of the body) must arrive
    // within this time. A connection that received no byte of a request by then is closed
    // silently (idle keep-alive); one with part of a request gets 408, then is closed.
    std::chrono::milliseconds idleTimeout{30000};
    // A write that makes no progress for this long closes the connection.
    std::chrono::milliseconds writeTimeout{10000};
    // Accepted for compatibility and no longer used: a stream write never waits for the socket
    // (maxStreamQueueBytes bounds what a slow reader can hold instead).
    std::chrono::milliseconds streamWriteWait{3000};
    // A request answered asynchronously must be answered within this time, else 504.
    std::chrono::milliseconds asyncAnswerTimeout{60000};
    // Stream bytes accepted and not yet written, per connection. A part that would exceed it
    // closes the connection and its write reports the link broken.
    std::size_t maxStreamQueueBytes = 1024 * 1024;
    // Connections beyond this are closed right after accept. The gateway lowers it to fit the
    // open-file limit (see GatewayServer).
    std::size_t maxConnections = 20000;
    // Connections from one client address beyond this are closed right after accept.
    std::size_t maxConnectionsPerClient = 64;
};

}  // namespace korva::gateway
