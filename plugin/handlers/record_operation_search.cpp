// The search description: XML CMSearchDescription to the gateway's JSON search.
//
// The children are looked up with the ordered search in the order below, so a child is only
// found when it comes after the ones found before it; maxResults is looked up from the first
// child and so is found in any position.
#include <json/value.h>

#include <string>

#include "host/kvl_runtime.h"
#include "host/xml_base.h"
#include "plugin/handlers/record_operation.h"
#include "plugin/pipeline/json_access.h"

namespace QXKORVAProtocol {

namespace {

constexpr int kDefaultTrackId = 101;

int32_t elementInt(const QXBase::CXmlBase& doc) {
    return KVL_Atoi32(doc.GetData().c_str());
}

// Enters container, copies the text of its first `child` into *out (when found), steps out.
// False when container is not found.
bool copyFirstChild(QXBase::CXmlBase& doc, const char* container, const char* child,
                    Json::Value* out) {
    if (!doc.FindElem(container) || !doc.IntoElem()) return false;
    if (doc.FindElem(child)) *out = doc.GetData();
    doc.OutOfElem();
    return true;
}

void readTrack(QXBase::CXmlBase& doc, Json::Value& search) {
    int32_t trackId = kDefaultTrackId;
    if (doc.FindElem("trackIDList") && doc.IntoElem()) {
        if (doc.FindElem("trackID")) trackId = elementInt(doc);
        doc.OutOfElem();
    }
    search["trackIDList"][0]["trackID"] = trackId;
}

// Only the first timeSpan is sent; either time may be missing alone.
void readTimeSpan(QXBase::CXmlBase& doc, Json::Value& search) {
    if (!doc.FindElem("timeSpanList") || !doc.IntoElem()) return;
    if (doc.FindElem("timeSpan") && doc.IntoElem()) {
        for (const char* name : {"startTime", "endTime"}) {
            if (doc.FindElem(name)) search["timeSpanList"][0]["timeSpan"][name] = doc.GetData();
        }
        doc.OutOfElem();
    }
    doc.OutOfElem();
}

void readContentType(QXBase::CXmlBase& doc, Json::Value& search) {
    Json::Value contentType;
    if (copyFirstChild(doc, "contentTypeList", "contentType", &contentType) &&
        !contentType.isNull()) {
        search["contentTypeList"][0]["contentType"] = contentType;
    }
}

// Without a metadataList the timed-recording metadata is searched; an empty one searches all.
void readMetadata(QXBase::CXmlBase& doc, Json::Value& search) {
    Json::Value descriptor;
    if (!copyFirstChild(doc, "metadataList", "metadataDescriptor", &descriptor)) {
        search["metadataList"][0]["metadataDescriptor"] = kTimedRecordingMetadata;
    } else if (!descriptor.isNull()) {
        search["metadataList"][0]["metadataDescriptor"] = descriptor;
    }
}

}  // namespace

std::string CRecordOperation::covertSearchDescription(const char* body) {
    QXBase::CXmlBase doc;
    if (!doc.Parse(body != nullptr ? body : "")) return std::string();

    Json::Value root;
    if (doc.FindElem("CMSearchDescription") && doc.IntoElem()) {
        Json::Value& search = root["CMSearchDescription"];
        if (doc.FindElem("searchID")) search["searchID"] = doc.GetData();
        readTrack(doc, search);
        readTimeSpan(doc, search);
        readContentType(doc, search);
        if (doc.FindElemNoOrder("maxResults")) search["maxResults"] = elementInt(doc);
        search["searchResultPostion"] = doc.FindElem("searchResultPostion") ? elementInt(doc) : 0;
        readMetadata(doc, search);
        doc.OutOfElem();
    }
    return writeJsonBody(root);
}

}  // namespace QXKORVAProtocol
