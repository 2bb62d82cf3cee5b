#pragma once

#include <toolkit/xml/KrXmlCompoundType.h>
#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlWriter.h>

#include <map>
#include <utility>

/// An ordered map between two XML types, written as "entry" elements with "key" and "value". A key that
/// appears twice in a document is an error.
template <typename K, typename V>
class KrXmlMapType : public KrXmlObjectOf<KrXmlMapType<K, V>, KrXmlObject>
{
public:
    /// The number of entries.
    unsigned int size() const { return static_cast<unsigned int>(m_values.size()); }
    bool empty() const { return m_values.empty(); }
    void clear() { m_values.clear(); }

    /// The value of `key`, borrowed until the map changes; null when there is none.
    const V* find(const K& key) const
    {
        const auto found = m_values.find(key);
        return found == m_values.end() ? nullptr : &found->second;
    }
    /// Puts `value` under `key`, in place of what was there.
    void set(const K& key, const V& value) { m_values.insert_or_assign(key, value); }
    /// False when there is no such key.
    bool erase(const K& key) { return m_values.erase(key) != 0; }

    /// Pairs of key and value, in the order of the keys.
    auto begin() const { return m_values.begin(); }
    auto end() const { return m_values.end(); }

    bool xmlInit() override
    {
        m_values.clear();
        return true;
    }
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override;
    KrXmlToken token() const override { return {KrXmlNamespace::core(), "map"}; }
    void writeSchemaContent(KrXmlSchema& schema) const override
    {
        const Entry entry;
        schema.repeated(entry.token(), entry);
    }
    void countShared(KrXmlWriter& writer) const override
    {
        for (const auto& [key, value] : m_values) {
            key.countShared(writer);
            value.countShared(writer);
        }
    }

    friend bool operator==(const KrXmlMapType& a, const KrXmlMapType& b) { return a.m_values == b.m_values; }
    friend bool operator!=(const KrXmlMapType& a, const KrXmlMapType& b) { return !(a == b); }

private:
    /// One entry on its way to or from the document.
    class Entry : public KrXmlObjectOf<Entry, KrXmlCompoundType>
    {
    public:
        KrXmlToken token() const override { return {KrXmlNamespace::core(), "entry"}; }
        void registerComponents() override
        {
            this->registerComponent({KrXmlNamespace::core(), "key"}, key);
            this->registerComponent({KrXmlNamespace::core(), "value"}, value);
        }
        friend bool operator==(const Entry& a, const Entry& b) { return a.key == b.key && a.value == b.value; }
        K key;
        V value;
    };

    std::map<K, V> m_values;
};

template <typename K, typename V>
bool KrXmlMapType<K, V>::read(KrXmlReader& reader)
{
    std::map<K, V> values;
    const KrXmlReader::Scratch scratch(reader);
    reader.enter();
    while (reader.nextChild()) {
        Entry entry;
        if (reader.element() != entry.token()) {
            return reader.fail("expected element \"entry\"");
        }
        if (!entry.read(reader)) {
            return false;
        }
        if (!values.emplace(std::move(entry.key), std::move(entry.value)).second) {
            return reader.fail("a key stands twice in this map");
        }
    }
    if (reader.failed()) {
        return false;
    }
    m_values = std::move(values);
    return true;
}

template <typename K, typename V>
bool KrXmlMapType<K, V>::write(KrXmlWriter& writer) const
{
    const KrXmlToken entryToken = Entry().token();
    const KrXmlToken keyToken{KrXmlNamespace::core(), "key"};
    const KrXmlToken valueToken{KrXmlNamespace::core(), "value"};
    bool ok = true;
    for (const auto& [key, value] : m_values) {
        ok = ok && writer.beginElement(entryToken);
        ok = ok && writer.beginElement(keyToken) && key.write(writer) && writer.endElement();
        ok = ok && writer.beginElement(valueToken) && value.write(writer) && writer.endElement();
        ok = ok && writer.endElement();
    }
    return ok;
}
