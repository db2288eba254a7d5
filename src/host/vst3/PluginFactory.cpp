#include "host/vst3/PluginFactory.h"

#include "pluginterfaces/base/ustring.h"

#include <cstring>

using namespace Steinberg;

PluginFactory::PluginFactory(const PFactoryInfo& info) : factoryInfo(info) {}

void PluginFactory::registerClass(const PClassInfo2& info, CreateFunction create) {
    classes.push_back({info, create});
}

tresult PLUGIN_API PluginFactory::queryInterface(const TUID iid, void** object) {
    if (object == nullptr)
        return kInvalidArgument;
    if (FUnknownPrivate::iidEqual(iid, IPluginFactory::iid) ||
        FUnknownPrivate::iidEqual(iid, IPluginFactory2::iid) ||
        FUnknownPrivate::iidEqual(iid, IPluginFactory3::iid) ||
        FUnknownPrivate::iidEqual(iid, FUnknown::iid)) {
        addRef();
        *object = static_cast<IPluginFactory3*>(this);
        return kResultOk;
    }
    *object = nullptr;
    return kNoInterface;
}

uint32 PLUGIN_API PluginFactory::addRef() {
    return ++references;
}

uint32 PLUGIN_API PluginFactory::release() {
    const uint32 left = --references;
    if (left == 0)
        delete this;
    return left;
}

tresult PLUGIN_API PluginFactory::getFactoryInfo(PFactoryInfo* info) {
    if (info == nullptr)
        return kInvalidArgument;
    *info = factoryInfo;
    return kResultOk;
}

int32 PLUGIN_API PluginFactory::countClasses() {
    return static_cast<int32>(classes.size());
}

const PluginFactory::Entry* PluginFactory::entryAt(int32 index) const {
    return index >= 0 && index < static_cast<int32>(classes.size()) ? &classes[static_cast<size_t>(index)]
                                                                    : nullptr;
}

tresult PLUGIN_API PluginFactory::getClassInfo(int32 index, PClassInfo* info) {
    const Entry* entry = entryAt(index);
    if (entry == nullptr || info == nullptr)
        return kInvalidArgument;
    *info = PClassInfo(entry->info.cid, entry->info.cardinality, entry->info.category, entry->info.name);
    return kResultOk;
}

tresult PLUGIN_API PluginFactory::getClassInfo2(int32 index, PClassInfo2* info) {
    const Entry* entry = entryAt(index);
    if (entry == nullptr || info == nullptr)
        return kInvalidArgument;
    *info = entry->info;
    return kResultOk;
}

tresult PLUGIN_API PluginFactory::getClassInfoUnicode(int32 index, PClassInfoW* info) {
    const Entry* entry = entryAt(index);
    if (entry == nullptr || info == nullptr)
        return kInvalidArgument;
    info->fromAscii(entry->info);
    return kResultOk;
}

tresult PLUGIN_API PluginFactory::createInstance(FIDString cid, FIDString iid, void** object) {
    if (cid == nullptr || iid == nullptr || object == nullptr)
        return kInvalidArgument;
    *object = nullptr;
    for (const Entry& entry : classes) {
        if (!FUnknownPrivate::iidEqual(entry.info.cid, cid))
            continue;
        FUnknown* instance = entry.create(nullptr);
        if (instance == nullptr)
            return kOutOfMemory;
        const tresult result = instance->queryInterface(iid, object);
        instance->release();
        return result == kResultOk ? kResultOk : kNoInterface;
    }
    return kNoInterface;
}

tresult PLUGIN_API PluginFactory::setHostContext(FUnknown*) {
    return kResultOk;
}
