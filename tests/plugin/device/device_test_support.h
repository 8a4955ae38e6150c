// Device-resource handler test helpers: the handlers by owner, XML as a compact tree text.
#pragma once

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <memory>
#include <string>

#include "gateway/testing/harness.h"
#include "host/xml_base.h"
#include "plugin/handlers/dev_maintain.h"
#include "plugin/handlers/event_cfg.h"
#include "plugin/handlers/image_cfg.h"
#include "plugin/handlers/ptz_ctrl.h"
#include "plugin/handlers/record_operation.h"

namespace korva::device_tests {

constexpr const char* kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
constexpr const char* kDevice = "dev-1";

constexpr unsigned char GET = 0, PUT = 1, POST = 2, DEL = 3;

enum Owner { kNone = -1, kMaintain, kEvent, kImage, kPtz, kRecord, kOwnerCount };

struct Relayed {
    int result = 0;
    std::string url;
    std::string body;
};

// Elements as "name=text" for a leaf and "name{child,child}" otherwise, siblings separated by
// ","; the cursor starts and ends inside the parent.
inline std::string walk(QXBase::CXmlBase& doc) {
    std::string out;
    while (doc.NextSibElem()) {
        if (!out.empty()) out += ',';
        const std::string name = doc.GetTagName();
        const std::string text = doc.GetData();
        doc.IntoElem();
        const std::string inner = walk(doc);
        doc.OutOfElem();
        out += name + (inner.empty() ? "=" + text : "{" + inner + "}");
    }
    return out;
}

inline std::unique_ptr<QXKORVAProtocol::CDevCfgBase> makeHandler(Owner owner) {
    using namespace QXKORVAProtocol;
    switch (owner) {
        case kMaintain:
            return std::make_unique<CDevMaintain>();
        case kEvent:
            return std::make_unique<CEventCfg>();
        case kImage:
            return std::make_unique<CImageCfg>();
        case kPtz:
            return std::make_unique<CPTZCtrl>();
        default:
            return std::make_unique<CRecordOperation>();
    }
}

inline Json::Value json(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(Json::Reader().parse(text, value)) << text;
    return value;
}

inline std::string tree(const std::string& xml) {
    QXBase::CXmlBase doc;
    return doc.Parse(xml) ? walk(doc) : std::string();
}

// covertUrlandBody of a fresh handler for one request on a harness exchange.
inline Relayed convertRequest(Owner owner, unsigned char method, const std::string& url,
                              const std::string& body = {}, const std::string& devIndex = kDevice) {
    korva::testing::TestRequest request(method, url, body);
    Relayed relayed;
    relayed.result = makeHandler(owner)->covertUrlandBody(&relayed.url, &relayed.body,
                                                          request.holder(), devIndex);
    return relayed;
}

}  // namespace korva::device_tests
