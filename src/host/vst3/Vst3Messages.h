#pragma once

#include "public.sdk/source/vst/vstcomponentbase.h"

#include <cstdint>
#include <optional>
#include <vector>

// The messages the processor and the controller exchange, and the little that sending and
// reading them takes. Nothing is sent without a peer, or when the host cannot allocate a message.
namespace vst3_messages {

inline constexpr const char* kDefaultParameterState = "ZV_Msg_DefaultParameterState";
inline constexpr const char* kPresetName = "ZV_Msg_PresetName";
inline constexpr const char* kControllerMapping = "ZV_Msg_ControllerMapping";
inline constexpr const char* kSetup = "ZV_Msg_Setup";
inline constexpr const char* kProcessStateRequest = "ZV_Msg_ProcessStateRequest";
inline constexpr const char* kLatencyChange = "ZV_Msg_LatencyChange";
inline constexpr const char* kMidiMessage = "ZV_Msg_MidiMessage";
inline constexpr const char* kGenericPluginData = "ZV_Msg_GenericPluginData";
inline constexpr const char* kRealTimeRequest = "ZV_Msg_RealTimeRequest";
inline constexpr const char* kRealTimeData = "ZV_Msg_RealTimeData";
inline constexpr const char* kSampleRate = "ZV_Msg_SampleRate";
inline constexpr const char* kChannelLayout = "ZV_Msg_ChannelLayout";
inline constexpr const char* kLatencyApplied = "ZV_Msg_LatencyApplied";

inline constexpr const char* kData = "ZV_Attr_Data";
inline constexpr const char* kDataId = "ZV_Attr_DataId";

void sendInteger(const Steinberg::Vst::ComponentBase& from, const char* id, int64_t value);
// dataId, when given, goes with the block as "ZV_Attr_DataId".
void sendBinary(const Steinberg::Vst::ComponentBase& from, const char* id, const void* data, size_t size,
                std::optional<int64_t> dataId = std::nullopt);

bool is(Steinberg::Vst::IMessage* message, const char* id);
std::optional<int64_t> readInteger(Steinberg::Vst::IMessage* message, const char* attribute = kData);
std::optional<std::vector<uint8_t>> readBinary(Steinberg::Vst::IMessage* message);

} // namespace vst3_messages
