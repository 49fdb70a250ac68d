#include <vellument/LocalList.h>

#include <memory>
#include <string>

#include <vellument/CDictionary.h>
#include <vellument/Ostrel_Database.h>

#include "Ostrel/LogMacros.h"

void build_list_map_from_db(const char* table, CListMap& map)
{
    const std::string name = table != nullptr ? table : "";
    VLOG(3, "[Decision Tree] BuildListMapFromDB %s\n", name.c_str());

    Ostrel::OstrelDataDatabase reference;
    if (!reference.Open()) {
        Ostrel::Log::LogAndShowMessage(__FILE__, __LINE__, __func__, Ostrel::Log::LEVEL_INFO,
                                       "[Decision Tree] Error opening OstrelDataDatabase\n");
        return;
    }
    Ostrel::RecordSet rows;
    const std::string sql = "SELECT * FROM " + name;
    if (!rows.Open(sql.c_str(), reference.GetSmartDB())) {
        Ostrel::Log::LogAndShowMessage(__FILE__, __LINE__, __func__, Ostrel::Log::LEVEL_INFO, "%s",
                                       ("[Decision Tree] Error opening " + name + " Record Set\n").c_str());
        return;
    }
    const int columns = rows.FieldsCount();
    for (rows.MoveFirst(); !rows.IsEOF(); rows.MoveNext()) {
        std::unique_ptr<CDictionary> row(new CDictionary());
        for (int i = 0; i < columns; ++i)
            (*row)[rows.GetFieldName(i)] = rows.GetColumnString(i);
        const std::string key = columns > 0 ? (*row)[rows.GetFieldName(0)] : std::string();
        // A key that comes again: the later row wins.
        CDictionary*& slot = map[key];
        delete slot;
        slot = row.release();
    }
}

void delete_list_map(CListMap* map)
{
    if (map == nullptr)
        return;
    for (auto& entry : *map)
        delete entry.second;
    map->clear();
}
