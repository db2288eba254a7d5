#include "host/vst3/Vst3Strings.h"

namespace vst3_strings {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// The next code point of UTF-8 text, advancing position.
char32_t nextCodePoint(std::string_view text, size_t& position) {
    const auto first = static_cast<unsigned char>(text[position++]);
    if (first < 0x80)
        return first;
    int length = 0;
    char32_t c = 0;
    if ((first & 0xE0) == 0xC0) {
        length = 1;
        c = first & 0x1F;
    } else if ((first & 0xF0) == 0xE0) {
        length = 2;
        c = first & 0x0F;
    } else if ((first & 0xF8) == 0xF0) {
        length = 3;
        c = first & 0x07;
    } else {
        return kReplacement;
    }
    for (int i = 0; i < length; ++i) {
        if (position >= text.size() || (static_cast<unsigned char>(text[position]) & 0xC0) != 0x80)
            return kReplacement;
        c = (c << 6) | (static_cast<unsigned char>(text[position++]) & 0x3F);
    }
    const bool overlong =
        (length == 1 && c < 0x80) || (length == 2 && c < 0x800) || (length == 3 && c < 0x10000);
    if (overlong || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
        return kReplacement;
    return c;
}

} // namespace

std::string toUtf8(const Steinberg::Vst::TChar* text, int32_t maxCharacters) {
    std::string out;
    if (text == nullptr)
        return out;
    for (int32_t i = 0; i < maxCharacters && text[i] != 0; ++i) {
        const auto unit = static_cast<char32_t>(text[i]);
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < maxCharacters) {
            const auto low = static_cast<char32_t>(text[i + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                appendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
                ++i;
                continue;
            }
        }
        appendUtf8(out, unit >= 0xD800 && unit <= 0xDFFF ? kReplacement : unit);
    }
    return out;
}

void toUtf16(std::string_view text, Steinberg::Vst::TChar* out, int32_t capacity) {
    if (out == nullptr || capacity <= 0)
        return;
    int32_t written = 0;
    size_t position = 0;
    while (position < text.size()) {
        const char32_t c = nextCodePoint(text, position);
        if (c >= 0x10000) {
            if (written + 2 > capacity - 1)
                break;
            out[written++] = static_cast<Steinberg::Vst::TChar>(0xD800 + ((c - 0x10000) >> 10));
            out[written++] = static_cast<Steinberg::Vst::TChar>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            if (written + 1 > capacity - 1)
                break;
            out[written++] = static_cast<Steinberg::Vst::TChar>(c);
        }
    }
    out[written] = 0;
}

} // namespace vst3_strings
