// The requests to the filing service: envelope text, server choice, the HTTP exchange.

#include "Vellument/eFileSOAPS_wire.h"

#include <cstring>
#include <memory>

#include <vellument/CkHttp.h>
#include <vellument/CkHttpResponse.h>
#include <vellument/CkString.h>
#include <vellument/CkXml.h>
#include <vellument/eFileSOAPS.h>
#include <vellument/Ostrel_Format.h>

#include "Ostrel/LogMacros.h"
#include "Vellument/eFileSOAPS_reply.h"

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

void add_parameter(std::string& out, const char* name, const char* value, std::size_t size)
{
    out += "<m:";
    out += name;
    out += " xsi:type=\"xsd:string\">";
    out.append(value, size);
    out += "</m:";
    out += name;
    out += '>';
}

void add_parameter(std::string& out, const char* name, const std::string& value)
{
    add_parameter(out, name, value.data(), value.size());
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

std::string envelope(const char* operation, const char* ein, const char* form_name, const char* year,
                     const char* hash, const char* file_text, std::size_t file_size)
{
    const std::string ein_digits = normalise_ein(ein);
    const std::string form = TextOf(form_name);
    const std::string year_text = TextOf(year);
    const std::string hash_text = TextOf(hash);
    // Room for all of it, so that the upload text is copied once and never moved: the tags and
    // the fixed texts take less than 512 bytes beside the prologue.
    std::string out;
    out.reserve(sizeof kPrologue + 512 + 2 * std::strlen(operation) + std::strlen(service_namespace) +
                std::strlen(access_key) + ein_digits.size() + form.size() + year_text.size() + hash_text.size() +
                file_size);
    out += kPrologue;
    out += "<SOAP-ENV:Body><m:";
    out += operation;
    out += " xmlns:m=\"";
    out += service_namespace;
    out += "\">";
    add_parameter(out, "accessKey", access_key);
    add_parameter(out, "ein", ein_digits);
    add_parameter(out, "formName", form);
    add_parameter(out, "year", year_text);
    if (file_text != nullptr) {
        add_parameter(out, "hash", hash_text);
        add_parameter(out, "fileText", file_text, file_size);
    }
    out += "</m:";
    out += operation;
    out += kEpilogue;
    return out;
}

bool exchange(const char* operation, const std::string& request, std::string& body, std::string& transport_error)
{
    // A fresh client for each request, left at its defaults.
    CkHttp http;
    http.SetRequestHeader("SOAPAction", (std::string(service_namespace) + operation).c_str());
    http.SetRequestHeader("Content-Type", "text/xml; charset=utf-8");
    const std::string url = get_service_url();
    std::unique_ptr<CkHttpResponse> response(http.PostXml(url.c_str(), request.c_str(), "utf-8"));
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
    return exchange(operation, envelope(operation, ein, form_name, year), body, transport_error);
}

bool upload_text(const char* path, CkString& text)
{
    {
        CkXml xml;
        xml.put_EmitDeclaration(false);
        if (!xml.LoadXmlFile(path)) {
            VLOG(3, "[EfileSoaps] Unable to load xml file %s\n", TextOf(path).c_str());
            VLOG(3, "[EfileSoaps] Xml Error %s\n", TextOf(xml.lastErrorText()).c_str());
            return false;
        }
        // The tree as the toolkit writes it, not the file's bytes: the hash sent beside it is
        // still that of the file.
        text.clear();
        text.append(xml.GetXml());
    }
    // The tree and its text are gone before the encoded copy is made, so that it can take their
    // memory.
    VLOG(3, "[EfileSoaps] Loaded vellument %s\n", TextOf(path).c_str());
    text.entityEncode();
    return true;
}

} // namespace SoapWire
