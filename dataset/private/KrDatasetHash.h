#pragma once

#include <string>

/// SHA-256 (FIPS 180-4) as 64 lower-case hexadecimal digits. For use inside the library.
namespace KrDatasetHash
{

std::string ofText(const std::string& text);
/// Of a regular file's content. @return empty, with a reason, where it cannot be read
std::string ofFile(const std::string& path, std::string& reason);

} // namespace KrDatasetHash
