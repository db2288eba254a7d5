#pragma once

#include <string>
#include <string_view>

// Replaces the file at path with bytes so that a reader, a crash or a killed process never
// sees anything but the old or the new content: the bytes go to a temporary file in the same
// folder, are synced, and the temporary file is renamed over the old one. The folder must
// exist. False when it failed (the old file is then untouched).
bool writeFileAtomically(const std::string& path, std::string_view bytes);
