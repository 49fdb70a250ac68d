// A short audit trail with the installed vellument library: make the W-2 vellument of a company,
// record one printed filing, save it (backup and hash), then read it back read-only and print it.
//
//   trail_example COMPANY_DIR

#include <vellument/vellument.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

// The library shows a message box when, for example, its reference database is missing (each new
// vellument object looks for it); a console program prints the text instead, once.
int print_message(void*, const char* text, unsigned int)
{
    static std::string last;
    std::string line = text != nullptr ? text : "";
    while (!line.empty() && line.back() == '\n')
        line.pop_back();
    if (line != last)
        std::fprintf(stderr, "note: %s\n", line.c_str());
    last = line;
    return Ostrel::Log::BUTTON_OK;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s COMPANY_DIR\n", argv[0]);
        return 2;
    }
    Ostrel::Log::SetMessageBoxHandler(&print_message, nullptr);

    // The library works with Windows-form paths; Z: is the root of the file system.
    const std::string disk = std::filesystem::absolute(argv[1]).lexically_normal().string();
    const std::string company = Ostrel::FileSystem::ToWindowsPath(disk.c_str());
    Ostrel::FileSystem::CreateDirectoryA((company + "\\Histories").c_str());
    const std::string name = company + "\\Histories\\" +
                             CVellument::build_file_name(Vellument::FORM_TYPES_W2, Vellument::EXTENSION_VLM, "2025", "");

    {
        CVellument vellument;
        // A missing file gives a new trail with one open transaction.
        vellument.open(name.c_str(), "12-3456789", "2025", "EXAMPLE", false, false);
        vellument.set_form_type_string("W-2_SSA");
        vellument.get_current_transaction()->set_action(Vellument::ACTION_FILING);

        // The package takes the filing, the filing its form.
        auto* filing = new CFiling();
        filing->set_type(Vellument::FILING_TYPE_EMPLOYEE);
        filing->set_printed_flag(true);
        filing->set_printed_successful_flag(true);
        auto* form = new CForm();
        form->set_type(Vellument::FORM_TYPE_W2);
        form->set_description("Employee W-2");
        form->set_location(company + "\\Drafts\\W2.pdf");
        filing->add_form(form);
        vellument.get_current_package()->add_filing(filing);

        // The finished package becomes the new status, and a new transaction opens.
        vellument.complete_current_transaction();
        if (vellument.save(nullptr) == 0) {
            std::fprintf(stderr, "saving %s failed\n", name.c_str());
            return 1;
        }
    }

    CVellument back;
    back.open(name.c_str(), "", "", "", false, true);  // read-only: writes nothing
    std::printf("%s: %s %s, %d transactions\n", back.get_vellument_name().c_str(), back.get_form_type_string().c_str(),
                back.get_filing_year().c_str(), back.get_transaction_count());
    for (int i = 0; i < back.get_transaction_count(); ++i) {
        const CTransaction* transaction = back.get_transaction(i);
        std::printf("  %d. %s: %d filings in the package, %d copies in the status\n", i + 1,
                    CTransaction::GetActionTypeToString(transaction->get_action()).c_str(),
                    transaction->get_package()->get_filing_count(), transaction->get_status()->get_copy_count());
    }
    return back.get_transaction_count() == 2 ? 0 : 1;
}
