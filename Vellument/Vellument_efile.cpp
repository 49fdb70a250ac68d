// The e-file step: the list of what is sent, and the stamp of its outcome on the package.

#include <vellument/CVellument.h>

#include <cstdio>
#include <string>

#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CPackage.h>
#include <vellument/CPathHandling.h>
#include <vellument/CTransaction.h>
#include <vellument/FormCodes.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>
#include <vellument/TaskListFunctions.h>

#include "Ostrel/LogMacros.h"
#include "Vellument/Vellument_impl.h"

namespace {

bool is_state_or_local(Vellument::FILING_TYPE type)
{
    return type == Vellument::FILING_TYPE_STATE || type == Vellument::FILING_TYPE_LOCAL;
}

} // namespace

// --- The builder ----------------------------------------------------------------------------------

efile_options_builder::efile_options_builder() : m_document(COXMLDocument::createDocument())
{
    m_document->appendChild(m_document->createElement("root"), true);
}

efile_options_builder::~efile_options_builder()
{
    delete m_document;
}

COXMLDocument* efile_options_builder::get_document() const
{
    return m_document;
}

void efile_options_builder::add_state_element(const char* abbr) const
{
    COXMLNode* element = m_document->createElement("state");
    element->setAttribute("abbr", Ostrel::Format::TextOf(abbr).c_str());
    m_document->getDocumentElement()->appendChild(element, true);
}

void efile_options_builder::add_history_element(const char* path, const char* state_abbr,
                                                const char* form_name) const
{
    COXMLNode* element = m_document->createElement("history");
    element->setAttribute("path", Ostrel::Format::TextOf(path).c_str());
    element->setAttribute("stateabbr", Ostrel::Format::TextOf(state_abbr).c_str());
    element->setAttribute("formname", Ostrel::Format::TextOf(form_name).c_str());
    m_document->getDocumentElement()->appendChild(element, true);
}

void add_histories_to_efile_options(const CFiling* filing, const efile_options_builder* builder)
{
    if (filing == nullptr || builder == nullptr)
        return;
    const Vellument::FILING_TYPE type = filing->get_type();
    const bool state_or_local = is_state_or_local(type);
    if (!state_or_local && type != Vellument::FILING_TYPE_FEDERAL && type != Vellument::FILING_TYPE_REVIEW)
        return;
    // The identifier goes in raw: the state element alone carries the converted local code.
    const std::string identifier = filing->get_identifier();
    for (int i = 0; i < filing->get_form_count(); ++i) {
        const CForm* form = filing->get_form_at(i);
        const std::string path = CPathHandling::convert_path_to_absolute(form->get_exml_location().c_str());
        if (state_or_local) {
            const Vellument::FORM_TYPE form_type = form->get_type();
            if (form_type == Vellument::FORM_TYPE_W2 || form_type == Vellument::FORM_TYPE_W2C)
                continue;
            builder->add_history_element(path.c_str(), identifier.c_str(), form->get_form_name().c_str());
        } else {
            const std::string name = form->get_payer_kind_string() + form->get_form_name();
            builder->add_history_element(path.c_str(), "", name.c_str());
        }
    }
}

// --- The vellument's operations -------------------------------------------------------------------

void CVellument::create_efile_task_list(const char* path) const
{
    efile_options_builder builder;
    CTransaction* current = m_impl->current_transaction();
    if (current == nullptr)
        return;
    const CPackage* package = current->get_package();
    if (package == nullptr)
        return;

    char choice[16];
    std::snprintf(choice, sizeof choice, "%i", package->get_filing_options());
    builder.get_document()->getDocumentElement()->setAttribute("efilechoice", choice);

    for (int i = 0; i < package->get_filing_count(); ++i) {
        const CFiling* filing = package->get_filing_at(i);
        if (!filing->get_efiled_flag())
            continue;
        if (is_state_or_local(filing->get_type()))
            builder.add_state_element(convert_local_code(filing->get_identifier().c_str()).c_str());
        add_histories_to_efile_options(filing, &builder);
    }

    if (builder.get_document()->save(path) == 0) {
        int code = 0;
        char text[128] = {};
        builder.get_document()->getXMLError(&code, text, static_cast<int>(sizeof text));
        VLOG(3, "[Vellument] Save error = %d, %s \n", code, text);
    }
}

void CVellument::update_efile_status(bool efile_succeeded, int vlid, const char* invoice_amount) const
{
    VLOG(3, "[Vellument] In UpdateEfileStatus: EfileSucceeded = %d, VLID = %d, InvoiceAmount = %s \n",
         efile_succeeded ? 1 : 0, vlid, Ostrel::Format::TextOf(invoice_amount).c_str());
    if (!efile_succeeded)
        return;
    CTransaction* current = m_impl->current_transaction();
    if (current == nullptr)
        return;
    const CPackage* package = current->get_package();
    if (package == nullptr)
        return;
    package->set_invoice_amount(Ostrel::Format::TextOf(invoice_amount).c_str());

    // One identifier for everything the step sent.
    for (int i = 0; i < package->get_filing_count(); ++i) {
        const CFiling* filing = package->get_filing_at(i);
        if (!filing->get_efiled_flag())
            continue;
        filing->set_vlid(vlid);
        filing->set_efiled_successful_flag(true);
        filing->set_replaceable_flag(true);
        for (int f = 0; f < filing->get_form_count(); ++f)
            filing->get_form_at(f)->set_efiled_successful_flag(true);
    }
}
