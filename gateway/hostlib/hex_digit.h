// Value of one hexadecimal digit, shared by the header parsers of the host and the gateway.
#pragma once

namespace korva::host {

// 0..15 for '0'-'9', 'a'-'f', 'A'-'F'; -1 for any other character.
inline int hexDigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace korva::host
