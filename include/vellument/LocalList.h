#ifndef VELLUMENT_LOCALLIST_H
#define VELLUMENT_LOCALLIST_H

#include <string>
#include <unordered_map>

#include <vellument/export.h>

class CDictionary;

// A reference table in memory: each row as a column-name-to-text dictionary, keyed by the text
// of the row's first column. The map owns its row dictionaries.
typedef std::unordered_map<std::string, CDictionary*> CListMap;

// Copies every row of the named table of the application's reference database into map. When
// the database or the table can't be opened, the user is shown why and the map stays as it was.
VELLUMENT_API void build_list_map_from_db(const char* table, CListMap& map);
// Deletes every row dictionary and empties the map; a null map is ignored.
VELLUMENT_API void delete_list_map(CListMap* map);

#endif
