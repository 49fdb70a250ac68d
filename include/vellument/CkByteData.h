#ifndef VELLUMENT_CKBYTEDATA_H
#define VELLUMENT_CKBYTEDATA_H

// A growable buffer of bytes, owned by the object: the digest that CkCrypt2 computes.

#include <vellument/export.h>

class VELLUMENT_API CkByteData {
public:
    CkByteData();
    ~CkByteData();
    CkByteData(const CkByteData&) = delete;
    CkByteData& operator=(const CkByteData&) = delete;

    void clear();
    // Appends size bytes; a null pointer appends nothing.
    void append(const void* data, unsigned long size);
    // The bytes, never null; followed by a zero byte that isn't counted in the size.
    const unsigned char* getData() const;
    unsigned long getSize() const;

private:
    struct Impl;
    Impl* m_impl;
};

#endif
