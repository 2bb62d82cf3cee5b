#pragma once

#include <toolkit/xml/KrXmlObject.h>
#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlText.h>
#include <toolkit/xml/KrXmlWriter.h>

#include <string>
#include <utility>

/// One value (double, float, int, unsigned int, unsigned char, bool, std::string) as the text of an element.
template <typename T>
class KrXmlBasicType : public KrXmlObjectOf<KrXmlBasicType<T>, KrXmlObject>
{
public:
    using Value = T;

    KrXmlBasicType() = default; ///< zero, false or the empty string
    KrXmlBasicType(T value)     // NOLINT: a value and its XML form are one thing to a caller
        : m_value(std::move(value))
    {
    }

    /// The value itself; borrowed from this object.
    const T& value() const { return m_value; }
    void setValue(const T& value) { m_value = value; }
    operator const T&() const { return m_value; }

    bool xmlInit() override
    {
        m_value = T();
        return true;
    }
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override
    {
        if constexpr (std::is_same_v<T, std::string>) {
            return writer.string(m_value);
        } else {
            std::string text;
            KrXmlText::append(text, m_value);
            return writer.text(text);
        }
    }
    KrXmlToken token() const override { return {KrXmlNamespace::core(), tokenName()}; }
    void writeSchemaContent(KrXmlSchema& schema) const override { schema.text(KrXmlSchema::typeFor<T>()); }

    friend bool operator==(const KrXmlBasicType& a, const KrXmlBasicType& b) { return a.m_value == b.m_value; }
    friend bool operator!=(const KrXmlBasicType& a, const KrXmlBasicType& b) { return !(a == b); }
    friend bool operator<(const KrXmlBasicType& a, const KrXmlBasicType& b) { return a.m_value < b.m_value; }

private:
    static const char* tokenName()
    {
        if constexpr (std::is_same_v<T, bool>) {
            return "boolean";
        } else if constexpr (std::is_floating_point_v<T>) {
            return "real";
        } else if constexpr (std::is_integral_v<T>) {
            return "integer";
        } else {
            return "string";
        }
    }

    T m_value = T();
};

template <typename T>
bool KrXmlBasicType<T>::read(KrXmlReader& reader)
{
    std::string content;
    if constexpr (std::is_same_v<T, std::string>) {
        if (!reader.string(content)) {
            return false;
        }
        m_value = std::move(content);
    } else {
        if (!reader.text(content)) {
            return false;
        }
        std::string_view rest = content;
        T value = T();
        if (!KrXmlText::take(rest, value) || !KrXmlText::atEnd(rest)) {
            return reader.fail("\"%.40s\" is no %s", content.c_str(), tokenName());
        }
        m_value = value;
    }
    return true;
}

template <typename T>
struct KrXmlPlain<KrXmlBasicType<T>, std::enable_if_t<std::is_arithmetic_v<T>>>
{
    static constexpr bool isPlain = true;
    /// The plain value as text, and back. `take` is false for text that is no such value.
    static void append(std::string& out, const KrXmlBasicType<T>& value) { KrXmlText::append(out, value.value()); }
    static bool take(std::string_view& text, KrXmlBasicType<T>& value)
    {
        T plain = T();
        const bool ok = KrXmlText::take(text, plain);
        value.setValue(plain);
        return ok;
    }
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrXmlBasicType<bool>, KrXmlObject>;
extern template class KrXmlBasicType<bool>;
extern template class KrXmlObjectOf<KrXmlBasicType<double>, KrXmlObject>;
extern template class KrXmlBasicType<double>;
extern template class KrXmlObjectOf<KrXmlBasicType<std::string>, KrXmlObject>;
extern template class KrXmlBasicType<std::string>;
extern template class KrXmlObjectOf<KrXmlBasicType<unsigned int>, KrXmlObject>;
extern template class KrXmlBasicType<unsigned int>;
