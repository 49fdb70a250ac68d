#ifndef VELLUMENT_CKHTTPRESPONSE_H
#define VELLUMENT_CKHTTPRESPONSE_H

// One HTTP reply, made by CkHttp::PostXml and owned by the caller, who deletes it.
//
// Text crosses this interface in the ANSI code page (Windows-1252). Text results stay valid until
// the next call on the object that returns text of the same kind.

#include <vellument/export.h>

class CkByteData;

class VELLUMENT_API CkHttpResponse {
public:
    CkHttpResponse();
    ~CkHttpResponse();
    CkHttpResponse(const CkHttpResponse&) = delete;
    CkHttpResponse& operator=(const CkHttpResponse&) = delete;

    // The status code of the final reply, 0 before any.
    int get_StatusCode();
    // The reason text of the status line.
    const char* statusText();
    // The whole reply head as it was received, status line included.
    const char* header();
    // The value of the first head field of that name (compared without regard to case), or null.
    const char* getHeaderField(const char* name);
    // The body as text: byte order mark, text or binary, charset, then the ANSI code page.
    const char* BodyStr();
    // The body bytes after decompression. True unless out can't take them.
    bool GetBody(CkByteData& out);
    // The URL that the final reply came from, after any redirects.
    const char* finalRedirectUrl();

    struct Impl;
    // For CkHttp only: the record behind the object.
    Impl* impl() const { return m_impl; }

private:
    Impl* m_impl;
};

#endif
