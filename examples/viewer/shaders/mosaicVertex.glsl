#include "common.glsl"
// Fixed-function style pass-through: the devices draw their quad in immediate mode.
void main()
{
    gl_Position = gl_ModelViewProjectionMatrix * gl_Vertex;
    gl_TexCoord[0] = gl_MultiTexCoord0;
}
