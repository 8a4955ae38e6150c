// QXBase::CXmlBase on pugixml, with the cursor model documented in host/xml_base.h.
#include "host/xml_base.h"

#include <algorithm>
#include <cstring>
#include <pugixml.hpp>
#include <string>
#include <string_view>

namespace QXBase {

struct CXmlBase::Impl {
    pugi::xml_document doc;
    pugi::xml_node parent;   // the document node at top level
    pugi::xml_node current;  // null when none

    void reset() {
        doc.reset();
        parent = doc;
        current = pugi::xml_node();
    }
    // The element operations act on: current, else parent when it is an element.
    pugi::xml_node currentElement() const {
        if (current) return current;
        if (parent.type() == pugi::node_element) return parent;
        return pugi::xml_node();
    }
};

namespace {

struct StringWriter : pugi::xml_writer {
    std::string text;
    void write(const void* data, size_t size) override {
        text.append(static_cast<const char*>(data), size);
    }
};

// parse_fragment keeps text outside the root as nodes (pugixml drops it silently otherwise), so
// that Parse can refuse it; DOCTYPE nodes are kept so that they can be refused too.
constexpr unsigned kParseFlags =
    pugi::parse_default | pugi::parse_declaration | pugi::parse_doctype | pugi::parse_fragment;
constexpr unsigned kFormatFlags = pugi::format_indent | pugi::format_no_declaration;

bool nameMatches(const pugi::xml_node& node, const char* name) {
    return name == nullptr || name[0] == '\0' || std::strcmp(node.name(), name) == 0;
}

pugi::xml_node nextElement(pugi::xml_node node) {
    while (node && node.type() != pugi::node_element) node = node.next_sibling();
    return node;
}

pugi::xml_node findFrom(pugi::xml_node start, const char* name) {
    for (pugi::xml_node node = nextElement(start); node; node = nextElement(node.next_sibling())) {
        if (nameMatches(node, name)) return node;
    }
    return pugi::xml_node();
}

// True when a DOCTYPE stands in the prolog: only the XML declaration, processing instructions,
// comments and white space may precede it. Checked before parsing so that documents built to
// exhaust a DTD parser (nested entity definitions and the like) are refused at once.
bool hasDoctype(std::string_view text) {
    size_t i = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;  // UTF-8 byte order mark
    for (;;) {
        while (i < text.size() &&
               (text[i] == ' ' || text[i] == '\t' || text[i] == '\r' || text[i] == '\n')) {
            ++i;
        }
        if (text.compare(i, 4, "<!--") == 0) {
            const size_t end = text.find("-->", i + 4);
            if (end == std::string_view::npos) return false;
            i = end + 3;
        } else if (text.compare(i, 2, "<?") == 0) {
            const size_t end = text.find("?>", i + 2);
            if (end == std::string_view::npos) return false;
            i = end + 2;
        } else {
            return text.compare(i, 9, "<!DOCTYPE") == 0;
        }
    }
}

// Deeper documents are refused: nothing exchanged here nests more than a few levels, and the
// indented text of a very deep document grows with the square of its depth.
constexpr int kMaxDepth = 256;

struct DepthCheck : pugi::xml_tree_walker {
    bool tooDeep = false;
    bool for_each(pugi::xml_node&) override {
        if (depth() >= kMaxDepth) {
            tooDeep = true;
            return false;
        }
        return true;
    }
};

// Length of the well-formed UTF-8 sequence at text[i] that stands for a character XML allows
// (no overlong form, no surrogate, nothing above U+10FFFF, no U+FFFE/U+FFFF, no C0 control but
// tab, CR and LF); 0 when there is none.
size_t xmlCharLength(std::string_view text, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[i + k]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return (lead >= 0x20 || lead == '\t' || lead == '\r' || lead == '\n') ? 1 : 0;
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
    if (length == 0 || lead > 0xF4 || i + length > text.size()) return 0;
    unsigned code = lead & (0x7F >> length);
    for (size_t k = 1; k < length; ++k) {
        if ((byte(k) & 0xC0) != 0x80) return 0;
        code = (code << 6) | (byte(k) & 0x3F);
    }
    const unsigned least[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool valid = code >= least[length] && code <= 0x10FFFF &&
                       !(code >= 0xD800 && code <= 0xDFFF) && code != 0xFFFE && code != 0xFFFF;
    return valid ? length : 0;
}

// True when text can be written as it is: only characters XML allows, and no CR or LF.
bool plainText(std::string_view text) {
    for (size_t i = 0; i < text.size();) {
        const size_t length = xmlCharLength(text, i);
        if (length == 0 || text[i] == '\r' || text[i] == '\n') return false;
        i += length;
    }
    return true;
}

// text escaped for element content or an attribute value: markup characters as entities, CR,
// LF (and tab in attributes) as character references, so that no line break of the text reaches
// the serialised document; a byte that is not part of an allowed UTF-8 character as U+FFFD.
std::string escaped(std::string_view text, bool attribute) {
    std::string out;
    out.reserve(text.size() + 16);
    for (size_t i = 0; i < text.size();) {
        const size_t length = xmlCharLength(text, i);
        const char c = text[i];
        if (length == 0) {
            out += "\xEF\xBF\xBD";
            ++i;
            continue;
        }
        if (c == '&') {
            out += "&amp;";
        } else if (c == '<') {
            out += "&lt;";
        } else if (c == '>') {
            out += "&gt;";
        } else if (c == '"' && attribute) {
            out += "&quot;";
        } else if (c == '\r') {
            out += "&#13;";
        } else if (c == '\n') {
            out += "&#10;";
        } else if (c == '\t' && attribute) {
            out += "&#9;";
        } else {
            out.append(text, i, length);
        }
        i += length;
    }
    return out;
}

// True when some text, CDATA section or attribute value under node cannot be written plainly.
bool needsEscaping(const pugi::xml_node& node) {
    const pugi::xml_node_type type = node.type();
    if ((type == pugi::node_pcdata || type == pugi::node_cdata) && !plainText(node.value())) {
        return true;
    }
    for (const pugi::xml_attribute& attribute : node.attributes()) {
        if (!plainText(attribute.value())) return true;
    }
    for (const pugi::xml_node& child : node.children()) {
        if (needsEscaping(child)) return true;
    }
    return false;
}

// Escapes every text and attribute value under node in place (CDATA becomes escaped text, which
// reads back the same), for printing with format_no_escapes.
void escapeTree(pugi::xml_node node) {
    for (pugi::xml_attribute attribute : node.attributes()) {
        attribute.set_value(escaped(attribute.value(), true).c_str());
    }
    for (pugi::xml_node child = node.first_child(); child;) {
        pugi::xml_node next = child.next_sibling();
        if (child.type() == pugi::node_cdata) {
            node.insert_child_before(pugi::node_pcdata, child).set_value(child.value());
            child = node.remove_child(child) ? next.previous_sibling() : child;
        }
        if (child.type() == pugi::node_pcdata) {
            child.set_value(escaped(child.value(), false).c_str());
        } else {
            escapeTree(child);
        }
        child = next;
    }
}

// The text of node (the document or one element). Every document leaves the host through here:
// CR and LF inside text are written as character references (the document reads back the same,
// yet no line of it can be taken for a multipart boundary), and bytes that are not valid UTF-8
// become U+FFFD, so that the text always matches its UTF-8 declaration.
std::string serialize(const pugi::xml_node& node) {
    StringWriter writer;
    if (!needsEscaping(node)) {
        node.print(writer, "  ", kFormatFlags, pugi::encoding_utf8);
        return writer.text;
    }
    pugi::xml_document copy;
    if (node.type() == pugi::node_document) {
        for (const pugi::xml_node& child : node.children()) copy.append_copy(child);
    } else {
        copy.append_copy(node);
    }
    escapeTree(copy);
    const pugi::xml_node printed = node.type() == pugi::node_document ? copy : copy.first_child();
    printed.print(writer, "  ", kFormatFlags | pugi::format_no_escapes, pugi::encoding_utf8);
    return writer.text;
}

}  // namespace

CXmlBase::CXmlBase() : m_impl(std::make_unique<Impl>()) {
    m_impl->reset();
}

CXmlBase::~CXmlBase() = default;

bool CXmlBase::Parse(const char* text) {
    if (text == nullptr) {
        m_impl->reset();
        return false;
    }
    return Parse(std::string(text));
}

bool CXmlBase::Parse(const std::string& text) {
    m_impl->reset();
    if (text.find('\0') != std::string::npos || hasDoctype(text)) return false;
    const pugi::xml_parse_result result =
        m_impl->doc.load_buffer(text.data(), text.size(), kParseFlags, pugi::encoding_utf8);
    bool ok = static_cast<bool>(result);
    int roots = 0;
    for (pugi::xml_node node = m_impl->doc.first_child(); ok && node; node = node.next_sibling()) {
        switch (node.type()) {
            case pugi::node_element:
                ++roots;
                break;
            case pugi::node_declaration:
            case pugi::node_comment:
            case pugi::node_pi:
                break;
            default:  // DOCTYPE, text or CDATA outside the root
                ok = false;
                break;
        }
    }
    if (ok && roots == 1) {
        DepthCheck check;
        m_impl->doc.traverse(check);
        ok = !check.tooDeep;
    }
    if (!ok || roots != 1) {
        m_impl->reset();
        return false;
    }
    return true;
}

bool CXmlBase::FindElem(const char* name) {
    pugi::xml_node start =
        m_impl->current ? m_impl->current.next_sibling() : m_impl->parent.first_child();
    pugi::xml_node found = findFrom(start, name);
    if (!found) return false;
    m_impl->current = found;
    return true;
}

bool CXmlBase::FindElemNoOrder(const char* name) {
    pugi::xml_node found = findFrom(m_impl->parent.first_child(), name);
    if (!found) return false;
    m_impl->current = found;
    return true;
}

bool CXmlBase::NextSibElem() {
    pugi::xml_node start =
        m_impl->current ? m_impl->current.next_sibling() : m_impl->parent.first_child();
    pugi::xml_node found = nextElement(start);
    if (!found) return false;
    m_impl->current = found;
    return true;
}

bool CXmlBase::IntoElem() {
    if (!m_impl->current) return false;
    m_impl->parent = m_impl->current;
    m_impl->current = pugi::xml_node();
    return true;
}

bool CXmlBase::OutOfElem() {
    if (m_impl->parent.type() != pugi::node_element) return false;
    m_impl->current = m_impl->parent;
    m_impl->parent = m_impl->parent.parent();
    return true;
}

std::string CXmlBase::GetData() const {
    if (!m_impl->current) return std::string();
    return m_impl->current.text().get();
}

std::string CXmlBase::GetTagName() const {
    pugi::xml_node element = m_impl->currentElement();
    return element ? element.name() : "";
}

bool CXmlBase::CreateDeclaration(const char* version, const char* encoding) {
    if (version == nullptr || version[0] == '\0') return false;
    pugi::xml_node declaration;
    for (pugi::xml_node node = m_impl->doc.first_child(); node; node = node.next_sibling()) {
        if (node.type() == pugi::node_declaration) declaration = node;
    }
    if (!declaration) declaration = m_impl->doc.prepend_child(pugi::node_declaration);
    if (!declaration) return false;
    declaration.remove_attributes();
    declaration.append_attribute("version").set_value(version);
    if (encoding != nullptr && encoding[0] != '\0') {
        declaration.append_attribute("encoding").set_value(encoding);
    }
    return true;
}

bool CXmlBase::CreateRoot(const char* name) {
    if (name == nullptr || name[0] == '\0' || m_impl->doc.document_element()) return false;
    pugi::xml_node root = m_impl->doc.append_child(name);
    if (!root) return false;
    m_impl->parent = root;
    m_impl->current = pugi::xml_node();
    return true;
}

bool CXmlBase::AddNode(const char* name) {
    if (name == nullptr || name[0] == '\0') return false;
    // At top level the new element becomes the root; a second root is refused.
    if (m_impl->parent.type() == pugi::node_document && m_impl->doc.document_element()) {
        return false;
    }
    pugi::xml_node node = m_impl->parent.append_child(name);
    if (!node) return false;
    m_impl->parent = node;
    m_impl->current = pugi::xml_node();
    return true;
}

bool CXmlBase::AddNode(const char* name, const char* text) {
    if (!AddNode(name)) return false;
    if (text != nullptr) m_impl->parent.append_child(pugi::node_pcdata).set_value(text);
    return true;
}

bool CXmlBase::AddNode(const char* name, const std::string& text) {
    return AddNode(name, text.c_str());
}

bool CXmlBase::SetAttribute(const char* name, const char* value) {
    pugi::xml_node element = m_impl->currentElement();
    if (!element || name == nullptr || name[0] == '\0') return false;
    pugi::xml_attribute attribute = element.attribute(name);
    if (!attribute) attribute = element.append_attribute(name);
    return attribute.set_value(value != nullptr ? value : "");
}

int CXmlBase::WriteToBuf(char* buffer, int capacity) const {
    if (buffer == nullptr || capacity < 1) return -1;
    const std::string text = WriteToBuf();
    const size_t length = std::min(text.size(), static_cast<size_t>(capacity) - 1);
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return static_cast<int>(length);
}

std::string CXmlBase::WriteToBuf() const {
    return serialize(m_impl->doc);
}

std::string CXmlBase::GetChildren() const {
    pugi::xml_node root = m_impl->doc.document_element();
    return root ? serialize(root) : std::string();
}

}  // namespace QXBase
