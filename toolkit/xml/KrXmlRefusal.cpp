#include <toolkit/xml/KrXmlRefusal.h>

#include <toolkit/foundation/KrLimits.h>

#include <cstdarg>
#include <cstdio>

bool KrXmlRefusal::fail(const char* format, ...)
{
    // Longer reasons are cut off: they would quote a file at length.
    char reason[512];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(reason, sizeof reason, format, arguments);
    va_end(arguments);
    refuse(reason);
    return false;
}

KrXmlRefusal::Nesting::Nesting(KrXmlRefusal& refusal)
    : m_refusal(refusal)
{
    // Objects inside objects are read and written by recursion; the limit keeps a document from using up the stack.
    if (++m_refusal.m_nesting > Kr::Limits::kNestedObjects) {
        m_refusal.fail("objects are nested deeper than %u", Kr::Limits::kNestedObjects);
    }
}

KrXmlRefusal::Nesting::~Nesting()
{
    --m_refusal.m_nesting;
}
