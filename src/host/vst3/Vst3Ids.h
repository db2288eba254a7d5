#pragma once

#include "pluginterfaces/base/funknown.h"

#include <cstdint>
#include <string>
#include <string_view>

// The plug-in's VST3 identity: class ids, names and what hosts are told about the product.
namespace vst3_ids {

inline constexpr std::string_view kProcessorId = "{ED57BD72-5C60-467E-A64D-D2F400758B6F}";
inline constexpr std::string_view kControllerId = "{A2494658-E9CC-4417-BA60-0EA26BDF598F}";
inline constexpr std::string_view kCompatibilityId = "{09C3A281-5037-4A32-821C-03BE20E24ECE}";

inline constexpr const char* kVendor = "Zorvane";
inline constexpr const char* kUrl = "https://www.zorvane.example";
inline constexpr const char* kEmail = "support@zorvane.example";
inline constexpr const char* kSdkVersion = "VST 3.7.9";
inline constexpr const char* kFourCharacterCode = "ZO4p";
// The product's generation is part of its class name when it is above the threshold.
inline constexpr int32_t kGeneration = 4;
inline constexpr int32_t kGenerationThreshold = 1;
// The plug-in type selects the sub-categories (5: an equaliser).
inline constexpr int32_t kPluginType = 5;
inline constexpr int32_t kVersionMajor = 4;
inline constexpr int32_t kVersionMinor = 0;
inline constexpr int32_t kVersionRevision = 0;

// A class id from its 38-character text ("{XXXXXXXX-XXXX-...}"); anything else leaves the id unset
// (all zero) and answers false.
bool parseClassId(std::string_view text, Steinberg::TUID id);
Steinberg::FUID classId(std::string_view text);

// "Ondrel 4": the product name, and the generation when it is above the threshold.
std::string className(const std::string& productName, int32_t generation, int32_t threshold);
std::string subCategoriesForType(int32_t pluginType, bool instrumentWithEffect);
std::string versionString();

// The VST2 unique id of a variant of a four-character code (bit 0 mono, bit 1 side chain; bits 2
// and 3 name the family's other builds).
uint32_t vst2UniqueId(std::string_view code, int32_t variant);
// The class id a VST2 build with unique id U and this class name had, as 32 upper-case digits.
std::string legacyClassId(uint32_t uniqueId, std::string_view className);
// The class id as 32 upper-case hexadecimal digits.
std::string hexDigits(const Steinberg::TUID id);

} // namespace vst3_ids
