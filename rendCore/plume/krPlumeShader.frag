#version 120

// Ray casting of a plume, fragment stage: marches through a field of scalar values from where a ray enters the field's
// box (or from the eye, when that is inside) to where it leaves it or meets a solid, and composites colours front to
// back. The result is to be blended over what is there, its colour being multiplied by its opacity already.
//
// Transfer function. With (x, y, z) = inflection, a value's level is 0 up to x, 1/2 at y and 1 from z on, with straight
// lines between; cells up to x are empty. An inflection with z <= x counts as (0, 1/2, 1), a y that is not between x and
// z as their middle.
//     colour   the lookup table's, from its first entry at level 0 to its last at level 1
//     opacity  a ray that runs the length of the box's longest edge through one level keeps exp(-lutFactor * w) of the
//              light behind it, w = level^2 (3 - 2 level): a curve whose point of inflection is at level 1/2
// The look does not depend on the size of the box, nor on that of its cells.

uniform sampler3D texture0; // values, in the first component
uniform sampler1D texture1; // colours
uniform vec3 texSize;       // cells along each edge of the box
uniform vec3 scaleFactor;   // edges of the box, m
uniform float lutFactor;
uniform vec3 inflection;
uniform sampler2D sceneDepth; // window depth of the solids
uniform vec4 sceneDepthArea;  // the lower left pixel of its picture, and 1 / its size; 0 where it has none
uniform float plumeAlpha;     // multiplies every opacity
uniform sampler3D blockMaxima; // the greatest value that the field reaches anywhere in a block of cells
uniform float blockEdge;       // cells along each edge of a block; 0 where there are no maxima

varying vec3 rayEnd;
varying vec3 rayDirection;
varying float rayEndZ;
varying float hasEyePoint;

const float stepsPerCell = 2.0;
const float maxSteps = 2048.0;       // a ray through more cells than half of this takes longer steps
const float opaqueRemainder = 0.01;  // less light than this from behind is none
const float maxHalf = 65504.0;       // the greatest finite value of the field's texture
const float smallestEdge = 1.0e-6;   // m; a flat box has no zero to divide by

// Where the level is 0, 1/2 and 1.
vec3 levelBends()
{
    vec3 bends = inflection.z > inflection.x ? inflection : vec3(0.0, 0.5, 1.0);
    if (bends.y <= bends.x || bends.y >= bends.z) {
        bends.y = 0.5 * (bends.x + bends.z);
    }
    return bends;
}

// Where inside the transfer function a value above its beginning lies: above 0 (empty) to 1.
float levelOf(float value, vec3 bends)
{
    if (value < bends.y) {
        return 0.5 * (value - bends.x) / (bends.y - bends.x);
    }
    return min(0.5 + 0.5 * (value - bends.y) / (bends.z - bends.y), 1.0);
}

// A value in [0, 1) for each pixel, evenly spread among neighbours: interleaved gradient noise (J. Jimenez, SIGGRAPH
// 2014 course "Advances in real-time rendering in games").
float noise(vec2 pixel)
{
    return fract(52.9829189 * fract(dot(pixel, vec2(0.06711056, 0.00583715))));
}

// How much of rayDirection lies behind the solid that stands in this pixel, counted back from rayEnd; negative when
// there is none or it stands behind the box.
float partBehindSolid()
{
    if (sceneDepthArea.z == 0.0) {
        return -1.0;
    }
    float depth = texture2D(sceneDepth, (gl_FragCoord.xy - sceneDepthArea.xy) * sceneDepthArea.zw).r;
    if (depth >= gl_DepthRange.far) {
        return -1.0;
    }
    float z = (2.0 * depth - gl_DepthRange.near - gl_DepthRange.far) / gl_DepthRange.diff;
    // From normalised device coordinates to the eye's: the z and w rows of the projection matrix, solved for z.
    mat4 m = gl_ProjectionMatrix;
    float solidZ = (m[3][3] * z - m[3][2]) / (m[2][2] - m[2][3] * z);
    return hasEyePoint > 0.5 ? 1.0 - solidZ / rayEndZ : solidZ - rayEndZ;
}

