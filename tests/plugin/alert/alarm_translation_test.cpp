// Alarm JSON -> EventNotificationAlert XML: element order, value rules, lists and failures.
#include "plugin/alert/alarm_translation.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include "host/xml_base.h"

namespace QXKORVAProtocol {
namespace {

// Elements below the root in document order: "path=text" for leaves, "path" otherwise.
void walk(QXBase::CXmlBase& doc, const std::string& prefix, std::vector<std::string>& out) {
    while (doc.NextSibElem()) {
        const std::string path = prefix + doc.GetTagName();
        const std::string text = doc.GetData();
        const size_t at = out.size();
        doc.IntoElem();
        walk(doc, path + "/", out);
        doc.OutOfElem();
        out.insert(out.begin() + static_cast<long>(at),
                   out.size() == at ? path + "=" + text : path);
    }
}

// The elements of the translation of alert members, or {"<failed>"}.
std::vector<std::string> translate(const std::string& members) {
    Json::Value root;
    std::string xml;
    if (!Json::Reader().parse("{\"EventNotificationAlert\":{" + members + "}}", root)) return {};
    if (!translateAlarm(root, &xml)) return {"<failed>"};
    EXPECT_EQ(xml.rfind("<EventNotificationAlert>", 0), 0u) << "no declaration: " << xml;
    QXBase::CXmlBase doc;
    std::vector<std::string> out;
    if (doc.Parse(xml) && doc.FindElem("EventNotificationAlert") && doc.IntoElem()) {
        walk(doc, "", out);
    }
    return out;
}

TEST(AlarmTranslation, ElementsAndValues) {
    const std::string entry = "DetectionRegionList/DetectionRegionEntry";
    const struct {
        const char* members;
        std::vector<std::string> expected;
    } cases[] = {
        {R"("inputIOPortID":3,"eventType":"IO","channelID":"1","devIndex":"d","other":[1])",
         {"channelID=1", "eventType=IO", "inputIOPortID=3"}},
        {R"("channelName":"c","eventDescription":"e","eventState":"s","activePostCount":-5,
            "dateTime":"t")",
         {"dateTime=t", "activePostCount=-5", "eventState=s", "eventDescription=e",
          "channelName=c"}},
        {R"("AudioExceptionDetection":{"audioDecibel":80,"alarmType":"a"},
            "DetectionRegionList":[null,{"DetectionRegionEntry":{"TargetRect":
              {"height":0.125,"width":0.25,"Y":1,"X":0.5},"detectionTarget":"human",
              "RegionCoordinatesList":[{"RegionCoordinates":{"positionY":2,"positionX":1}}],
              "sensitivityLevel":5,"regionID":"r"}},{"other":1},
              {"DetectionRegionEntry":{"regionID":"s","RegionCoordinatesList":[]}}])",
         {"DetectionRegionList",
          entry,
          entry + "/regionID=r",
          entry + "/sensitivityLevel=5",
          entry + "/RegionCoordinatesList",
          entry + "/RegionCoordinatesList/RegionCoordinates",
          entry + "/RegionCoordinatesList/RegionCoordinates/positionX=1",
          entry + "/RegionCoordinatesList/RegionCoordinates/positionY=2",
          entry + "/detectionTarget=human",
          entry + "/TargetRect",
          entry + "/TargetRect/X=0.500000",
          entry + "/TargetRect/Y=1.000000",
          entry + "/TargetRect/width=0.250000",
          entry + "/TargetRect/height=0.125000",
          entry,
          entry + "/regionID=s",
          entry + "/RegionCoordinatesList=",
          "AudioExceptionDetection",
          "AudioExceptionDetection/alarmType=a",
          "AudioExceptionDetection/audioDecibel=80"}},
        {R"("DetectionRegionList":{"a":1})", {"DetectionRegionList="}},
    };
    for (const auto& c : cases) EXPECT_EQ(translate(c.members), c.expected) << c.members;
}

TEST(AlarmTranslation, WrongTypesFailTheWholeAlarm) {
    for (const char* members :
         {R"("activePostCount":"1")", R"("inputIOPortID":2147483648)", R"("activePostCount":1.5)",
          R"("channelID":1)", R"("DetectionRegionList":[1])",
          R"("DetectionRegionList":[{"DetectionRegionEntry":{"TargetRect":{"X":"1"}}}])",
          R"("DetectionRegionList":[{"DetectionRegionEntry":{"RegionCoordinatesList":
                 [{"RegionCoordinates":{"positionX":0.5}}]}}])",
          R"("AudioExceptionDetection":[])"}) {
        EXPECT_EQ(translate(members), std::vector<std::string>{"<failed>"}) << members;
    }
    for (const char* text : {R"({})", R"({"EventNotificationAlert":[]})", R"([1])"}) {
        Json::Value root;
        std::string xml;
        ASSERT_TRUE(Json::Reader().parse(text, root));
        EXPECT_FALSE(translateAlarm(root, &xml)) << text;
    }
}

}  // namespace
}  // namespace QXKORVAProtocol
