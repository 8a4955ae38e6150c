// The answers the gateway writes, as Beast messages: built here, serialised by Beast on the
// connection (write_job.h). The gateway owns the framing; what a handler or the plug-in gives
// is status, headers and body.
// Thread safety: pure functions; an HttpAnswer is a plain value.
#pragma once

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <string>

#include "gateway/server/header_list.h"

namespace korva::gateway {

using HttpAnswer = boost::beast::http::response<boost::beast::http::string_body>;

// A complete HTTP/1.1 answer: the status (outside 100..999: 500) with its standard reason, the
// `headers` in their order, Content-Length of `body`, then Connection: keep-alive or close as
// `keepAlive` says. The body is moved in, not copied. Headers the gateway cannot send as given
// are dropped: framing ones (Content-Length, Connection, Transfer-Encoding), empty names, names
// or values holding CR, LF or NUL (they would split the head) and those too long for a header.
// Leading and trailing blanks of a value are not part of it and are not sent.
HttpAnswer makeAnswer(int status, const HeaderList& headers, std::string body, bool keepAlive);

// The head of a stream answer: status and headers as makeAnswer, then Connection: close and
// neither Content-Length nor chunked coding (the stream ends when the connection does).
HttpAnswer makeStreamHead(int status, const HeaderList& headers);

}  // namespace korva::gateway
