#include <opengl/FontManager.h>

#include <core/StringTools.h>

namespace Tavrin
{
namespace OpenGL
{
FontManager* FontManager::instance = nullptr;

FontManager* FontManager::getInstance()
{
    if (!instance)
        instance = new FontManager();
    return instance;
}

std::shared_ptr<Font> FontManager::getFont(const std::string& name)
{
    const std::string key = StringTools::trim(StringTools::toLower(name));
    const auto found = fonts.find(key);
    if (found != fonts.end())
        return found->second;
    auto font = std::make_shared<Font>(name);
    // Failed fonts stay out of the cache, so a later request tries again.
    if (!font->isValid())
        return nullptr;
    fonts[key] = font;
    return font;
}

void FontManager::dispose()
{
    instance = nullptr;
    delete this;
}
} // namespace OpenGL
} // namespace Tavrin
