#ifndef VELLUMENT_TOOLKIT_CKHTTP_INTERNAL_H
#define VELLUMENT_TOOLKIT_CKHTTP_INTERNAL_H

// The pieces of the HTTP exchange below CkHttp: URL and request head, the trail, the reply reader
// over any byte source, gzip and the body as text. Everything here works in UTF-8.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <vellument/export.h>

class CkHttp;
class CkHttpResponse;

// PostXml for a body whose size the caller knows: the body is neither measured again nor, when
// it is ASCII, copied; ascii says the caller knows it is, so that it isn't scanned for that
// either. The library's large requests go this way.
struct CkHttpInternal {
    VELLUMENT_API static CkHttpResponse* postXml(CkHttp& http, const char* url, const char* xml, std::size_t size,
                                                 const char* charset, bool ascii = false);
};

namespace ckhttp {

// Readable multi-line trail of one call: an indented block per operation entered.
class Trail {
public:
    void enter(const char* operation);
    void leave();
    void add(const char* name, const std::string& value);
    void message(const std::string& text);
    // Closes every open block and ends in "Failed." or "Success.".
    void finish(bool success);
    void clear();
    const std::string& text() const { return text_; }

private:
    void indent();
    std::string text_;
    std::vector<std::string> open_;
};

// Opens a block for the lifetime of the object.
class TrailBlock {
public:
    TrailBlock(Trail& trail, const char* operation) : trail_(trail) { trail_.enter(operation); }
    ~TrailBlock() { trail_.leave(); }
    TrailBlock(const TrailBlock&) = delete;
    TrailBlock& operator=(const TrailBlock&) = delete;

private:
    Trail& trail_;
};

struct Header {
    std::string name;
    std::string value;
};
typedef std::vector<Header> HeaderList;

// The first field of that name, compared without regard to ASCII case, or null.
const Header* findHeader(const HeaderList& list, const char* name);
bool equalsNoCase(const std::string& a, const char* b);
// Whether text holds needle, ASCII case ignored.
bool containsNoCase(const std::string& text, const char* needle);

struct Url {
    bool tls = false;
    std::string host;  // without brackets for an IPv6 literal
    int port = 0;
    std::string path;  // path and query, never empty
    std::string text;  // the whole URL as it goes out
};

// Rewrites "http:\\" and "https:\\", turns blanks into "%20" and parses. On failure returns
// false with "Unable to parse URL" or "No domain in URL" in error.
bool parseUrl(const std::string& text, Url& url, std::string& error);
// A redirect's Location against the URL it came from; the text to parse.
std::string resolveLocation(const Url& current, const std::string& location);
// The value of the Host field: the host, with ":" and the port unless it is 80 or 443.
std::string hostField(const Url& url);
bool isIpLiteral(const std::string& host);

// The request head: request line, fields in the toolkit's order, the empty line. A body size
// below zero means no body and no Content-Length.
std::string buildRequestHead(const char* verb, const Url& url, const HeaderList& list, long long bodySize,
                             bool allowGzip, const char* defaultContentType);

// Where reply bytes come from.
class Source {
public:
    virtual ~Source() {}
    // Bytes read (> 0), 0 when the peer closed, kIdle when timeoutMs passed without a byte,
    // kError on any other failure.
    virtual long receive(char* buffer, std::size_t size, int timeoutMs) = 0;
    static const long kIdle = -1;
    static const long kError = -2;
};

// Reads from a memory block; the end is a close. For the fuzz target and tests.
class MemorySource : public Source {
public:
    MemorySource(const char* data, std::size_t size) : data_(data), size_(size) {}
    long receive(char* buffer, std::size_t size, int timeoutMs) override;

private:
    const char* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
};

struct Reply {
    int status = 0;
    std::string reason;
    std::string head;    // as received, status line included
    HeaderList fields;
    std::string body;
    bool connectionClose = false;  // the reply said "Connection: close"
    bool reusable = false;         // the connection may carry another request
};

enum ReadOutcome {
    READ_OK,
    READ_NO_REPLY,    // no HTTP reply head: the call fails
    READ_BODY_FAILED, // a status came, the body could not be read whole
    READ_TOO_LARGE,   // the body passed the size limit: the call fails
    READ_NO_MEMORY,
};

// The body limit when the caller set none: keeps a hostile reply from taking all memory.
const std::uint64_t kHardBodyLimit = std::uint64_t(1) << 30;
// A reply head longer than this is refused.
const std::size_t kMaxHeadSize = 256 * 1024;
// Longest wait for more of a body that runs until the server closes.
const int kCloseDelimitedSilenceMs = 5000;

// Reads one reply (head after any 100, then the body by its framing) from a source.
class ReplyReader {
public:
    // maxResponseSize 0 means no limit of the caller's; kHardBodyLimit holds then.
    ReplyReader(Source& source, Trail& trail, int idleMs, std::uint64_t maxResponseSize)
        : source_(source), trail_(trail), idleMs_(idleMs),
          maxBody_(maxResponseSize ? maxResponseSize : kHardBodyLimit), callerLimit_(maxResponseSize != 0) {}
    ReadOutcome read(Reply& reply);

private:
    enum Fill { FILL_OK, FILL_CLOSED, FILL_IDLE, FILL_ERROR };
    Fill fill(int timeoutMs);
    ReadOutcome readHead(Reply& reply);
    ReadOutcome readChunked(Reply& reply);
    ReadOutcome readLength(Reply& reply, std::uint64_t length);
    ReadOutcome readUntilClose(Reply& reply);
    bool readLine(std::string& line, std::size_t maxLength, bool& tooLong);
    bool takeBody(Reply& reply, std::uint64_t count, bool& tooLarge);
    ReadOutcome refuseTooLarge();

    Source& source_;
    Trail& trail_;
    int idleMs_;
    std::uint64_t maxBody_;
    bool callerLimit_;
    std::string buffer_;
    std::size_t pos_ = 0;
};

// Parses a head (status line and fields). False with the message in the trail when it isn't HTTP.
bool parseHead(const std::string& head, Reply& reply, Trail& trail);

// Whether the body is to be unpacked: 11 bytes or more, 1F 8B or 12 4B at the start, and gzip
// named in Content-Encoding or Content-Type.
bool wantsGunzip(const Reply& reply);
enum GunzipOutcome { GUNZIP_OK, GUNZIP_FAILED, GUNZIP_TOO_LARGE };
// The text that tells why a body of more than limit bytes was refused.
std::string tooLargeText(std::uint64_t limit, bool callerLimit);
// Unpacks the body in place, producing at most maxSize bytes.
GunzipOutcome gunzipBody(std::string& body, std::uint64_t maxSize);

// The body as UTF-8 text: byte order mark, text or binary, charset. binary tells whether the
// body did not count as text.
std::string bodyToUtf8(const std::string& body, const HeaderList& fields, bool& binary);
// Whether that text is the body's bytes as they stand (ASCII, no NUL, an ASCII-based charset),
// so that no copy needs to be made.
bool bodyIsItsOwnText(const std::string& body, const HeaderList& fields);

} // namespace ckhttp

#endif
