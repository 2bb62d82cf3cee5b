#pragma once

#include <toolkit/xml/KrXmlText.h>

/// A texture coordinate: u to the right, v upwards; (0, 0) is the image's lower left corner.
class KrPlanarVector
{
public:
    KrPlanarVector() = default; ///< (0, 0)
    /// Any numbers; nothing is checked.
    KrPlanarVector(double u, double v)
        : m_data{u, v}
    {
    }
    /// Beyond 0 to 1 lies what the texture's wrapping puts there.
    double u() const { return m_data[0]; }
    double v() const { return m_data[1]; }

    friend bool operator==(const KrPlanarVector& a, const KrPlanarVector& b)
    {
        return a.u() == b.u() && a.v() == b.v();
    }

private:
    double m_data[2] = {0.0, 0.0};
};

/// "u v".
template <>
struct KrXmlPlain<KrPlanarVector>
{
    static constexpr bool isPlain = true;
    /// As text "u v". `take` takes it off the front, and is false for other text.
    static void append(std::string& out, const KrPlanarVector& value);
    static bool take(std::string_view& text, KrPlanarVector& value);
};
