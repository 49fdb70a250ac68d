// The reply side of the HTTP exchange: the head, the framing of the body and gzip.

#include "toolkit/CkHttp_Internal.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <zlib.h>

namespace ckhttp {

namespace {

// What one receive asks for: a TLS record's worth, so that little of the body is zeroed in vain.
const std::size_t kReadBlock = 16 * 1024;
// Memory follows the bytes that arrived: never more than twice them, whatever a length says.
const std::size_t kFirstReserve = 64 * 1024;
const std::size_t kMaxChunkLine = 4096;
const int kMaxTrailerLines = 100;

std::string trimBlanks(const std::string& text)
{
    std::size_t b = text.find_first_not_of(" \t");
    if (b == std::string::npos)
        return std::string();
    std::size_t e = text.find_last_not_of(" \t\r");
    return text.substr(b, e - b + 1);
}

// Grows body to hold extra more bytes, at most doubling and at most to the declared total.
void growFor(std::string& body, std::size_t extra, std::uint64_t declared)
{
    const std::size_t need = body.size() + extra;
    if (need <= body.capacity())
        return;
    std::uint64_t target = std::max<std::uint64_t>(std::max(need, kFirstReserve), std::uint64_t(body.capacity()) * 2);
    if (declared > 0 && target > declared)
        target = std::max<std::uint64_t>(declared, need);
    body.reserve(static_cast<std::size_t>(target));
}

} // namespace

long MemorySource::receive(char* buffer, std::size_t size, int)
{
    const std::size_t n = std::min(size, size_ - pos_);
    std::memcpy(buffer, data_ + pos_, n);
    pos_ += n;
    return static_cast<long>(n);
}

ReplyReader::Fill ReplyReader::fill(int timeoutMs)
{
    if (pos_ > 0 && pos_ == buffer_.size()) {
        buffer_.clear();
        pos_ = 0;
    } else if (pos_ > kReadBlock) {
        buffer_.erase(0, pos_);
        pos_ = 0;
    }
    // Through a fixed block, so that a reply that drips in costs no more than its bytes.
    char block[16 * 1024];
    long n = source_.receive(block, sizeof block, timeoutMs);
    if (n > 0) {
        buffer_.append(block, static_cast<std::size_t>(n));
        return FILL_OK;
    }
    if (n == 0)
        return FILL_CLOSED;
    return n == Source::kIdle ? FILL_IDLE : FILL_ERROR;
}

bool ReplyReader::readLine(std::string& line, std::size_t maxLength, bool& tooLong)
{
    tooLong = false;
    for (;;) {
        std::size_t nl = buffer_.find('\n', pos_);
        if (nl != std::string::npos) {
            line.assign(buffer_, pos_, nl - pos_);
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            pos_ = nl + 1;
            return true;
        }
        if (buffer_.size() - pos_ > maxLength) {
            tooLong = true;
            return false;
        }
        if (fill(idleMs_) != FILL_OK)
            return false;
    }
}

bool parseHead(const std::string& head, Reply& reply, Trail& trail)
{
    std::size_t eol = head.find('\n');
    std::string first = head.substr(0, eol);
    if (!first.empty() && first.back() == '\r')
        first.pop_back();
    if (first.compare(0, 4, "HTTP") != 0) {
        trail.message("Expected HTTP response start line to begin with \"HTTP\"");
        return false;
    }
    std::size_t blank = first.find(' ');
    std::size_t digits = blank == std::string::npos ? first.size() : blank + 1;
    std::size_t end = digits;
    while (end < first.size() && end - digits < 9 && first[end] >= '0' && first[end] <= '9')
        ++end;
    if (end == digits) {
        trail.message("No valid integer status code found in HTTP response.");
        return false;
    }
    reply.status = std::stoi(first.substr(digits, end - digits));
    reply.reason = trimBlanks(first.substr(end));
    reply.fields.clear();
    std::size_t pos = eol == std::string::npos ? head.size() : eol + 1;
    while (pos < head.size()) {
        std::size_t next = head.find('\n', pos);
        if (next == std::string::npos)
            next = head.size();
        std::string line = head.substr(pos, next - pos);
        pos = next + 1;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty())
            break;
        if ((line[0] == ' ' || line[0] == '\t') && !reply.fields.empty()) {
            reply.fields.back().value += " " + trimBlanks(line);
            continue;
        }
        std::size_t colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        reply.fields.push_back(Header{trimBlanks(line.substr(0, colon)), trimBlanks(line.substr(colon + 1))});
    }
    const Header* connection = findHeader(reply.fields, "Connection");
    reply.connectionClose = connection != nullptr && containsNoCase(connection->value, "close");
    return true;
}

