#include <import/mesh/KrMeshMaterials.h>

#include <import/files/KrImportPath.h>

#include <toolkit/foundation/private/KrText.h>
#include <toolkit/image/KrImage.h>
#include <toolkit/math/KrColor.h>

#include <assimp/GltfMaterial.h>
#include <assimp/material.h>
#include <assimp/types.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace
{

// Files made for path tracers give highlights that burn a surface out under two lights.
constexpr double kMaxSpecular = 0.5;
// Of a material, bytes: the name goes on into systems and messages.
constexpr std::size_t kMaxName = 200;
// The largest exponent that OpenGL takes.
constexpr double kMaxShininess = 128.0;

/// Files hold anything: what is no number is dark, and the rest is cut to [0, 1].
double channel(float value)
{
    return std::isfinite(value) ? std::clamp(static_cast<double>(value), 0.0, 1.0) : 0.0;
}

bool isBlack(const aiColor4D& color)
{
    // Written so that NaN is black, too.
    return !(color.r > 0.0f || color.g > 0.0f || color.b > 0.0f);
}

/// Whether `color` says nothing about a textured surface: black, or the grey that readers fill in.
bool isUntold(const aiColor4D& color)
{
    return isBlack(color) || (color.r == 0.6f && color.g == 0.6f && color.b == 0.6f);
}

/// Under the keys of the toolkit's materials, "krDiffuseRed" and the like.
void setColor(KrDataMap& data, const std::string& prefix, double red, double green, double blue)
{
    data.setReal(prefix + "Red", red);
    data.setReal(prefix + "Green", green);
    data.setReal(prefix + "Blue", blue);
}

void setHighlight(const aiMaterial& material, KrDataMap& data)
{
    // A surface that is declared matt still comes with the reader's default highlight.
    int model = aiShadingMode_Phong;
    material.Get(AI_MATKEY_SHADING_MODEL, model);
    aiColor4D color;
    const bool shines = model == aiShadingMode_Phong || model == aiShadingMode_Blinn;
    if (!shines || material.Get(AI_MATKEY_COLOR_SPECULAR, color) != aiReturn_SUCCESS) {
        return;
    }
    // By the brightest part, so that the hue stays when it is scaled.
    const double brightest = std::max({channel(color.r), channel(color.g), channel(color.b)});
    // Without any highlight dark parts, which robots have many of, lose their shape: the usual faint one stays.
    double usual = 0.0;
    if (data.real("krSpecularRed", usual) && brightest <= usual) {
        return;
    }
    const double scale = brightest > kMaxSpecular ? kMaxSpecular / brightest : 1.0;
    setColor(data, "krSpecular", scale * channel(color.r), scale * channel(color.g), scale * channel(color.b));
    // Below 1 the exponent was meant on another scale.
    float shininess = 0.0f;
    if (material.Get(AI_MATKEY_SHININESS, shininess) == aiReturn_SUCCESS && shininess >= 1.0f) {
        data.setReal("krShininess", std::min(static_cast<double>(shininess), kMaxShininess));
    }
}

bool diffuseTexture(const aiMaterial& material, std::string& file, unsigned int& channel)
{
    // Most readers call it diffuse, that of glTF base colour.
    for (const aiTextureType type : {aiTextureType_DIFFUSE, aiTextureType_BASE_COLOR}) {
        aiString path;
        unsigned int uv = 0;
        if (material.GetTexture(type, 0, &path, nullptr, &uv) == aiReturn_SUCCESS && path.length > 0) {
            file = path.C_Str();
            channel = uv;
            return true;
        }
    }
    return false;
}

/// Of red, green and blue, 0 to 1; white for an image that cannot be seen anywhere.
KrColor meanOf(const KrImage& image)
{
    const unsigned int channels = image.channels();
    const bool isGrey = channels < 3;
    const bool hasOpacity = channels == 2 || channels == 4;
    double sums[3] = {0.0, 0.0, 0.0};
    double weights = 0.0;
    const unsigned char* pixel = image.data();
    for (std::size_t i = 0; i < image.sizeInBytes(); i += channels, pixel += channels) {
        // Weighted by opacity: pixels that nobody sees have any colour.
        const double weight = hasOpacity ? pixel[channels - 1] : 255.0;
        weights += 255.0 * weight;
        for (unsigned int k = 0; k < 3; ++k) {
            sums[k] += weight * pixel[isGrey ? 0 : k];
        }
    }
    return weights > 0.0 ? KrColor(sums[0] / weights, sums[1] / weights, sums[2] / weights) : KrColor(1.0, 1.0, 1.0);
}

} // namespace

