// Which server a request goes to, decided from the user's debug settings at every request.

#include <string>

#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_IniFile.h>
#include <vellument/eFileSOAPS.h>

#include "Vellument/eFileSOAPS_wire.h"

namespace {

std::string settings_path()
{
    std::string path = Ostrel::FileSystem::GetOstrelLocalAppDataDirectory();
    if (path.empty() || path.back() != '\\')
        path += '\\';
    return path + "Settings.ini";
}

} // namespace

std::string get_service_url()
{
    const std::string settings = settings_path();
    if (_GetValue(settings, "DEBUG", "TestMode", "N", true) != "Y")
        return status_server_url;
    // In test mode an explicit address wins, used as the whole URL whatever it holds.
    std::string address = _GetValue(settings, "DEBUG", "W2StatusServerAddress", "", true);
    if (!address.empty())
        return address;
    // Test mode against the production e-file host still checks status on production.
    const std::string efile = _GetValue(settings, "DEBUG", "EfileServerAddress", "", true);
    if (!efile.empty() && efile.find(efile_host_name) != std::string::npos)
        return status_server_url;
    return status_test_server_url;
}
