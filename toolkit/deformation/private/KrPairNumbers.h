#pragma once

#include <cstdint>
#include <unordered_map>

/// Numbers, from 0 and in order of appearance, the pairs of vertex and point or normal that it is asked for. For
/// use inside the library.
class KrPairNumbers
{
public:
    std::uint32_t numberOf(std::uint32_t first, std::uint32_t second)
    {
        const std::uint64_t key = std::uint64_t(first) << 32 | second;
        return m_numbers.try_emplace(key, static_cast<std::uint32_t>(m_numbers.size())).first->second;
    }
    std::uint32_t count() const { return static_cast<std::uint32_t>(m_numbers.size()); }

private:
    std::unordered_map<std::uint64_t, std::uint32_t> m_numbers; // only looked up: its order does not matter
};
