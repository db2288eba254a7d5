#include "foundation/SystemFolders.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

std::string withTrailingSlash(std::string path) {
    if (path.empty() || path.back() != '/')
        path += '/';
    return path;
}

// An XDG variable counts only when it holds an absolute path.
std::string absolutePathFromEnvironment(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && value[0] == '/' ? std::string(value) : std::string();
}

std::string xdgFolder(const char* variable, const char* defaultBelowHome) {
    const std::string fromEnvironment = absolutePathFromEnvironment(variable);
    return withTrailingSlash(fromEnvironment.empty() ? homeFolder() + defaultBelowHome : fromEnvironment);
}

std::string configHome() {
    return xdgFolder("XDG_CONFIG_HOME", ".config");
}

std::string readWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0')
        return withTrailingSlash(home);
    if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr)
        return withTrailingSlash(entry->pw_dir);
    return "/";
}

std::string preferencesFolder() {
    return configHome() + "Zorvane/";
}

std::string familyDataFolder(const std::string& name) {
    return xdgFolder("XDG_DATA_HOME", ".local/share") + "Zorvane/" + name + "/";
}

std::string documentsFolderFromUserDirs(const std::string& text, const std::string& home) {
    static const std::string key = "XDG_DOCUMENTS_DIR=";
    std::istringstream lines(text);
    std::string line;
    std::string folder;
    // The file is shell syntax, so a later assignment wins.
    while (std::getline(lines, line)) {
        const auto start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, key.size(), key) != 0)
            continue;
        std::string value = line.substr(start + key.size());
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        if (value == "$HOME" || value.starts_with("$HOME/"))
            value = withTrailingSlash(home) + value.substr(std::min<std::size_t>(value.size(), 6));
        if (!value.empty() && value.front() == '/')
            folder = withTrailingSlash(value);
    }
    return folder;
}

std::string documentsFolder() {
    if (const std::string fromEnvironment = absolutePathFromEnvironment("XDG_DOCUMENTS_DIR");
        !fromEnvironment.empty())
        return withTrailingSlash(fromEnvironment);
    const std::string fromUserDirs =
        documentsFolderFromUserDirs(readWholeFile(configHome() + "user-dirs.dirs"), homeFolder());
    return fromUserDirs.empty() ? homeFolder() + "Documents/" : fromUserDirs;
}

std::string defaultPresetFolder(const std::string& productName) {
    return documentsFolder() + "Zorvane/Presets/" + productName + "/";
}
