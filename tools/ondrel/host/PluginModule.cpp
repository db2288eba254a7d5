#include "PluginModule.h"

#include <dlfcn.h>

#include <filesystem>

namespace vst3_host {

namespace {

using FactoryFunction = Steinberg::IPluginFactory* (*)();
using EntryFunction = bool (*)(void*);
using ExitFunction = bool (*)();

} // namespace

std::unique_ptr<PluginModule> PluginModule::load(const std::string& bundlePath, std::string& error) {
    const std::filesystem::path bundle(bundlePath);
    std::filesystem::path library = bundle;
    if (std::filesystem::is_directory(bundle))
        library = bundle / "Contents" / "x86_64-linux" / (bundle.stem().string() + ".so");
    if (!std::filesystem::is_regular_file(library)) {
        error = "no plug-in library at " + library.string();
        return nullptr;
    }
    std::unique_ptr<PluginModule> module(new PluginModule());
    module->libraryPath = library.string();
    module->library = dlopen(module->libraryPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module->library == nullptr) {
        const char* reason = dlerror();
        error = "cannot load " + module->libraryPath + ": " + (reason != nullptr ? reason : "unknown reason");
        return nullptr;
    }
    auto entry = reinterpret_cast<EntryFunction>(dlsym(module->library, "ModuleEntry"));
    auto getFactory = reinterpret_cast<FactoryFunction>(dlsym(module->library, "GetPluginFactory"));
    if (entry == nullptr || getFactory == nullptr || !entry(module->library)) {
        error = module->libraryPath + " is not a VST3 plug-in (no usable ModuleEntry or GetPluginFactory)";
        return nullptr;
    }
    module->factory = getFactory();
    if (module->factory == nullptr) {
        error = module->libraryPath + " gave no factory";
        return nullptr;
    }
    return module;
}

PluginModule::~PluginModule() {
    if (factory != nullptr)
        factory->release();
    if (library != nullptr) {
        if (auto exit = reinterpret_cast<ExitFunction>(dlsym(library, "ModuleExit")))
            exit();
        dlclose(library);
    }
}

} // namespace vst3_host
