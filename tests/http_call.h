#ifndef VELLUMENT_TESTS_HTTP_CALL_H
#define VELLUMENT_TESTS_HTTP_CALL_H

// One PostXml as the library makes it, with everything a test looks at afterwards.

#include <functional>
#include <memory>
#include <string>

#include <vellument/CkByteData.h>
#include <vellument/CkHttp.h>
#include <vellument/CkHttpResponse.h>

namespace httptest {

struct CallResult {
    bool returned = false;   // PostXml gave a response
    bool succeeded = false;  // LastCallSucceeded
    int status = 0;
    std::string body;        // BodyStr
    std::string bytes;       // GetBody
    std::string trail;       // lastErrorText
    std::string finalUrl;
};

inline CallResult call(const std::string& url, const char* xml, const std::function<void(CkHttp&)>& setup = nullptr)
{
    CkHttp http;
    // Short limits keep a test that goes wrong from waiting long.
    http.put_ConnectTimeout(5000);
    http.put_ReadTimeoutMs(5000);
    if (setup)
        setup(http);
    std::unique_ptr<CkHttpResponse> response(http.PostXml(url.c_str(), xml, "utf-8"));
    CallResult r;
    r.returned = response != nullptr;
    r.succeeded = http.LastCallSucceeded();
    r.trail = http.lastErrorText();
    if (response) {
        r.status = response->get_StatusCode();
        r.body = response->BodyStr();
        CkByteData data;
        response->GetBody(data);
        r.bytes.assign(reinterpret_cast<const char*>(data.getData()), data.getSize());
        r.finalUrl = response->finalRedirectUrl();
    }
    return r;
}

// The library's own call shape: two headers set, then PostXml with "utf-8".
inline void soapHeaders(CkHttp& http)
{
    http.SetRequestHeader("Content-Type", "text/xml; charset=utf-8");
    http.SetRequestHeader("SOAPAction", "\"https://efile.filing-service.example/GetVellumentHash\"");
}

// The request head that soapHeaders and a body of n bytes give for a server on port.
inline std::string soapHead(const std::string& path, int port, std::size_t n)
{
    return "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
           "\r\nAccept: */*\r\nAccept-Encoding: gzip\r\nContent-Type: text/xml; charset=utf-8\r\n"
           "Content-Length: " + std::to_string(n) +
           "\r\nSOAPAction: \"https://efile.filing-service.example/GetVellumentHash\"\r\n\r\n";
}

} // namespace httptest

#endif
