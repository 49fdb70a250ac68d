#ifndef VELLUMENT_BENCH_LARGE_VELLUMENT_H
#define VELLUMENT_BENCH_LARGE_VELLUMENT_H

// The large vellument the benchmarks share: 500 transactions, each with 20 copies of 3 histories
// and 10 filings of 3 forms, the steady state of a busy W-2 trail.

#include <cstdlib>
#include <filesystem>
#include <string>

#include <vellument/CCopy.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>
#include "tests/loopback_settings.h"

namespace large_vellument {

const int kTransactions = 500;
const int kCopies = 20;
const int kFilings = 10;
const int kHistories = 3;
const int kForms = 3;

inline void fill_form(const CFormBase* form, int i, int j)
{
    form->set_type(j == 0 ? Vellument::FORM_TYPE_W2 : Vellument::FORM_TYPE_W3);
    form->set_flags(Vellument::FORM_FLAGS_READ_ONLY);
    form->set_description("Federal W-2 copy " + std::to_string(j));
    form->set_location(".\\Histories\\W2_" + std::to_string(i) + "_" + std::to_string(j) + ".PDF");
    form->set_exml_location(".\\Histories\\W2_" + std::to_string(i) + "_" + std::to_string(j) + ".XML");
    form->set_form_name("W2_SSA");
    form->set_krf_db_path("C:\\Data\\Forms.krf");
    form->set_krf_version("2021.1");
    form->set_krf_filter_number(i);
    form->set_krf_filter_number_2(j);
}

inline void fill_base(const CFilingBase* unit, int i, int k)
{
    // A federal unit with its printed employer unit, then states: the steady state of a W-2
    // trail, which an ordinary open leaves as it is.
    unit->set_type(k == 0 ? Vellument::FILING_TYPE_FEDERAL
                          : k == 1 ? Vellument::FILING_TYPE_EMPLOYER : Vellument::FILING_TYPE_STATE);
    unit->set_identifier(k < 2 ? "FE" : "S" + std::to_string(k));
    unit->set_vlid(i * 100 + k);
    unit->set_printed_flag(true);
    unit->set_efiled_flag(k % 2 == 0);
    unit->set_krf_file_location(".\\Histories\\DATA_" + std::to_string(k) + ".KRF");
    unit->set_date(CDateTime(44197.5 + i));
}

// A new scratch directory holding a company folder "Co" with its Histories; the caller removes it.
// The process's settings go to root/AppData, with the filing service on a loopback port that
// refuses: saving an e-filed trail uploads it, and no benchmark reaches beyond the machine.
inline std::string make_scratch_company()
{
    std::string root = std::filesystem::temp_directory_path().string() + "/vlm-bench-XXXXXX";
    if (mkdtemp(root.data()) == nullptr)
        std::abort();
    std::filesystem::create_directories(root + "/Co/Histories");
    std::filesystem::create_directories(root + "/AppData");
    setenv("VELLUMENT_APPDATA", (root + "/AppData").c_str(), 1);
    loopback::point_settings_at(root + "/AppData", loopback::service_url(loopback::refusing_port()));
    return root;
}

// Appends the transactions to an opened vellument.
inline void fill(CVellument& v)
{
    for (int i = 0; i < kTransactions; ++i) {
        CPackage* package = v.get_current_package();
        for (int k = 0; k < kFilings; ++k) {
            CFiling* filing = new CFiling();
            fill_base(filing, i, k);
            filing->set_efiled_successful_flag(true);
            filing->set_employee_count(25);
            for (int j = 0; j < kForms; ++j) {
                CForm* form = new CForm();
                fill_form(form, i, j);
                filing->add_form(form);
            }
            package->add_filing(filing);
        }
        CStatus* status = v.get_current_status();
        for (int k = 0; k < kCopies; ++k) {
            CCopy* copy = new CCopy();
            fill_base(copy, i, k);
            for (int j = 0; j < kHistories; ++j) {
                CHistory* history = new CHistory();
                fill_form(history, i, j);
                copy->add_history(history);
            }
            status->add_copy(copy);
        }
        v.get_current_transaction()->set_action(Vellument::ACTION_FILING);
        if (i + 1 < kTransactions)
            v.clear_current_status();
    }
}

struct Fixture {
    std::string root;        // disk directory, removed at exit
    std::string vellument;   // Windows form
    std::string disk_file;   // disk form of the same file
    std::string pugi_output; // where pugixml writes its copy
};

// The large vellument, built through the library and saved once per process, so that it has the
// library's own form.
inline Fixture& fixture()
{
    static Fixture* f = [] {
        Ostrel::Log::SetLevel(1);
        auto* made = new Fixture;
        made->root = large_vellument::make_scratch_company();
        made->disk_file = made->root + "/Co/Histories/VELLUMENT_W2_2021.VLM";
        made->pugi_output = made->root + "/pugi.xml";
        const std::string company = Ostrel::FileSystem::ToWindowsPath((made->root + "/Co").c_str());
        made->vellument = company + "\\HISTORIES\\VELLUMENT_W2_2021.VLM";

        CVellument v;
        v.open(made->vellument.c_str(), "12-3456789", "2021", "VND", false, true);
        v.set_form_type_string("W-2_SSA");
        large_vellument::fill(v);
        if (v.save(nullptr) == 0)
            std::abort();
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(fixture().root, ec);
        });
        return made;
    }();
    return *f;
}

} // namespace large_vellument

#endif
