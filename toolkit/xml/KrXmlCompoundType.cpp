#include <toolkit/xml/KrXmlCompoundType.h>

#include <toolkit/xml/KrXmlReader.h>
#include <toolkit/xml/KrXmlSchema.h>
#include <toolkit/xml/KrXmlWriter.h>

#include <algorithm>
#include <memory>
#include <utility>

/// An object that is being read, and how far.
struct KrXmlCompoundType::Reading
{
    explicit Reading(KrXmlCompoundType& read)
        : object(&read)
        , components(read.components())
        , seen(components.size(), false)
    {
    }
    KrXmlCompoundType* object;
    Components components;
    std::vector<bool> seen;
    bool isAtChildren = false; ///< the reader is inside the list of the object's children
};

/// An object that is being written, and how far.
struct KrXmlCompoundType::Writing
{
    explicit Writing(const KrXmlCompoundType& written)
        : object(&written)
        , components(written.components())
    {
    }
    const KrXmlCompoundType* object;
    Components components;
    std::size_t next = 0;
    unsigned int nextChild = 0;
    bool isAtChildren = false;
};

namespace
{

/// Where `registerComponent` puts what it is given, in this thread.
thread_local void* t_components = nullptr;

} // namespace

// Copies nothing: components are members of the derived class, which copies them.
KrXmlCompoundType::KrXmlCompoundType(const KrXmlCompoundType&) noexcept = default;
KrXmlCompoundType& KrXmlCompoundType::operator=(const KrXmlCompoundType&) = default;

/// Asked for anew each time: kept in every object, the tokens would be most of what a link weighs.
/// The list is the thread's own, so objects can be read in several threads at once.
KrXmlCompoundType::Components KrXmlCompoundType::components() const
{
    Components result;
    // The outer list comes back afterwards, also without memory for more: registering may ask for the components of
    // another object.
    struct Outer
    {
        void* list;
        ~Outer() { t_components = list; }
    } const outer{std::exchange(t_components, &result)};
    // Only pointers to members are noted: the value stays as it is.
    const_cast<KrXmlCompoundType*>(this)->registerComponents();
    return result;
}

// Outside of components() nobody listens, and registering does nothing.
void KrXmlCompoundType::add(const Component& component)
{
    if (t_components != nullptr) {
        static_cast<Components*>(t_components)->push_back(component);
    }
}

void KrXmlCompoundType::registerComponent(const KrXmlToken& token, KrXmlObject& member, Presence presence)
{
    add({token, &member, presence, false});
}

void KrXmlCompoundType::registerChildren(const KrXmlToken& token, KrXmlObject& list)
{
    add({token, &list, Presence::Optional, true});
}

// Most classes have no children of their own kind; those that do override both functions.
const KrXmlCompoundType* KrXmlCompoundType::child(unsigned int) const
{
    return nullptr;
}

KrXmlCompoundType* KrXmlCompoundType::appendChild()
{
    return nullptr;
}

bool KrXmlCompoundType::xmlInit()
{
    // A new object's values are the defaults; there is no second place that names them.
    const std::unique_ptr<KrXmlObject> fresh(newObject());
    return assign(*fresh);
}

// Into a new object first, so that a document that is refused half-way leaves this one as it was.
bool KrXmlCompoundType::read(KrXmlReader& reader)
{
    // Members are read by recursion, so the depth is limited before the stack is.
    const KrXmlReader::Nesting nesting(reader);
    if (reader.failed()) {
        return false;
    }
    // Inside an object that will be thrown away on failure no second copy is needed.
    if (reader.isScratch()) {
        return readInPlace(reader);
    }
    const std::unique_ptr<KrXmlObject> fresh(newObject());
    const KrXmlReader::Scratch scratch(reader);
    return fresh->read(reader) && assign(*fresh);
}

/// With a stack of its own for children, since a file may hang as many of them under each other as it likes.
bool KrXmlCompoundType::readInPlace(KrXmlReader& reader)
{
    std::vector<Reading> stack;
    stack.emplace_back(*this);
    reader.enter();
    while (!stack.empty()) {
        // `stack` may move when it grows, so the reference is taken anew in every round.
        Reading& top = stack.back();
        if (!reader.nextChild()) {
            if (reader.failed()) {
                return false;
            }
            // That was the end of the children's list; the object itself goes on behind it.
            if (top.isAtChildren) {
                top.isAtChildren = false;
                continue;
            }
            // In this order: values that are missing are there before the class completes itself and judges the whole.
            if (!top.object->settleAbsent(reader, top) || !top.object->completeRead(reader) ||
                !top.object->validate(reader)) {
                return false;
            }
            stack.pop_back();
            continue;
        }
        if (top.isAtChildren) {
            KrXmlCompoundType& child = *top.object->appendChild();
            if (reader.element() != child.token()) {
                return reader.fail("expected element \"%s\"", child.token().name.c_str());
            }
            stack.emplace_back(child);
            reader.enter();
            continue;
        }
        const auto found =
            std::find_if(top.components.begin(), top.components.end(),
                         [&reader](const Component& component) { return component.token == reader.element(); });
        if (found == top.components.end()) {
            return reader.fail("\"%s\" (namespace \"%s\") has no such element", top.object->token().name.c_str(),
                               reader.element().uri.c_str());
        }
        const auto index = static_cast<std::size_t>(found - top.components.begin());
        if (top.seen[index]) {
            return reader.fail("the element stands twice");
        }
        top.seen[index] = true;
        if (found->areChildren) {
            // The list starts empty: an object may be read into again.
            found->member->xmlInit();
            reader.enter();
            top.isAtChildren = true;
        } else if (!found->member->read(reader)) {
            return false;
        }
    }
    return !reader.failed();
}

