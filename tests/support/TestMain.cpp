#include "TempHome.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace testing_support {

namespace {

std::filesystem::path createTempHome() {
    std::string pattern = (std::filesystem::temp_directory_path() / "ondrel-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("cannot create a temporary home folder");
    return pattern;
}

class TempHomeEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        const auto& home = tempHome();
        std::filesystem::create_directories(home / ".config");
        std::filesystem::create_directories(home / ".local/share");
        setenv("HOME", home.c_str(), 1);
        setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
        setenv("XDG_DATA_HOME", (home / ".local/share").c_str(), 1);
        unsetenv("XDG_DOCUMENTS_DIR");
    }
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(tempHome(), ignored);
    }
};

} // namespace

const std::filesystem::path& tempHome() {
    static const std::filesystem::path home = createTempHome();
    return home;
}

std::filesystem::path makeTempFolder(const char* prefix) {
    std::string pattern = (tempHome() / (std::string(prefix) + "-XXXXXX")).string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("cannot create a temporary folder");
    return pattern;
}

} // namespace testing_support

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new testing_support::TempHomeEnvironment);
    return RUN_ALL_TESTS();
}
