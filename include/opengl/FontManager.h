#pragma once

#include <opengl/Font.h>
#include <opengl/Platform.h>

#include <map>
#include <memory>
#include <string>

namespace Tavrin
{
namespace OpenGL
{
/// The process-wide cache of outline fonts: each face is built once and shared by every caller
/// that asks for it by name. A lazily created singleton that the host disposes of explicitly.
/// Not synchronised: use it on the rendering thread only.
class TAVRIN_OPENGL_EXPORT FontManager
{
public:
    /// The singleton, created with an empty cache when there is none.
    static FontManager* getInstance();

    /// The cached font for `name`, or a newly built one. Names are looked up lower-cased, then
    /// trimmed of leading and trailing white space, so "Arial" and " ARIAL\t" share one entry; a
    /// new font is built from `name` as given. A font that is not valid is returned as an empty
    /// pointer and not cached (the next request builds it again and prints its warning again).
    /// Needs a current rendering context, as building a font does.
    std::shared_ptr<Font> getFont(const std::string& name);

    /// Clears the singleton pointer and destroys this manager, dropping the cache's references.
    /// Fonts that callers still hold live on until their last pointer goes. Call it on the
    /// instance (FontManager::getInstance()->dispose()) and do not use the object afterwards;
    /// release the fonts while a context owning their display lists is current.
    void dispose();

    ///@{
    /// Member-wise: a copy shares the same font objects.
    FontManager(const FontManager&) = default;
    FontManager& operator=(const FontManager&) = default;
    ///@}

private:
    FontManager() = default;
    ~FontManager() = default;

    static FontManager* instance;

    std::map<std::string, std::shared_ptr<Font>> fonts;
};
} // namespace OpenGL
} // namespace Tavrin
