#ifndef VELLUMENT_CKHTTP_H
#define VELLUMENT_CKHTTP_H

// One HTTP or HTTPS client: a request header list, one blocking PostXml, the success flag and
// a readable trail of the last call.
//
// Text crosses this interface in the ANSI code page (Windows-1252). An object is meant for one
// thread at a time; a lock inside guards against misuse. Connections that a reply leaves open
// stay in the object's pool and close with it.
//
// TLS: the server certificate is not verified unless RequireSslCertVerify is on. A new object
// starts with it on when the environment variable VELLUMENT_TLS_VERIFY is "1"; the trusted
// certificates are then those of the PEM file VELLUMENT_TLS_CA_FILE, or the system's store.

#include <vellument/export.h>

class CkHttpResponse;

class VELLUMENT_API CkHttp {
public:
    CkHttp();
    // Closes the open connections.
    ~CkHttp();
    CkHttp(const CkHttp&) = delete;
    CkHttp& operator=(const CkHttp&) = delete;

    // Sets a request header, replacing a value of the same name (any case) in place or appending
    // it; an empty or null value removes it. The list starts as "Accept: */*". A name or value
    // with a line break (or a name with a colon) is ignored.
    void SetRequestHeader(const char* name, const char* value);

    // Posts xml, converted to charset, to url and waits for the reply. The response (caller
    // deletes) whatever its status code; null when no HTTP reply was obtained.
    CkHttpResponse* PostXml(const char* url, const char* xml, const char* charset);

    // Whether the last PostXml returned a response.
    bool LastCallSucceeded();
    // The trail of the last call, ending in "Failed." or "Success."; valid until the next call.
    const char* lastErrorText();

    // Limit on opening a connection, in milliseconds (default 30000).
    int get_ConnectTimeout();
    void put_ConnectTimeout(int ms);
    // Idle limit on each wait for bytes, sending and receiving, in milliseconds (default 60000).
    int get_ReadTimeoutMs();
    void put_ReadTimeoutMs(int ms);
    // Follow 301, 302, 303, 307 and 308 replies (default on).
    bool get_FollowRedirects();
    void put_FollowRedirects(bool follow);
    // Ask for and accept gzip (default on).
    bool get_AllowGzip();
    void put_AllowGzip(bool allow);
    // Largest body accepted, before and after decompression, in bytes; 0 is no limit (default).
    unsigned long get_MaxResponseSize();
    void put_MaxResponseSize(unsigned long bytes);
    // Verify the server's certificate chain and host name (default off).
    bool get_RequireSslCertVerify();
    void put_RequireSslCertVerify(bool require);

private:
    // The library's own way in, for a body that it already holds with its size.
    friend struct CkHttpInternal;
    struct Impl;
    Impl* m_impl;
};

#endif
