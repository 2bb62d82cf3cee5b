#pragma once

#include <toolkit/foundation/private/KrInputFile.h>

#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// XML documents as trees, read from files without network, entities or unbounded growth; comments and instructions are
/// not kept.
namespace KrImportXml
{

struct DocumentDeleter
{
    void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
using UniqueDocument = std::unique_ptr<xmlDoc, DocumentDeleter>;

/// Null, with `why` (one clause, with the line where there is one), for a file that cannot be read, is larger than
/// `maxBytes`, is no XML or declares entities.
/// @param isForeign  becomes true for a file that says it is UTF-8, or nothing, and is not: it is read as Latin-1
UniqueDocument read(const std::string& path, KrInputFile::Accept accept, std::uint64_t maxBytes, std::string& why,
                    bool* isForeign = nullptr);

/// How long the text between two tags may be.
enum class Text
{
    Short, ///< ten million bytes, and elements 256 deep
    Long   ///< as long as the file, and elements 2048 deep
};

/// As read(), of what has been read already.
/// @param content  may be converted
UniqueDocument parse(std::string& content, Text text, std::string& why, bool* isForeign = nullptr);

/// The document as UTF-8. @param sizeHint  bytes that it may take; only time depends on it
std::string textOf(const xmlDoc& document, std::size_t sizeHint = 0);

/// The name as it stands in the file, with the prefix.
std::string nameOf(const xmlNode& node);
/// The element children without a namespace prefix, in their order; only those called `name` when one is given.
std::vector<xmlNode*> children(const xmlNode& node, const char* name = nullptr);
/// The first of them; null when there is none.
xmlNode* child(const xmlNode& node, const char* name);
/// False, and no change, when the element has no such attribute.
bool attribute(const xmlNode& node, const char* name, std::string& value);
/// Empty when the element has no such attribute.
std::string attributeOf(const xmlNode& node, const char* name);
/// The line of the file that the element begins in, from 1.
unsigned int lineOf(const xmlNode& node);
/// The text inside, without white space around it.
std::string textOf(const xmlNode& node);

/// Finite numbers with white space or commas between; false, and no change, for anything else.
bool numbers(const std::string& text, std::vector<double>& values);
/// Shortest text that reads back the same.
std::string text(double value);

} // namespace KrImportXml
