// Small helper for building documents with the host's XML cursor.
#pragma once

#include <string>

#include "host/xml_base.h"

namespace QXKORVAProtocol {

// Appends <name>text</name> to the current parent and returns to the parent's level
// (AddNode followed by OutOfElem).
inline void addTextElement(QXBase::CXmlBase& doc, const char* name, const std::string& text) {
    doc.AddNode(name, text);
    doc.OutOfElem();
}

}  // namespace QXKORVAProtocol
