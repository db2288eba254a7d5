#include "plugin/ControllerMapping.h"

#include "foundation/AtomicFile.h"
#include "foundation/BinaryStreams.h"
#include "foundation/SystemFolders.h"

#include <algorithm>
#include <filesystem>

namespace {

constexpr const char* kChunkId = "ZVCM";
constexpr uint32_t kChunkVersion = 1;

bool isController(int32_t controller) {
    return controller >= 0 && controller < ControllerMapping::kNumControllers;
}

} // namespace

ControllerMapping::ControllerMapping() {
    UpdateLock lock(*this);
    entries.fill(kUnassigned);
}

uint32_t ControllerMapping::getParameterForController(int32_t controller) const {
    return isController(controller) ? entries[static_cast<std::size_t>(controller)] : kUnassigned;
}

uint32_t ControllerMapping::getControllerForParameter(uint32_t parameter) const {
    const auto found = std::find(entries.begin(), entries.end(), parameter);
    return found == entries.end() ? kUnassigned : static_cast<uint32_t>(found - entries.begin());
}

void ControllerMapping::assign(int32_t controller, uint32_t parameter) {
    if (isController(controller))
        setEntry(controller, parameter);
}

void ControllerMapping::clear(int32_t controller) {
    if (isController(controller))
        setEntry(controller, kUnassigned);
}

void ControllerMapping::setEntry(int32_t controller, uint32_t parameter) {
    uint32_t& entry = entries[static_cast<std::size_t>(controller)];
    if (entry == parameter)
        return;
    entry = parameter;
    changed.fire();
}

void ControllerMapping::write(BinaryDataWriter& writer) const {
    writer.writeChunkHeader(kChunkId, kChunkVersion);
    for (const uint32_t entry : entries)
        writer.writeUInt32(entry);
}

bool ControllerMapping::read(BinaryDataReader& reader) {
    if (!reader.readChunkHeader(kChunkId))
        return false;
    std::array<uint32_t, kNumControllers> readEntries;
    for (uint32_t& entry : readEntries)
        entry = reader.readUInt32();
    // A map cut short would assign the missing controllers to parameter 0.
    if (!reader.good())
        return false;
    UpdateLock lock(*this);
    for (int32_t controller = 0; controller < kNumControllers; ++controller)
        setEntry(controller, readEntries[static_cast<std::size_t>(controller)]);
    return true;
}

std::string ControllerMapping::filePath() {
    return preferencesFolder() + "MidiControllerMap.zvm";
}

bool ControllerMapping::loadFile(const std::string& path) {
    BinaryFileReader reader(path);
    return reader.isOpen() && read(reader);
}

bool ControllerMapping::saveFile(const std::string& path) const {
    BinaryMemoryWriter writer;
    write(writer);
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    const std::vector<uint8_t>& bytes = writer.bytes();
    return writeFileAtomically(path,
                               std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}
