#include <vellument/CkStringBuilder.h>

#include <climits>
#include <string>

#include <vellument/CkByteData.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/XString.h>

namespace {

const int kResultBuffers = 10;

std::string toHex(const unsigned char* data, unsigned long size, bool lower)
{
    const char* digits = lower ? "0123456789abcdef" : "0123456789ABCDEF";
    std::string text;
    text.reserve(static_cast<std::size_t>(size) * 2);
    for (unsigned long i = 0; i < size; ++i) {
        text.push_back(digits[data[i] >> 4]);
        text.push_back(digits[data[i] & 0x0F]);
    }
    return text;
}

std::string toBase64(const unsigned char* data, unsigned long size)
{
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((static_cast<std::size_t>(size) + 2) / 3 * 4);
    unsigned long i = 0;
    for (; i + 3 <= size; i += 3) {
        unsigned long v = (static_cast<unsigned long>(data[i]) << 16) | (data[i + 1] << 8) | data[i + 2];
        text.push_back(alphabet[(v >> 18) & 0x3F]);
        text.push_back(alphabet[(v >> 12) & 0x3F]);
        text.push_back(alphabet[(v >> 6) & 0x3F]);
        text.push_back(alphabet[v & 0x3F]);
    }
    unsigned long rest = size - i;
    if (rest > 0) {
        unsigned long v = static_cast<unsigned long>(data[i]) << 16;
        if (rest == 2)
            v |= static_cast<unsigned long>(data[i + 1]) << 8;
        text.push_back(alphabet[(v >> 18) & 0x3F]);
        text.push_back(alphabet[(v >> 12) & 0x3F]);
        text.push_back(rest == 2 ? alphabet[(v >> 6) & 0x3F] : '=');
        text.push_back('=');
    }
    return text;
}

} // namespace

struct CkStringBuilder::Impl {
    XString text;
    std::string results[kResultBuffers];
    int nextResult = 0;
};

CkStringBuilder::CkStringBuilder() : m_impl(new Impl) {}

CkStringBuilder::~CkStringBuilder()
{
    delete m_impl;
}

bool CkStringBuilder::AppendEncoded(CkByteData& data, const char* encoding)
{
    if (encoding == nullptr)
        return false;
    std::string name = Ostrel::Format::ToLowerAscii(encoding);
    std::string encoded;
    if (name == "hex")
        encoded = toHex(data.getData(), data.getSize(), false);
    else if (name == "hexlower")
        encoded = toHex(data.getData(), data.getSize(), true);
    else if (name == "base64")
        encoded = toBase64(data.getData(), data.getSize());
    else
        return false;
    // The digits are ASCII, the same bytes in every form.
    m_impl->text.appendUtf8(encoded.data(), encoded.size());
    return true;
}

bool CkStringBuilder::Append(const char* text)
{
    if (text == nullptr)
        return false;
    std::string utf8 = Ostrel::Format::AnsiToUtf8(text);
    m_impl->text.appendUtf8(utf8.data(), utf8.size());
    return true;
}

const char* CkStringBuilder::GetAsString()
{
    std::string& slot = m_impl->results[m_impl->nextResult];
    m_impl->nextResult = (m_impl->nextResult + 1) % kResultBuffers;
    slot.assign(m_impl->text.getAnsi(), m_impl->text.getSizeAnsi());
    return slot.c_str();
}

void CkStringBuilder::Clear()
{
    m_impl->text.clear();
}

int CkStringBuilder::get_Length()
{
    std::size_t n = m_impl->text.getNumChars();
    return n > static_cast<std::size_t>(INT_MAX) ? INT_MAX : static_cast<int>(n);
}
