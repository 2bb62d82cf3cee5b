#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Random numbers that are looked up, not drawn one after another: the number of a quantity in a sample follows from
/// seed, sample and the quantity's name alone, whoever asks, in whatever order, on whatever machine. A further quantity
/// changes none of the others.
///
/// The generator is Philox4x32-10 (Salmon, Moraes, Dror, Shaw: Parallel random numbers: as easy as 1, 2, 3; SC 2011).
/// Key: the seed, low word first. Counter: the sample's number, low word first, then the 64-bit FNV-1a hash of the
/// quantity's name, low word first. Words 0 and 1 of its output are the low and high half of a 64-bit number x.
class KrDatasetRandom
{
public:
    using Words4 = std::array<std::uint32_t, 4>;
    using Words2 = std::array<std::uint32_t, 2>;

    /// The generator itself, ten rounds.
    static Words4 philox(Words4 counter, Words2 key);
    /// The 64-bit FNV-1a hash of the name's bytes (Fowler, Noll, Vo): from 14695981039346656037, for each byte h = (h
    /// xor byte) * 1099511628211.
    static std::uint64_t hash(std::string_view name);

    /// The numbers of that sample (or whatever else `sample` counts).
    KrDatasetRandom(std::uint64_t seed, std::uint64_t sample)
        : m_seed(seed)
        , m_sample(sample)
    {
    }

    /// x of that quantity.
    std::uint64_t bits(std::string_view quantity) const;
    /// In [0, 1): floor(x / 2^11) / 2^53.
    double uniform(std::string_view quantity) const;
    /// low + u (high - low), with u from `uniform`; `low` where both are the same.
    double uniform(std::string_view quantity, double low, double high) const;
    /// One of 0 to count - 1: floor(u count). @param count  1 to 2^32
    std::size_t choice(std::string_view quantity, std::size_t count) const;

private:
    std::uint64_t m_seed;
    std::uint64_t m_sample;
};
