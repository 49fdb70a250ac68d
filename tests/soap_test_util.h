#ifndef VELLUMENT_TESTS_SOAP_TEST_UTIL_H
#define VELLUMENT_TESTS_SOAP_TEST_UTIL_H

// Helpers for the filing service client's tests: the settings that point the library at a
// loopback server, and the SOAP replies that the service writes.

#include <cstdlib>
#include <string>

#include "test_util.h"

namespace soaptest {

// The local application data directory that the test runner made for this process.
inline std::string appdata()
{
    const char* dir = std::getenv("VELLUMENT_APPDATA");
    return dir != nullptr ? dir : "";
}

inline void write_settings(const std::string& text)
{
    testutil::write_file(appdata() + "/Settings.ini", text);
}

// Test mode with the whole URL given.
inline void point_at(const std::string& url)
{
    write_settings("[DEBUG]\r\nTestMode=Y\r\nW2StatusServerAddress=" + url + "\r\n");
}

// A reply as the service writes it: soap prefix, the response element in the service namespace.
inline std::string envelope(const std::string& body, const char* prefix = "soap")
{
    const std::string p(prefix);
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><" + p + ":Envelope xmlns:" + p +
           "=\"http://schemas.xmlsoap.org/soap/envelope/\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"><" + p + ":Body>" + body + "</" + p + ":Body></" + p +
           ":Envelope>";
}

inline std::string answer(const std::string& operation, const std::string& element, const std::string& text,
                          const char* prefix = "soap")
{
    return envelope("<" + operation + "Response xmlns=\"https://efile.filing-service.example/\"><" + element + ">" +
                        text + "</" + element + "></" + operation + "Response>",
                    prefix);
}

// The status document escaped as the service puts it into its response element.
inline std::string escaped(const std::string& text)
{
    std::string out;
    for (char c : text) {
        switch (c) {
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '&': out += "&amp;"; break;
        case '"': out += "&quot;"; break;
        default: out += c; break;
        }
    }
    return out;
}

// A request body exactly as the client builds it, around its parameters' elements.
inline std::string request(const std::string& ns, const std::string& operation, const std::string& parameters)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><SOAP-ENV:Envelope "
           "xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\" "
           "SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">"
           "<SOAP-ENV:Body><m:" + operation + " xmlns:m=\"" + ns + "\">" + parameters + "</m:" + operation +
           "></SOAP-ENV:Body></SOAP-ENV:Envelope>";
}

inline std::string parameter(const std::string& name, const std::string& value)
{
    return "<m:" + name + " xsi:type=\"xsd:string\">" + value + "</m:" + name + ">";
}

// An HTTP reply carrying the body.
inline std::string http(const std::string& body, int status = 200)
{
    return "HTTP/1.1 " + std::to_string(status) + (status == 200 ? " OK" : " Internal Server Error") +
           "\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

} // namespace soaptest

#endif
