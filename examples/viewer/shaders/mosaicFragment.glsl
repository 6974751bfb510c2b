#include "common.glsl"
// Lays the pyramid out for viewing: level 0 on the left, the smaller levels stacked on the right.
uniform FramebufferDeviceStep framebufferDeviceStep;
uniform sampler2D pyramid;
uniform int levelCount;

out vec4 colour;

void main()
{
    ivec2 texel = ivec2(gl_FragCoord.xy);
    ivec2 base = textureSize(pyramid, 0);
    colour = vec4(0.08, 0.08, 0.1, 1.0);
    if (texel.x < base.x)
    {
        colour = texelFetch(pyramid, texel, 0);
        return;
    }
    int top = base.y;
    for (int level = 1; level < levelCount; ++level)
    {
        ivec2 size = textureSize(pyramid, level);
        ivec2 local = ivec2(texel.x - base.x, texel.y - (top - size.y));
        if (all(greaterThanEqual(local, ivec2(0))) && all(lessThan(local, size)))
            colour = texelFetch(pyramid, local, level);
        top -= size.y;
    }
}
