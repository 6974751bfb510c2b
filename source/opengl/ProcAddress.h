#pragma once

// Internal: the platform's GL entry-point lookup (wglGetProcAddress, glXGetProcAddressARB).

namespace Tavrin
{
namespace OpenGL
{
namespace Detail
{
void* getProcAddress(const char* name);
} // namespace Detail
} // namespace OpenGL
} // namespace Tavrin
