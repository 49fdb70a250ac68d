#include <vellument/CkHttpResponse.h>

#include <cstring>

#include <vellument/CkByteData.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_Log.h>

#include "toolkit/CkHttpResponse_Impl.h"

namespace {

// Hands out UTF-8 text in the ANSI code page, kept in slot; ASCII needs no conversion.
const char* toAnsi(std::string& slot, const std::string& utf8)
{
    if (Ostrel::Format::IsAscii(utf8.data(), utf8.size()))
        slot = utf8;
    else
        slot = Ostrel::Format::Utf8ToAnsi(utf8);
    return slot.c_str();
}

} // namespace

CkHttpResponse::CkHttpResponse() : m_impl(new Impl) {}

CkHttpResponse::~CkHttpResponse()
{
    delete m_impl;
}

int CkHttpResponse::get_StatusCode()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->reply.status;
}

const char* CkHttpResponse::statusText()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return toAnsi(m_impl->statusOut, m_impl->reply.reason);
}

const char* CkHttpResponse::header()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return toAnsi(m_impl->headerOut, m_impl->reply.head);
}

const char* CkHttpResponse::getHeaderField(const char* name)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    if (name == nullptr)
        return nullptr;
    std::string utf8 = Ostrel::Format::AnsiToUtf8(name, std::strlen(name));
    const ckhttp::Header* field = ckhttp::findHeader(m_impl->reply.fields, utf8.c_str());
    return field ? toAnsi(m_impl->fieldOut, field->value) : nullptr;
}

const char* CkHttpResponse::BodyStr()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    // A large ASCII reply is handed out as it lies, not copied.
    if (ckhttp::bodyIsItsOwnText(m_impl->reply.body, m_impl->reply.fields)) {
        std::string().swap(m_impl->bodyOut);
        return m_impl->reply.body.c_str();
    }
    bool binary = false;
    std::string text = ckhttp::bodyToUtf8(m_impl->reply.body, m_impl->reply.fields, binary);
    if (binary)
        Ostrel::Log::LogMessage(__FILE__, __LINE__, __FUNCTION__, Ostrel::Log::LEVEL_DETAIL,
                                "[CkHttpResponse] HTTP response body was binary (not text)");
    // The characters that the code page lacks are lost here.
    if (Ostrel::Format::IsAscii(text.data(), text.size()))
        m_impl->bodyOut.swap(text);
    else
        m_impl->bodyOut = Ostrel::Format::Utf8ToAnsi(text);
    return m_impl->bodyOut.c_str();
}

bool CkHttpResponse::GetBody(CkByteData& out)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    out.clear();
    out.append(m_impl->reply.body.data(), static_cast<unsigned long>(m_impl->reply.body.size()));
    return out.getSize() == m_impl->reply.body.size();
}

const char* CkHttpResponse::finalRedirectUrl()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return toAnsi(m_impl->urlOut, m_impl->finalUrl);
}
