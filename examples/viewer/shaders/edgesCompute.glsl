#include "common.glsl"
// Sobel edge magnitude of the image's luminance, tinted by the gradient direction.
layout(local_size_x = 16, local_size_y = 16) in;
uniform sampler2D image;
layout(rgba8) uniform writeonly image2D edges;

float lumaAt(ivec2 texel)
{
    ivec2 last = textureSize(image, 0) - 1;
    return luminance(texelFetch(image, clamp(texel, ivec2(0), last), 0).rgb);
}

void main()
{
    ivec2 texel = ivec2(gl_GlobalInvocationID.xy);
    if (any(greaterThanEqual(texel, imageSize(edges))))
        return;
    float gx = 0.0, gy = 0.0;
    const float weights[3] = float[3](1.0, 2.0, 1.0);
    for (int i = -1; i <= 1; ++i)
    {
        gx += weights[i + 1] * (lumaAt(texel + ivec2(1, i)) - lumaAt(texel + ivec2(-1, i)));
        gy += weights[i + 1] * (lumaAt(texel + ivec2(i, 1)) - lumaAt(texel + ivec2(i, -1)));
    }
    float magnitude = clamp(length(vec2(gx, gy)) * 0.5, 0.0, 1.0);
    vec2 direction = normalize(vec2(gx, gy) + vec2(1e-6));
    vec3 tint = mix(vec3(1.0), vec3(0.5 + 0.5 * direction, 1.0), 0.6);
    imageStore(edges, texel, vec4(tint * magnitude, 1.0));
}
