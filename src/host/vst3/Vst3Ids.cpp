#include "host/vst3/Vst3Ids.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

namespace vst3_ids {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Reads 32 hexadecimal digits, skipping the characters listed in skip.
bool readDigits(std::string_view text, std::string_view skip, Steinberg::TUID id) {
    Steinberg::TUID value{};
    size_t byte = 0;
    int high = -1;
    for (char c : text) {
        if (skip.find(c) != std::string_view::npos)
            continue;
        const int digit = hexValue(c);
        if (digit < 0 || byte >= sizeof(Steinberg::TUID))
            return false;
        if (high < 0) {
            high = digit;
        } else {
            value[byte++] = static_cast<char>(high * 16 + digit);
            high = -1;
        }
    }
    if (byte != sizeof(Steinberg::TUID) || high >= 0)
        return false;
    std::memcpy(id, value, sizeof(Steinberg::TUID));
    return true;
}

} // namespace

bool parseClassId(std::string_view text, Steinberg::TUID id) {
    std::memset(id, 0, sizeof(Steinberg::TUID));
    return text.size() == 38 && readDigits(text, "{}-", id);
}

Steinberg::FUID classId(std::string_view text) {
    Steinberg::TUID id;
    parseClassId(text, id);
    return Steinberg::FUID::fromTUID(id);
}

std::string className(const std::string& productName, int32_t generation, int32_t threshold) {
    return generation > threshold ? productName + " " + std::to_string(generation) : productName;
}

std::string subCategoriesForType(int32_t pluginType, bool instrumentWithEffect) {
    switch (pluginType) {
    case 1:
        return instrumentWithEffect ? "Instrument|Synth|Fx" : "Instrument|Synth";
    case 2:
        return "Fx|Filter";
    case 3:
        return "Fx|Delay";
    case 4:
        return "Fx|Dynamics";
    case 5:
        return "Fx|EQ";
    case 6:
        return "Fx|Distortion";
    case 7:
        return "Fx|Analyzer";
    case 8:
        return "Fx|Reverb";
    default:
        return "Fx";
    }
}

std::string versionString() {
    char text[64];
    std::snprintf(text, sizeof(text), "%d.%d.%d.0", kVersionMajor, kVersionMinor, kVersionRevision);
    return text;
}

uint32_t vst2UniqueId(std::string_view code, int32_t variant) {
    char characters[4] = {' ', ' ', ' ', ' '};
    std::copy_n(code.begin(), std::min<size_t>(code.size(), 4), characters);
    if ((variant & 8) != 0)
        characters[3] = (variant & 1) != 0 ? '6' : '5';
    else if ((variant & 4) != 0)
        characters[3] = '1';
    else if ((variant & 1) != 0)
        characters[3] = (variant & 2) != 0 ? '3' : '2';
    else if ((variant & 2) != 0)
        characters[3] = '4';
    uint32_t id = 0;
    for (char c : characters)
        id = (id << 8) | static_cast<uint8_t>(c);
    return id;
}

std::string legacyClassId(uint32_t uniqueId, std::string_view name) {
    char text[40];
    int length = std::snprintf(text, sizeof(text), "%06X%08X", 0x565354u, uniqueId);
    for (size_t i = 0; i < 9; ++i) {
        const auto byte = i < name.size() ? static_cast<unsigned>(static_cast<uint8_t>(name[i])) : 0u;
        length += std::snprintf(text + length, sizeof(text) - static_cast<size_t>(length), "%02X", byte);
    }
    Steinberg::TUID id{};
    readDigits(std::string_view(text, static_cast<size_t>(length)), "", id);
    return hexDigits(id);
}

std::string hexDigits(const Steinberg::TUID id) {
    std::string text;
    char pair[3];
    for (size_t i = 0; i < sizeof(Steinberg::TUID); ++i) {
        std::snprintf(pair, sizeof(pair), "%02X", static_cast<unsigned>(static_cast<uint8_t>(id[i])));
        text += pair;
    }
    return text;
}

} // namespace vst3_ids
