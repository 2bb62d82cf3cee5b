#include <toolkit/xml/KrXmlToken.h>

// Functions and not constants: static objects of other files may ask before this file's own would be made.
const std::string& KrXmlNamespace::core()
{
    static const std::string s_uri = "urn:kr:core";
    return s_uri;
}

const std::string& KrXmlNamespace::system()
{
    static const std::string s_uri = "urn:kr:system";
    return s_uri;
}

const std::string& KrXmlNamespace::render()
{
    static const std::string s_uri = "urn:kr:render";
    return s_uri;
}
