// The XML "ResponseStatus" documents built from the error catalogue.
#include <string>
#include <vector>

#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/plugin_log.h"
#include "plugin/pipeline/protocol_base.h"
#include "plugin/pipeline/xml_text.h"

namespace QXKORVAProtocol {
namespace {

constexpr int kXmlBufferSize = 20480;

}  // namespace

std::string xmlToString(const QXBase::CXmlBase& doc) {
    std::vector<char> buffer(kXmlBufferSize, '\0');
    doc.WriteToBuf(buffer.data(), kXmlBufferSize);
    buffer.back() = '\0';
    return std::string(buffer.data());
}

int getResStatusByErrorNo(int* httpStatus, int errorNumber, QXBase::CXmlBase& doc) {
    Json::Value status;
    if (!getJsonResponseByError(static_cast<uint32_t>(errorNumber), status, httpStatus)) {
        QXW_LOG(5, "[error=%d] unkown error code", errorNumber);
        return 0;
    }
    addTextElement(doc, "statusCode", std::to_string(status["statusCode"].asUInt()));
    addTextElement(doc, "statusString", status["statusString"].asString());
    addTextElement(doc, "subStatusCode", status["subStatusCode"].asString());
    return 1;
}

std::string CProtocolBase::getResponseByError(int errorNumber, const std::string& url) {
    QXBase::CXmlBase doc;
    doc.CreateDeclaration("1.0", "UTF-8");
    doc.CreateRoot("ResponseStatus");
    doc.SetAttribute("version", "2.0");
    addTextElement(doc, "requestURL", url);
    if (errorNumber == static_cast<int>(kErrorOk)) {
        // The plain success answer needs no catalogue lookup.
        addTextElement(doc, "statusCode", "1");
        addTextElement(doc, "statusString", "OK");
        addTextElement(doc, "subStatusCode", "ok");
    } else {
        int httpStatus = 0;
        if (getResStatusByErrorNo(&httpStatus, errorNumber, doc) == 0) {
            QXW_LOG(5, "[iErrorNo=%d] unkown error code.", errorNumber);
        }
    }
    return xmlToString(doc);
}

}  // namespace QXKORVAProtocol
