// XML document with a cursor, for reading and for building documents.
//
// Cursor model. The cursor is a pair (parent, current): `parent` is the element the cursor is
// inside (the document itself at top level) and `current` is one child element of it, or none.
// The "current element" of an operation is `current` when set, else `parent`.
//
// Reading:
//   Parse          replaces the document; cursor = (document, none).
//   FindElem(n)    searches the element children of `parent` named n, starting after `current`
//                  (from the first child when `current` is none), in document order. Found:
//                  `current` = it, true. Not found: cursor unchanged, false. So an ordered search
//                  never finds an element that stands before the cursor. A null or empty name
//                  matches any element.
//   FindElemNoOrder(n)  the same, but always searches from the first child of `parent`.
//   NextSibElem    `current` = the next element sibling of `current` (the first element child of
//                  `parent` when `current` is none); false and unchanged when there is none.
//   IntoElem       enters `current`: cursor = (current, none). False when `current` is none.
//   OutOfElem      leaves `parent`: cursor = (parent's parent, parent). False at top level.
//   GetData        text content of `current` ("" when none, or when it has no text).
//
// Building:
//   CreateDeclaration(version, encoding)  adds <?xml version=".." encoding=".."?> to the document.
//   CreateRoot(name)   adds the root element and enters it: cursor = (root, none).
//   AddNode(name[, text])  appends a child element (with text) to `parent`, after its last child,
//                  and enters it: cursor = (new element, none). It is then the current element;
//                  OutOfElem returns to the level where it was added.
//   SetAttribute(name, value)  sets an attribute of the current element (appended in call order).
//
// Writing:
//   WriteToBuf(buf, capacity)  serialises the whole document (declaration, if created, then the
//                  root) with two-space indentation and "\n" line ends; writes at most
//                  capacity - 1 bytes and a NUL, cutting a longer text. Returns the number of bytes
//                  written before the NUL, or -1 when buf is null or capacity < 1.
//   WriteToBuf()   the same text, uncut.
//   GetChildren()  the root element with all its descendants, same layout, without declaration.
//
// Parsing never expands entities other than the five predefined ones and character references,
// never reads external resources, and refuses documents with a DOCTYPE, with more than one root,
// with text outside the root, nested deeper than 256 elements, or that are not well-formed.
// Text is UTF-8. Not thread-safe: one document per thread at a time.
#pragma once

#include <memory>
#include <string>

namespace QXBase {

class CXmlBase {
  public:
    CXmlBase();
    ~CXmlBase();
    CXmlBase(const CXmlBase&) = delete;
    CXmlBase& operator=(const CXmlBase&) = delete;

    bool Parse(const char* text);
    bool Parse(const std::string& text);

    bool FindElem(const char* name);
    bool FindElemNoOrder(const char* name);
    bool NextSibElem();
    bool IntoElem();
    bool OutOfElem();
    std::string GetData() const;
    // Name of the current element ("" when there is none).
    std::string GetTagName() const;

    bool CreateDeclaration(const char* version, const char* encoding);
    bool CreateRoot(const char* name);
    bool AddNode(const char* name);
    bool AddNode(const char* name, const char* text);
    bool AddNode(const char* name, const std::string& text);
    bool SetAttribute(const char* name, const char* value);

    int WriteToBuf(char* buffer, int capacity) const;
    std::string WriteToBuf() const;
    std::string GetChildren() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace QXBase
