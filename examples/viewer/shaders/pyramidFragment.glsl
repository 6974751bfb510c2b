// Level 0 copies the image; each further level averages the 2x2 texels below it.
uniform FramebufferDeviceStep framebufferDeviceStep;
uniform sampler2D image;
uniform sampler2D pyramidTexture2DFramebufferTexture2D;

out vec4 colour;

void main()
{
    ivec2 texel = ivec2(gl_FragCoord.xy);
    int level = framebufferDeviceStep.mipLevelIndex;
    if (level == 0)
    {
        colour = texelFetch(image, texel, 0);
        return;
    }
    ivec2 below = textureSize(pyramidTexture2DFramebufferTexture2D, level - 1) - 1;
    vec4 sum = vec4(0.0);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x)
            sum += texelFetch(pyramidTexture2DFramebufferTexture2D, min(texel * 2 + ivec2(x, y), below), level - 1);
    colour = sum * 0.25;
}
