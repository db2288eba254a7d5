#include "foundation/BundleLocation.h"

#include <dlfcn.h>

#include <mutex>

namespace {

std::mutex overrideMutex;
std::string overrideFolder;

std::string parentFolder(const std::string& path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string ownModulePath() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&resourceFolderForModulePath), &info) == 0 ||
        info.dli_fname == nullptr)
        return {};
    return info.dli_fname;
}

} // namespace

std::string resourceFolderForModulePath(const std::string& modulePath) {
    return parentFolder(parentFolder(modulePath)) + "/Resources/";
}

void setBundleResourceFolder(const std::string& folder) {
    std::lock_guard lock(overrideMutex);
    overrideFolder = folder.empty() || folder.back() == '/' ? folder : folder + "/";
}

std::string bundleResourceFolder() {
    {
        std::lock_guard lock(overrideMutex);
        if (!overrideFolder.empty())
            return overrideFolder;
    }
    return resourceFolderForModulePath(ownModulePath());
}
