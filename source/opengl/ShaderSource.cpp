#include <opengl/ShaderSource.h>

#include <core/FileLoader.h>
#include <core/FileTools.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace Tavrin
{
namespace OpenGL
{
namespace
{
const std::size_t maximumDepth = 32;
const char* const blanks = " \t\r";

// The position after `word` when `line` holds, after optional blanks, '#', optional blanks and
// `word`; npos otherwise.
std::size_t afterDirective(const std::string& line, const char* word)
{
    std::size_t at = line.find_first_not_of(blanks);
    if (at == std::string::npos || line[at] != '#')
        return std::string::npos;
    at = line.find_first_not_of(blanks, at + 1);
    const std::string name(word);
    if (at == std::string::npos || line.compare(at, name.size(), name) != 0)
        return std::string::npos;
    return at + name.size();
}

// True when `line` is `#include "name"`, optionally followed by a line comment; sets `name`.
bool includedName(const std::string& line, std::string& name)
{
    const std::size_t directive = afterDirective(line, "include");
    const std::size_t open = directive == std::string::npos ? directive : line.find_first_not_of(blanks, directive);
    if (open == std::string::npos || line[open] != '"')
        return false;
    const std::size_t close = line.find('"', open + 1);
    if (close == std::string::npos)
        return false;
    const std::size_t rest = line.find_first_not_of(blanks, close + 1);
    if (rest != std::string::npos && line.compare(rest, 2, "//") != 0)
        return false;
    name = line.substr(open + 1, close - open - 1);
    return true;
}

bool isVersion(const std::string& line)
{
    const std::size_t end = afterDirective(line, "version");
    return end != std::string::npos && (end == line.size() || line[end] == ' ' || line[end] == '\t');
}

// One spelling per file, so that cycles and second inclusions are recognised.
std::string normalised(const std::string& name)
{
    return std::filesystem::u8path(name).lexically_normal().generic_u8string();
}

std::string joined(const std::vector<std::string>& chain, const std::string& last)
{
    std::string text;
    for (const std::string& name : chain)
        text += name + " -> ";
    return text + last;
}

class Assembler
{
public:
    explicit Assembler(const FileLoader* loader) : loader(loader) {}

    ShaderSource run(const std::string& fileName)
    {
        insert(normalised(fileName));
        if (version.text.empty())
            return std::move(body);
        ShaderSource source;
        source.text = version.text + body.text;
        source.lines.push_back(version.line);
        source.files.push_back(version.file);
        source.lines.insert(source.lines.end(), body.lines.begin(), body.lines.end());
        source.files.insert(source.files.end(), body.files.begin(), body.files.end());
        source.filesRead = std::move(body.filesRead);
        return source;
    }

private:
    struct Version
    {
        std::string text;
        int line = 0;
        std::string file;
    };

    void insert(const std::string& file)
    {
        chain.push_back(file);
        body.filesRead.push_back(file);
        const std::string content = loader ? loader->loadFileAsString(file) : FileTools::loadFileAsString(file);
        int number = 0;
        for (std::size_t start = 0; start < content.size(); ++number)
        {
            const std::size_t end = std::min(content.find('\n', start), content.size());
            const std::string line = content.substr(start, end - start);
            start = end + 1;
            std::string name;
            if (includedName(line, name))
                include(file, number + 1, name);
            else if (!isVersion(line))
                append(line, file, number + 1);
            else if (version.text.empty())
                version = {line + "\n", number + 1, file};
        }
        chain.pop_back();
    }

    void include(const std::string& file, int line, const std::string& name)
    {
        const std::string where = " (asked for by " + file + " line " + std::to_string(line) + ")";
        const std::string included = resolve(file, name);
        if (included.empty())
            throw std::runtime_error("Include file '" + name + "' not found" + where);
        if (std::find(chain.begin(), chain.end(), included) != chain.end())
            throw std::runtime_error("Include cycle: " + joined(chain, included));
        if (std::find(body.filesRead.begin(), body.filesRead.end(), included) != body.filesRead.end())
            return;
        if (chain.size() >= maximumDepth)
            throw std::runtime_error("Includes nested deeper than " + std::to_string(maximumDepth) + where);
        insert(included);
    }

    // The including file's directory first, then the name as it stands; empty when neither exists.
    std::string resolve(const std::string& file, const std::string& name) const
    {
        const std::size_t slash = file.rfind('/');
        const std::string relative = normalised(file.substr(0, slash == std::string::npos ? 0 : slash + 1) + name);
        if (FileTools::fileExists(relative, loader))
            return relative;
        const std::string direct = normalised(name);
        return FileTools::fileExists(direct, loader) ? direct : std::string();
    }

    void append(const std::string& line, const std::string& file, int number)
    {
        body.text += line + "\n";
        body.lines.push_back(number);
        body.files.push_back(file);
    }

    const FileLoader* loader;
    std::vector<std::string> chain; // the files being inserted, outermost first
    Version version;
    ShaderSource body; // everything but the version line
};
} // namespace

ShaderSource ShaderSource::assemble(const std::string& fileName, const FileLoader* loader)
{
    return Assembler(loader).run(fileName);
}

std::vector<int> ShaderSource::linesFor(Program::Vendor vendor) const
{
    std::vector<int> numbers = lines;
    if (vendor == Program::NVIDIA)
        for (int& number : numbers)
            --number;
    return numbers;
}
} // namespace OpenGL
} // namespace Tavrin
