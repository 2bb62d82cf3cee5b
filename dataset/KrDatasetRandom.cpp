#include <dataset/KrDatasetRandom.h>

#include <algorithm>

namespace
{

std::uint32_t low(std::uint64_t x)
{
    return static_cast<std::uint32_t>(x);
}

std::uint32_t high(std::uint64_t x)
{
    return static_cast<std::uint32_t>(x >> 32);
}

} // namespace

KrDatasetRandom::Words4 KrDatasetRandom::philox(Words4 counter, Words2 key)
{
    // The multipliers and the Weyl increments of the paper's section 4.3.
    constexpr std::uint64_t kMultiplier0 = 0xD2511F53u;
    constexpr std::uint64_t kMultiplier1 = 0xCD9E8D57u;
    constexpr std::uint32_t kWeyl0 = 0x9E3779B9u;
    constexpr std::uint32_t kWeyl1 = 0xBB67AE85u;
    constexpr unsigned int kRounds = 10;
    for (unsigned int round = 0; round < kRounds; ++round) {
        const std::uint64_t product0 = kMultiplier0 * counter[0];
        const std::uint64_t product1 = kMultiplier1 * counter[2];
        counter = {high(product1) ^ counter[1] ^ key[0], low(product1), high(product0) ^ counter[3] ^ key[1],
                   low(product0)};
        key = {key[0] + kWeyl0, key[1] + kWeyl1};
    }
    return counter;
}

std::uint64_t KrDatasetRandom::hash(std::string_view name)
{
    std::uint64_t result = 14695981039346656037u;
    for (const char c : name) {
        result = (result ^ static_cast<unsigned char>(c)) * 1099511628211u;
    }
    return result;
}

std::uint64_t KrDatasetRandom::bits(std::string_view quantity) const
{
    const std::uint64_t stream = hash(quantity);
    const Words4 words =
        philox({low(m_sample), high(m_sample), low(stream), high(stream)}, {low(m_seed), high(m_seed)});
    return words[0] | std::uint64_t{words[1]} << 32;
}

double KrDatasetRandom::uniform(std::string_view quantity) const
{
    // 53 bits: as many as a double has, so that every value is exact and 1 is never reached.
    constexpr double kUnit = 1.0 / 9007199254740992.0;
    return static_cast<double>(bits(quantity) >> 11) * kUnit;
}

double KrDatasetRandom::uniform(std::string_view quantity, double lowest, double highest) const
{
    // What is fixed is exact, and costs nothing.
    return lowest == highest ? lowest : lowest + uniform(quantity) * (highest - lowest);
}

std::size_t KrDatasetRandom::choice(std::string_view quantity, std::size_t count) const
{
    const auto chosen = static_cast<std::size_t>(uniform(quantity) * static_cast<double>(count));
    return std::min(chosen, count - 1);
}
