#pragma once

#include "pluginterfaces/base/ipluginbase.h"

#include <memory>
#include <string>

namespace vst3_host {

// A VST3 bundle loaded into the process: its shared library, entered, and its factory.
class PluginModule {
public:
    // bundlePath names the ".vst3" folder; error says why when nothing is returned.
    static std::unique_ptr<PluginModule> load(const std::string& bundlePath, std::string& error);
    ~PluginModule();
    PluginModule(const PluginModule&) = delete;
    PluginModule& operator=(const PluginModule&) = delete;

    Steinberg::IPluginFactory* getFactory() const { return factory; }
    const std::string& getLibraryPath() const { return libraryPath; }

private:
    PluginModule() = default;

    void* library = nullptr;
    Steinberg::IPluginFactory* factory = nullptr;
    std::string libraryPath;
};

} // namespace vst3_host
