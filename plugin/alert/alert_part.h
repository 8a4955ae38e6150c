// Framing of one multipart part of an alert stream. Every part is
//   "--boundary" CRLF
//   "Content-Type: application/xml; charset="UTF-8"" CRLF
//   "Content-Length: <n>" CRLF
//   CRLF
//   the n bytes of the document, unchanged
// with nothing after the document: the next part starts right after it and no closing
// boundary is ever written.
#pragma once

#include <string>

namespace QXKORVAProtocol {

// The part carrying xml.
std::string buildAlertPart(const std::string& xml);

}  // namespace QXKORVAProtocol
