#pragma once

#include <toolkit/material/KrDataMap.h>

#include <assimp/color4.h>

#include <string>
#include <vector>

struct aiMaterial;

/// What a material inside a mesh file looks like.
class KrMeshMaterials
{
public:
    struct Look
    {
        std::string name;            ///< as in the file; may be empty
        bool hasForeignName = false; ///< it was no UTF-8; it is read as Latin-1
        bool isOwn = true; ///< false for what a reader fills in where the file says nothing; `read` cannot tell
        KrDataMap data;    ///< ambient, diffuse, specular, emission, shininess
        double opacity = 1.0;
        std::string texture;     ///< of the diffuse colour, as in the file; empty without one
        bool isEmbedded = false; ///< the texture lies inside the mesh file
        unsigned int textureChannel = 0;
    };

    /// Reads what the mesh library made of a material; numbers outside [0, 1] are cut off, highlights kept faint.
    static Look read(const aiMaterial& material);
    /// That of a surface in one colour; alpha 0 is read as opaque.
    static Look ofColor(const aiColor4D& color);
    /// Of all four colours of a look; 0 is clear, 1 opaque.
    static void setOpacity(KrDataMap& data, double opacity);

    /// Where an image that a mesh names lies: beside the mesh, or where descriptions keep such images.
    ///
    /// @param tried  becomes every path that was tried
    /// @return empty when there is none
    static std::string findTexture(const std::string& meshPath, const std::string& name,
                                   std::vector<std::string>& tried);
    /// Multiplies the look's ambient and diffuse colour by the mean colour of an image, for surfaces that cannot bear
    /// it: each pixel counts by its opacity.
    /// @return false, after one message, and no change for an image that cannot be read
    static bool setMeanColor(KrDataMap& data, const std::string& image);
    /// Makes `image` the texture of a look; its colours are multiplied by the look's.
    static void setTexture(KrDataMap& data, const std::string& image);
};
