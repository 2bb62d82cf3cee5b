#include <toolkit/xml/KrXmlSchema.h>

#include <toolkit/xml/KrXmlObject.h>

#include <algorithm>
#include <ostream>
#include <typeinfo>
#include <utility>

namespace
{

// xs:double spells the special values otherwise.
const char* const kRealType = "<xs:simpleType name=\"real\"><xs:union memberTypes=\"xs:double\"><xs:simpleType>"
                              "<xs:restriction base=\"xs:string\"><xs:enumeration value=\"inf\"/>"
                              "<xs:enumeration value=\"-inf\"/><xs:enumeration value=\"nan\"/></xs:restriction>"
                              "</xs:simpleType></xs:union></xs:simpleType>\n";

const char* const kRealName = "real";

// Of texts that hold what XML cannot.
const char* const kEncodingAttribute =
    "<xs:attribute name=\"encoding\"><xs:simpleType><xs:restriction base=\"xs:string\">"
    "<xs:enumeration value=\"percent\"/></xs:restriction></xs:simpleType>"
    "</xs:attribute>";

// The type of XML Schema, part 2. Reals have a type of ours, see above.
const char* standardType(KrXmlSchema::TextType type)
{
    switch (type) {
    case KrXmlSchema::TextType::Real:
        return "xs:double";
    case KrXmlSchema::TextType::Int:
        return "xs:int";
    case KrXmlSchema::TextType::UnsignedInt:
        return "xs:unsignedInt";
    case KrXmlSchema::TextType::UnsignedByte:
        return "xs:unsignedByte";
    case KrXmlSchema::TextType::Boolean:
        return "xs:boolean";
    case KrXmlSchema::TextType::String:
        break;
    }
    return "xs:string";
}

// An element of another namespace can be admitted, but not described: a schema document has one target namespace.
std::string anyElement(const std::string& uri, std::size_t minimum, const std::string& maximum)
{
    return "<xs:any namespace=\"" + (uri.empty() ? "##local" : uri) + "\" processContents=\"skip\" minOccurs=\"" +
           std::to_string(minimum) + "\" maxOccurs=\"" + maximum + "\"/>";
}

} // namespace

// The prototype is asked for its structure only; its values do not matter.
KrXmlSchema::KrXmlSchema(const KrXmlToken& root, const KrXmlObject& object)
    : m_targetUri(root.uri)
{
    // Follows the whole tree of classes; what it finds is collected in the definitions.
    m_rootElement = element(root, object, "");
}

// Written from what the constructor has gathered.
void KrXmlSchema::write(std::ostream& stream) const
{
    stream << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\"";
    // Elements without a namespace need no prefix for our types.
    if (!m_targetUri.empty()) {
        stream << " targetNamespace=\"" << m_targetUri << "\" xmlns:t=\"" << m_targetUri << "\"";
    }
    stream << " elementFormDefault=\"qualified\">\n"
           << m_rootElement << "\n"
           << kRealType << m_definitions << "</xs:schema>\n";
}

// A class that is met for the first time writes its definition at once.
std::string KrXmlSchema::typeName(const KrXmlObject& object)
{
    // By class: however often a class occurs, it is described once.
    const auto [place, isNew] = m_names.try_emplace(std::type_index(typeid(object)));
    std::string& name = place->second;
    if (isNew) {
        // The name is known before the content is written: a class may contain itself.
        // The number tells classes apart whose elements have the same name.
        name = object.token().name + "-" + std::to_string(m_names.size());
        const std::string outer = std::exchange(m_currentName, name);
        object.writeSchemaContent(*this);
        m_currentName = outer;
    }
    return name;
}

std::string KrXmlSchema::element(const KrXmlToken& token, const KrXmlObject& object, const char* occurrence)
{
    return "<xs:element name=\"" + token.name + "\" type=\"" + ours(typeName(object)) + "\"" + occurrence + "/>";
}

/// A type that this schema defines.
std::string KrXmlSchema::ours(const std::string& name) const
{
    return m_targetUri.empty() ? name : "t:" + name;
}

std::string KrXmlSchema::typeText(TextType type) const
{
    return type == TextType::Real ? ours(kRealName) : standardType(type);
}

// Definitions are put after each other; their order does not matter to a schema.
void KrXmlSchema::complexType(const std::string& content)
{
    m_definitions += "<xs:complexType name=\"" + m_currentName + "\">" + content + "</xs:complexType>\n";
}

// Only strings can have the attribute that says how they are encoded, which takes a complex type.
void KrXmlSchema::text(TextType type)
{
    if (type == TextType::String) {
        complexType("<xs:simpleContent><xs:extension base=\"xs:string\">" + std::string(kEncodingAttribute) +
                    "</xs:extension></xs:simpleContent>");
        return;
    }
    m_definitions += "<xs:simpleType name=\"" + m_currentName + "\"><xs:restriction base=\"" + typeText(type) +
                     "\"/></xs:simpleType>\n";
}

