// Alarm JSON -> EventNotificationAlert XML: element order, value rules, lists and failures.
#include "plugin/alert/alarm_translation.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <string>
#include <vector>

#include "host/xml_base.h"

namespace QXKORVAProtocol {
namespace {

// The elements below the root in document order: "a/b=text" for leaves, "a/b" for elements
// with children.
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

std::vector<std::string> elementsOf(const std::string& xml) {
    QXBase::CXmlBase doc;
    std::vector<std::string> out;
    if (!doc.Parse(xml) || !doc.FindElem("EventNotificationAlert") || !doc.IntoElem()) {
        return {"<unreadable>"};
    }
    walk(doc, "", out);
    return out;
}

// Translates alert members (the inside of EventNotificationAlert); {"<failed>"} on failure.
std::vector<std::string> translate(const std::string& members) {
    Json::Value root;
    const std::string text = "{\"EventNotificationAlert\":{" + members + "}}";
    if (!Json::Reader().parse(text, root)) return {"<bad test JSON>"};
    std::string xml;
    if (!translateAlarm(root, &xml)) return {"<failed>"};
    return elementsOf(xml);
}

struct Case {
    const char* name;
    const char* members;
    std::vector<std::string> expected;
};

const std::vector<std::string> kFailed = {"<failed>"};

class Translation : public ::testing::TestWithParam<Case> {};

TEST_P(Translation, GivesTheExpectedElements) {
    EXPECT_EQ(translate(GetParam().members), GetParam().expected);
}

const Case kCases[] = {
    {"ElementOrderIsFixedNotJsonOrder",
     R"("inputIOPortID":3,"eventType":"IO","channelID":"1")",
     {"channelID=1", "eventType=IO", "inputIOPortID=3"}},
    {"AllPlainMembersInOrder",
     R"("channelName":"Lobby","inputIOPortID":2,"eventDescription":"d","eventState":"active",
        "eventType":"VMD","activePostCount":4,"dateTime":"2024-01-01T00:00:00+00:00",
        "channelID":"7","devIndex":"dev-1","unknown":{"x":1})",
     {"channelID=7", "dateTime=2024-01-01T00:00:00+00:00", "activePostCount=4", "eventType=VMD",
      "eventState=active", "eventDescription=d", "inputIOPortID=2", "channelName=Lobby"}},
    {"DevIndexIsNeverWritten", R"("devIndex":"dev-1")", {}},
    {"NegativeInteger", R"("activePostCount":-5)", {"activePostCount=-5"}},
    {"WholeRealCountsAsInteger", R"("activePostCount":42.0)", {"activePostCount=42"}},
    {"LargestInteger", R"("inputIOPortID":2147483647)", {"inputIOPortID=2147483647"}},
    {"IntegerOutOfRangeFails", R"("inputIOPortID":2147483648)", kFailed},
    {"FractionFails", R"("activePostCount":1.5)", kFailed},
    {"IntegerAsStringFails", R"("activePostCount":"1")", kFailed},
    {"BooleanForIntegerFails", R"("inputIOPortID":true)", kFailed},
    {"NumberForStringFails", R"("channelID":1)", kFailed},
    {"NullMemberFails", R"("eventType":null)", kFailed},
    {"TargetRectNumbersUsePercentF",
     R"("DetectionRegionList":[{"DetectionRegionEntry":
        {"TargetRect":{"height":0.125,"width":0.25,"Y":1,"X":0.5}}}])",
     {"DetectionRegionList", "DetectionRegionList/DetectionRegionEntry",
      "DetectionRegionList/DetectionRegionEntry/TargetRect",
      "DetectionRegionList/DetectionRegionEntry/TargetRect/X=0.500000",
      "DetectionRegionList/DetectionRegionEntry/TargetRect/Y=1.000000",
      "DetectionRegionList/DetectionRegionEntry/TargetRect/width=0.250000",
      "DetectionRegionList/DetectionRegionEntry/TargetRect/height=0.125000"}},
    {"TargetRectStringFails",
     R"("DetectionRegionList":[{"DetectionRegionEntry":{"TargetRect":{"X":"1"}}}])", kFailed},
    {"TargetRectNotObjectFails",
     R"("DetectionRegionList":[{"DetectionRegionEntry":{"TargetRect":[1,2]}}])", kFailed},
    {"RegionEntriesInArrayOrderEachFromItsOwnElement",
     R"("DetectionRegionList":[
        {"DetectionRegionEntry":{"regionID":"a","sensitivityLevel":10}},
        {"DetectionRegionEntry":{"detectionTarget":"human","regionID":"b"}},
        {"DetectionRegionEntry":{"regionID":"c"}}])",
     {"DetectionRegionList", "DetectionRegionList/DetectionRegionEntry",
      "DetectionRegionList/DetectionRegionEntry/regionID=a",
      "DetectionRegionList/DetectionRegionEntry/sensitivityLevel=10",
      "DetectionRegionList/DetectionRegionEntry",
      "DetectionRegionList/DetectionRegionEntry/regionID=b",
      "DetectionRegionList/DetectionRegionEntry/detectionTarget=human",
      "DetectionRegionList/DetectionRegionEntry",
      "DetectionRegionList/DetectionRegionEntry/regionID=c"}},
    {"EntryChildrenInFixedOrder",
     R"("DetectionRegionList":[{"DetectionRegionEntry":{"TargetRect":{"X":1},
        "detectionTarget":"car","RegionCoordinatesList":[{"RegionCoordinates":
        {"positionY":2,"positionX":1}}],"sensitivityLevel":5,"regionID":"r"}}])",
     {"DetectionRegionList", "DetectionRegionList/DetectionRegionEntry",
      "DetectionRegionList/DetectionRegionEntry/regionID=r",
      "DetectionRegionList/DetectionRegionEntry/sensitivityLevel=5",
      "DetectionRegionList/DetectionRegionEntry/RegionCoordinatesList",
      "DetectionRegionList/DetectionRegionEntry/RegionCoordinatesList/RegionCoordinates",
      "DetectionRegionList/DetectionRegionEntry/RegionCoordinatesList/RegionCoordinates/"
      "positionX=1",
      "DetectionRegionList/DetectionRegionEntry/RegionCoordinatesList/RegionCoordinates/"
      "positionY=2",
      "DetectionRegionList/DetectionRegionEntry/detectionTarget=car",
      "DetectionRegionList/DetectionRegionEntry/TargetRect",
      "DetectionRegionList/DetectionRegionEntry/TargetRect/X=1.000000"}},
    {"EmptyCoordinateListGivesEmptyElement",
     R"("DetectionRegionList":[{"DetectionRegionEntry":{"RegionCoordinatesList":[]}}])",
     {"DetectionRegionList", "DetectionRegionList/DetectionRegionEntry",
      "DetectionRegionList/DetectionRegionEntry/RegionCoordinatesList="}},
    {"CoordinateListNotArrayGivesEmptyElement",
     R"("DetectionRegionList":[{"DetectionRegionEntry":{"RegionCoordinatesList":"x"}}])",
     {"DetectionRegionList", "DetectionRegionList/DetectionRegionEntry",
      "DetectionRegionList/DetectionRegionEntry/RegionCoordinatesList="}},
    {"CoordinateAsRealFractionFails",
     R"("DetectionRegionList":[{"DetectionRegionEntry":{"RegionCoordinatesList":
        [{"RegionCoordinates":{"positionX":0.5}}]}}])",
     kFailed},
    {"NullListElementsAreSkipped",
     R"("DetectionRegionList":[null,{"DetectionRegionEntry":{"regionID":"a"}},null])",
     {"DetectionRegionList", "DetectionRegionList/DetectionRegionEntry",
      "DetectionRegionList/DetectionRegionEntry/regionID=a"}},
    {"ElementWithoutEntryIsSkipped",
     R"("DetectionRegionList":[{"other":1}])",
     {"DetectionRegionList="}},
    {"ScalarListElementFails", R"("DetectionRegionList":[1])", kFailed},
    {"EntryNotObjectFails", R"("DetectionRegionList":[{"DetectionRegionEntry":"x"}])", kFailed},
    {"ListNotArrayGivesEmptyElement", R"("DetectionRegionList":{"a":1})", {"DetectionRegionList="}},
    {"AudioException",
     R"("AudioExceptionDetection":{"audioDecibel":80,"alarmType":"audioInputException"})",
     {"AudioExceptionDetection", "AudioExceptionDetection/alarmType=audioInputException",
      "AudioExceptionDetection/audioDecibel=80"}},
    {"AudioExceptionWrongTypeFails", R"("AudioExceptionDetection":{"audioDecibel":"80"})", kFailed},
    {"AudioExceptionNotObjectFails", R"("AudioExceptionDetection":[])", kFailed},
    {"SectionsInFixedOrder",
     R"("AudioExceptionDetection":{},"DetectionRegionList":[],"channelName":"c")",
     {"channelName=c", "DetectionRegionList=", "AudioExceptionDetection="}},
};

INSTANTIATE_TEST_SUITE_P(Alarms, Translation, ::testing::ValuesIn(kCases),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST(TranslationRoot, AlertMustBeAnObject) {
    for (const char* text : {R"({})", R"({"EventNotificationAlert":[]})",
                             R"({"EventNotificationAlert":"x"})", R"([1])"}) {
        Json::Value root;
        ASSERT_TRUE(Json::Reader().parse(text, root)) << text;
        QXBase::CXmlBase doc;
        doc.CreateRoot("EventNotificationAlert");
        EXPECT_EQ(convertAlarmToXml(root, doc), 0) << text;
    }
}

TEST(TranslationRoot, TextIsTheRootElementWithoutDeclaration) {
    Json::Value root;
    ASSERT_TRUE(Json::Reader().parse(R"({"EventNotificationAlert":{"eventType":"VMD"}})", root));
    std::string xml;
    ASSERT_TRUE(translateAlarm(root, &xml));
    EXPECT_EQ(xml.rfind("<EventNotificationAlert>", 0), 0u) << xml;
    EXPECT_EQ(xml.find("<?xml"), std::string::npos);
}

}  // namespace
}  // namespace QXKORVAProtocol