ReadOutcome ReplyReader::readHead(Reply& reply)
{
    TrailBlock block(trail_, "readResponseHeader");
    for (;;) {
        std::size_t end = std::string::npos;
        std::size_t endLength = 0;
        // Bytes already searched are not searched again, so a head that drips in stays linear.
        std::size_t scanned = 0;
        for (;;) {
            const std::size_t from = pos_ + (scanned > 3 ? scanned - 3 : 0);
            std::size_t crlf = buffer_.find("\r\n\r\n", from);
            std::size_t lflf = buffer_.find("\n\n", from);
            if (crlf != std::string::npos && (lflf == std::string::npos || crlf < lflf)) {
                end = crlf;
                endLength = 4;
            } else if (lflf != std::string::npos) {
                end = lflf;
                endLength = 2;
            }
            if (end != std::string::npos)
                break;
            scanned = buffer_.size() - pos_;
            if (scanned > kMaxHeadSize) {
                trail_.message("HTTP response header is too large.");
                return READ_NO_REPLY;
            }
            Fill f = fill(idleMs_);
            if (f == FILL_OK)
                continue;
            trail_.message("Failed to read response header.");
            if (f == FILL_IDLE)
                trail_.message("The server did not respond in " + std::to_string(idleMs_) + " milliseconds.");
            else if (f == FILL_CLOSED)
                trail_.message(buffer_.size() > pos_ ? "The connection closed in the middle of the response header."
                                                     : "The server closed the connection without a response.");
            else
                trail_.message("The connection failed while reading.");
            return READ_NO_REPLY;
        }
        reply.head.assign(buffer_, pos_, end + endLength - pos_);
        pos_ = end + endLength;
        if (!parseHead(reply.head, reply, trail_))
            return READ_NO_REPLY;
        trail_.add("statusCode", std::to_string(reply.status));
        if (reply.status != 100)
            return READ_OK;
        trail_.message("Skipping 100 Continue.");
    }
}

ReadOutcome ReplyReader::read(Reply& reply)
{
    ReadOutcome head = readHead(reply);
    if (head != READ_OK)
        return head;
    TrailBlock block(trail_, "readResponseBody");
    reply.body.clear();
    ReadOutcome outcome;
    const Header* te = findHeader(reply.fields, "Transfer-Encoding");
    const Header* length = findHeader(reply.fields, "Content-Length");
    try {
        if (te != nullptr && containsNoCase(te->value, "chunked")) {
            outcome = readChunked(reply);
            reply.reusable = outcome == READ_OK;
        } else if (length != nullptr) {
            std::uint64_t n = 0;
            bool valid = !length->value.empty();
            for (char c : length->value) {
                if (c < '0' || c > '9' || n > (UINT64_MAX - 9) / 10) {
                    valid = false;
                    break;
                }
                n = n * 10 + static_cast<unsigned>(c - '0');
            }
            if (!valid) {
                trail_.message("Invalid Content-Length.");
                return READ_BODY_FAILED;
            }
            trail_.add("contentLength", length->value);
            outcome = readLength(reply, n);
            reply.reusable = outcome == READ_OK;
        } else if (reply.status == 204 || (reply.status >= 300 && !reply.connectionClose)) {
            outcome = READ_OK;
            reply.reusable = true;
        } else {
            outcome = readUntilClose(reply);
            reply.reusable = false;
        }
    } catch (const std::bad_alloc&) {
        trail_.message("Out of memory.");
        reply.body.clear();
        reply.body.shrink_to_fit();
        return READ_NO_MEMORY;
    }
    // Bytes beyond the reply, or a close asked for, leave the connection unfit for another request.
    if (reply.connectionClose || pos_ < buffer_.size())
        reply.reusable = false;
    trail_.add("bodySize", std::to_string(reply.body.size()));
    return outcome;
}

