#pragma once

#include <initializer_list>

/// Judges the numbers that a setter is given. Each is true for good ones, and false after one message that begins with
/// `method` ("Class::method") and tells them; the setter then changes nothing.
namespace Kr::NumberCheck
{

bool areFinite(const char* method, std::initializer_list<double> values);
/// Finite and not below zero.
bool areSizes(const char* method, std::initializer_list<double> values);
/// Between 0 and 1, both included.
bool areShares(const char* method, std::initializer_list<double> values);
/// Infinity is one.
bool areNumbers(const char* method, std::initializer_list<double> values);

} // namespace Kr::NumberCheck