KrMeshMaterials::Look KrMeshMaterials::read(const aiMaterial& material)
{
    Look look;
    aiString name;
    material.Get(AI_MATKEY_NAME, name);
    look.hasForeignName = !KrText::isUtf8(name.C_Str());
    look.name = KrText::oneLine(name.C_Str(), kMaxName);
    const bool isTextured = diffuseTexture(material, look.texture, look.textureChannel);
    // Images inside a mesh file are called by a star and their number.
    look.isEmbedded = isTextured && look.texture[0] == '*';

    aiColor4D diffuse(1.0f, 1.0f, 1.0f, 1.0f);
    // glTF has no diffuse colour of its own.
    if (material.Get(AI_MATKEY_COLOR_DIFFUSE, diffuse) != aiReturn_SUCCESS) {
        material.Get(AI_MATKEY_BASE_COLOR, diffuse);
    }
    // The colour multiplies the image: black would hide it, and grey darken it.
    if (isTextured && isUntold(diffuse)) {
        diffuse = aiColor4D(1.0f, 1.0f, 1.0f, diffuse.a);
    }
    look.data = KrDataMap::material(KrColor(channel(diffuse.r), channel(diffuse.g), channel(diffuse.b)));
    setHighlight(material, look.data);
    aiColor4D emission;
    if (material.Get(AI_MATKEY_COLOR_EMISSIVE, emission) == aiReturn_SUCCESS && !isBlack(emission)) {
        setColor(look.data, "krEmission", channel(emission.r), channel(emission.g), channel(emission.b));
    }
    int bothSides = 0;
    if (material.Get(AI_MATKEY_TWOSIDED, bothSides) == aiReturn_SUCCESS && bothSides) {
        look.data.setBoolean("krRenderBothSides", true);
    }
    float opacity = 1.0f;
    material.Get(AI_MATKEY_OPACITY, opacity);
    // Formats tell opacity in one of two places; the other one is 1 then.
    look.opacity = std::min(channel(opacity), channel(diffuse.a));
    setOpacity(look.data, look.opacity);
    return look;
}

KrMeshMaterials::Look KrMeshMaterials::ofColor(const aiColor4D& color)
{
    Look look;
    const double rgb[3] = {channel(color.r), channel(color.g), channel(color.b)};
    // Named by its value, so that equal colours of several meshes are one material.
    look.name = "colour";
    for (const double value : rgb) {
        look.name += " " + std::to_string(static_cast<int>(255.0 * value + 0.5));
    }
    look.data = KrDataMap::material(KrColor(rgb[0], rgb[1], rgb[2]));
    // Exporters that know no opacity write 0; a mesh that nobody can see was meant to be seen.
    if (channel(color.a) > 0.0) {
        look.opacity = channel(color.a);
        look.name += look.opacity < 1.0 ? " " + std::to_string(static_cast<int>(255.0 * look.opacity + 0.5)) : "";
        setOpacity(look.data, look.opacity);
    }
    return look;
}

void KrMeshMaterials::setOpacity(KrDataMap& data, double opacity)
{
    // All four alike: which of them a renderer looks at makes no difference then.
    for (const char* const key : {"krAmbientAlpha", "krDiffuseAlpha", "krSpecularAlpha", "krEmissionAlpha"}) {
        data.setReal(key, opacity);
    }
}

std::string KrMeshMaterials::findTexture(const std::string& meshPath, const std::string& name,
                                         std::vector<std::string>& tried)
{
    std::string file = KrImportPath::withSlashes(name);
    if (KrText::lowered(file.substr(0, 7)) == "file://") {
        file.erase(0, 7);
    }
    const std::string folder = KrImportPath::directoryOf(KrImportPath::absolute(meshPath));
    const std::string last = KrImportPath::nameOf(file);
    std::vector<std::string> candidates;
    // A name that no file has is not looked for, so nothing is tried.
    if (file.empty() || last.empty() || file.size() > Kr::Limits::kPathBytes) {
        return "";
    }
    // Absolute paths are those of the exporter's machine, tried all the same; then the places where descriptions keep
    // images, by the file's own name.
    if (file[0] != '/') {
        candidates.push_back(KrImportPath::join(folder, file));
    } else {
        candidates.push_back(file);
    }
    for (const char* const place :
         {"", "textures", "../textures", "../materials/textures", "../../materials/textures"}) {
        candidates.push_back(KrImportPath::join(KrImportPath::join(folder, place), last));
    }
    for (const std::string& candidate : candidates) {
        // As it stands first: files whose names hold a percent sign exist.
        for (const std::string& path : {candidate, KrImportPath::percentDecoded(candidate)}) {
            tried.push_back(path);
            if (KrImportPath::isFile(path)) {
                return path;
            }
        }
    }
    return "";
}

bool KrMeshMaterials::setMeanColor(KrDataMap& data, const std::string& image)
{
    KrImage pixels;
    if (!pixels.readFile(image, KrImage::TopRowFirst)) {
        return false;
    }
    const KrColor mean = meanOf(pixels);
    const std::pair<const char*, double> channels[] = {
        {"Red", mean.red()}, {"Green", mean.green()}, {"Blue", mean.blue()}};
    // Both parts, because an image would have multiplied both.
    for (const char* const part : {"krAmbient", "krDiffuse"}) {
        for (const auto& [channel, factor] : channels) {
            double value = 0.0;
            if (data.real(std::string(part) + channel, value)) {
                data.setReal(std::string(part) + channel, value * factor);
            }
        }
    }
    return true;
}

void KrMeshMaterials::setTexture(KrDataMap& data, const std::string& image)
{
    data.setString("krTextureFilename", image);
    // Lighting still counts: the image multiplies what it gives.
    data.setString("krTextureEnvironmentMode", "GL_MODULATE");
}
