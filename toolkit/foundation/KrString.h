#pragma once

#include <charconv>
#include <string>
#include <type_traits>

/// Text of a whole number in `base` (2 to 36), without leading zeros; digits above 9 are lower case.
template <typename Integer>
std::string KrINT2STRING(Integer value, int base)
{
    static_assert(std::is_integral_v<Integer>, "a whole number");
    char text[72];
    const std::to_chars_result end = std::to_chars(text, text + sizeof text, value, base);
    return std::string(text, end.ptr);
}
