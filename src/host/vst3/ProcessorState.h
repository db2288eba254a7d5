#pragma once

#include "pluginterfaces/base/ibstream.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

// The processor's state as a host stores it in its project. The current form is the preset text
// of every parameter (chunk "ZVst", its value the text's length) followed by chunk "ZVpr"
// (version 1) with the host bypass value. States of older builds are chunk "ZorF" (version 1 or
// 2): the preset name, the bypass value (version 2 only), the parameter count and the plain
// values in index order, then optionally a marker 1 and the persisted flag.
struct ProcessorState {
    // The current form: the preset text. Empty for an older state.
    std::string presetText;
    // An older state: values in parameter order and the preset name.
    std::vector<float> values;
    std::string presetName;
    float bypass = 0.0f;
    bool persisted = false;
    bool legacy = false;
};

namespace processor_state {

std::vector<uint8_t> write(const std::string& presetText, float bypass);
// Nothing for bytes that hold no usable state.
std::optional<ProcessorState> read(std::span<const uint8_t> bytes);

// Everything a host stream holds from its current position; the component state when the stream
// is a VST3 preset file. Stops at a sane size, so a hostile stream cannot exhaust memory.
std::vector<uint8_t> readStream(Steinberg::IBStream* stream);
// Writes bytes to a host stream; false when the stream took fewer.
bool writeStream(Steinberg::IBStream* stream, std::span<const uint8_t> bytes);

} // namespace processor_state
