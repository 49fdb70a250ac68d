#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

// Each test process writes its log and settings into a private directory, never into the user's.
int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    std::string base = std::filesystem::temp_directory_path().string() + "/vellument-test-XXXXXX";
    std::string appdata;
    if (mkdtemp(base.data()) != nullptr) {
        appdata = base;
        setenv("VELLUMENT_APPDATA", appdata.c_str(), 1);
    }
    int rc = RUN_ALL_TESTS();
    if (!appdata.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(appdata, ec);
    }
    return rc;
}
