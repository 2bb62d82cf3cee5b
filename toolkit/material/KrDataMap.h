#pragma once

#include <toolkit/xml/KrXmlObject.h>

#include <map>
#include <string>
#include <variant>

class KrColor;

/// Named values of mixed type (real, string, truth value): the appearance of a shape group, for one.
///
/// Appearance keys: "krAmbientRed", "krAmbientGreen", "krAmbientBlue", "krAmbientAlpha", likewise
/// "krDiffuse...", "krSpecular...", "krEmission..." (each in [0, 1]), "krShininess" (0 to 128),
/// "krTextureFilename", "krTextureEnvironmentMode", "krTextureMinFilter", "krTextureMagFilter", "krRenderBothSides".
/// Read from a file, a texture's name that is relative and found beside that file becomes its full path.
class KrDataMap : public KrXmlObjectOf<KrDataMap, KrXmlObject>
{
public:
    /// Without any value.
    KrDataMap();
    KrDataMap(const KrDataMap& other);
    KrDataMap(KrDataMap&& other) noexcept;
    KrDataMap& operator=(const KrDataMap& other);
    KrDataMap& operator=(KrDataMap&& other) noexcept;
    ~KrDataMap() override;

    /// Each writes `out` and returns true only when `key` is there with that type.
    bool real(const std::string& key, double& out) const;
    bool string(const std::string& key, std::string& out) const;
    bool boolean(const std::string& key, bool& out) const;

    /// Each puts the value in place of whatever `key` held.
    void setReal(const std::string& key, double value);
    void setString(const std::string& key, const std::string& value);
    void setBoolean(const std::string& key, bool value);
    /// False when there is no such key.
    bool erase(const std::string& key);

    /// All of them, by key: for those who keep them in a form of their own.
    const std::map<std::string, std::variant<double, std::string, bool>>& values() const { return m_values; }
    /// True when nothing has a name here.
    bool empty() const { return m_values.empty(); }

    /// A lit surface of one colour: ambient and diffuse are `color`, a faint highlight.
    static KrDataMap material(const KrColor& color);
    /// What a shape looks like that says nothing about it: a light grey.
    static const KrDataMap& defaultManipColor();
    /// The blue of mass-property ellipsoids, half transparent.
    static const KrDataMap& blueColor();

    bool xmlInit() override;
    bool read(KrXmlReader& reader) override;
    bool write(KrXmlWriter& writer) const override;
    KrXmlToken token() const override;
    void writeSchemaContent(KrXmlSchema& schema) const override;

    /// NaN equals itself here: a map that was written and read back is the same.
    friend bool operator==(const KrDataMap& a, const KrDataMap& b);
    friend bool operator!=(const KrDataMap& a, const KrDataMap& b) { return !(a == b); }

private:
    std::map<std::string, std::variant<double, std::string, bool>> m_values;
};

// Compiled once, in the library.
extern template class KrXmlObjectOf<KrDataMap, KrXmlObject>;
