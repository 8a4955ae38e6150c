// The one rule for the Content-Type of a plug-in answer that names none, synchronous or
// asynchronous. Thread safety: pure functions.
#pragma once

#include <string>

#include "gateway/server/header_list.h"

namespace korva::gateway {

// The Content-Type for a body the plug-in returned without naming one: application/xml for an
// XML document, application/json for JSON text, text/plain for other text, "" for no body.
std::string guessContentType(const std::string& body);

// Adds guessContentType(body) unless the headers name a Content-Type or the body is empty.
void addDefaultContentType(HeaderList& headers, const std::string& body);

}  // namespace korva::gateway
