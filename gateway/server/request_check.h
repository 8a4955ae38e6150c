// The checks a request head must pass before its body is read and before any handler sees it:
// message framing (Transfer-Encoding, Content-Length), Host, and the form and length of the
// request target. Pure functions without state; thread-safe.
//
// Every refusal closes the connection after its answer: once framing or the target is in doubt,
// the bytes that follow cannot be trusted to start the next request.
#pragma once

#include <boost/beast/http/message.hpp>
#include <cstddef>
#include <string>
#include <string_view>

namespace korva::gateway {

enum class HeadRefusal {
    kNone,
    kTargetTooLong,      // 414
    kTargetForm,         // 400: neither a path, an absolute http(s) URI, nor "*" for OPTIONS
    kHostMissing,        // 400: HTTP/1.1 without Host
    kHostRepeated,       // 400: more than one Host
    kHostInvalid,        // 400: Host is not host[:port]
    kCodingOnHttp10,     // 400: Transfer-Encoding in an HTTP/1.0 request
    kCodingWithLength,   // 400: Transfer-Encoding and Content-Length together
    kCodingNotChunked,   // 400: the last transfer coding is not chunked (or chunked twice)
    kCodingUnsupported,  // 501: a coding other than chunked before the final chunked
};

struct RefusalAnswer {
    int status;
    const char* text;
};

// The first refusal that applies to `head`, kNone when it may be served.
HeadRefusal checkRequestHead(const boost::beast::http::request_header<>& head,
                             std::size_t maxTargetBytes);

// Status and error text of a refusal (kNone gives 200).
RefusalAnswer refusalAnswer(HeadRefusal refusal);

// The path and query of an accepted target: an absolute-form target ("http://host/p?q")
// loses its scheme and authority ("/p?q", "/" when it has no path); others are returned as is.
std::string originForm(std::string_view target);

// True when the request line at the start of `bytes` (a head that exceeded the header limit)
// carries a target longer than maxTargetBytes: such a head is answered 414, not 431.
bool requestLineTooLong(std::string_view bytes, std::size_t maxTargetBytes);

}  // namespace korva::gateway
