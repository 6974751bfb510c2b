#version 430 compatibility
// Shared by every stage of the viewer: each stage file includes it first, and compile messages
// name either file with its own line numbers.

struct FramebufferDeviceStep
{
    int mipLevelCount;
    int stepCount;
    int layerCount;
    int index;
    ivec2 resolution;
    int mipLevelIndex;
};

float luminance(vec3 colour)
{
    return dot(colour, vec3(0.2126, 0.7152, 0.0722));
}
