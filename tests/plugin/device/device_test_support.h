// Helpers of the device-resource handler tests: JSON from text, XML answers as a compact tree
// text, the five handlers by name, and request conversions run on harness exchanges.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "plugin/relay/dev_cfg_base.h"

namespace korva::device_tests {

constexpr const char* kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
constexpr const char* kDevice = "dev-1";

constexpr unsigned char GET = 0, PUT = 1, POST = 2, DEL = 3;

enum Owner { kNone = -1, kMaintain, kEvent, kImage, kPtz, kRecord, kOwnerCount };
std::unique_ptr<QXKORVAProtocol::CDevCfgBase> makeHandler(Owner owner);

// Parses JSON text; fails the test (and returns null) when it is not JSON.
Json::Value json(const std::string& text);

// The elements of an XML document as "name=text" for an element without element children and
// "name{child,child}" otherwise, siblings separated by ","; "" when the text is not XML.
std::string tree(const std::string& xml);

struct Relayed {
    int result = 0;
    std::string url;
    std::string body;
};
// covertUrlandBody of a fresh handler for one request on a harness exchange.
Relayed convertRequest(Owner owner, unsigned char method, const std::string& url,
                       const std::string& body = {}, const std::string& devIndex = kDevice);

}  // namespace korva::device_tests