// Moves count bytes from the buffer and the source into the body; false when they don't come.
bool ReplyReader::takeBody(Reply& reply, std::uint64_t count, bool& tooLarge)
{
    tooLarge = false;
    const std::uint64_t declared = reply.body.size() + count;
    while (count > 0) {
        if (reply.body.size() >= maxBody_) {
            tooLarge = true;
            return false;
        }
        if (pos_ < buffer_.size()) {
            std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(count, buffer_.size() - pos_));
            n = static_cast<std::size_t>(std::min<std::uint64_t>(n, maxBody_ - reply.body.size()));
            growFor(reply.body, n, declared);
            reply.body.append(buffer_, pos_, n);
            pos_ += n;
            count -= n;
            continue;
        }
        // Straight into the body: a large reply is not copied twice.
        std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(count, kReadBlock));
        growFor(reply.body, want, declared);
        const std::size_t old = reply.body.size();
        reply.body.resize(old + want);
        long n = source_.receive(&reply.body[old], want, idleMs_);
        reply.body.resize(old + (n > 0 ? static_cast<std::size_t>(n) : 0));
        if (n <= 0) {
            if (n == Source::kIdle)
                trail_.message("The server did not send more in " + std::to_string(idleMs_) + " milliseconds.");
            else
                trail_.message(n == 0 ? "The connection closed before the body was complete." : "The connection failed while reading.");
            return false;
        }
        count -= static_cast<std::uint64_t>(n);
    }
    return true;
}

std::string tooLargeText(std::uint64_t limit, bool callerLimit)
{
    if (callerLimit)
        return "The response body is larger than MaxResponseSize (" + std::to_string(limit) + " bytes).";
    return "The response body is larger than the toolkit's limit of " + std::to_string(limit) + " bytes.";
}

ReadOutcome ReplyReader::refuseTooLarge()
{
    trail_.message(tooLargeText(maxBody_, callerLimit_));
    return READ_TOO_LARGE;
}

ReadOutcome ReplyReader::readLength(Reply& reply, std::uint64_t length)
{
    if (maxBody_ > 0 && length > maxBody_) {
        return refuseTooLarge();
    }
    bool tooLarge = false;
    if (takeBody(reply, length, tooLarge))
        return READ_OK;
    if (tooLarge) {
        return refuseTooLarge();
    }
    trail_.message("Failed to read response body.");
    return READ_BODY_FAILED;
}

ReadOutcome ReplyReader::readChunked(Reply& reply)
{
    std::string line;
    bool tooLong = false;
    for (;;) {
        if (!readLine(line, kMaxChunkLine, tooLong)) {
            trail_.message(tooLong ? "chunk response error 1" : "Failed to get next chunk size.");
            return READ_BODY_FAILED;
        }
        std::size_t i = 0;
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t'))
            ++i;
        std::uint64_t size = 0;
        std::size_t digits = 0;
        for (; i < line.size(); ++i, ++digits) {
            char c = line[i];
            int v = (c >= '0' && c <= '9') ? c - '0' : (c >= 'a' && c <= 'f') ? c - 'a' + 10 : (c >= 'A' && c <= 'F') ? c - 'A' + 10 : -1;
            if (v < 0)
                break;
            if (size >> 60) {
                trail_.message("chunk response error 2");
                return READ_BODY_FAILED;
            }
            size = size * 16 + static_cast<unsigned>(v);
        }
        if (digits == 0) {
            trail_.message("chunk response error 3");
            return READ_BODY_FAILED;
        }
        if (size == 0)
            break;
        if (reply.body.size() + size > maxBody_ || reply.body.size() + size < size) {
            return refuseTooLarge();
        }
        bool tooLarge = false;
        if (!takeBody(reply, size, tooLarge)) {
            trail_.message("Failed to read chunk data.");
            return READ_BODY_FAILED;
        }
        if (!readLine(line, 2, tooLong) || !line.empty()) {
            trail_.message("Failed to read trailing CRLF after chunk.");
            return READ_BODY_FAILED;
        }
    }
    // Trailer fields up to the empty line; a server that closes right after the last chunk is
    // forgiven.
    for (int n = 0;; ++n) {
        if (n == kMaxTrailerLines) {
            trail_.message("chunk response error 4");
            return READ_BODY_FAILED;
        }
        if (!readLine(line, kMaxChunkLine, tooLong)) {
            if (tooLong) {
                trail_.message("chunk response error 4");
                return READ_BODY_FAILED;
            }
            return READ_OK;
        }
        if (line.empty())
            return READ_OK;
    }
}

