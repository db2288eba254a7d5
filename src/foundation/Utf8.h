#pragma once

#include <string>
#include <string_view>

// Strict UTF-8: no overlong forms, no surrogates, nothing beyond U+10FFFF.
bool isValidUtf8(std::string_view text);

// The text with every byte that does not start a valid sequence replaced by U+FFFD, so text
// from a damaged file can still be shown and stored.
std::string toValidUtf8(std::string_view text);
