#include "tests/plugin/device/device_test_support.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include "gateway/testing/harness.h"
#include "host/xml_base.h"
#include "plugin/handlers/dev_maintain.h"
#include "plugin/handlers/event_cfg.h"
#include "plugin/handlers/image_cfg.h"
#include "plugin/handlers/ptz_ctrl.h"
#include "plugin/handlers/record_operation.h"

namespace korva::device_tests {
namespace {

// The cursor is inside a parent with no current element, and is left there.
std::string walk(QXBase::CXmlBase& doc) {
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

}  // namespace

std::unique_ptr<QXKORVAProtocol::CDevCfgBase> makeHandler(Owner owner) {
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

Json::Value json(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(Json::Reader().parse(text, value)) << text;
    return value;
}

std::string tree(const std::string& xml) {
    QXBase::CXmlBase doc;
    return doc.Parse(xml) ? walk(doc) : std::string();
}

Relayed convertRequest(Owner owner, unsigned char method, const std::string& url,
                       const std::string& body, const std::string& devIndex) {
    korva::testing::TestRequest request(method, url, body);
    Relayed relayed;
    relayed.result = makeHandler(owner)->covertUrlandBody(&relayed.url, &relayed.body,
                                                          request.holder(), devIndex);
    return relayed;
}

}  // namespace korva::device_tests
