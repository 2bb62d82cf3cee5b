#pragma once

#include <toolkit/xml/KrXmlObject.h>
#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlText.h>
#include <toolkit/xml/KrXmlWriter.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A list of values of one type.
///
/// Plain values (KrXmlPlain) are written as numbers in the element's text, objects as
/// child elements under their own token. Items lie in one contiguous array, as in a std::vector, whose rules on
/// references hold: growing makes them invalid.
template <typename T>
class KrXmlVectorType : public KrXmlObjectOf<KrXmlVectorType<T>, KrXmlObject>
{
public:
    KrXmlVectorType() = default;
    /// Takes the values over.
    explicit KrXmlVectorType(std::vector<T> values)
        : m_values(std::move(values))
    {
    }

    /// The number of items.
    unsigned int size() const { return static_cast<unsigned int>(m_values.size()); }
    bool empty() const { return m_values.empty(); }
    /// New items are default-constructed.
    void resize(unsigned int size) { m_values.resize(size); }
    /// As of a std::vector.
    void reserve(unsigned int size) { m_values.reserve(size); }
    void clear() { m_values.clear(); }
    void push_back(T value) { m_values.push_back(std::move(value)); }

    /// Not checked: `i` is below size().
    const T& operator[](unsigned int i) const { return m_values[i]; }
    T& operator[](unsigned int i) { return m_values[i]; }
    /// The last item; there must be one.
    const T& back() const { return m_values.back(); }
    T& back() { return m_values.back(); }

    /// For loops over the items, and for algorithms of the standard library.
    auto begin() const { return m_values.begin(); }
    auto end() const { return m_values.end(); }
    auto begin() { return m_values.begin(); }
    auto end() { return m_values.end(); }
    /// The items themselves.
    const std::vector<T>& values() const { return m_values; }
    std::vector<T>& values() { return m_values; }

    bool xmlInit() override
    {
        m_values.clear();
        return true;
    }
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override;
    KrXmlToken token() const override { return {KrXmlNamespace::core(), "list"}; }
    void writeSchemaContent(KrXmlSchema& schema) const override;
    void countShared(KrXmlWriter& writer) const override
    {
        if constexpr (!KrXmlPlain<T>::isPlain) {
            for (const T& value : m_values) {
                value.countShared(writer);
            }
        }
    }

    friend bool operator==(const KrXmlVectorType& a, const KrXmlVectorType& b) { return a.m_values == b.m_values; }
    friend bool operator!=(const KrXmlVectorType& a, const KrXmlVectorType& b) { return !(a == b); }

private:
    std::vector<T> m_values;
};

template <typename T>
bool KrXmlVectorType<T>::read(KrXmlReader& reader)
{
    std::vector<T> values;
    if constexpr (KrXmlPlain<T>::isPlain) {
        std::string content;
        if (!reader.text(content)) {
            return false;
        }
        std::string_view rest = content;
        while (!KrXmlText::atEnd(rest)) {
            const std::string_view before = rest;
            T value{};
            if (!KrXmlPlain<T>::take(rest, value)) {
                return reader.fail("item %zu is not as it should be: \"%.*s\"", values.size() + 1,
                                   static_cast<int>(before.size() < 40 ? before.size() : 40), before.data());
            }
            values.push_back(value);
        }
    } else {
        const KrXmlToken item = T().token();
        const KrXmlReader::Scratch scratch(reader);
        reader.enter();
        while (reader.nextChild()) {
            if (reader.element() != item) {
                return reader.fail("expected element \"%s\"", item.name.c_str());
            }
            values.emplace_back();
            if (!values.back().read(reader)) {
                return false;
            }
        }
        if (reader.failed()) {
            return false;
        }
    }
    m_values = std::move(values);
    return true;
}

template <typename T>
bool KrXmlVectorType<T>::write(KrXmlWriter& writer) const
{
    if constexpr (KrXmlPlain<T>::isPlain) {
        constexpr std::size_t itemsPerLine = 8;
        std::string text;
        std::size_t count = 0;
        for (const T& value : m_values) {
            if (count != 0) {
                text += count % itemsPerLine == 0 ? '\n' : ' ';
            }
            KrXmlPlain<T>::append(text, value);
            ++count;
        }
        return writer.text(text);
    } else {
        bool ok = true;
        for (const T& value : m_values) {
            ok = ok && writer.beginElement(value.token()) && value.write(writer) && writer.endElement();
        }
        return ok;
    }
}

template <typename T>
void KrXmlVectorType<T>::writeSchemaContent(KrXmlSchema& schema) const
{
    if constexpr (KrXmlPlain<T>::isPlain) {
        schema.list(KrXmlSchema::typeFor<T>());
    } else {
        const T item;
        schema.repeated(item.token(), item);
    }
}
