#include "host/vst3/ProcessorState.h"

#include "foundation/BinaryStreams.h"
#include "public.sdk/source/common/memorystream.h"
#include "public.sdk/source/vst/vstpresetfile.h"

#include <cstring>

using namespace Steinberg;

namespace processor_state {

namespace {

constexpr const char* kTextChunk = "ZVst";
constexpr const char* kBypassChunk = "ZVpr";
constexpr const char* kLegacyChunk = "ZorF";
// Far above any real state (600 parameters of text are some 30 kB).
constexpr size_t kLargestState = 64u << 20;

std::optional<ProcessorState> readLegacy(BinaryDataReader& reader) {
    const uint32_t version = reader.chunkSize();
    if (version != 1 && version != 2)
        return std::nullopt;
    ProcessorState state;
    state.legacy = true;
    state.presetName = reader.readString();
    if (version == 2)
        state.bypass = reader.readFloat();
    const auto count = static_cast<int32_t>(reader.readUInt32());
    if (!reader.good() || count < 0 || static_cast<size_t>(count) > kLargestState / 4)
        return std::nullopt;
    state.values.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count && reader.good(); ++i)
        state.values.push_back(reader.readFloat());
    if (!reader.good())
        return std::nullopt;
    if (static_cast<int32_t>(reader.readUInt32()) > 0) {
        const uint32_t flag = reader.readUInt32();
        state.persisted = reader.good() && flag != 0;
    }
    return state;
}

} // namespace

std::vector<uint8_t> write(const std::string& presetText, float bypass) {
    BinaryMemoryWriter writer;
    writer.writeChunkHeader(kTextChunk, static_cast<uint32_t>(presetText.size()));
    writer.writeRaw(presetText.data(), presetText.size());
    writer.writeChunkHeader(kBypassChunk, 1);
    writer.writeFloat(bypass);
    return writer.release();
}

std::optional<ProcessorState> read(std::span<const uint8_t> bytes) {
    BinaryMemoryReader reader(bytes);
    const std::string identifier = reader.readChunkHeader();
    if (identifier == kLegacyChunk)
        return readLegacy(reader);
    if (identifier != kTextChunk || reader.chunkSize() > bytes.size())
        return std::nullopt;
    ProcessorState state;
    state.presetText.resize(reader.chunkSize());
    if (!reader.readRaw(state.presetText.data(), state.presetText.size()))
        return std::nullopt;
    if (!reader.readChunkHeader(kBypassChunk) || reader.chunkSize() < 1)
        return std::nullopt;
    state.bypass = reader.readFloat();
    if (!reader.good())
        return std::nullopt;
    return state;
}

std::vector<uint8_t> readStream(IBStream* stream) {
    std::vector<uint8_t> bytes;
    if (stream == nullptr)
        return bytes;
    char buffer[65536];
    for (;;) {
        int32 got = 0;
        if (stream->read(buffer, sizeof(buffer), &got) != kResultOk || got <= 0)
            break;
        bytes.insert(bytes.end(), buffer, buffer + got);
        if (bytes.size() > kLargestState)
            return {};
    }
    // A VST3 preset file carries the component's state as one of its chunks.
    if (bytes.size() >= 4 && std::memcmp(bytes.data(), "VST3", 4) == 0) {
        MemoryStream file(bytes.data(), static_cast<TSize>(bytes.size()));
        Vst::PresetFile preset(&file);
        const Vst::PresetFile::Entry* entry =
            preset.readChunkList() ? preset.getEntry(Vst::kComponentState) : nullptr;
        if (entry != nullptr && entry->offset >= 0 && entry->size >= 0 &&
            static_cast<size_t>(entry->offset + entry->size) <= bytes.size())
            return std::vector<uint8_t>(bytes.begin() + entry->offset,
                                        bytes.begin() + entry->offset + entry->size);
    }
    return bytes;
}

bool writeStream(IBStream* stream, std::span<const uint8_t> bytes) {
    if (stream == nullptr)
        return false;
    int32 written = 0;
    const tresult result =
        stream->write(const_cast<uint8_t*>(bytes.data()), static_cast<int32>(bytes.size()), &written);
    return result == kResultOk && written == static_cast<int32>(bytes.size());
}

} // namespace processor_state
