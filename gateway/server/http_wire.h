// Serialisation of HTTP/1.1 answers as the gateway writes them on a connection.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace korva::gateway {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

// The Content-Type for a body the plug-in returned without naming one: application/xml for an
// XML document, application/json for JSON text, text/plain for other text, "" for no body.
std::string guessContentType(const std::string& body);

// True when `headers` hold a header of this name (compared without regard to case).
bool hasHeader(const HeaderList& headers, const std::string& name);

// The one default-type rule for the plug-in's answers, synchronous or asynchronous: adds
// guessContentType(body) unless the headers name a Content-Type or the body is empty.
void addDefaultContentType(HeaderList& headers, const std::string& body);

// A complete answer with Content-Length. `headers` are written as given (a "Content-Length" or
// "Connection" among them is ignored: the gateway owns framing); `keepAlive` picks the
// Connection header.
std::string formatAnswer(int status, const HeaderList& headers, const std::string& body,
                         bool keepAlive);

// The head formatAnswer would write for a body of `contentLength` bytes, alone: the answer to
// HEAD (the headers a GET would get, without the body).
std::string formatAnswerHead(int status, const HeaderList& headers, std::size_t contentLength,
                             bool keepAlive);

// The status code of bytes that start with a status line written here, 0 for other bytes.
int answerStatus(const std::string& bytes);

// The head of a stream answer: no Content-Length, no chunked coding, Connection: close.
std::string formatStreamHead(int status, const HeaderList& headers);

// A small JSON error document {"error":"<text>","status":<status>}, for answers the gateway
// gives itself (limits, timeouts, admin API).
std::string jsonError(int status, const std::string& text);

}  // namespace korva::gateway
