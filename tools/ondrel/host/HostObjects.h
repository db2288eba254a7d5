#pragma once

#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstevents.h"
#include "pluginterfaces/vst/ivsthostapplication.h"
#include "pluginterfaces/vst/ivstmessage.h"
#include "pluginterfaces/vst/ivstparameterchanges.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

// The host's side of the VST3 conversation, as our command-line host and the integration tests
// need it. Every object here lives as long as its owner says (the reference counts are not used
// to free them) and is sized up front, so that a process call allocates nothing.

namespace vst3_host {

// Implements queryInterface for one interface; reference counting is left to the owner.
template <class Interface>
class Unowned : public Interface {
public:
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override {
        if (Steinberg::FUnknownPrivate::iidEqual(iid, Interface::iid) ||
            Steinberg::FUnknownPrivate::iidEqual(iid, Steinberg::FUnknown::iid)) {
            *object = static_cast<Interface*>(this);
            return Steinberg::kResultOk;
        }
        *object = nullptr;
        return Steinberg::kNoInterface;
    }
    Steinberg::uint32 PLUGIN_API addRef() override { return 1; }
    Steinberg::uint32 PLUGIN_API release() override { return 1; }
};

// The points of one parameter in one block.
class ParamValueQueue : public Unowned<Steinberg::Vst::IParamValueQueue> {
public:
    static constexpr int32_t kCapacity = 1024;

    void reset(Steinberg::Vst::ParamID id) {
        parameterId = id;
        count = 0;
    }
    Steinberg::Vst::ParamID PLUGIN_API getParameterId() override { return parameterId; }
    Steinberg::int32 PLUGIN_API getPointCount() override { return count; }
    Steinberg::tresult PLUGIN_API getPoint(Steinberg::int32 index, Steinberg::int32& offset,
                                           Steinberg::Vst::ParamValue& value) override;
    Steinberg::tresult PLUGIN_API addPoint(Steinberg::int32 offset, Steinberg::Vst::ParamValue value,
                                           Steinberg::int32& index) override;

private:
    Steinberg::Vst::ParamID parameterId = 0;
    Steinberg::int32 count = 0;
    std::pair<Steinberg::int32, Steinberg::Vst::ParamValue> points[kCapacity];
};

// The parameter changes of one block, in or out.
class ParameterChanges : public Unowned<Steinberg::Vst::IParameterChanges> {
public:
    explicit ParameterChanges(int32_t capacity = 1024) : queues(static_cast<size_t>(capacity)) {}

    void clear() { used = 0; }
    // Adds a point (its queue is made when the parameter has none yet).
    bool add(Steinberg::Vst::ParamID id, Steinberg::int32 offset, Steinberg::Vst::ParamValue value);
    Steinberg::int32 PLUGIN_API getParameterCount() override { return used; }
    Steinberg::Vst::IParamValueQueue* PLUGIN_API getParameterData(Steinberg::int32 index) override;
    Steinberg::Vst::IParamValueQueue* PLUGIN_API addParameterData(const Steinberg::Vst::ParamID& id,
                                                                  Steinberg::int32& index) override;
    // The last value written for a parameter, if any.
    bool lastValue(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue& value);

private:
    std::vector<ParamValueQueue> queues;
    Steinberg::int32 used = 0;
};

class EventList : public Unowned<Steinberg::Vst::IEventList> {
public:
    explicit EventList(int32_t capacity = 512) : events(static_cast<size_t>(capacity)) {}

    void clear() { used = 0; }
    Steinberg::int32 PLUGIN_API getEventCount() override { return used; }
    Steinberg::tresult PLUGIN_API getEvent(Steinberg::int32 index, Steinberg::Vst::Event& event) override;
    Steinberg::tresult PLUGIN_API addEvent(Steinberg::Vst::Event& event) override;

private:
    std::vector<Steinberg::Vst::Event> events;
    Steinberg::int32 used = 0;
};

// Records what the controller tells the host.
class ComponentHandler : public Steinberg::Vst::IComponentHandler, public Steinberg::Vst::IComponentHandler2 {
public:
    struct Edit {
        char kind; // 'b' begin, 'p' perform, 'e' end
        Steinberg::Vst::ParamID id;
        Steinberg::Vst::ParamValue value;
    };

    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    Steinberg::uint32 PLUGIN_API addRef() override { return 1; }
    Steinberg::uint32 PLUGIN_API release() override { return 1; }

