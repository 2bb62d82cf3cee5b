#pragma once

#include <toolkit/xml/KrXmlText.h>

#include <cstdint>

/// A value of a mesh that follows two others, as a point on an edge follows the ends: (1 - t) a + t b.
class KrEdgePoint
{
public:
    KrEdgePoint() = default;
    /// `a` and `b` are the numbers of the ends, `t` from 0 (at a) to 1 (at b).
    KrEdgePoint(std::uint32_t a, std::uint32_t b, double t)
        : m_a(a)
        , m_b(b)
        , m_t(t)
    {
    }
    /// The numbers of the ends in the list that the point belongs to.
    std::uint32_t a() const { return m_a; }
    std::uint32_t b() const { return m_b; }
    /// In [0, 1]: 0 at a, 1 at b.
    double t() const { return m_t; }

    friend bool operator==(const KrEdgePoint& p, const KrEdgePoint& q)
    {
        return p.m_a == q.m_a && p.m_b == q.m_b && p.m_t == q.m_t;
    }

private:
    std::uint32_t m_a = 0;
    std::uint32_t m_b = 0;
    double m_t = 0.0;
};

template <>
struct KrXmlPlain<KrEdgePoint>
{
    static constexpr bool isPlain = true;
    /// As text "a b t"; `take` takes it off the front, and is false without a change for other text.
    static void append(std::string& out, const KrEdgePoint& value);
    static bool take(std::string_view& text, KrEdgePoint& value);
};
