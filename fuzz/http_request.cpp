// The gateway's HTTP request parsing: the input is the byte stream a client sends on one
// connection. It is read the way a connection reads it: a Beast request_parser per request with
// the listener's header and body limits, the bytes arriving in chunks of pseudo-random size (1
// to 300 bytes, from a hash of the input, so a crash replays), requests following each other
// while keep-alive holds, the end of the input as the peer closing. It runs twice: with the
// default limits and with the smallest a configuration accepts (1024 bytes each), so that both
// limit answers are reached with short inputs.
// Invariants: no parse error other than the ones the connection answers or closes on; a complete
// request never holds more than the body limit; the head of a request stays within its limit.
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/fuzz_support.h"
#include "gateway/server/server_limits.h"

namespace {

namespace http = boost::beast::http;
using Parser = http::request_parser<http::string_body>;

// splitmix64: chunk sizes from the input's hash.
struct Chunks {
    uint64_t state;
    size_t next() {
        uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return 1 + static_cast<size_t>((z ^ (z >> 31)) % 300);
    }
};

uint64_t hashOf(std::string_view bytes) {
    uint64_t h = 0xCBF29CE484222325ull;  // FNV-1a
    for (const char c : bytes) h = (h ^ static_cast<unsigned char>(c)) * 0x100000001B3ull;
    return h;
}

// A new parser for the next request, as the connection makes one (parsers cannot be moved).
void renew(std::optional<Parser>& parser, const korva::gateway::ServerLimits& limits) {
    parser.emplace();
    parser->header_limit(static_cast<std::uint32_t>(limits.maxHeaderBytes));
    parser->body_limit(limits.maxBodyBytes);
}

// An error the connection answers (431, 413, 400) or closes on (end of stream).
bool expectedError(const boost::beast::error_code& ec) {
    return ec == http::error::header_limit || ec == http::error::body_limit ||
           ec == http::error::end_of_stream || ec == http::error::partial_message ||
           ec.category() == http::make_error_code(http::error::bad_version).category();
}

// What the connection and the handlers read of a complete request.
void inspect(Parser& parser, const korva::gateway::ServerLimits& limits) {
    auto request = parser.release();
    korva::fuzz::require(request.body().size() <= limits.maxBodyBytes, "body beyond its limit");
    (void)request.keep_alive();
    (void)request[http::field::expect];
    (void)request[http::field::authorization];
    (void)request["X-Forwarded-For"];
    (void)request.method_string();
    (void)request.target();
}

void readConnection(std::string_view input, const korva::gateway::ServerLimits& limits) {
    Chunks chunks{hashOf(input)};
    std::string buffer;  // bytes received and not yet consumed by a parser
    size_t received = 0;
    std::optional<Parser> parser;
    renew(parser, limits);
    for (;;) {
        boost::beast::error_code ec;
        const size_t used = buffer.empty() ? 0 : parser->put(boost::asio::buffer(buffer), ec);
        buffer.erase(0, used);
        if (buffer.empty() && !ec && !parser->is_done()) ec = http::error::need_more;
        if (ec == http::error::need_more) {
            if (received == input.size()) {
                // The peer closed: as Beast's read does, end of stream before any byte of a
                // request, else the parser decides whether the request is complete.
                ec = {};
                if (!parser->got_some()) return;
                parser->put_eof(ec);
                if (!ec && parser->is_done()) inspect(*parser, limits);
                korva::fuzz::require(!ec || expectedError(ec), "unexpected end-of-input error",
                                     ec.message());
                return;
            }
            const size_t n = std::min(chunks.next(), input.size() - received);
            buffer.append(input.substr(received, n));
            received += n;
            korva::fuzz::require(
                parser->is_header_done() || buffer.size() <= limits.maxHeaderBytes + 300,
                "head kept beyond its limit");
            continue;
        }
        if (ec) {
            korva::fuzz::require(expectedError(ec), "unexpected parse error", ec.message());
            return;  // the connection answers and closes
        }
        if (!parser->is_done()) continue;  // head complete, body follows
        const bool keepAlive = parser->get().keep_alive();
        inspect(*parser, limits);
        if (!keepAlive) return;
        renew(parser, limits);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    readConnection(input, korva::gateway::ServerLimits{});
    korva::gateway::ServerLimits smallest;
    smallest.maxHeaderBytes = 1024;
    smallest.maxBodyBytes = 1024;
    readConnection(input, smallest);
    return 0;
}
