// The search result: the device's JSON CMSearchResult to the KORVA CMSearchResult document.
// Missing members take their defaults; a member whose type cannot be read as the element needs
// (an object where text is expected, a string where a number or boolean is expected) fails the
// conversion instead of stopping the process.
#include <json/value.h>

#include <string>

#include "host/xml_base.h"
#include "plugin/handlers/record_operation.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/json_access.h"
#include "plugin/pipeline/xml_text.h"

namespace QXKORVAProtocol {

namespace {

constexpr const char* kDefaultSourceId = "0000000000-0000-0000-0000-000000000000";
constexpr const char* kDefaultContentType = "video";
constexpr const char* kDefaultCodecType = "H.264-BP";

const Json::Value& orNull(const Json::Value* value) {
    return value != nullptr ? *value : Json::Value::nullSingleton();
}

// member read as text, or whenAbsent when there is no member.
bool textOr(const Json::Value* member, const char* whenAbsent, std::string* out) {
    if (member == nullptr) {
        *out = whenAbsent;
        return true;
    }
    return readAsText(*member, out);
}

// The member key of container (which must be an object or null), as a container itself.
bool containerMember(const Json::Value& container, const char* key, const Json::Value** member) {
    *member = nullptr;
    if (!isContainer(container)) return false;
    *member = findMember(container, key);
    return *member == nullptr || isContainer(**member);
}

bool writeLeafText(QXBase::CXmlBase& doc, const char* name, const Json::Value* member,
                   const char* whenAbsent) {
    std::string text;
    if (!textOr(member, whenAbsent, &text)) return false;
    addTextElement(doc, name, text);
    return true;
}

bool writeSummary(QXBase::CXmlBase& doc, const Json::Value& result) {
    const Json::Value* member = nullptr;
    member = findMember(result, "searchID");
    if (!writeLeafText(doc, "searchID", member, "")) return false;

    bool status = false;
    member = findMember(result, "responseStatus");
    if (!readAsBool(orNull(member), &status)) return false;
    addTextElement(doc, "responseStatus", boolText(status));

    member = findMember(result, "responseStatusStrg");
    if (!writeLeafText(doc, "responseStatusStrg", member, "")) return false;

    int32_t matches = 0;
    member = findMember(result, "numOfMatches");
    if (!readAsInt32(orNull(member), &matches)) return false;
    addTextElement(doc, "numOfMatches", std::to_string(matches));
    return true;
}

// Written only when the time span has both times.
bool writeTimeSpan(QXBase::CXmlBase& doc, const Json::Value& item) {
    const Json::Value* span = nullptr;
    if (!containerMember(item, "timeSpan", &span)) return false;
    const Json::Value* start = findMember(orNull(span), "startTime");
    const Json::Value* end = findMember(orNull(span), "endTime");
    if (start == nullptr || end == nullptr) return true;
    doc.AddNode("timeSpan");
    if (!writeLeafText(doc, "startTime", start, "") || !writeLeafText(doc, "endTime", end, "")) {
        return false;
    }
    doc.OutOfElem();
    return true;
}

bool writeMediaSegment(QXBase::CXmlBase& doc, const Json::Value& descriptor) {
    doc.AddNode("mediaSegmentDescriptor");
    // The device spells the member "contenType"; anything but a string reads as video.
    const Json::Value* member = nullptr;
    member = findMember(descriptor, "contenType");
    addTextElement(doc, "contentType",
                   member != nullptr && member->isString() ? member->asString()
                                                           : std::string(kDefaultContentType));
    member = findMember(descriptor, "codecType");
    if (!writeLeafText(doc, "codecType", member, kDefaultCodecType)) return false;
    member = findMember(descriptor, "playbackURI");
    if (member != nullptr) {
        std::string address;
        if (!readAsText(*member, &address)) return false;
        addTextElement(doc, "playbackURI", CRecordOperation::covertPlaybackUri(address));
    }
    doc.OutOfElem();
    return true;
}

bool writeMatchItem(QXBase::CXmlBase& doc, const Json::Value& element) {
    const Json::Value* wrapper = nullptr;
    if (!containerMember(element, "searchMatchItem", &wrapper)) return false;
    const Json::Value& item = orNull(wrapper);
    doc.AddNode("searchMatchItem");

    const Json::Value* member = nullptr;
    member = findMember(item, "sourceID");
    if (member != nullptr && member->isNull()) member = nullptr;
    if (!writeLeafText(doc, "sourceID", member, kDefaultSourceId)) return false;

    member = findMember(item, "trackID");
    if (member != nullptr) {
        int32_t trackId = 0;
        if (!readAsInt32(*member, &trackId)) return false;
        addTextElement(doc, "trackID", std::to_string(trackId));
    }
    if (!writeTimeSpan(doc, item)) return false;

    if (!containerMember(item, "mediaSegmentDescriptor", &member)) return false;
    if (member != nullptr && !writeMediaSegment(doc, *member)) return false;

    const Json::Value* matches = nullptr;
    if (!containerMember(item, "metadataMatches", &matches)) return false;
    member = findMember(orNull(matches), "metadataDescriptor");
    doc.AddNode("metadataMatches");
    if (!writeLeafText(doc, "metadataDescriptor", member, kManualRecordingMetadata)) return false;
    doc.OutOfElem();

    doc.OutOfElem();
    return true;
}

bool writeMatchList(QXBase::CXmlBase& doc, const Json::Value& result) {
    const Json::Value* list = nullptr;
    list = findMember(result, "matchList");
    if (list != nullptr && !list->isNull() && !list->isArray()) return false;
    doc.AddNode("matchList");
    if (list != nullptr && list->isArray()) {
        for (Json::ArrayIndex i = 0; i < list->size(); ++i) {
            if (!writeMatchItem(doc, (*list)[i])) return false;
        }
    }
    doc.OutOfElem();
    return true;
}

}  // namespace

int CRecordOperation::covertSearchResultRsp(std::string* xmlOut, const Json::Value& root) {
    const Json::Value* result = nullptr;
    if (!containerMember(root, "CMSearchResult", &result)) return kResultConvertFailed;
    QXBase::CXmlBase doc;
    doc.CreateRoot("CMSearchResult");
    if (!writeSummary(doc, orNull(result)) || !writeMatchList(doc, orNull(result))) {
        return kResultConvertFailed;
    }
    std::string text = doc.WriteToBuf();
    unescapeAmpersands(&text);
    *xmlOut = std::move(text);
    return kResultOk;
}

void CRecordOperation::unescapeAmpersands(std::string* text) {
    // No "&amp;" can start before the last one removed, so the search goes on from there.
    size_t pos = text->find("&amp;");
    while (pos != std::string::npos) {
        text->erase(pos + 1, 4);
        pos = text->find("&amp;", pos);
    }
}

}  // namespace QXKORVAProtocol
