// Small helpers for building documents with the host's XML cursor.
// Thread safety: they touch only the document they are given.
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

// The element text of a boolean.
inline const char* boolText(bool value) {
    return value ? "true" : "false";
}

// The declaration (version "1.0", encoding "UTF-8") and the root element, entered.
inline void startDocument(QXBase::CXmlBase& doc, const char* root) {
    doc.CreateDeclaration("1.0", "UTF-8");
    doc.CreateRoot(root);
}

}  // namespace QXKORVAProtocol
