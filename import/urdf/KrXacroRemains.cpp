#include <import/urdf/KrXacroRemains.h>

#include <import/files/KrImportXml.h>

#include <toolkit/foundation/private/KrText.h>

#include <cstring>
#include <vector>

namespace
{

constexpr std::size_t kMaxNames = 20; // of macros in one message

/// By the prefix too: it is often left undeclared, and then belongs to the name.
bool isXacro(const xmlNode& node)
{
    // Most elements have no prefix, so their names are not put together for it.
    if (!node.ns || !node.ns->prefix) {
        return node.name && std::strncmp(reinterpret_cast<const char*>(node.name), "xacro:", 6) == 0;
    }
    // A prefix may be declared for another word than "xacro", or the word be used without any declaration.
    return KrImportXml::nameOf(node).compare(0, 6, "xacro:") == 0 ||
           (node.ns->href && std::strstr(reinterpret_cast<const char*>(node.ns->href), "xacro") != nullptr);
}

} // namespace

// Without recursion: a document may be nested deeper than a small stack bears.
KrXacroRemains::KrXacroRemains(const xmlNode& root)
{
    std::vector<const xmlNode*> stack{&root};
    while (!stack.empty()) {
        const xmlNode& node = *stack.back();
        stack.pop_back();
        count(node);
        for (const xmlNode* child = node.children; child; child = child->next) {
            if (child->type == XML_ELEMENT_NODE) {
                stack.push_back(child);
            }
        }
    }
}

std::string KrXacroRemains::text() const
{
    std::string list;
    // In the order of the alphabet, whatever the order in the file: equal files give equal messages.
    for (const std::string& name : m_names) {
        list += (list.empty() ? " (" : ", ") + name;
    }
    return "xacro not expanded: " + std::to_string(m_elements) + " elements" + list + (list.empty() ? "" : ")") +
           " and " + std::to_string(m_expressions) + " expressions remain";
}

bool KrXacroRemains::isExpression(std::string_view value)
{
    // What is computed, and what is substituted.
    return value.find("${") != std::string_view::npos || value.find("$(") != std::string_view::npos;
}

void KrXacroRemains::count(const xmlNode& node)
{
    if (isXacro(node)) {
        ++m_elements;
        // Only the names are bounded; the number tells how much is missing.
        if (m_names.size() < kMaxNames) {
            m_names.insert(KrText::oneLine(KrImportXml::nameOf(node)));
        }
    }
    for (const xmlAttr* attribute = node.properties; attribute; attribute = attribute->next) {
        // One piece of text at most: entities, which would divide it, have been refused.
        const xmlNode* const value = attribute->children;
        if (value && value->content && isExpression(reinterpret_cast<const char*>(value->content))) {
            ++m_expressions;
        }
    }
}
