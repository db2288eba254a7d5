#include "host/vst3/Vst3Messages.h"

#include "pluginterfaces/vst/ivstmessage.h"

#include <cstring>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace vst3_messages {

namespace {

template <class Fill>
void send(const ComponentBase& from, const char* id, Fill&& fill) {
    if (from.getPeer() == nullptr)
        return;
    IMessage* message = from.allocateMessage();
    if (message == nullptr)
        return;
    message->setMessageID(id);
    if (IAttributeList* attributes = message->getAttributes())
        fill(*attributes);
    from.sendMessage(message);
    message->release();
}

} // namespace

void sendInteger(const ComponentBase& from, const char* id, int64_t value) {
    send(from, id, [value](IAttributeList& attributes) { attributes.setInt(kData, value); });
}

void sendBinary(const ComponentBase& from, const char* id, const void* data, size_t size,
                std::optional<int64_t> dataId) {
    send(from, id, [&](IAttributeList& attributes) {
        attributes.setBinary(kData, data, static_cast<uint32>(size));
        if (dataId)
            attributes.setInt(kDataId, *dataId);
    });
}

bool is(IMessage* message, const char* id) {
    return message != nullptr && message->getMessageID() != nullptr &&
           std::strcmp(message->getMessageID(), id) == 0;
}

std::optional<int64_t> readInteger(IMessage* message, const char* attribute) {
    IAttributeList* attributes = message != nullptr ? message->getAttributes() : nullptr;
    int64 value = 0;
    if (attributes == nullptr || attributes->getInt(attribute, value) != kResultOk)
        return std::nullopt;
    return value;
}

std::optional<std::vector<uint8_t>> readBinary(IMessage* message) {
    IAttributeList* attributes = message != nullptr ? message->getAttributes() : nullptr;
    const void* data = nullptr;
    uint32 size = 0;
    if (attributes == nullptr || attributes->getBinary(kData, data, size) != kResultOk)
        return std::nullopt;
    const auto* bytes = static_cast<const uint8_t*>(data);
    return std::vector<uint8_t>(bytes, bytes + (bytes != nullptr ? size : 0));
}

} // namespace vst3_messages
