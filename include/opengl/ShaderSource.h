#pragma once

#include <opengl/Platform.h>
#include <opengl/Program.h>

#include <string>
#include <vector>

namespace Tavrin
{
class FileLoader;

namespace OpenGL
{
/// A GLSL source assembled from a file and the files it includes, with the origin of each of
/// its lines, so that a compile log can name the file and line where the offending text
/// stands (Shader::mapInfoLog, Program::loadFromFileWithIncludes). No GL is involved.
class TAVRIN_OPENGL_EXPORT ShaderSource
{
public:
    /// Reads `fileName` (through `loader`, or from the file system without one) and replaces
    /// every line of the form `#include "name"` (blanks allowed around '#' and before the
    /// name, a `//` comment after it) by the text of that file, recursively. The name is
    /// looked up relative to the including file's directory first, then as it stands (through
    /// the loader, or from the working directory). File names are lexically normalised with
    /// '/' separators ("shaders/lib/../common.glsl" is "shaders/common.glsl").
    ///
    /// - The first `#version` line met becomes line 1 of the text, as GLSL requires; any later
    ///   one (an included file's own) is dropped.
    /// - A file included a second time, by any path, is inserted only the first time: its
    ///   later `#include` lines give nothing (so shared helpers can be included by several
    ///   files of one stage without redefinitions).
    /// - Lines are read one by one: an `#include` inside a block comment or an inactive `#if`
    ///   branch is resolved all the same; other `#include` forms pass to the compiler as they
    ///   stand.
    ///
    /// Throws std::runtime_error: "Include file 'name' not found (asked for by FILE line N)";
    /// "Include cycle: a.glsl -> b.glsl -> a.glsl" for a file that includes itself through
    /// others; "Includes nested deeper than 32 (asked for by FILE line N)" (which also ends chains of ever
    /// longer names for one file, such as "../" repeated); and whatever reading a file throws
    /// ("Cannot read file 'name'").
    static ShaderSource assemble(const std::string& fileName, const FileLoader* loader = nullptr);

    /// `lines` in the convention of `vendor`'s log form, for Shader::checkStatus and
    /// Shader::mapInfoLog: each number less one for NVIDIA (whose form prints the stored line
    /// plus one), as they are for ATI. Every form, Mesa's included, then names the file's line.
    std::vector<int> linesFor(Program::Vendor vendor) const;

    /// The assembled text; every line ends with "\n".
    std::string text;
    /// For line k + 1 of `text`: its line number in its file, counted from 1.
    std::vector<int> lines;
    /// For line k + 1 of `text`: the name of the file it came from.
    std::vector<std::string> files;
    /// Every file read, each once, in the order first read (the assembled file first).
    std::vector<std::string> filesRead;
};
} // namespace OpenGL
} // namespace Tavrin
