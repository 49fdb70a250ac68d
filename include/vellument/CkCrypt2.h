#ifndef VELLUMENT_CKCRYPT2_H
#define VELLUMENT_CKCRYPT2_H

// Hashing of files. The algorithm is chosen by name: "md5", "sha1", "sha256", "sha384" and
// "sha512" are computed; any other name makes HashFile fail.

#include <vellument/export.h>

class CkByteData;

class VELLUMENT_API CkCrypt2 {
public:
    CkCrypt2();
    ~CkCrypt2();
    CkCrypt2(const CkCrypt2&) = delete;
    CkCrypt2& operator=(const CkCrypt2&) = delete;

    // The name is lower-cased and its hyphens are taken out ("SHA-256" is "sha256").
    void put_HashAlgorithm(const char* name);
    // The algorithm's name as the setter left it; "sha1" until one is set.
    const char* hashAlgorithm();

    // Clears out, then stores the digest of the file's raw bytes (16 bytes for MD5). False, with
    // out left empty, if the file can't be opened or read or the algorithm isn't supported.
    // The file is read in chunks, never whole. Never throws.
    bool HashFile(const char* path, CkByteData& out);

private:
    struct Impl;
    Impl* m_impl;
};

#endif
