#pragma once

#include "Bundle.h"

/// A small DAE document; every member has a sensible default.
struct Collada
{
    std::string unit = "<unit meter=\"1\" name=\"meter\"/>";
    std::string upAxis = "Z_UP";
    std::string matrix = "1 0 0 0  0 1 0 0  0 0 1 0  0 0 0 1";
    /// One <triangles> per entry, each over all of `box`; the entry is its material symbol.
    std::vector<std::string> materials;
    /// Text of the material's <technique>, by the material's place.
    std::vector<std::string> techniques;
    std::vector<Corners> box = ::box(1.0, 2.0, 3.0);
    std::string normal; ///< of every corner; none written when empty
    bool hasCoordinates = false;
    std::string extraMesh;  ///< further primitives
    std::string extraNodes; ///< further nodes of the scene
    std::string libraries;  ///< further libraries: images, cameras, lights

    std::string text() const;

private:
    std::string sources() const;
    std::string triangles(const std::string& symbol) const;
};

inline std::string floats(const std::string& id, const std::string& values, std::size_t count, std::size_t stride,
                          const std::string& names)
{
    std::string params;
    for (const char name : names) {
        params += std::string("<param name=\"") + name + "\" type=\"float\"/>";
    }
    return "<source id=\"" + id + "\"><float_array id=\"" + id + "-a\" count=\"" + std::to_string(count * stride) +
           "\">" + values + "</float_array><technique_common><accessor source=\"#" + id + "-a\" count=\"" +
           std::to_string(count) + "\" stride=\"" + std::to_string(stride) + "\">" + params +
           "</accessor></technique_common></source>";
}

inline std::string Collada::sources() const
{
    std::string positions;
    for (const Corners& t : box) {
        for (const KrVector& v : t) {
            positions += ::text(v) + " ";
        }
    }
    return floats("p", positions, 3 * box.size(), 3, "XYZ") + (normal.empty() ? "" : floats("n", normal, 1, 3, "XYZ")) +
           (hasCoordinates ? floats("t", "0.25 0.75", 1, 2, "ST") : "") +
           "<vertices id=\"v\"><input semantic=\"POSITION\" source=\"#p\"/></vertices>";
}

inline std::string Collada::triangles(const std::string& symbol) const
{
    std::string indices;
    for (std::size_t i = 0; i < 3 * box.size(); ++i) {
        indices += std::to_string(i) + (normal.empty() ? " " : " 0 ") + (hasCoordinates ? "0 " : "");
    }
    return "<triangles count=\"" + std::to_string(box.size()) + "\"" +
           (symbol.empty() ? "" : " material=\"" + symbol + "\"") +
           "><input semantic=\"VERTEX\" source=\"#v\" offset=\"0\"/>" +
           (normal.empty() ? "" : "<input semantic=\"NORMAL\" source=\"#n\" offset=\"1\"/>") +
           (hasCoordinates ? std::string("<input semantic=\"TEXCOORD\" source=\"#t\" set=\"0\" offset=\"") +
                                 (normal.empty() ? "1" : "2") + "\"/>"
                           : "") +
           "<p>" + indices + "</p></triangles>";
}

inline std::string Collada::text() const
{
    std::string effects, library, bindings, primitives;
    for (std::size_t i = 0; i < materials.size(); ++i) {
        const std::string id = "m" + std::to_string(i);
        effects += "<effect id=\"" + id + "-e\"><profile_COMMON>" + techniques.at(i) + "</profile_COMMON></effect>";
        library += "<material id=\"" + id + "\" name=\"" + materials[i] + "\"><instance_effect url=\"#" + id +
                   "-e\"/></material>";
        bindings += "<instance_material symbol=\"" + id + "\" target=\"#" + id + "\"/>";
        primitives += triangles(id);
    }
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><COLLADA xmlns=\"http://www.collada.org/2005/11/COLLADASchema\" "
           "version=\"1.4.1\"><asset>" +
           unit + "<up_axis>" + upAxis + "</up_axis></asset>" + libraries + "<library_effects>" + effects +
           "</library_effects><library_materials>" + library +
           "</library_materials><library_geometries><geometry id=\"g\"><mesh>" + sources() +
           (materials.empty() ? triangles("") : primitives) + extraMesh +
           "</mesh></geometry></library_geometries><library_visual_scenes><visual_scene id=\"s\"><node id=\"b\">"
           "<matrix>" +
           matrix + "</matrix><instance_geometry url=\"#g\"><bind_material><technique_common>" + bindings +
           "</technique_common></bind_material></instance_geometry></node>" + extraNodes +
           "</visual_scene></library_visual_scenes><scene><instance_visual_scene url=\"#s\"/></scene></COLLADA>\n";
}

/// A lambert surface; `more` may add transparency.
inline std::string lambert(const std::string& rgba, const std::string& more = "")
{
    return "<technique sid=\"c\"><lambert><diffuse><color>" + rgba + "</color></diffuse>" + more +
           "</lambert></technique>";
}

inline std::string opacity(const std::string& value)
{
    return "<transparent opaque=\"A_ONE\"><color>1 1 1 1</color></transparent><transparency><float>" + value +
           "</float></transparency>";
}

/// A lambert surface with an image, which `textureLibrary` defines.
inline std::string textured()
{
    return "<newparam sid=\"su\"><surface type=\"2D\"><init_from>im</init_from></surface></newparam>"
           "<newparam sid=\"sa\"><sampler2D><source>su</source></sampler2D></newparam>"
           "<technique sid=\"c\"><lambert><diffuse><texture texture=\"sa\" texcoord=\"UVMap\"/></diffuse>"
           "</lambert></technique>";
}

inline std::string textureLibrary(const std::string& file)
{
    return "<library_images><image id=\"im\"><init_from>" + file + "</init_from></image></library_images>";
}
