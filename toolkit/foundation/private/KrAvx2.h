#pragma once

/// Of a function that is compiled, with all that it calls, for processors with AVX2: to be called where
/// KrAvx2::isThere(), beside the same without. (clang takes in what the function calls itself only, and gains nothing.)
/// The rest of the file stays for every processor, the library's inline functions too, of which a linker takes one for
/// the whole program. Without instructions that multiply and add in one, which round less often, and nothing is added
/// in another order: results are the same to the last bit.
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define KR_AVX2 __attribute__((target("avx2"), flatten))
#else
#define KR_AVX2
#endif

/// Registers of 256 bits.
namespace KrAvx2
{

/// Whether this processor, and its system, have them.
inline bool isThere()
{
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
    static const bool isIt = __builtin_cpu_supports("avx2") != 0;
    return isIt;
#else
    return false;
#endif
}

} // namespace KrAvx2
