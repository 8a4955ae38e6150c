// The audio channel list, synthesised from the device's video input channels: the device is
// asked for its video inputs and one audio channel is reported beside each of them.
#include <string>

#include "plugin/handlers/channel_cfg.h"
#include "plugin/pipeline/error_catalogue.h"
#include "plugin/pipeline/json_access.h"
#include "plugin/pipeline/xml_text.h"

namespace QXKORVAProtocol {
namespace {

void addAudioChannel(QXBase::CXmlBase& xml, int id) {
    xml.AddNode("AudioChannel");
    addTextElement(xml, "id", std::to_string(id));
    addTextElement(xml, "enabled", "true");
    xml.OutOfElem();
}

}  // namespace

int CChannelCfg::getXmlAudioChannelList(std::string* xmlOut, const Json::Value& root) {
    QXBase::CXmlBase xml;
    xml.CreateDeclaration("1.0", "UTF-8");
    if (root.isNull()) {
        xml.CreateRoot("AudioChannelList");
        addAudioChannel(xml, 1);
        *xmlOut = xml.WriteToBuf();
        return kResultOk;
    }
    const Json::Value* inputs = findMember(root, "VideoInputChannelList");
    if (inputs == nullptr) return kResultConvertFailed;
    xml.CreateRoot("AudioChannelList");
    // Only the number of video inputs matters: audio channel k stands beside video input k.
    const int count = inputs->isArray() ? static_cast<int>(inputs->size()) : 0;
    for (int id = 1; id <= count; ++id) addAudioChannel(xml, id);
    *xmlOut = xml.WriteToBuf();
    return kResultOk;
}

}  // namespace QXKORVAProtocol
