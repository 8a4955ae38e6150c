// One access-log line per request, nginx-like:
//   <client> - <user> [<arrival time>] "<METHOD> <target> HTTP/1.1" <status> <bytes> <seconds>
// written through the host log function at level 4 once the answer (or a stream's head) is
// written, or when the connection ends before it could be. Text taken from the request is made
// safe for a log line: control bytes, non-ASCII bytes, '"' and '\' are written as \xHH.
// Pure functions; thread-safe.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace korva::gateway {

struct AccessRecord {
    std::string client;   // peer address without port
    std::string method;   // as received ("-" when the head could not be read)
    std::string target;   // as received
    std::string version;  // "HTTP/1.1"
    std::string user;     // the username of the Authorization header, "" for none
    std::chrono::system_clock::time_point arrival;
    int status = 0;         // 499: the client left before its answer was written
    std::size_t bytes = 0;  // bytes of the answer that went out, head included
    std::chrono::steady_clock::duration duration{};
};

// The level the access log is written at.
inline constexpr int kAccessLogLevel = 4;

// Escapes text for a log line (see above); at most maxBytes of it are kept, "..." marks a cut.
std::string logSafe(std::string_view text, std::size_t maxBytes = 8192);

// The username parameter of a Digest Authorization value, "" when there is none.
std::string authorizationUser(std::string_view authorization);

// The line, without a trailing newline.
std::string formatAccessLine(const AccessRecord& record);

// Writes the line through the host log at kAccessLogLevel, module `tag`, and hands the record
// to the access observer, if one is installed (whatever the log level).
void writeAccessLine(const char* tag, const AccessRecord& record);

// Receives every access record as its line is written (the admin console's request log).
// Called on the connection's strand; must not block and must not throw.
class AccessObserver {
  public:
    virtual ~AccessObserver() = default;
    virtual void onAccess(const char* tag, const AccessRecord& record) noexcept = 0;
};

// Installs the process's one observer; nullptr removes it. removeAccessObserver removes it only
// while `observer` is the one installed. The caller keeps the observer alive until no
// writeAccessLine can still be running (the server removes it once its I/O threads are joined).
void setAccessObserver(AccessObserver* observer);
void removeAccessObserver(AccessObserver* observer);

}  // namespace korva::gateway
