#include <vellument/CkCrypt2.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <openssl/evp.h>

#include <vellument/CkByteData.h>
#include <vellument/Ostrel_FileSystem.h>

namespace {

const std::size_t kChunkSize = 64 * 1024;

// The digest of a normalized algorithm name, or null when this class doesn't compute it.
const EVP_MD* digestFor(const std::string& name)
{
    if (name == "md5")
        return EVP_md5();
    if (name == "sha1")
        return EVP_sha1();
    if (name == "sha256")
        return EVP_sha256();
    if (name == "sha384")
        return EVP_sha384();
    if (name == "sha512")
        return EVP_sha512();
    return nullptr;
}

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};

struct DigestContextFree {
    void operator()(EVP_MD_CTX* ctx) const { EVP_MD_CTX_free(ctx); }
};

} // namespace

struct CkCrypt2::Impl {
    std::string algorithm = "sha1";
};

CkCrypt2::CkCrypt2() : m_impl(new Impl) {}

CkCrypt2::~CkCrypt2()
{
    delete m_impl;
}

void CkCrypt2::put_HashAlgorithm(const char* name)
{
    std::string normalized;
    if (name != nullptr) {
        for (const char* p = name; *p != '\0'; ++p) {
            char c = *p;
            if (c == '-')
                continue;
            if (c >= 'A' && c <= 'Z')
                c = static_cast<char>(c - 'A' + 'a');
            normalized.push_back(c);
        }
    }
    m_impl->algorithm = normalized;
}

const char* CkCrypt2::hashAlgorithm()
{
    return m_impl->algorithm.c_str();
}

bool CkCrypt2::HashFile(const char* path, CkByteData& out)
{
    out.clear();
    if (path == nullptr || *path == '\0')
        return false;
    const EVP_MD* md = digestFor(m_impl->algorithm);
    if (md == nullptr)
        return false;

    try {
        // Only a regular file: a FIFO or a device could block or never end.
        std::unique_ptr<std::FILE, FileCloser> file(Ostrel::FileSystem::OpenRegularFileForRead(path));
        if (!file)
            return false;
        std::unique_ptr<EVP_MD_CTX, DigestContextFree> ctx(EVP_MD_CTX_new());
        if (!ctx || EVP_DigestInit_ex(ctx.get(), md, nullptr) != 1)
            return false;

        std::vector<unsigned char> chunk(kChunkSize);
        for (;;) {
            std::size_t got = std::fread(chunk.data(), 1, chunk.size(), file.get());
            if (got > 0 && EVP_DigestUpdate(ctx.get(), chunk.data(), got) != 1)
                return false;
            if (got < chunk.size()) {
                // A short read is the end of the file or an error (a directory reads as one).
                if (std::ferror(file.get()))
                    return false;
                break;
            }
        }

        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        if (EVP_DigestFinal_ex(ctx.get(), digest, &length) != 1)
            return false;
        out.append(digest, length);
        return out.getSize() == length;
    } catch (...) {
        // Out of memory for the chunk buffer, or a failure below the file layer.
        out.clear();
        return false;
    }
}
