#pragma once

#include "plugin/GenericPlugin.h"

#include <string>
#include <string_view>

namespace testing_support {

// Whether the parameter's plain value is one it can take: within its range, or for the band
// shape (whose stored values are filter-shape codes) within the codes of its table.
bool holdsValidValue(const AbstractPluginParameter& parameter);

// Feeds bytes to the instance as a host state chunk and checks what must hold for any bytes: a
// rejected chunk leaves every value as it was, every parameter keeps a valid value, and an
// accepted chunk is written back as text that reads again to the same values and name.
// Returns what broke, or an empty string.
std::string checkStateChunk(GenericPlugin& plugin, std::string_view bytes);

} // namespace testing_support
