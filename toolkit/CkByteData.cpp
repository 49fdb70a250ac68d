#include <vellument/CkByteData.h>

#include <new>
#include <stdexcept>
#include <string>

struct CkByteData::Impl {
    // A string keeps a terminating zero behind the bytes, so getData is never null.
    std::string bytes;
};

CkByteData::CkByteData() : m_impl(new Impl) {}

CkByteData::~CkByteData()
{
    delete m_impl;
}

void CkByteData::clear()
{
    m_impl->bytes.clear();
}

void CkByteData::append(const void* data, unsigned long size)
{
    if (data == nullptr || size == 0)
        return;
    try {
        m_impl->bytes.append(static_cast<const char*>(data), size);
    } catch (const std::bad_alloc&) {
        // The buffer stays as it was; the toolkit's calls never throw.
    } catch (const std::length_error&) {
    }
}

const unsigned char* CkByteData::getData() const
{
    return reinterpret_cast<const unsigned char*>(m_impl->bytes.data());
}

unsigned long CkByteData::getSize() const
{
    return static_cast<unsigned long>(m_impl->bytes.size());
}
