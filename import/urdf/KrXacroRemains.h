#pragma once

#include <libxml/tree.h>

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

/// What is left in a robot description of the macro language xacro, which should have been expanded.
class KrXacroRemains
{
public:
    /// Counts in `root` and all elements inside it.
    explicit KrXacroRemains(const xmlNode& root);

    bool any() const { return m_elements + m_expressions > 0; }
    /// One sentence with the counts and the names of some macros.
    std::string text() const;

    /// Whether an attribute's value waits for its expansion: "${width}", "$(find package)".
    static bool isExpression(std::string_view value);

private:
    void count(const xmlNode& node);

    std::size_t m_elements = 0;
    std::size_t m_expressions = 0;
    std::set<std::string> m_names;
};