ReadOutcome ReplyReader::readUntilClose(Reply& reply)
{
    const int silence = std::min(idleMs_, kCloseDelimitedSilenceMs);
    growFor(reply.body, buffer_.size() - pos_, 0);
    reply.body.append(buffer_, pos_, std::string::npos);
    pos_ = buffer_.size();
    for (;;) {
        if (reply.body.size() > maxBody_) {
            return refuseTooLarge();
        }
        growFor(reply.body, kReadBlock, 0);
        const std::size_t old = reply.body.size();
        reply.body.resize(old + kReadBlock);
        long n = source_.receive(&reply.body[old], kReadBlock, silence);
        reply.body.resize(old + (n > 0 ? static_cast<std::size_t>(n) : 0));
        if (n > 0)
            continue;
        if (n == Source::kIdle)
            trail_.message("No more data after " + std::to_string(silence) + " milliseconds; the body is complete.");
        if (n == Source::kError)
            trail_.message("The connection failed while reading; the body ends here.");
        return READ_OK;
    }
}

bool wantsGunzip(const Reply& reply)
{
    const std::string& b = reply.body;
    if (b.size() < 11)
        return false;
    const unsigned char b0 = static_cast<unsigned char>(b[0]);
    const unsigned char b1 = static_cast<unsigned char>(b[1]);
    if (!((b0 == 0x1F && b1 == 0x8B) || (b0 == 0x12 && b1 == 0x4B)))
        return false;
    const Header* enc = findHeader(reply.fields, "Content-Encoding");
    const Header* type = findHeader(reply.fields, "Content-Type");
    return (enc != nullptr && containsNoCase(enc->value, "gzip")) || (type != nullptr && containsNoCase(type->value, "gzip"));
}

GunzipOutcome gunzipBody(std::string& body, std::uint64_t maxSize)
{
    z_stream z;
    std::memset(&z, 0, sizeof z);
    if (inflateInit2(&z, 16 + MAX_WBITS) != Z_OK)
        return GUNZIP_FAILED;
    std::string out;
    GunzipOutcome outcome = GUNZIP_OK;
    try {
        out.reserve(static_cast<std::size_t>(
            std::min<std::uint64_t>({std::uint64_t(body.size()) * 4, std::uint64_t(64) << 20, maxSize})));
        z.next_in = reinterpret_cast<Bytef*>(&body[0]);
        std::size_t inLeft = body.size();
        for (;;) {
            const uInt feed = static_cast<uInt>(std::min<std::size_t>(inLeft, 1u << 30));
            z.avail_in = feed;
            if (out.size() >= maxSize) {
                outcome = GUNZIP_TOO_LARGE;
                break;
            }
            std::size_t room = static_cast<std::size_t>(std::min<std::uint64_t>(kReadBlock, maxSize - out.size()));
            if (out.capacity() - out.size() < room)
                out.reserve(std::max(out.capacity() * 2, out.size() + room));
            const std::size_t old = out.size();
            out.resize(old + room);
            z.next_out = reinterpret_cast<Bytef*>(&out[old]);
            z.avail_out = static_cast<uInt>(room);
            int r = inflate(&z, Z_NO_FLUSH);
            out.resize(old + room - z.avail_out);
            inLeft -= feed - z.avail_in;
            if (r == Z_STREAM_END) {
                // Another member may follow; anything else behind the end is ignored.
                if (inLeft >= 2 && z.next_in[0] == 0x1F && z.next_in[1] == 0x8B && inflateReset(&z) == Z_OK)
                    continue;
                break;
            }
            if (r == Z_BUF_ERROR && z.avail_out == 0)
                continue;
            if (r != Z_OK || (inLeft == 0 && z.avail_out != 0)) {
                outcome = GUNZIP_FAILED;
                break;
            }
        }
    } catch (const std::bad_alloc&) {
        outcome = GUNZIP_FAILED;
    }
    inflateEnd(&z);
    if (outcome == GUNZIP_OK)
        body.swap(out);
    return outcome;
}

} // namespace ckhttp
