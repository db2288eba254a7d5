#pragma once

#include "pluginterfaces/vst/vsttypes.h"

#include <string>
#include <string_view>

// Conversions between the hosts' UTF-16 strings and our UTF-8 ones. Bad input (lone surrogates,
// invalid UTF-8) becomes U+FFFD; nothing reads past maxCharacters or writes past the capacity.
namespace vst3_strings {

std::string toUtf8(const Steinberg::Vst::TChar* text, int32_t maxCharacters);
// Writes at most capacity - 1 UTF-16 units and a terminating zero.
void toUtf16(std::string_view text, Steinberg::Vst::TChar* out, int32_t capacity);

} // namespace vst3_strings
