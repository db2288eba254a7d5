#include "HostObjects.h"

#include <algorithm>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace vst3_host {

tresult PLUGIN_API ParamValueQueue::getPoint(int32 index, int32& offset, ParamValue& value) {
    if (index < 0 || index >= count)
        return kInvalidArgument;
    offset = points[index].first;
    value = points[index].second;
    return kResultOk;
}

tresult PLUGIN_API ParamValueQueue::addPoint(int32 offset, ParamValue value, int32& index) {
    // Points stay in offset order; a point at an existing offset replaces it.
    int32 position = 0;
    while (position < count && points[position].first < offset)
        ++position;
    if (position < count && points[position].first == offset) {
        points[position].second = value;
        index = position;
        return kResultOk;
    }
    if (count >= kCapacity)
        return kResultFalse;
    std::move_backward(points + position, points + count, points + count + 1);
    points[position] = {offset, value};
    ++count;
    index = position;
    return kResultOk;
}

bool ParameterChanges::add(ParamID id, int32 offset, ParamValue value) {
    int32 index = 0;
    IParamValueQueue* queue = addParameterData(id, index);
    int32 point = 0;
    return queue != nullptr && queue->addPoint(offset, value, point) == kResultOk;
}

IParamValueQueue* PLUGIN_API ParameterChanges::getParameterData(int32 index) {
    return index >= 0 && index < used ? &queues[static_cast<size_t>(index)] : nullptr;
}

IParamValueQueue* PLUGIN_API ParameterChanges::addParameterData(const ParamID& id, int32& index) {
    for (int32 i = 0; i < used; ++i) {
        if (queues[static_cast<size_t>(i)].getParameterId() == id) {
            index = i;
            return &queues[static_cast<size_t>(i)];
        }
    }
    if (used >= static_cast<int32>(queues.size()))
        return nullptr;
    index = used;
    queues[static_cast<size_t>(used)].reset(id);
    return &queues[static_cast<size_t>(used++)];
}

bool ParameterChanges::lastValue(ParamID id, ParamValue& value) {
    for (int32 i = 0; i < used; ++i) {
        ParamValueQueue& queue = queues[static_cast<size_t>(i)];
        int32 offset = 0;
        if (queue.getParameterId() == id && queue.getPointCount() > 0)
            return queue.getPoint(queue.getPointCount() - 1, offset, value) == kResultOk;
    }
    return false;
}

tresult PLUGIN_API EventList::getEvent(int32 index, Event& event) {
    if (index < 0 || index >= used)
        return kInvalidArgument;
    event = events[static_cast<size_t>(index)];
    return kResultOk;
}

tresult PLUGIN_API EventList::addEvent(Event& event) {
    if (used >= static_cast<int32>(events.size()))
        return kResultFalse;
    events[static_cast<size_t>(used++)] = event;
    return kResultOk;
}

tresult PLUGIN_API ComponentHandler::queryInterface(const TUID iid, void** object) {
    if (FUnknownPrivate::iidEqual(iid, IComponentHandler::iid) ||
        FUnknownPrivate::iidEqual(iid, FUnknown::iid)) {
        *object = static_cast<IComponentHandler*>(this);
        return kResultOk;
    }
    if (FUnknownPrivate::iidEqual(iid, IComponentHandler2::iid)) {
        *object = static_cast<IComponentHandler2*>(this);
        return kResultOk;
    }
    *object = nullptr;
    return kNoInterface;
}

tresult PLUGIN_API ComponentHandler::beginEdit(ParamID id) {
    edits.push_back({'b', id, 0.0});
    return kResultOk;
}

tresult PLUGIN_API ComponentHandler::performEdit(ParamID id, ParamValue value) {
    edits.push_back({'p', id, value});
    return kResultOk;
}

tresult PLUGIN_API ComponentHandler::endEdit(ParamID id) {
    edits.push_back({'e', id, 0.0});
    return kResultOk;
}

tresult PLUGIN_API ComponentHandler::restartComponent(int32 flags) {
    restarts.push_back(flags);
    return kResultOk;
}

tresult PLUGIN_API ComponentHandler::setDirty(TBool state) {
    dirty = state != 0;
    return kResultOk;
}

tresult PLUGIN_API AttributeList::queryInterface(const TUID iid, void** object) {
    if (FUnknownPrivate::iidEqual(iid, IAttributeList::iid) ||
        FUnknownPrivate::iidEqual(iid, FUnknown::iid)) {
        addRef();
        *object = static_cast<IAttributeList*>(this);
        return kResultOk;
    }
    *object = nullptr;
    return kNoInterface;
}

