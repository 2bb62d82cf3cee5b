#include <dataset/private/KrDatasetHash.h>

#include <toolkit/foundation/private/KrInputFile.h>

#include <openssl/evp.h>

#include <limits>
#include <memory>
#include <new>
#include <vector>

namespace
{

class Digest
{
public:
    Digest()
        : m_context(EVP_MD_CTX_new(), EVP_MD_CTX_free)
    {
        // These fail without memory only.
        if (!m_context || EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr) != 1) {
            throw std::bad_alloc();
        }
    }
    void add(const void* data, std::size_t size) { EVP_DigestUpdate(m_context.get(), data, size); }
    std::string text()
    {
        unsigned char bytes[EVP_MAX_MD_SIZE];
        unsigned int size = 0;
        EVP_DigestFinal_ex(m_context.get(), bytes, &size);
        std::string result;
        for (unsigned int i = 0; i < size; ++i) {
            constexpr const char* kDigits = "0123456789abcdef";
            result += kDigits[bytes[i] >> 4];
            result += kDigits[bytes[i] & 15];
        }
        return result;
    }

private:
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> m_context;
};

} // namespace

std::string KrDatasetHash::ofText(const std::string& text)
{
    Digest digest;
    digest.add(text.data(), text.size());
    return digest.text();
}

std::string KrDatasetHash::ofFile(const std::string& path, std::string& reason)
{
    KrInputFile file(std::numeric_limits<std::uint64_t>::max(), KrInputFile::Accept::Files);
    constexpr std::size_t kPiece = std::size_t{1} << 18;
    std::vector<char> piece(kPiece);
    Digest digest;
    bool isRead = file.open(path);
    for (std::size_t count = 1; isRead && count > 0;) {
        isRead = file.read(piece.data(), piece.size(), count);
        digest.add(piece.data(), isRead ? count : 0);
    }
    if (!isRead) {
        reason = path + ": " + file.reason();
        return std::string();
    }
    return digest.text();
}