// The part of the ray that is inside the box and in front of solids, volume coordinates. `start` is where it begins;
// a ray of no length begins behind a solid.
vec3 visibleRay(out vec3 start)
{
    vec3 isFlat = vec3(lessThan(abs(scaleFactor), vec3(smallestEdge)));
    vec3 direction = rayDirection / (scaleFactor + isFlat * smallestEdge);
    direction += vec3(lessThan(abs(direction), vec3(1.0e-7))) * 1.0e-7;
    // Backwards from the end, each pair of faces is met after its own part of the direction; the first one bounds.
    vec3 parts = (rayEnd - vec3(lessThan(direction, vec3(0.0)))) / direction;
    float part = max(min(parts.x, min(parts.y, parts.z)), 0.0);
    part = hasEyePoint > 0.5 ? min(part, 1.0) : part;
    start = rayEnd - direction * part;
    return direction * max(part - max(partBehindSolid(), 0.0), 0.0);
}

// How many steps the block around a place goes on along a ray, and the greatest value in it.
float stepsInBlock(vec3 place, vec3 stride, out float greatest)
{
    vec3 blocks = texSize / blockEdge; // the last one of an edge may be cut
    vec3 block = floor(place * blocks);
    vec3 ends = (block + vec3(greaterThan(stride, vec3(0.0)))) / blocks;
    vec3 parts = (ends - place) / stride;
    greatest = texture3D(blockMaxima, (block + 0.5) / ceil(blocks)).r;
    return max(min(parts.x, min(parts.y, parts.z)), 1.0e-3);
}

// Colour, multiplied by opacity, and opacity of what lies along a ray.
vec4 march(vec3 start, vec3 ray)
{
    float longestEdge = max(max(abs(scaleFactor.x), abs(scaleFactor.y)), max(abs(scaleFactor.z), smallestEdge));
    float steps = clamp(ceil(stepsPerCell * length(ray * texSize)), 1.0, maxSteps);
    float depthPerStep = lutFactor * length(ray * scaleFactor) / (longestEdge * steps);
    vec3 stride = ray / steps;
    vec3 bends = levelBends();

    vec3 color = vec3(0.0);
    float remainder = 1.0;
    // Rays start at different parts of a step: what would be rings is fine grain. So is what is thinner than a step,
    // which only some of the rays meet.
    float at = noise(gl_FragCoord.yx + 47.0);
    float blockEnd = blockEdge > 0.0 ? 0.0 : steps;
    float greatest = 2.0 * maxHalf;
    while (at < steps && remainder > opaqueRemainder) {
        vec3 place = start + stride * at;
        if (at >= blockEnd) {
            float ahead = stepsInBlock(place, stride, greatest);
            blockEnd = at + ahead;
            if (!(greatest > bends.x)) {
                at += ceil(ahead);
                continue;
            }
        }
        float value = texture3D(texture0, place).r;
        // Between infinite values interpolation may give one that is no number: the block tells which they are.
        if (!(abs(value) <= maxHalf)) {
            value = greatest > maxHalf ? max(bends.z, maxHalf) : bends.x;
        }
        if (value > bends.x) {
            float level = levelOf(value, bends);
            float kept = exp(-depthPerStep * level * level * (3.0 - 2.0 * level));
            color += remainder * (1.0 - kept) * texture1D(texture1, level).rgb;
            remainder *= kept;
        }
        at += 1.0;
    }
    // The rest of a ray that ended early would add about the same colour: nothing of it stays out.
    float opacity = 1.0 - remainder;
    return remainder > opaqueRemainder ? vec4(color, opacity) : vec4(color / opacity, 1.0);
}

void main()
{
    // Faces look into the box: this leaves one fragment for a ray, the one where it leaves, wherever the eye is.
    if (!gl_FrontFacing) {
        discard;
    }
    vec3 start;
    vec3 ray = visibleRay(start);
    if (ray == vec3(0.0)) {
        discard;
    }
    gl_FragColor = plumeAlpha * march(start, ray);
}