uint32 PLUGIN_API AttributeList::release() {
    const uint32 left = --references;
    if (left == 0)
        delete this;
    return left;
}

template <class T>
const T* AttributeList::find(AttrID id) const {
    const auto found = id != nullptr ? values.find(id) : values.end();
    return found != values.end() ? std::get_if<T>(&found->second) : nullptr;
}

tresult PLUGIN_API AttributeList::setInt(AttrID id, int64 value) {
    if (id == nullptr)
        return kInvalidArgument;
    values[id] = value;
    return kResultOk;
}

tresult PLUGIN_API AttributeList::getInt(AttrID id, int64& value) {
    const int64* found = find<int64>(id);
    if (found == nullptr)
        return kResultFalse;
    value = *found;
    return kResultOk;
}

tresult PLUGIN_API AttributeList::setFloat(AttrID id, double value) {
    if (id == nullptr)
        return kInvalidArgument;
    values[id] = value;
    return kResultOk;
}

tresult PLUGIN_API AttributeList::getFloat(AttrID id, double& value) {
    const double* found = find<double>(id);
    if (found == nullptr)
        return kResultFalse;
    value = *found;
    return kResultOk;
}

tresult PLUGIN_API AttributeList::setString(AttrID id, const TChar* string) {
    if (id == nullptr || string == nullptr)
        return kInvalidArgument;
    values[id] = std::u16string(reinterpret_cast<const char16_t*>(string));
    return kResultOk;
}

tresult PLUGIN_API AttributeList::getString(AttrID id, TChar* string, uint32 bytes) {
    const std::u16string* found = find<std::u16string>(id);
    if (found == nullptr || string == nullptr || bytes < sizeof(TChar))
        return kResultFalse;
    const size_t count = std::min<size_t>(found->size(), bytes / sizeof(TChar) - 1);
    std::copy_n(found->begin(), count, reinterpret_cast<char16_t*>(string));
    string[count] = 0;
    return kResultOk;
}

tresult PLUGIN_API AttributeList::setBinary(AttrID id, const void* data, uint32 bytes) {
    if (id == nullptr || (data == nullptr && bytes > 0))
        return kInvalidArgument;
    const auto* begin = static_cast<const uint8_t*>(data);
    values[id] = std::vector<uint8_t>(begin, begin + bytes);
    return kResultOk;
}

tresult PLUGIN_API AttributeList::getBinary(AttrID id, const void*& data, uint32& bytes) {
    const std::vector<uint8_t>* found = find<std::vector<uint8_t>>(id);
    if (found == nullptr)
        return kResultFalse;
    data = found->data();
    bytes = static_cast<uint32>(found->size());
    return kResultOk;
}

Message::Message() : attributes(new AttributeList()) {}

Message::~Message() {
    attributes->release();
}

tresult PLUGIN_API Message::queryInterface(const TUID iid, void** object) {
    if (FUnknownPrivate::iidEqual(iid, IMessage::iid) || FUnknownPrivate::iidEqual(iid, FUnknown::iid)) {
        addRef();
        *object = static_cast<IMessage*>(this);
        return kResultOk;
    }
    *object = nullptr;
    return kNoInterface;
}

uint32 PLUGIN_API Message::release() {
    const uint32 left = --references;
    if (left == 0)
        delete this;
    return left;
}

tresult PLUGIN_API HostApplication::createInstance(TUID cid, TUID iid, void** object) {
    if (object == nullptr)
        return kInvalidArgument;
    const auto is = [](const TUID a, const TUID b) { return FUnknownPrivate::iidEqual(a, b); };
    if (is(cid, IMessage::iid) && is(iid, IMessage::iid)) {
        *object = static_cast<IMessage*>(new Message());
        return kResultOk;
    }
    if (is(cid, IAttributeList::iid) && is(iid, IAttributeList::iid)) {
        *object = static_cast<IAttributeList*>(new AttributeList());
        return kResultOk;
    }
    *object = nullptr;
    return kResultFalse;
}

tresult PLUGIN_API HostApplication::getName(String128 out) {
    size_t i = 0;
    for (; i < name.size() && i < 127; ++i)
        out[i] = static_cast<char16>(static_cast<unsigned char>(name[i]));
    out[i] = 0;
    return kResultOk;
}

} // namespace vst3_host
