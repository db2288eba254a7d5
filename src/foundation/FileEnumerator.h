#pragma once

#include <cstdint>
#include <string>

#include <dirent.h>

// Lists the entries of one folder of one kind, optionally only those with a given extension.
// Names that are empty or begin with "." are never returned. Belongs to the thread that made it.
class FileEnumerator {
public:
    enum class EntryKind { File, Folder };

    virtual ~FileEnumerator() = default;
    // Moves to the next matching entry; false when there is none left.
    virtual bool next() = 0;
    virtual std::string currentName() const = 0;
    // Nanoseconds since the epoch of the entry's last modification.
    virtual int64_t currentModificationTime() const = 0;
};

// The parts of the path an enumerator is constructed with.
struct EnumerationPath {
    std::string folder;    // up to and including the last "/" (empty when there is none)
    std::string name;      // after the last "/"
    std::string base;      // name before its last "."
    std::string extension; // name after its last "." (empty when there is no ".")
};

EnumerationPath splitEnumerationPath(const std::string& path);

// Whether an entry name has the extension (the text after its last "."); an empty filter accepts all.
bool hasExtension(const std::string& name, const std::string& extensionFilter);

// The filtering; subclasses supply the raw entries through advance().
class FilteringFileEnumerator : public FileEnumerator {
public:
    // The folder is the part of the path up to its last "/", so a folder path ends in "/".
    FilteringFileEnumerator(const std::string& path, EntryKind wantedKind,
                            const std::string& extensionFilter);

    bool next() override;
    std::string currentName() const override { return name; }
    int64_t currentModificationTime() const override { return modificationTime; }

protected:
    // Fetches the next raw entry into the fields below; false at the end of the folder.
    virtual bool advance() = 0;

    const EnumerationPath path;
    std::string name;
    EntryKind kind = EntryKind::File;
    int64_t modificationTime = 0;

private:
    const EntryKind wantedKind;
    const std::string extensionFilter;
};

// Enumerates with opendir/readdir; symbolic links count as what they point to.
class PosixFileEnumerator : public FilteringFileEnumerator {
public:
    PosixFileEnumerator(const std::string& path, EntryKind wantedKind, const std::string& extensionFilter);
    ~PosixFileEnumerator() override;
    PosixFileEnumerator(const PosixFileEnumerator&) = delete;
    PosixFileEnumerator& operator=(const PosixFileEnumerator&) = delete;

protected:
    bool advance() override;

private:
    DIR* directory;
};
