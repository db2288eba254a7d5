#pragma once

#include <filesystem>

namespace testing_support {

// The temporary folder that HOME, XDG_CONFIG_HOME and XDG_DATA_HOME point to for the whole test
// run; removed when the program ends.
const std::filesystem::path& tempHome();

// A fresh, empty folder inside tempHome() for one test.
std::filesystem::path makeTempFolder(const char* prefix);

} // namespace testing_support
