// Framing of one multipart part of an alert stream. Every part is
//   "--boundary" CRLF
//   "Content-Type: application/xml; charset="UTF-8"" CRLF
//   "Content-Length: <n>" CRLF
//   CRLF
//   the n bytes of the document, unchanged
// with nothing after the document: the next part starts right after it and no closing
// boundary is ever written.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace QXKORVAProtocol {

// The part carrying xml.
std::string buildAlertPart(const std::string& xml);

// One framed part, built once and then shared, never changed, by every stream it is queued for
// (an alarm goes to each open stream of its device), so fan-out copies no text.
struct AlertPartText {
    std::string wire;           // the framed part, exactly as written
    std::size_t documentBytes;  // length of the document inside it (what stream bounds count)
};
using SharedAlertPart = std::shared_ptr<const AlertPartText>;

// The part carrying xml, framed once. Throws std::bad_alloc when it cannot be allocated.
SharedAlertPart makeSharedAlertPart(const std::string& xml);

}  // namespace QXKORVAProtocol
