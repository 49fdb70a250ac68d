// The requests to the filing service: envelope text, server choice, the HTTP exchange.

#include "Vellument/eFileSOAPS_wire.h"

#include <cstring>
#include <memory>
#include <new>

#include <vellument/CkHttp.h>
#include <vellument/CkHttpResponse.h>
#include <vellument/CkString.h>
#include <vellument/CkXml.h>
#include <vellument/eFileSOAPS.h>
#include <vellument/Ostrel_Format.h>

#include "Ostrel/LogMacros.h"
#include "Vellument/eFileSOAPS_reply.h"
#include "Vellument/eFileSOAPS_upload.h"
#include "toolkit/CkHttp_Internal.h"

using Ostrel::Format::TextOf;

namespace {

// Every request starts with this: one line, SOAP 1.1 envelope and encoding, 2001 XML Schema.
const char kPrologue[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
    "<SOAP-ENV:Envelope"
    " xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\""
    " SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\""
    " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""
    " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">";
const char kEpilogue[] = "></SOAP-ENV:Body></SOAP-ENV:Envelope>";
const char kFileTextOpen[] = "<m:fileText xsi:type=\"xsd:string\">";
const char kFileTextClose[] = "</m:fileText>";

void add_parameter(std::string& out, const char* name, const std::string& value)
{
    out += "<m:";
    out += name;
    out += " xsi:type=\"xsd:string\">";
    out += value;
    out += "</m:";
    out += name;
    out += '>';
}

} // namespace

std::string get_submission_status(const char* ein, const char* formName, const char* year, std::string& fault)
{
    std::string body;
    std::string transport_error;
    if (!SoapWire::call("GetSubmissionStatus", ein, formName, year, body, transport_error))
        return std::string();
    return SoapReply::read_status_reply(body.c_str(), fault);
}

namespace SoapWire {

std::string normalise_ein(const char* ein)
{
    std::string out;
    for (const char* p = ein; p != nullptr && *p != '\0'; ++p) {
        if (*p != '-' && *p != ' ')
            out += *p;
    }
    return out;
}

void envelope_parts(const char* operation, const char* ein, const char* form_name, const char* year,
                    const char* hash, bool with_file, std::string& head, std::string& tail)
{
    const std::string ein_digits = normalise_ein(ein);
    const std::string form = TextOf(form_name);
    const std::string year_text = TextOf(year);
    head.clear();
    head += kPrologue;
    head += "<SOAP-ENV:Body><m:";
    head += operation;
    head += " xmlns:m=\"";
    head += service_namespace;
    head += "\">";
    add_parameter(head, "accessKey", access_key);
    add_parameter(head, "ein", ein_digits);
    add_parameter(head, "formName", form);
    add_parameter(head, "year", year_text);
    tail.clear();
    if (with_file) {
        add_parameter(head, "hash", TextOf(hash));
        head += kFileTextOpen;
        tail += kFileTextClose;
    }
    tail += "</m:";
    tail += operation;
    tail += kEpilogue;
}

std::string envelope(const char* operation, const char* ein, const char* form_name, const char* year)
{
    std::string head;
    std::string tail;
    envelope_parts(operation, ein, form_name, year, nullptr, false, head, tail);
    return head + tail;
}

bool exchange(const char* operation, const char* request, std::size_t size, bool ascii, std::string& body,
              std::string& transport_error)
{
    // A fresh client for each request, left at its defaults.
    CkHttp http;
    http.SetRequestHeader("SOAPAction", (std::string(service_namespace) + operation).c_str());
    http.SetRequestHeader("Content-Type", "text/xml; charset=utf-8");
    const std::string url = get_service_url();
    std::unique_ptr<CkHttpResponse> response(CkHttpInternal::postXml(http, url.c_str(), request, size, "utf-8", ascii));
    // The status code is not looked at: a fault comes with 500 and is read like any reply.
    if (!http.LastCallSucceeded()) {
        transport_error = TextOf(http.lastErrorText());
        VLOG(3, "[eFileSOAPS] Fault String = %s\n", transport_error.c_str());
        return false;
    }
    body = response ? TextOf(response->BodyStr()) : std::string();
    return true;
}

bool call(const char* operation, const char* ein, const char* form_name, const char* year, std::string& body,
          std::string& transport_error)
{
    const std::string request = envelope(operation, ein, form_name, year);
    return exchange(operation, request.c_str(), request.size(), false, body, transport_error);
}

bool upload_text(const char* path, SoapUpload::Request& out, bool& ascii)
{
    const std::size_t start = out.size();
    // The plain shape that the library's own save writes goes straight from the file's bytes to
    // the text; anything else, and a file that can't be read, through the tree.
    bool plain = false;
    try {
        plain = SoapUpload::append_plain_file(path, out);
    } catch (const std::bad_alloc&) {
        // The tree's loader reports a lack of memory in its own way.
    }
    if (!plain) {
        CkString text;
        {
            CkXml xml;
            xml.put_EmitDeclaration(false);
            if (!xml.LoadXmlFile(path)) {
                VLOG(3, "[EfileSoaps] Unable to load xml file %s\n", TextOf(path).c_str());
                VLOG(3, "[EfileSoaps] Xml Error %s\n", TextOf(xml.lastErrorText()).c_str());
                return false;
            }
            // The tree as the toolkit writes it, not the file's bytes: the hash sent beside it
            // is still that of the file.
            text.append(xml.GetXml());
        }
        // The tree and its text are gone before the encoded copy is made, so that it can take
        // their memory.
        text.entityEncode();
        out.truncate(start);
        out.append(text.getString(), static_cast<std::size_t>(text.getSizeAnsi()));
    }
    ascii = plain;
    VLOG(3, "[EfileSoaps] Loaded vellument %s\n", TextOf(path).c_str());
    return true;
}

} // namespace SoapWire
