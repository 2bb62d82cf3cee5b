#pragma once

#include <string>

/// The qualified name of an XML element: namespace URI and local name.
struct KrXmlToken
{
    std::string uri;
    std::string name;

    friend bool operator==(const KrXmlToken& a, const KrXmlToken& b) { return a.name == b.name && a.uri == b.uri; }
    friend bool operator!=(const KrXmlToken& a, const KrXmlToken& b) { return !(a == b); }
    friend bool operator<(const KrXmlToken& a, const KrXmlToken& b)
    {
        return a.uri != b.uri ? a.uri < b.uri : a.name < b.name;
    }
};

/// The toolkit's XML namespaces. Functions, so that tokens made while libraries load can use them.
namespace KrXmlNamespace
{

/// Basic values, vectors, maps, geometry.
const std::string& core();
/// Manipulators, links, shapes, states.
const std::string& system();
/// Points of view, lights, windows: everything about rendering.
const std::string& render();

} // namespace KrXmlNamespace
