// Feeds bytes as a viewer task list after a Viewer run: loads it, walks its tasks as the results
// reader does, and carries it into a small package whose forms hold task numbers 1 to 5.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/CViewerTaskList.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>

#include "fuzz/work_dir.h"

namespace {

// Lists are small files; a larger input only slows the fuzzer down.
const std::size_t kMaxInput = 64 * 1024;

struct Work {
    std::string dir;
    std::string list;      // disk path of the list file
    std::string list_win;  // the same in Windows form
    CVellument vellument;

    Work()
    {
        dir = make_fuzz_work_dir("tasklist");
        list = dir + "/list.xml";
        list_win = Ostrel::FileSystem::ToWindowsPath(list.c_str());
        Ostrel::Log::SetLevel(0);
        // A vellument file that doesn't exist, opened read-only: one fresh transaction, no writes.
        const std::string name_win = Ostrel::FileSystem::ToWindowsPath((dir + "/Vellument_W2_2021.VLM").c_str());
        vellument.open(name_win.c_str(), "", "2021", "", false, true);
        if (vellument.get_current_package() == nullptr)
            std::abort();
    }
    ~Work()
    {
        std::remove(list.c_str());
        rmdir(dir.c_str());
    }
};

Work& work()
{
    static Work w;
    return w;
}

CForm* form(Vellument::FORM_TYPE type, const char* description, int task)
{
    CForm* f = new CForm();
    f->set_type(type);
    f->set_description(description);
    f->set_task_number(task);
    return f;
}

// Federal, employer and employee filings, so that every counting rule gets its turn.
void fill_package(const CVellument& v)
{
    v.clear_current_package();
    CPackage* package = v.get_current_package();
    CFiling* federal = new CFiling();
    federal->set_type(Vellument::FILING_TYPE_FEDERAL);
    federal->set_efiled_flag(true);
    federal->add_form(form(Vellument::FORM_TYPE_W3, "Federal W-3", 1));
    federal->add_form(form(Vellument::FORM_TYPE_W2, "Federal W-2", 2));
    package->add_filing(federal);
    CFiling* employer = new CFiling();
    employer->set_type(Vellument::FILING_TYPE_EMPLOYER);
    employer->add_form(form(Vellument::FORM_TYPE_W2, "Employer W-2", 3));
    package->add_filing(employer);
    CFiling* employee = new CFiling();
    employee->set_type(Vellument::FILING_TYPE_EMPLOYEE);
    employee->set_printed_flag(true);
    employee->set_records_flag(true);
    employee->add_form(form(Vellument::FORM_TYPE_NOTICE, "Notice", 4));
    employee->add_form(form(Vellument::FORM_TYPE_W2C, "Employee W-2C", 5));
    package->add_filing(employee);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > kMaxInput)
        return 0;
    Work& w = work();
    if (!Ostrel::FileSystem::WriteBinaryFile(w.list.c_str(), data, size))
        return 0;

    CViewerTaskList list;
    if (list.LoadList(w.list.c_str())) {
        std::size_t seen = 0;
        for (int number = list.SelectTask(1) ? 1 : 0; number != 0; number = list.SelectNextTask()) {
            seen += std::string(list.GetTaskAttribute("ResultCode")).size();
            seen += std::string(list.GetTaskAttribute("ResultPrinted")).size();
            if (list.GetTaskNumber() != number)
                std::abort();
        }
        const bool all_ok = list.GetAllSucceeded();
        (void)all_ok;
        (void)seen;
    }

    fill_package(w.vellument);
    w.vellument.get_current_transaction()->set_action(size % 2 == 0 ? Vellument::ACTION_CORRECTION
                                                                      : Vellument::ACTION_FILING);
    const bool result = w.vellument.update_from_viewer_task_list(w.list_win.c_str());
    // The call-efiler flag never stands without every task having succeeded.
    if (!result && w.vellument.get_current_package()->get_call_efiler_flag())
        std::abort();
    return 0;
}
