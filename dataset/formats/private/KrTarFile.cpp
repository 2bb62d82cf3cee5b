#include <dataset/formats/private/KrTarFile.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace
{

constexpr std::size_t kBlock = 512;
constexpr std::uint64_t kLargestSize = (std::uint64_t{1} << 33) - 1; // eleven octal digits
constexpr char kZeros[2 * kBlock] = {};

/// IEEE Std 1003.1, pax, "ustar Interchange Format": numbers are octal digits with a zero byte behind them.
struct Header
{
    char name[100];
    char mode[8];
    char uid[8];
    char gid[8];
    char size[12];
    char mtime[12];
    char checksum[8];
    char type;
    char linkName[100];
    char magic[6];
    char version[2];
    char userName[32];
    char groupName[32];
    char deviceMajor[8];
    char deviceMinor[8];
    char prefix[155];
    char unused[12];
};
static_assert(sizeof(Header) == kBlock, "it is one block");

template <std::size_t length>
void setOctal(char (&field)[length], std::uint64_t value)
{
    std::snprintf(field, length, "%0*llo", static_cast<int>(length - 1), static_cast<unsigned long long>(value));
}

/// Everybody may read it, nobody owns it, and it is as old as time.
Header headerOf(const std::string& name, std::size_t size)
{
    Header header = {};
    name.copy(header.name, sizeof header.name);
    setOctal(header.mode, 0644);
    setOctal(header.uid, 0);
    setOctal(header.gid, 0);
    setOctal(header.size, size);
    setOctal(header.mtime, 0);
    header.type = '0';
    std::memcpy(header.magic, "ustar", sizeof header.magic);
    std::memset(header.version, '0', sizeof header.version);
    setOctal(header.deviceMajor, 0);
    setOctal(header.deviceMinor, 0);
    // The sum of all bytes, those of itself taken for blanks.
    std::memset(header.checksum, ' ', sizeof header.checksum);
    unsigned int sum = 0;
    for (std::size_t i = 0; i < sizeof header; ++i) {
        sum += reinterpret_cast<const unsigned char*>(&header)[i];
    }
    // Six digits and a zero byte; the blank behind them stays.
    std::snprintf(header.checksum, 7, "%06o", sum);
    return header;
}

} // namespace

bool KrTarFile::add(const std::string& name, const void* content, std::size_t size, std::string& reason)
{
    if (name.size() > sizeof(Header::name) || size > kLargestSize) {
        reason = "no tar archive holds " + name + ": its name or its content is too long";
        return false;
    }
    const Header header = headerOf(name, size);
    const std::size_t padding = (kBlock - size % kBlock) % kBlock;
    return m_file.write(&header, sizeof header, reason) && m_file.write(content, size, reason) &&
           m_file.write(kZeros, padding, reason);
}

bool KrTarFile::close(std::string& reason)
{
    // Two blocks of zeros say that it is not cut off.
    return m_file.write(kZeros, sizeof kZeros, reason) && m_file.close(reason);
}
