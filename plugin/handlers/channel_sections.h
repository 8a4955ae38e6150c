// The encoder sections of a StreamingChannel document (Video, Audio) as custom fields, so that
// the document's top-level table can name them in its element order.
#pragma once

#include "plugin/handlers/channel_fields.h"

namespace QXKORVAProtocol::channel {

extern const CustomSection kVideoSection;
extern const CustomSection kAudioSection;

}  // namespace QXKORVAProtocol::channel
