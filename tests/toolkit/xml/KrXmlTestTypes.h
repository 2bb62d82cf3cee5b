#pragma once

#include <toolkit/xml/KrXmlBasicType.h>
#include <toolkit/xml/KrXmlCompoundType.h>
#include <toolkit/xml/KrXmlMapType.h>
#include <toolkit/xml/KrXmlPairType.h>
#include <toolkit/xml/KrXmlPointerType.h>
#include <toolkit/xml/KrXmlVectorType.h>

#include <string>

/// A shared object of some base class.
class Body : public KrXmlCompoundType
{
public:
    static Body* newFromToken(const KrXmlToken& token);
};

class Ball : public KrXmlObjectOf<Ball, Body>
{
public:
    KrXmlBasicType<double> radius = 0.5;
    KrXmlPointerType<Body> child;
    KrXmlToken token() const override { return {KrXmlNamespace::core(), "ball"}; }
    void registerComponents() override
    {
        registerComponent({KrXmlNamespace::core(), "radius"}, radius);
        registerComponent({KrXmlNamespace::core(), "child"}, child, Presence::Optional);
    }

protected:
    bool validate(KrXmlRefusal& refusal) const override
    {
        return radius.value() >= 0.0 || refusal.fail("radius %g is negative", radius.value());
    }
};

inline Body* Body::newFromToken(const KrXmlToken& token)
{
    return token.name == "ball" && token.uri == KrXmlNamespace::core() ? new Ball : nullptr;
}

/// Something of everything; it may contain itself.
class Sample : public KrXmlObjectOf<Sample, KrXmlCompoundType>
{
public:
    KrXmlBasicType<std::string> name = std::string("unnamed");
    KrXmlBasicType<int> count = 3;
    KrXmlBasicType<bool> flag = true;
    KrXmlVectorType<double> numbers;
    KrXmlVectorType<KrXmlBasicType<unsigned char>> bytes;
    KrXmlVectorType<KrXmlBasicType<std::string>> words;
    KrXmlPairType<KrXmlBasicType<std::string>, KrXmlVectorType<int>> pair;
    KrXmlMapType<KrXmlBasicType<std::string>, KrXmlBasicType<double>> map;
    KrXmlVectorType<KrXmlPointerType<Body>> bodies;
    KrXmlVectorType<Sample> children;

    KrXmlToken token() const override { return {KrXmlNamespace::core(), "sample"}; }
    void registerComponents() override
    {
        const std::string& uri = KrXmlNamespace::core();
        registerComponent({uri, "name"}, name);
        registerComponent({uri, "count"}, count);
        registerComponent({uri, "flag"}, flag, Presence::Optional);
        registerComponent({uri, "numbers"}, numbers, Presence::Optional);
        registerComponent({uri, "bytes"}, bytes, Presence::Optional);
        registerComponent({uri, "words"}, words, Presence::Optional);
        registerComponent({uri, "pair"}, pair, Presence::Optional);
        registerComponent({uri, "map"}, map, Presence::Optional);
        registerComponent({uri, "bodies"}, bodies, Presence::Optional);
        registerComponent({uri, "children"}, children, Presence::Optional);
    }

    /// No component has its default value.
    static Sample full()
    {
        Sample sample;
        sample.name = std::string(" a <b> & \"c\"\t\r\n\xC3\xA4 ");
        sample.count = -7;
        sample.flag = false;
        for (int i = 0; i < 20; ++i) {
            sample.numbers.push_back(i / 3.0);
        }
        sample.bytes.push_back(static_cast<unsigned char>(255));
        sample.words.push_back(std::string("two words"));
        sample.words.push_back(std::string());
        sample.pair.first() = std::string("first");
        sample.pair.second().push_back(9);
        sample.map.set(std::string("pi"), 3.14);
        sample.map.set(std::string("e"), 2.72);
        const boost::shared_ptr<Ball> shared(new Ball);
        const boost::shared_ptr<Ball> holder(new Ball);
        shared->radius = 2.0;
        holder->child.set(shared);
        sample.bodies.push_back(KrXmlPointerType<Body>(holder));
        sample.bodies.push_back(KrXmlPointerType<Body>(shared));
        sample.bodies.push_back(KrXmlPointerType<Body>());
        sample.children.resize(2);
        sample.children[1].children.resize(1);
        return sample;
    }
};

/// A compound of the render namespace with components of the core namespace.
class Mixed : public KrXmlObjectOf<Mixed, KrXmlCompoundType>
{
public:
    KrXmlBasicType<double> width = 1.0;
    Sample inner;
    KrXmlToken token() const override { return {KrXmlNamespace::render(), "mixed"}; }
    void registerComponents() override
    {
        registerComponent({KrXmlNamespace::render(), "width"}, width);
        registerComponent({KrXmlNamespace::render(), "inner"}, inner);
    }
};
