#pragma once

#include "pluginterfaces/base/ipluginbase.h"

#include <atomic>
#include <vector>

// The VST3 class factory: a fixed list of classes, each with its information records and a
// create function. (The SDK we build against lacks its factory class; this is our equivalent.)
// Threading: any thread, as hosts expect of factories; the list is fixed once built.
class PluginFactory : public Steinberg::IPluginFactory3 {
public:
    using CreateFunction = Steinberg::FUnknown* (*)(void* context);

    explicit PluginFactory(const Steinberg::PFactoryInfo& info);
    virtual ~PluginFactory() = default;

    void registerClass(const Steinberg::PClassInfo2& info, CreateFunction create);

    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    Steinberg::uint32 PLUGIN_API addRef() override;
    Steinberg::uint32 PLUGIN_API release() override;

    Steinberg::tresult PLUGIN_API getFactoryInfo(Steinberg::PFactoryInfo* info) override;
    Steinberg::int32 PLUGIN_API countClasses() override;
    Steinberg::tresult PLUGIN_API getClassInfo(Steinberg::int32 index, Steinberg::PClassInfo* info) override;
    Steinberg::tresult PLUGIN_API createInstance(Steinberg::FIDString cid, Steinberg::FIDString iid,
                                                 void** object) override;
    Steinberg::tresult PLUGIN_API getClassInfo2(Steinberg::int32 index,
                                                Steinberg::PClassInfo2* info) override;
    Steinberg::tresult PLUGIN_API getClassInfoUnicode(Steinberg::int32 index,
                                                      Steinberg::PClassInfoW* info) override;
    Steinberg::tresult PLUGIN_API setHostContext(Steinberg::FUnknown* context) override;

private:
    struct Entry {
        Steinberg::PClassInfo2 info;
        CreateFunction create;
    };

    const Entry* entryAt(Steinberg::int32 index) const;

    Steinberg::PFactoryInfo factoryInfo;
    std::vector<Entry> classes;
    std::atomic<Steinberg::uint32> references{1};
};
