#include <vellument/XString.h>

#include <cstring>
#include <utility>

#include <vellument/Ostrel_Format.h>

struct XString::Impl {
    std::string ansi;
    std::string utf8;
    std::u16string utf16;
    bool ansiCurrent = true;
    bool utf8Current = true;
    bool utf16Current = false;

    // The stored forms are only ever built from a current one, so one of ANSI and UTF-8 is
    // always current: every append goes through one of those two.
    void makeAnsi()
    {
        if (ansiCurrent)
            return;
        ansi = utf8Current ? Ostrel::Format::Utf8ToAnsi(utf8) : Ostrel::Format::WideToAnsi(utf16);
        ansiCurrent = true;
    }
    void makeUtf8()
    {
        if (utf8Current)
            return;
        utf8 = ansiCurrent ? Ostrel::Format::AnsiToUtf8(ansi) : Ostrel::Format::WideToUtf8(utf16);
        utf8Current = true;
    }
    void makeUtf16()
    {
        if (utf16Current)
            return;
        // UTF-8 first: an ANSI form made from it has lost what the code page can't hold.
        utf16 = utf8Current ? Ostrel::Format::Utf8ToWide(utf8) : Ostrel::Format::AnsiToWide(ansi);
        utf16Current = true;
    }
    void onlyAnsi()
    {
        ansiCurrent = true;
        utf8Current = false;
        utf16Current = false;
        utf8.clear();
        utf16.clear();
    }
    void onlyUtf8()
    {
        utf8Current = true;
        ansiCurrent = false;
        utf16Current = false;
        ansi.clear();
        utf16.clear();
    }
};

XString::XString() : m_impl(new Impl) {}

XString::XString(const XString& other) : m_impl(new Impl(*other.m_impl)) {}

XString& XString::operator=(const XString& other)
{
    if (this != &other)
        *m_impl = *other.m_impl;
    return *this;
}

XString::~XString()
{
    delete m_impl;
}

void XString::clear() const
{
    *m_impl = Impl();
}

bool XString::isEmpty() const
{
    if (m_impl->ansiCurrent)
        return m_impl->ansi.empty();
    return m_impl->utf8.empty();
}

void XString::appendAnsi(const char* text) const
{
    if (text != nullptr)
        appendAnsi(text, std::strlen(text));
}

void XString::appendAnsi(const char* text, std::size_t length) const
{
    if (text == nullptr || length == 0)
        return;
    m_impl->makeAnsi();
    m_impl->ansi.append(text, length);
    m_impl->onlyAnsi();
}

void XString::appendUtf8(const char* text) const
{
    if (text != nullptr)
        appendUtf8(text, std::strlen(text));
}

void XString::appendUtf8(const char* text, std::size_t length) const
{
    if (text == nullptr || length == 0)
        return;
    m_impl->makeUtf8();
    m_impl->utf8.append(text, length);
    m_impl->onlyUtf8();
}

void XString::setAnsi(std::string text) const
{
    m_impl->ansi = std::move(text);
    m_impl->onlyAnsi();
}

const char* XString::getAnsi() const
{
    m_impl->makeAnsi();
    return m_impl->ansi.c_str();
}

std::size_t XString::getSizeAnsi() const
{
    m_impl->makeAnsi();
    return m_impl->ansi.size();
}

const char* XString::getUtf8() const
{
    m_impl->makeUtf8();
    return m_impl->utf8.c_str();
}

std::size_t XString::getSizeUtf8() const
{
    m_impl->makeUtf8();
    return m_impl->utf8.size();
}

const std::u16string& XString::getUtf16() const
{
    m_impl->makeUtf16();
    return m_impl->utf16;
}

std::size_t XString::getNumChars() const
{
    // Every ANSI byte is one character.
    if (m_impl->ansiCurrent)
        return m_impl->ansi.size();
    const std::u16string& wide = getUtf16();
    std::size_t count = 0;
    for (std::size_t i = 0; i < wide.size(); ++i) {
        char16_t c = wide[i];
        bool pair = c >= 0xD800 && c <= 0xDBFF && i + 1 < wide.size() && wide[i + 1] >= 0xDC00 &&
                    wide[i + 1] <= 0xDFFF;
        if (pair)
            ++i;
        ++count;
    }
    return count;
}