// Numbers with blanks between them, in one text.
void KrXmlSchema::list(TextType type)
{
    m_definitions += "<xs:simpleType name=\"" + m_currentName + "\"><xs:list itemType=\"" + typeText(type) +
                     "\"/></xs:simpleType>\n";
}

// The text of such an element is numbers, or bytes in base64, or nothing where a file holds them.
void KrXmlSchema::numbersOrBytes()
{
    // The text needs a name of its own: a complex type cannot have a union inside.
    const std::string textName = m_currentName + "-text";
    m_definitions += "<xs:simpleType name=\"" + textName +
                     "\"><xs:union memberTypes=\"xs:base64Binary\"><xs:simpleType><xs:list itemType=\"" +
                     typeText(TextType::Real) + "\"/></xs:simpleType></xs:union></xs:simpleType>\n";
    std::string attributes = "<xs:attribute name=\"file\" type=\"xs:string\"/>";
    for (const auto& [name, values] : {std::pair("encoding", std::vector<const char*>{"base64"}),
                                       std::pair("type", std::vector<const char*>{"float32", "float64"})}) {
        attributes +=
            std::string("<xs:attribute name=\"") + name + "\"><xs:simpleType><xs:restriction base=\"xs:string\">";
        for (const char* const value : values) {
            attributes += std::string("<xs:enumeration value=\"") + value + "\"/>";
        }
        attributes += "</xs:restriction></xs:simpleType></xs:attribute>";
    }
    complexType("<xs:simpleContent><xs:extension base=\"" + ours(textName) + "\">" + attributes +
                "</xs:extension></xs:simpleContent>");
}

void KrXmlSchema::childrenInAnyOrder(const std::vector<Child>& children)
{
    // xs:all allows any order, but only of elements that this schema can describe.
    const bool isOurs =
        std::all_of(children.begin(), children.end(), [this](const Child& child) { return isTarget(child.token); });
    if (!isOurs) {
        foreignChildren(children);
        return;
    }
    std::string content;
    for (const Child& child : children) {
        content += element(child.token, *child.object, child.isRequired ? "" : " minOccurs=\"0\"");
    }
    complexType("<xs:all>" + content + "</xs:all>");
}

// How many there may be is all that can be said about them.
void KrXmlSchema::foreignChildren(const std::vector<Child>& children)
{
    const std::string uri = children.front().token.uri;
    const bool isOneSpace =
        std::all_of(children.begin(), children.end(), [&uri](const Child& child) { return child.token.uri == uri; });
    const auto required =
        std::count_if(children.begin(), children.end(), [](const Child& child) { return child.isRequired; });
    complexType(
        "<xs:sequence>" +
        anyElement(isOneSpace ? uri : "##any", static_cast<std::size_t>(required), std::to_string(children.size())) +
        "</xs:sequence>");
}

// Any number of one element, in the document's order.
void KrXmlSchema::repeated(const KrXmlToken& token, const KrXmlObject& prototype)
{
    const std::string item = isTarget(token) ? element(token, prototype, " minOccurs=\"0\" maxOccurs=\"unbounded\"")
                                             : anyElement(token.uri, 0, "unbounded");
    complexType("<xs:sequence>" + item + "</xs:sequence>");
}

// Which classes there are is not known to a pointer's type.
void KrXmlSchema::oneOfAnyClass()
{
    complexType("<xs:sequence>" + anyElement("##any", 0, "1") + "</xs:sequence>");
}

// Any number of values, in any order.
void KrXmlSchema::keyedValues()
{
    // Such values have the elements of the core namespace, which another schema cannot describe.
    if (m_targetUri != KrXmlNamespace::core()) {
        complexType("<xs:sequence>" + anyElement(KrXmlNamespace::core(), 0, "unbounded") + "</xs:sequence>");
        return;
    }
    std::string choices;
    for (const auto& [name, type] : {std::pair("real", TextType::Real), std::pair("string", TextType::String),
                                     std::pair("boolean", TextType::Boolean)}) {
        choices += std::string("<xs:element name=\"") + name +
                   "\"><xs:complexType><xs:simpleContent><xs:extension base=\"" + typeText(type) +
                   "\"><xs:attribute name=\"key\" type=\"xs:string\" use=\"required\"/>" +
                   (type == TextType::String ? kEncodingAttribute : "") +
                   "</xs:extension>"
                   "</xs:simpleContent></xs:complexType></xs:element>";
    }
    complexType("<xs:choice minOccurs=\"0\" maxOccurs=\"unbounded\">" + choices + "</xs:choice>");
}

void KrXmlSchema::anything()
{
    m_definitions += "<xs:complexType name=\"" + m_currentName + "\" mixed=\"true\"><xs:sequence>" +
                     anyElement("##any", 0, "unbounded") +
                     "</xs:sequence><xs:anyAttribute processContents=\"skip\"/></xs:complexType>\n";
}
