#include <toolkit/xml/KrXmlCompoundType.h>

#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlWriter.h>

#include <algorithm>
#include <memory>

KrXmlCompoundType::KrXmlCompoundType(const KrXmlCompoundType& other) noexcept
    : KrXmlObject(other)
{
}

KrXmlCompoundType& KrXmlCompoundType::operator=(const KrXmlCompoundType& other)
{
    KrXmlObject::operator=(other);
    return *this;
}

const std::vector<KrXmlCompoundType::Component>& KrXmlCompoundType::components() const
{
    if (m_components.empty()) {
        // Only pointers to members are noted: the value stays as it is.
        const_cast<KrXmlCompoundType*>(this)->registerComponents();
    }
    return m_components;
}

void KrXmlCompoundType::registerComponent(const KrXmlToken& token, KrXmlObject& member, Presence presence)
{
    m_components.push_back({token, &member, presence});
}

bool KrXmlCompoundType::xmlInit()
{
    const std::unique_ptr<KrXmlObject> fresh(newObject());
    return assign(*fresh);
}

bool KrXmlCompoundType::read(KrXmlReader& reader)
{
    if (reader.isScratch()) {
        return readInPlace(reader);
    }
    const std::unique_ptr<KrXmlObject> fresh(newObject());
    const KrXmlReader::Scratch scratch(reader);
    return fresh->read(reader) && assign(*fresh);
}

bool KrXmlCompoundType::readInPlace(KrXmlReader& reader)
{
    std::vector<bool> seen(components().size(), false);
    return readComponents(reader, seen) && settleAbsent(reader, seen) && completeRead(reader) && validate(reader);
}

bool KrXmlCompoundType::readComponents(KrXmlReader& reader, std::vector<bool>& seen)
{
    reader.enter();
    while (reader.nextChild()) {
        const auto found =
            std::find_if(m_components.begin(), m_components.end(),
                         [&reader](const Component& component) { return component.token == reader.element(); });
        if (found == m_components.end()) {
            return reader.fail("\"%s\" (namespace \"%s\") has no such element", token().name.c_str(),
                               reader.element().uri.c_str());
        }
        const auto index = static_cast<std::size_t>(found - m_components.begin());
        if (seen[index]) {
            return reader.fail("the element stands twice");
        }
        seen[index] = true;
        if (!found->member->read(reader)) {
            return false;
        }
    }
    return !reader.failed();
}

/// Components that were not in the document get the values of a new object; none of them may be required.
bool KrXmlCompoundType::settleAbsent(KrXmlReader& reader, const std::vector<bool>& seen)
{
    if (std::find(seen.begin(), seen.end(), false) == seen.end()) {
        return true;
    }
    const std::unique_ptr<KrXmlObject> fresh(newObject());
    const auto* const defaults = dynamic_cast<const KrXmlCompoundType*>(fresh.get());
    for (std::size_t i = 0; i < seen.size(); ++i) {
        if (seen[i]) {
            continue;
        }
        if (m_components[i].presence == Presence::Required) {
            return reader.fail("element \"%s\" is missing", m_components[i].token.name.c_str());
        }
        if (defaults != nullptr && !m_components[i].member->assign(*defaults->components()[i].member)) {
            return reader.fail("element \"%s\" has no default", m_components[i].token.name.c_str());
        }
    }
    return true;
}

bool KrXmlCompoundType::completeRead(KrXmlReader&)
{
    return true;
}

bool KrXmlCompoundType::validate(KrXmlReader&) const
{
    return true;
}

bool KrXmlCompoundType::write(KrXmlWriter& writer) const
{
    for (const Component& component : components()) {
        if (!writer.beginElement(component.token) || !component.member->write(writer) || !writer.endElement()) {
            return false;
        }
    }
    return true;
}

void KrXmlCompoundType::writeSchemaContent(KrXmlSchema& schema) const
{
    std::vector<KrXmlSchema::Child> children;
    for (const Component& component : components()) {
        children.push_back({component.token, component.member, component.presence == Presence::Required});
    }
    schema.childrenInAnyOrder(children);
}

bool KrXmlCompoundType::operator==(const KrXmlCompoundType& other) const
{
    const std::vector<Component>& ours = components();
    const std::vector<Component>& theirs = other.components();
    return std::equal(
        ours.begin(), ours.end(), theirs.begin(), theirs.end(),
        [](const Component& a, const Component& b) { return a.token == b.token && a.member->equality(b.member); });
}
