#include "foundation/FileEnumerator.h"

#include <sys/stat.h>

EnumerationPath splitEnumerationPath(const std::string& path) {
    EnumerationPath parts;
    const auto slash = path.find_last_of('/');
    parts.folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    parts.name = slash == std::string::npos ? path : path.substr(slash + 1);
    const auto dot = parts.name.find_last_of('.');
    parts.base = dot == std::string::npos ? parts.name : parts.name.substr(0, dot);
    parts.extension = dot == std::string::npos ? std::string() : parts.name.substr(dot + 1);
    return parts;
}

bool hasExtension(const std::string& name, const std::string& extensionFilter) {
    return extensionFilter.empty() || splitEnumerationPath(name).extension == extensionFilter;
}

FilteringFileEnumerator::FilteringFileEnumerator(const std::string& path, EntryKind wantedKind,
                                                 const std::string& extensionFilter)
    : path(splitEnumerationPath(path)), wantedKind(wantedKind), extensionFilter(extensionFilter) {}

bool FilteringFileEnumerator::next() {
    while (advance()) {
        if (!name.empty() && name.front() != '.' && kind == wantedKind && hasExtension(name, extensionFilter))
            return true;
    }
    return false;
}

PosixFileEnumerator::PosixFileEnumerator(const std::string& path, EntryKind wantedKind,
                                         const std::string& extensionFilter)
    : FilteringFileEnumerator(path, wantedKind, extensionFilter),
      directory(this->path.folder.empty() ? nullptr : opendir(this->path.folder.c_str())) {}

PosixFileEnumerator::~PosixFileEnumerator() {
    if (directory != nullptr)
        closedir(directory);
}

bool PosixFileEnumerator::advance() {
    if (directory == nullptr)
        return false;
    while (const dirent* entry = readdir(directory)) {
        struct stat status {};
        // Entries that vanish between listing and stat are skipped.
        if (stat((path.folder + entry->d_name).c_str(), &status) != 0)
            continue;
        name = entry->d_name;
        kind = S_ISDIR(status.st_mode) ? EntryKind::Folder : EntryKind::File;
        modificationTime = static_cast<int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec;
        return true;
    }
    return false;
}
