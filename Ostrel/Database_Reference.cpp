#include <vellument/Ostrel_Database.h>

#include <cstdlib>

#include <vellument/Ostrel_FileSystem.h>

namespace Ostrel {

// --- OstrelDataDatabase ----------------------------------------------------------------------

OstrelDataDatabase::OstrelDataDatabase() = default;

OstrelDataDatabase::~OstrelDataDatabase() = default;

std::string OstrelDataDatabase::GetReferencePath()
{
    const char* configured = std::getenv("VELLUMENT_REFERENCE_DB");
    if (configured != nullptr && *configured != '\0')
        return configured;
    std::string directory = FileSystem::GetOstrelLocalAppDataDirectory();
    if (!directory.empty() && directory.back() != '\\' && directory.back() != '/')
        directory += '\\';
    return directory + "OstrelData.db";
}

bool OstrelDataDatabase::Open()
{
    return m_database.OpenExistingFile(GetReferencePath(), std::string());
}

DatabaseEx* OstrelDataDatabase::GetSmartDB()
{
    return &m_database;
}

} // namespace Ostrel
