// Feeds bytes as an SQL mirror file: the vellument is read back from it and then deleted from it,
// as an application does with a database another program may have written.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

#include <vellument/CVellument.h>
#include <vellument/CvellumentDB.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>

#include "fuzz/work_dir.h"

namespace {

int quiet_box(void*, const char*, unsigned int) { return 1; }

struct Work {
    std::string dir;
    std::string db;        // disk path of the mirror file
    std::string name_win;  // the vellument's name, in Windows form

    Work()
    {
        dir = make_fuzz_work_dir("mirror");
        db = dir + "/mirror.db";
        name_win = Ostrel::FileSystem::ToWindowsPath((dir + "/Histories/Vellument_W2_2024.VLM").c_str());
        setenv("VELLUMENT_APPDATA", dir.c_str(), 1);
        Ostrel::Log::SetLevel(0);
        Ostrel::Log::SetMessageBoxHandler(quiet_box, nullptr);
    }
    void clear() const
    {
        for (const char* suffix : {"", "-journal", "-wal", "-shm"})
            std::remove((db + suffix).c_str());
    }
};

const Work& work()
{
    static Work w;
    return w;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Work& w = work();
    w.clear();
    {
        std::ofstream out(w.db, std::ios::binary);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    {
        Ostrel::DatabaseEx db;
        // A hostile view may run long; a fuzz run wants a quick verdict.
        db.SetStatementStepLimit(2000000);
        if (db.OpenFile(w.db, "")) {
            CVellument v;
            v.read_from_vellument_database(w.name_win.c_str(), "", "", "", &db);
            v.get_transaction_count();
            CvellumentDB mapper;
            mapper.DeleteRecords(&v, &db);
        }
    }
    w.clear();
    return 0;
}
