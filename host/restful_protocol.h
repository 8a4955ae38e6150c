// Base class of the host's REST protocol handlers, with URL matching and method names.
//
// URL matching. The URL is the request target as received (path and optional query). Only the
// path before the first "?" is compared; it must equal the pattern exactly and case-sensitively,
// where each "%d" of the pattern stands for exactly one decimal integer (an optional "-" and one
// or more digits, nothing else). A trailing "/" or an extra segment does not match.
#pragma once

#include <string>

namespace QXBase {

class CRESTfulProtocol {
  public:
    CRESTfulProtocol() = default;

    // Host classification helpers; a protocol plug-in does not call them.
    virtual int IsJsonURL(const std::string& url);
    virtual int isLanguageCNURL(const std::string& url);
    virtual int isDeviceURL(const std::string& url);

    virtual ~CRESTfulProtocol() = default;

    // Nonzero when the path of url matches pattern (which holds no "%d").
    static int cmpURL(const std::string& url, const char* pattern);
    // Nonzero when the path of url matches pattern and pattern holds exactly count "%d".
    static int cmpURLWithInt(const std::string& url, const char* pattern, int count);
    // "GET", "PUT", "POST", "DELETE" for the method codes 0 to 3, "UNKNOWN" otherwise.
    static std::string GetMethod(unsigned char method);
};

}  // namespace QXBase
