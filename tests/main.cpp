#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <vellument/Ostrel_Database.h>

#include "loopback_settings.h"

// Each test process writes its log and settings into a private directory, never into the user's.
int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    std::string base = std::filesystem::temp_directory_path().string() + "/vellument-test-XXXXXX";
    std::string appdata;
    if (mkdtemp(base.data()) != nullptr) {
        appdata = base;
        setenv("VELLUMENT_APPDATA", appdata.c_str(), 1);
        // Every normal open of a live vellument asks the filing server: a test that starts no
        // service of its own meets a loopback port that refuses.
        loopback::point_settings_at(appdata, loopback::service_url(loopback::refusing_port()));
        // Every vellument reads the local list of the reference database; give it an empty one,
        // as an installed application has, so that no test meets the missing-database message
        // unless it asks for it.
        const std::string reference = appdata + "/reference.db";
        Ostrel::DatabaseEx db;
        if (db.OpenFile(reference, "") && db.Execute("CREATE TABLE LocalList (Code TEXT, Name TEXT);"))
            setenv("VELLUMENT_REFERENCE_DB", reference.c_str(), 1);
    }
    int rc = RUN_ALL_TESTS();
    if (!appdata.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(appdata, ec);
    }
    return rc;
}