    Steinberg::tresult PLUGIN_API beginEdit(Steinberg::Vst::ParamID id) override;
    Steinberg::tresult PLUGIN_API performEdit(Steinberg::Vst::ParamID id,
                                              Steinberg::Vst::ParamValue value) override;
    Steinberg::tresult PLUGIN_API endEdit(Steinberg::Vst::ParamID id) override;
    Steinberg::tresult PLUGIN_API restartComponent(Steinberg::int32 flags) override;
    Steinberg::tresult PLUGIN_API setDirty(Steinberg::TBool state) override;
    Steinberg::tresult PLUGIN_API requestOpenEditor(Steinberg::FIDString) override {
        return Steinberg::kResultFalse;
    }
    Steinberg::tresult PLUGIN_API startGroupEdit() override { return Steinberg::kResultOk; }
    Steinberg::tresult PLUGIN_API finishGroupEdit() override { return Steinberg::kResultOk; }

    std::vector<Edit> edits;
    std::vector<Steinberg::int32> restarts;
    bool dirty = false;
};

// Attributes of a message: integers, floats, strings and byte blocks by name. Reference counted,
// as the plug-in releases what it asked the host for.
class AttributeList final : public Steinberg::Vst::IAttributeList {
public:
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    Steinberg::uint32 PLUGIN_API addRef() override { return ++references; }
    Steinberg::uint32 PLUGIN_API release() override;

    Steinberg::tresult PLUGIN_API setInt(AttrID id, Steinberg::int64 value) override;
    Steinberg::tresult PLUGIN_API getInt(AttrID id, Steinberg::int64& value) override;
    Steinberg::tresult PLUGIN_API setFloat(AttrID id, double value) override;
    Steinberg::tresult PLUGIN_API getFloat(AttrID id, double& value) override;
    Steinberg::tresult PLUGIN_API setString(AttrID id, const Steinberg::Vst::TChar* string) override;
    Steinberg::tresult PLUGIN_API getString(AttrID id, Steinberg::Vst::TChar* string,
                                            Steinberg::uint32 bytes) override;
    Steinberg::tresult PLUGIN_API setBinary(AttrID id, const void* data, Steinberg::uint32 bytes) override;
    Steinberg::tresult PLUGIN_API getBinary(AttrID id, const void*& data, Steinberg::uint32& bytes) override;

private:
    using Value = std::variant<Steinberg::int64, double, std::u16string, std::vector<uint8_t>>;
    template <class T>
    const T* find(AttrID id) const;

    std::map<std::string, Value> values;
    std::atomic<Steinberg::uint32> references{1};
};

class Message final : public Steinberg::Vst::IMessage {
public:
    Message();
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    Steinberg::uint32 PLUGIN_API addRef() override { return ++references; }
    Steinberg::uint32 PLUGIN_API release() override;

    Steinberg::FIDString PLUGIN_API getMessageID() override { return id.c_str(); }
    void PLUGIN_API setMessageID(Steinberg::FIDString newId) override { id = newId != nullptr ? newId : ""; }
    Steinberg::Vst::IAttributeList* PLUGIN_API getAttributes() override { return attributes; }

private:
    ~Message();

    std::string id;
    AttributeList* attributes;
    std::atomic<Steinberg::uint32> references{1};
};

// The host application the plug-in sees: our name, and messages and attribute lists on request.
class HostApplication : public Unowned<Steinberg::Vst::IHostApplication> {
public:
    explicit HostApplication(std::string name) : name(std::move(name)) {}
    Steinberg::tresult PLUGIN_API getName(Steinberg::Vst::String128 out) override;
    Steinberg::tresult PLUGIN_API createInstance(Steinberg::TUID cid, Steinberg::TUID iid,
                                                 void** object) override;

private:
    std::string name;
};

} // namespace vst3_host
