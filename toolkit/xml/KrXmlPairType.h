#pragma once

#include <toolkit/xml/KrXmlCompoundType.h>

#include <utility>

/// Two values of any XML types, written as "first" and "second".
template <typename A, typename B>
class KrXmlPairType : public KrXmlObjectOf<KrXmlPairType<A, B>, KrXmlCompoundType>
{
public:
    KrXmlPairType() = default; ///< of two new values
    /// Of both, which a caller with no more use for them moves in.
    KrXmlPairType(A a, B b)
        : m_first(std::move(a))
        , m_second(std::move(b))
    {
    }

    /// The values themselves, borrowed from this object.
    const A& first() const { return m_first; }
    A& first() { return m_first; }
    const B& second() const { return m_second; }
    B& second() { return m_second; }

    KrXmlToken token() const override { return {KrXmlNamespace::core(), "pair"}; }
    void registerComponents() override
    {
        this->registerComponent({KrXmlNamespace::core(), "first"}, m_first);
        this->registerComponent({KrXmlNamespace::core(), "second"}, m_second);
    }

    friend bool operator==(const KrXmlPairType& a, const KrXmlPairType& b)
    {
        return a.m_first == b.m_first && a.m_second == b.m_second;
    }

private:
    A m_first;
    B m_second;
};
