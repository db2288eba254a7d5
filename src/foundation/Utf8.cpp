#include "foundation/Utf8.h"

#include <cstdint>

namespace {

bool isContinuationByte(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The length of the valid sequence starting at position, or 0 when none starts there.
std::size_t validSequenceLength(std::string_view text, std::size_t position) {
    const auto lead = static_cast<unsigned char>(text[position]);
    std::size_t length = 0;
    uint32_t codePoint = 0;
    if (lead < 0x80) {
        return 1;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2;
        codePoint = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        codePoint = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        codePoint = lead & 0x07;
    } else {
        return 0;
    }
    if (position + length > text.size())
        return 0;
    for (std::size_t k = 1; k < length; ++k) {
        const auto byte = static_cast<unsigned char>(text[position + k]);
        if (!isContinuationByte(byte))
            return 0;
        codePoint = codePoint << 6 | (byte & 0x3F);
    }
    // Overlong forms, surrogates and values beyond Unicode are not UTF-8.
    static constexpr uint32_t kSmallestForLength[] = {0, 0, 0x80, 0x800, 0x10000};
    if (codePoint < kSmallestForLength[length] || codePoint > 0x10FFFF ||
        (codePoint >= 0xD800 && codePoint <= 0xDFFF))
        return 0;
    return length;
}

} // namespace

bool isValidUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = validSequenceLength(text, i);
        if (length == 0)
            return false;
        i += length;
    }
    return true;
}

std::string toValidUtf8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = validSequenceLength(text, i);
        if (length == 0) {
            valid += "\xEF\xBF\xBD";
            ++i;
        } else {
            valid.append(text.substr(i, length));
            i += length;
        }
    }
    return valid;
}
