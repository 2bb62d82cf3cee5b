#version 120

// Ray casting of a plume, vertex stage: the ray that leaves the plume's box at a point of its surface.
//
// Volume coordinates run from 0 to 1 along each edge of the box; the texture coordinate of unit 0 is a vertex's place
// in them. The varyings of the ray are linear over a face, so their interpolation is exact.

varying vec3 rayEnd;       // where the ray leaves the box, volume coordinates
varying vec3 rayDirection; // along the box's edges, m; where there is an eye point, the whole way from it to rayEnd
varying float rayEndZ;     // of rayEnd, eye coordinates, m
varying float hasEyePoint; // 1 where the rays start at one point, 0 where they are parallel

void main()
{
    rayEnd = gl_MultiTexCoord0.xyz;
    rayEndZ = (gl_ModelViewMatrix * gl_Vertex).z;

    // Only a perspective projection takes its divisor from z.
    if (gl_ProjectionMatrix[2][3] != 0.0) {
        hasEyePoint = 1.0;
        rayDirection = gl_Vertex.xyz - (gl_ModelViewMatrixInverse * vec4(0.0, 0.0, 0.0, 1.0)).xyz;
    } else {
        hasEyePoint = 0.0;
        rayDirection = (gl_ModelViewMatrixInverse * vec4(0.0, 0.0, -1.0, 0.0)).xyz;
    }
    gl_Position = ftransform();
}
