// The bundle's exported entry points: the VST3 factory and the Linux module entry and exit.
#include "host/vst3/PluginCompatibility.h"
#include "host/vst3/PluginFactory.h"
#include "host/vst3/Vst3Ids.h"
#include "host/vst3/Vst3PluginController.h"
#include "host/vst3/Vst3PluginProcessor.h"

#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"

#include <cstring>
#include <string>

using namespace Steinberg;

namespace {

// Filled once per process, the first time a factory is asked for.
struct FactoryDescription {
    PFactoryInfo factory;
    PClassInfo2 processor;
    PClassInfo2 controller;
    PClassInfo2 compatibility;

    FactoryDescription() {
        factory = PFactoryInfo(vst3_ids::kVendor, vst3_ids::kUrl, vst3_ids::kEmail, PFactoryInfo::kUnicode);
        Steinberg::TUID id;
        vst3_ids::parseClassId(vst3_ids::kProcessorId, id);
        const std::string name =
            vst3_ids::className("Ondrel", vst3_ids::kGeneration, vst3_ids::kGenerationThreshold);
        const std::string subCategories = vst3_ids::subCategoriesForType(vst3_ids::kPluginType, false);
        const std::string version = vst3_ids::versionString();
        processor = PClassInfo2(id, PClassInfo::kManyInstances, kVstAudioEffectClass, name.c_str(),
                                Vst::kDistributable, subCategories.c_str(), nullptr, version.c_str(),
                                vst3_ids::kSdkVersion);
        controller = processor;
        vst3_ids::parseClassId(vst3_ids::kControllerId, controller.cid);
        std::strncpy(controller.category, kVstComponentControllerClass, PClassInfo::kCategorySize);
        compatibility = processor;
        vst3_ids::parseClassId(vst3_ids::kCompatibilityId, compatibility.cid);
        std::strncpy(compatibility.category, "Plugin Compatibility Class", PClassInfo::kCategorySize);
    }
};

const FactoryDescription& description() {
    static const FactoryDescription instance;
    return instance;
}

} // namespace

extern "C" {

SMTG_EXPORT_SYMBOL IPluginFactory* PLUGIN_API GetPluginFactory() {
    const FactoryDescription& info = description();
    auto* factory = new PluginFactory(info.factory);
    factory->registerClass(info.processor, &Vst3PluginProcessor::create);
    factory->registerClass(info.controller, &Vst3PluginController::create);
    factory->registerClass(info.compatibility, &PluginCompatibility::create);
    return factory;
}

// The shared library locates its bundle from its own path, so the handle needs no keeping.
SMTG_EXPORT_SYMBOL bool ModuleEntry(void*) {
    return true;
}

SMTG_EXPORT_SYMBOL bool ModuleExit() {
    return true;
}

} // extern "C"
