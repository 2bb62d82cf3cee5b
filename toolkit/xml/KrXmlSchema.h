#pragma once

#include <toolkit/xml/KrXmlText.h>
#include <toolkit/xml/KrXmlToken.h>

#include <iosfwd>
#include <map>
#include <string>
#include <type_traits>
#include <typeindex>
#include <vector>

class KrXmlObject;

/// Finds the `Value` of a class that wraps one plain value.
template <typename T, typename = void>
struct KrXmlWrapped
{
    static constexpr bool isWrapped = false;
};
template <typename T>
struct KrXmlWrapped<T, std::void_t<typename T::Value>>
{
    static constexpr bool isWrapped = true;
    using Value = typename T::Value;
};

/// Builds an XML schema (XSD 1.0) from objects that describe their content: KrXmlObject::writeSchemaContent.
///
/// A schema document speaks for one namespace. Elements of other namespaces are allowed where
/// they belong, in the right number, but what is inside them is not looked at.
class KrXmlSchema
{
public:
    /// A child element of a compound.
    struct Child
    {
        KrXmlToken token;
        const KrXmlObject* object = nullptr; ///< borrowed for the call
        bool isRequired = true;
    };

    /// What stands as text in an element.
    enum class TextType
    {
        Real, ///< with "inf", "-inf" and "nan"
        Int,
        UnsignedInt,
        UnsignedByte,
        Boolean,
        String
    };
    /// The text type of plain values: reals for anything made of several numbers.
    template <typename T>
    static constexpr TextType typeFor();

    /// The element `root` with the content of `object`, and everything below it.
    KrXmlSchema(const KrXmlToken& root, const KrXmlObject& object);
    void write(std::ostream& stream) const;

    // One of these is called by each writeSchemaContent.
    /// One value of that type.
    void text(TextType type);
    /// Values of that type, separated by white space.
    void list(TextType type);
    /// Numbers separated by white space; with an attribute "encoding" (base64) or "file", and "type" (float32,
    /// float64), bytes in base64 or nothing.
    void numbersOrBytes();
    void childrenInAnyOrder(const std::vector<Child>& children);
    /// Any number of elements `token` with the content of `prototype`.
    void repeated(const KrXmlToken& token, const KrXmlObject& prototype);
    /// At most one element, of whatever class.
    void oneOfAnyClass();
    /// Any number of elements "real", "string" and "boolean" with an attribute "key".
    void keyedValues();
    void anything();

private:
    bool isTarget(const KrXmlToken& token) const { return token.uri == m_targetUri; }
    std::string ours(const std::string& name) const;
    std::string typeText(TextType type) const;
    std::string typeName(const KrXmlObject& object);
    std::string element(const KrXmlToken& token, const KrXmlObject& object, const char* occurrence);
    void foreignChildren(const std::vector<Child>& children);
    void complexType(const std::string& content);

    std::string m_targetUri;
    std::string m_rootElement;
    std::string m_currentName;
    std::map<std::type_index, std::string> m_names;
    std::string m_definitions;
};

template <typename T>
constexpr KrXmlSchema::TextType KrXmlSchema::typeFor()
{
    if constexpr (KrXmlWrapped<T>::isWrapped) {
        return typeFor<typename KrXmlWrapped<T>::Value>();
    } else if constexpr (std::is_same_v<T, bool>) {
        return TextType::Boolean;
    } else if constexpr (std::is_same_v<T, int>) {
        return TextType::Int;
    } else if constexpr (std::is_same_v<T, unsigned int>) {
        return TextType::UnsignedInt;
    } else if constexpr (std::is_same_v<T, unsigned char>) {
        return TextType::UnsignedByte;
    } else if constexpr (std::is_floating_point_v<T> || KrXmlPlain<T>::isPlain) {
        return TextType::Real;
    } else {
        return TextType::String;
    }
}
