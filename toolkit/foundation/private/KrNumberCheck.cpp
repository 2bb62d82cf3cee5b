#include <toolkit/foundation/private/KrNumberCheck.h>

#include <toolkit/foundation/KrPrint.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace
{

// Prints once for all values of a call: which of them is wrong is seen from the list.
template <typename IsGood>
bool judge(const char* method, std::initializer_list<double> values, const char* wanted, IsGood isGood)
{
    if (std::all_of(values.begin(), values.end(), isGood)) {
        return true;
    }
    // All values: a message with one of three coordinates would not help.
    std::string list;
    for (const double value : values) {
        char text[32];
        std::snprintf(text, sizeof text, "%s%g", list.empty() ? "" : ", ", value);
        list += text;
    }
    Kr::Print::instance()->write(Kr::Print::Warning, "%s - (%s): %s; nothing is changed.\n", method, list.c_str(),
                                 wanted);
    return false;
}

} // namespace

bool Kr::NumberCheck::areFinite(const char* method, std::initializer_list<double> values)
{
    return judge(method, values, "only finite numbers will do", [](double value) { return std::isfinite(value); });
}

bool Kr::NumberCheck::areSizes(const char* method, std::initializer_list<double> values)
{
    // Written, as the next one, so that NaN fails too.
    return judge(method, values, "only finite numbers from 0 on will do",
                 [](double value) { return value >= 0.0 && std::isfinite(value); });
}

bool Kr::NumberCheck::areShares(const char* method, std::initializer_list<double> values)
{
    return judge(method, values, "only numbers from 0 to 1 will do",
                 [](double value) { return value >= 0.0 && value <= 1.0; });
}

bool Kr::NumberCheck::areNumbers(const char* method, std::initializer_list<double> values)
{
    // Infinity passes: what has no limit has it.
    return judge(method, values, "only numbers will do", [](double value) { return !std::isnan(value); });
}
