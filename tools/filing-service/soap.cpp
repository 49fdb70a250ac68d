#include "soap.h"

#include <cstring>

#include <pugixml.hpp>

#include "text.h"

namespace fs_soap {

const char* const kOperations[4] = {"GetSubmissionStatus", "StoreVellument", "GetVellument", "GetVellumentHash"};
const char* const kNamespace = FILING_SERVICE_NAMESPACE;

namespace {

const char kEnvelopeNamespaces[] = " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""
                                   " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"";

const char* local_name(const char* name)
{
    const char* colon = std::strrchr(name, ':');
    return colon ? colon + 1 : name;
}

pugi::xml_node child_by_local_name(pugi::xml_node parent, const char* name)
{
    for (pugi::xml_node n = parent.first_child(); n; n = n.next_sibling())
        if (n.type() == pugi::node_element && std::strcmp(local_name(n.name()), name) == 0)
            return n;
    return pugi::xml_node();
}

pugi::xml_node first_element(pugi::xml_node parent)
{
    for (pugi::xml_node n = parent.first_child(); n; n = n.next_sibling())
        if (n.type() == pugi::node_element)
            return n;
    return pugi::xml_node();
}

// The text of an element as the client meant it: escaped text decoded with the entity names of its
// upload encoding, CDATA as it stands. False when an '&' starts no reference.
bool element_text(pugi::xml_node element, std::string& text)
{
    text.clear();
    std::string part;
    for (pugi::xml_node n = element.first_child(); n; n = n.next_sibling()) {
        if (n.type() == pugi::node_pcdata) {
            if (!fs_text::decode_entities(n.value(), part))
                return false;
            text += part;
        } else if (n.type() == pugi::node_cdata) {
            text += n.value();
        }
    }
    return true;
}

std::string envelope(const std::string& body, bool soap_env_prefix)
{
    const char* prefix = soap_env_prefix ? "SOAP-ENV" : "soap";
    return std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?><") + prefix + ":Envelope xmlns:" + prefix +
           "=\"http://schemas.xmlsoap.org/soap/envelope/\"" + kEnvelopeNamespaces + "><" + prefix + ":Body>" +
           body + "</" + prefix + ":Body></" + prefix + ":Envelope>";
}

} // namespace

bool is_operation(const std::string& name)
{
    for (const char* op : kOperations)
        if (name == op)
            return true;
    return false;
}

const std::string& Request::get(const std::string& name) const
{
    static const std::string empty;
    const auto found = parameters.find(name);
    return found == parameters.end() ? empty : found->second;
}

bool parse_request(const std::string& body, Request& out, std::string& fault_text)
{
    pugi::xml_document document;
    // Escapes are decoded by element_text, which also knows the HTML entity names; line ends are
    // kept as the client sent them, so that a download gives back the same text.
    const unsigned flags = (pugi::parse_default | pugi::parse_ws_pcdata) & ~(pugi::parse_escapes | pugi::parse_eol);
    const pugi::xml_parse_result parsed = document.load_buffer(body.data(), body.size(), flags);
    if (!parsed) {
        fault_text = std::string("The request is not XML: ") + parsed.description();
        return false;
    }
    const pugi::xml_node root = document.document_element();
    const pugi::xml_node soap_body = child_by_local_name(root, "Body");
    if (std::strcmp(local_name(root.name()), "Envelope") != 0 || !soap_body) {
        fault_text = "The request is not a SOAP envelope";
        return false;
    }
    const pugi::xml_node operation = first_element(soap_body);
    out.operation = operation ? local_name(operation.name()) : "";
    if (!is_operation(out.operation)) {
        fault_text = "Unknown operation \"" + out.operation + "\"";
        return false;
    }
    out.parameters.clear();
    for (pugi::xml_node n = operation.first_child(); n; n = n.next_sibling()) {
        if (n.type() == pugi::node_element && !element_text(n, out.parameters[local_name(n.name())])) {
            fault_text = std::string("The request is not XML: a bare '&' in ") + local_name(n.name());
            return false;
        }
    }

    std::vector<const char*> needed = {"accessKey", "ein", "formName", "year"};
    if (out.operation == "StoreVellument") {
        needed.push_back("hash");
        needed.push_back("fileText");
    }
    for (const char* name : needed) {
        if (out.parameters.find(name) == out.parameters.end()) {
            fault_text = std::string("Missing parameter \"") + name + "\"";
            return false;
        }
    }
    return true;
}

const char* answer_element(const std::string& operation)
{
    if (operation == "GetVellument")
        return "fileText";
    if (operation == "GetVellumentHash")
        return "hash";
    return "response";
}

std::string reply(const std::string& operation, const std::string& answer, bool soap_env_prefix)
{
    const std::string element = answer_element(operation);
    return envelope("<" + operation + "Response xmlns=\"" + kNamespace + "\"><" + element + ">" +
                        fs_text::xml_escape(answer) + "</" + element + "></" + operation + "Response>",
                    soap_env_prefix);
}

std::string fault(const std::string& text)
{
    return envelope("<soap:Fault><faultcode>soap:Server</faultcode><faultstring>" + fs_text::xml_escape(text) +
                        "</faultstring><detail /></soap:Fault>",
                    false);
}

std::string status_document(const std::string& ein, const std::string& year,
                            const std::vector<fs_store::Copy>& copies)
{
    std::string doc = "<SubmissionStatus EIN=\"" + fs_text::xml_escape(ein) + "\" Year=\"" +
                      fs_text::xml_escape(year) + "\">";
    for (const fs_store::Copy& c : copies) {
        doc += "<Copy CopyType=\"" + fs_text::xml_escape(c.type) + "\" Vlid=\"" + std::to_string(c.vlid) +
               "\" CopyCode=\"" + fs_text::xml_escape(c.code) + "\" IsDeleted=\"" + (c.deleted ? "True" : "False") +
               "\" IsReplaceable=\"" + (c.replaceable ? "True" : "False") + "\" />";
    }
    return doc + "</SubmissionStatus>";
}

} // namespace fs_soap
