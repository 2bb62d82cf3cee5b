#pragma once

/// The programs that draw marks into a texture (GLSL 1.20, which every context has that has framebuffer objects). For
/// use inside the library.
namespace KrMarkShaders
{

inline constexpr const char* kFlatVertexShader = R"(#version 120
varying vec2 place;
void main()
{
    place = gl_Vertex.xy;
    gl_TexCoord[0] = gl_MultiTexCoord0;
    gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex;
}
)";

// The distance to the whole polyline decides, so that joints and crossings are no darker than the rest.
inline constexpr const char* kStrokeFragmentShader = R"(#version 120
uniform sampler2D points;
uniform int numPoints;
uniform float radius;
uniform float hardness;
uniform vec4 brushColor;
varying vec2 place;
vec2 point(int i) { return texture2D(points, vec2((float(i) + 0.5) / float(numPoints), 0.5)).xy; }
void main()
{
    vec2 start = point(0);
    float nearest = distance(place, start);
    for (int i = 1; i < numPoints; ++i) {
        vec2 end = point(i);
        vec2 along = end - start;
        float t = clamp(dot(place - start, along) / max(dot(along, along), 1.0e-20), 0.0, 1.0);
        nearest = min(nearest, distance(place, start + t * along));
        start = end;
    }
    float d = nearest / radius;
    if (d >= 1.0) discard;
    gl_FragColor = vec4(brushColor.rgb, brushColor.a * (1.0 - smoothstep(min(hardness, 0.999), 1.0, d)));
}
)";

inline constexpr const char* kStampFragmentShader = R"(#version 120
uniform sampler2D picture;
uniform float opacity;
void main()
{
    vec4 color = texture2D(picture, gl_TexCoord[0].xy);
    gl_FragColor = vec4(color.rgb, color.a * opacity);
}
)";

// The surface is unrolled: its texture coordinates are where it is drawn.
inline constexpr const char* kProjectionVertexShader = R"(#version 120
uniform mat4 localToClip;
varying vec4 projected;
void main()
{
    projected = localToClip * gl_Vertex;
    gl_Position = vec4(gl_MultiTexCoord0.xy * 2.0 - 1.0, 0.0, 1.0);
}
)";

inline constexpr const char* kProjectionFragmentShader = R"(#version 120
uniform sampler2D depths;
uniform sampler2D picture;
uniform bool hasPicture;
uniform float hardness;
uniform vec4 brushColor;
varying vec4 projected;
void main()
{
    if (projected.w <= 0.0) discard;
    vec3 place = projected.xyz / projected.w;
    if (max(max(abs(place.x), abs(place.y)), abs(place.z)) > 1.0) discard;
    vec3 window = place * 0.5 + 0.5;
    if (window.z > texture2D(depths, window.xy).r) discard;
    vec4 color = brushColor;
    if (hasPicture) {
        vec4 texel = texture2D(picture, window.xy);
        color = vec4(texel.rgb, texel.a * brushColor.a);
    } else {
        color.a *= 1.0 - smoothstep(min(hardness, 0.999), 1.0, length(place.xy));
    }
    gl_FragColor = color;
}
)";

} // namespace KrMarkShaders