/// Components that were not in the document get the values of a new object; none of them may be required.
bool KrXmlCompoundType::settleAbsent(KrXmlReader& reader, const Reading& reading)
{
    if (std::find(reading.seen.begin(), reading.seen.end(), false) == reading.seen.end()) {
        return true;
    }
    const std::unique_ptr<KrXmlObject> fresh(newObject());
    const auto* const defaults = dynamic_cast<const KrXmlCompoundType*>(fresh.get());
    // A new object is of the same class, so its components stand in the same order.
    const Components defaultComponents = defaults == nullptr ? Components() : defaults->components();
    for (std::size_t i = 0; i < reading.seen.size(); ++i) {
        if (reading.seen[i]) {
            continue;
        }
        const Component& component = reading.components[i];
        if (component.presence == Presence::Required) {
            return reader.fail("element \"%s\" is missing", component.token.name.c_str());
        }
        if (defaults != nullptr && !component.member->assign(*defaultComponents[i].member)) {
            return reader.fail("element \"%s\" has no default", component.token.name.c_str());
        }
    }
    return true;
}

// For classes that have something to work out once all components are read.
bool KrXmlCompoundType::completeRead(KrXmlReader&)
{
    return true;
}

// For classes whose values depend on each other.
bool KrXmlCompoundType::validate(KrXmlRefusal&) const
{
    return true;
}

bool KrXmlCompoundType::write(KrXmlWriter& writer) const
{
    const KrXmlWriter::Nesting nesting(writer);
    // What could not be read back is refused before the first of it is written.
    if (writer.failed() || !validate(writer)) {
        return false;
    }
    std::vector<Writing> stack;
    // A stack of its own instead of recursion: links may hang under each other in any number.
    stack.emplace_back(*this);
    while (!stack.empty()) {
        Writing& top = stack.back();
        if (top.isAtChildren) {
            const KrXmlCompoundType* const child = top.object->child(top.nextChild++);
            if (child == nullptr) {
                top.isAtChildren = false;
                if (!writer.endElement()) {
                    return false;
                }
                continue;
            }
            // The tags of children and their check stand here, since `write` is not called for them.
            if (!writer.beginElement(child->token()) || !child->validate(writer)) {
                return false;
            }
            stack.emplace_back(*child);
            continue;
        }
        if (top.next == top.components.size()) {
            stack.pop_back();
            // The tags of this object itself are the caller's.
            if (!stack.empty() && !writer.endElement()) {
                return false;
            }
            continue;
        }
        const Component& component = top.components[top.next++];
        if (!writer.beginElement(component.token)) {
            return false;
        }
        if (component.areChildren) {
            top.isAtChildren = true;
        } else if (!component.member->write(writer) || !writer.endElement()) {
            return false;
        }
    }
    return true;
}

// The same walk as `write`, beforehand: only objects that are referred to twice get an id.
void KrXmlCompoundType::countShared(KrXmlWriter& writer) const
{
    const KrXmlWriter::Nesting nesting(writer);
    std::vector<const KrXmlCompoundType*> open = {this};
    while (!open.empty() && !writer.failed()) {
        const KrXmlCompoundType* const object = open.back();
        open.pop_back();
        for (const Component& component : object->components()) {
            if (!component.areChildren) {
                component.member->countShared(writer);
            }
        }
        for (unsigned int i = 0; object->child(i) != nullptr; ++i) {
            open.push_back(object->child(i));
        }
    }
}

// Children have the list's own element; its type repeats the class.
void KrXmlCompoundType::writeSchemaContent(KrXmlSchema& schema) const
{
    const Components all = components();
    // Without presence a component is required; the order is free in a document.
    std::vector<KrXmlSchema::Child> children;
    for (const Component& component : all) {
        children.push_back({component.token, component.member, component.presence == Presence::Required});
    }
    schema.childrenInAnyOrder(children);
}

// Component by component, in the order of registration, which is that of the class.
bool KrXmlCompoundType::isEqualButForChildren(const KrXmlCompoundType& a, const KrXmlCompoundType& b)
{
    const Components ours = a.components();
    const Components theirs = b.components();
    return std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(),
                      [](const Component& one, const Component& other) {
                          return one.token == other.token && one.areChildren == other.areChildren &&
                                 (one.areChildren || one.member->equality(other.member));
                      });
}

// Values, not objects: two that were read from one document are equal.
bool KrXmlCompoundType::operator==(const KrXmlCompoundType& other) const
{
    // By a stack of pairs instead of recursion, for links that hang deep.
    std::vector<std::pair<const KrXmlCompoundType*, const KrXmlCompoundType*>> open = {{this, &other}};
    while (!open.empty()) {
        const auto [a, b] = open.back();
        open.pop_back();
        if (!isEqualButForChildren(*a, *b)) {
            return false;
        }
        for (unsigned int i = 0;; ++i) {
            const KrXmlCompoundType* const ours = a->child(i);
            const KrXmlCompoundType* const theirs = b->child(i);
            // Different numbers of children.
            if ((ours == nullptr) != (theirs == nullptr)) {
                return false;
            }
            if (ours == nullptr) {
                break;
            }
            open.emplace_back(ours, theirs);
        }
    }
    return true;
}
