// The request side of the HTTP exchange: the trail, URLs and the request head.

#include "toolkit/CkHttp_Internal.h"

#include <cstring>

namespace ckhttp {

namespace {

char lowerAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool startsWithNoCase(const std::string& text, const char* prefix)
{
    const std::size_t n = std::strlen(prefix);
    if (text.size() < n)
        return false;
    for (std::size_t i = 0; i < n; ++i)
        if (lowerAscii(text[i]) != lowerAscii(prefix[i]))
            return false;
    return true;
}

bool allDigits(const std::string& text)
{
    if (text.empty())
        return false;
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    return true;
}

} // namespace

void Trail::indent()
{
    text_.append(open_.size() * 2, ' ');
}

void Trail::enter(const char* operation)
{
    indent();
    text_ += operation;
    text_ += ":\r\n";
    open_.push_back(operation);
}

void Trail::leave()
{
    if (open_.empty())
        return;
    std::string name = open_.back();
    open_.pop_back();
    indent();
    text_ += "--";
    text_ += name;
    text_ += "\r\n";
}

void Trail::add(const char* name, const std::string& value)
{
    indent();
    text_ += name;
    text_ += ": ";
    text_ += value;
    text_ += "\r\n";
}

void Trail::message(const std::string& text)
{
    indent();
    text_ += text;
    text_ += "\r\n";
}

void Trail::finish(bool success)
{
    while (!open_.empty())
        leave();
    text_ += success ? "Success.\r\n" : "Failed.\r\n";
}

void Trail::clear()
{
    text_.clear();
    open_.clear();
}

bool equalsNoCase(const std::string& a, const char* b)
{
    const std::size_t n = std::strlen(b);
    return a.size() == n && startsWithNoCase(a, b);
}

bool containsNoCase(const std::string& text, const char* needle)
{
    const std::size_t n = std::strlen(needle);
    if (n == 0)
        return true;
    for (std::size_t i = 0; i + n <= text.size(); ++i) {
        std::size_t k = 0;
        while (k < n && lowerAscii(text[i + k]) == lowerAscii(needle[k]))
            ++k;
        if (k == n)
            return true;
    }
    return false;
}

const Header* findHeader(const HeaderList& list, const char* name)
{
    for (const Header& h : list)
        if (equalsNoCase(h.name, name))
            return &h;
    return nullptr;
}

bool isIpLiteral(const std::string& host)
{
    if (host.find(':') != std::string::npos)
        return true;
    for (char c : host)
        if (!((c >= '0' && c <= '9') || c == '.'))
            return false;
    return !host.empty();
}

bool parseUrl(const std::string& input, Url& url, std::string& error)
{
    std::string text;
    text.reserve(input.size());
    for (char c : input) {
        if (c == ' ')
            text += "%20";
        else
            text.push_back(c);
    }
    if (startsWithNoCase(text, "https:\\\\"))
        text.replace(0, 8, "https://");
    else if (startsWithNoCase(text, "http:\\\\"))
        text.replace(0, 7, "http://");

    std::size_t rest;
    if (startsWithNoCase(text, "https://")) {
        url.tls = true;
        url.port = 443;
        rest = 8;
    } else if (startsWithNoCase(text, "http://")) {
        url.tls = false;
        url.port = 80;
        rest = 7;
    } else {
        error = "Unable to parse URL";
        return false;
    }
    std::size_t pathStart = text.find_first_of("/?#", rest);
    if (pathStart == std::string::npos)
        pathStart = text.size();
    std::string authority = text.substr(rest, pathStart - rest);
    std::size_t at = authority.rfind('@');
    if (at != std::string::npos)
        authority.erase(0, at + 1);

    std::string host;
    std::string port;
    if (!authority.empty() && authority[0] == '[') {
        std::size_t close = authority.find(']');
        if (close == std::string::npos) {
            error = "Unable to parse URL";
            return false;
        }
        host = authority.substr(1, close - 1);
        std::string after = authority.substr(close + 1);
        if (!after.empty()) {
            if (after[0] != ':') {
                error = "Unable to parse URL";
                return false;
            }
            port = after.substr(1);
        }
    } else {
        std::size_t colon = authority.rfind(':');
        host = authority.substr(0, colon);
        if (colon != std::string::npos)
            port = authority.substr(colon + 1);
    }
    if (host.empty()) {
        error = "No domain in URL";
        return false;
    }
    for (char c : host)
        if (static_cast<unsigned char>(c) <= ' ' || c == '/' || c == '\\' || c == '@') {
            error = "Unable to parse URL";
            return false;
        }
    if (!port.empty()) {
        if (!allDigits(port) || port.size() > 5 || std::stoi(port) < 1 || std::stoi(port) > 65535) {
            error = "Unable to parse URL";
            return false;
        }
        url.port = std::stoi(port);
    }
    url.host = host;
    std::string path = text.substr(pathStart);
    std::size_t fragment = path.find('#');
    if (fragment != std::string::npos)
        path.erase(fragment);
    if (path.empty() || path[0] != '/')
        path.insert(0, "/");
    url.path = path;
    url.text = text.substr(0, rest);
    url.text += host.find(':') != std::string::npos ? "[" + host + "]" : host;
    if (!port.empty())
        url.text += ":" + port;
    url.text += path;
    return true;
}

std::string resolveLocation(const Url& current, const std::string& location)
{
    const std::string scheme = current.tls ? "https:" : "http:";
    if (location.compare(0, 2, "//") == 0)
        return scheme + location;
    std::string origin = scheme + "//" + (current.host.find(':') != std::string::npos ? "[" + current.host + "]" : current.host);
    if (current.port != (current.tls ? 443 : 80))
        origin += ":" + std::to_string(current.port);
    if (!location.empty() && location[0] == '/')
        return origin + location;
    if (startsWithNoCase(location, "http"))
        return location;
    // Relative: against the directory of the current path, its query left behind.
    std::string base = current.path.substr(0, current.path.find('?'));
    base.erase(base.rfind('/') + 1);
    return origin + base + location;
}

std::string hostField(const Url& url)
{
    std::string host = url.host.find(':') != std::string::npos ? "[" + url.host + "]" : url.host;
    if (url.port != 80 && url.port != 443)
        host += ":" + std::to_string(url.port);
    return host;
}

std::string buildRequestHead(const char* verb, const Url& url, const HeaderList& list, long long bodySize,
                             bool allowGzip, const char* defaultContentType)
{
    std::string head;
    head.reserve(256);
    head += verb;
    head += ' ';
    head += url.path;
    head += " HTTP/1.1\r\n";
    auto line = [&head](const std::string& name, const std::string& value) {
        head += name;
        head += ": ";
        head += value;
        head += "\r\n";
    };
    auto fromList = [&](const char* name) {
        if (const Header* h = findHeader(list, name))
            line(h->name, h->value);
    };

    const Header* host = findHeader(list, "Host");
    line("Host", host ? host->value : hostField(url));
    fromList("User-Agent");
    fromList("Accept");
    fromList("Accept-Language");
    if (const Header* enc = findHeader(list, "Accept-Encoding"))
        line(enc->name, enc->value);
    else if (allowGzip)
        line("Accept-Encoding", "gzip");
    fromList("Referer");
    if (bodySize >= 0) {
        const Header* type = findHeader(list, "Content-Type");
        if (type)
            line(type->name, type->value);
        else if (defaultContentType != nullptr)
            line("Content-Type", defaultContentType);
        line("Content-Length", std::to_string(bodySize));
    }
    fromList("Cookie");
    fromList("DNT");
    fromList("Connection");
    fromList("Upgrade-Insecure-Requests");

    static const char* const placed[] = {"Host", "User-Agent", "Accept", "Accept-Language", "Accept-Encoding",
                                         "Referer", "Content-Type", "Content-Length", "Cookie", "DNT",
                                         "Connection", "Upgrade-Insecure-Requests", "Authorization",
                                         "Proxy-Authorization"};
    for (const Header& h : list) {
        bool already = false;
        for (const char* name : placed)
            already = already || equalsNoCase(h.name, name);
        if (!already)
            line(h.name, h.value);
    }
    fromList("Authorization");
    fromList("Proxy-Authorization");
    head += "\r\n";
    return head;
}

} // namespace ckhttp
