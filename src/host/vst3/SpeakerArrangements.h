#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

// How the channel layouts meet VST3 buses: the speaker arrangement of each layout, the host
// channel each of the engine's channels reads and writes, and the buses' names.
namespace vst3_layouts {

inline constexpr int32_t kStereo = 1;
// A lone centre speaker, which hosts offer for mono; taken as layout 0.
inline constexpr uint64_t kCentreOnly = 0x4;

uint64_t arrangementOf(int32_t layout);
// The layout an arrangement realises, or -1.
int32_t layoutOf(uint64_t arrangement);
// For each engine channel of the layout, the host channel of the bus.
std::span<const int32_t> hostChannelOrder(int32_t layout);
std::string_view layoutName(int32_t layout);

} // namespace vst3_layouts
