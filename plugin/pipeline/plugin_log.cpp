#include "plugin/pipeline/plugin_log.h"

namespace QXKORVAProtocol {
namespace {

bool isIdentifierChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// Length of an operator name starting at pos ("operator" already matched there): the symbol
// up to the parameter list, so that "operator()" or "operator<<" is not taken for a parameter
// list or a template argument list.
size_t operatorNameLength(std::string_view text, size_t pos) {
    size_t end = pos + 8;  // after "operator"
    if (text.substr(end, 2) == "()") return end + 2 - pos;
    while (end < text.size() && text[end] != '(') ++end;
    return end - pos;
}

// Index of the ")" that closes the "(" at pos, or npos.
size_t closingParen(std::string_view text, size_t pos) {
    int depth = 0;
    for (size_t i = pos; i < text.size(); ++i) {
        if (text[i] == '(') ++depth;
        if (text[i] == ')' && --depth == 0) return i;
    }
    return std::string_view::npos;
}

// A "(...)" group followed by "::" belongs to the name (the enclosing function of a local
// class, or a scope such as "(anonymous namespace)"); a lambda is named by its enclosing
// function, so "::<lambda" ends the name there.
bool groupContinuesName(std::string_view text, size_t close) {
    return close != std::string_view::npos && text.substr(close + 1, 2) == "::" &&
           text.substr(close + 3, 7) != "<lambda";
}

bool isOperatorAt(std::string_view text, size_t pos) {
    return text.substr(pos, 8) == "operator" && (pos == 0 || !isIdentifierChar(text[pos - 1])) &&
           (pos + 8 >= text.size() || !isIdentifierChar(text[pos + 8]));
}

}  // namespace

// Walks the text at template depth 0: the name ends at the parameter list and starts after the
// last space before it (the end of the return type and specifiers).
std::string qualifiedFunctionName(std::string_view prettyFunction) {
    size_t nameStart = 0;
    size_t nameEnd = prettyFunction.size();
    int depth = 0;
    for (size_t i = 0; i < prettyFunction.size(); ++i) {
        const char c = prettyFunction[i];
        if (isOperatorAt(prettyFunction, i)) {
            i += operatorNameLength(prettyFunction, i) - 1;
        } else if (c == '<') {
            ++depth;
        } else if (c == '>') {
            if (depth > 0) --depth;
        } else if (depth == 0 && c == ' ') {
            nameStart = i + 1;
        } else if (depth == 0 && c == '(') {
            const size_t close = closingParen(prettyFunction, i);
            if (!groupContinuesName(prettyFunction, close)) {
                nameEnd = i;
                break;
            }
            i = close;
        }
    }
    if (nameStart > nameEnd) nameStart = nameEnd;
    return std::string(prettyFunction.substr(nameStart, nameEnd - nameStart));
}

}  // namespace QXKORVAProtocol
