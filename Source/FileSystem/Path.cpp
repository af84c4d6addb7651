#include "FileSystem/Path.h"

#include "Utility/Text.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace FileSystem
{
namespace
{

constexpr std::string_view sSeparators = "/\\";
constexpr char sSeparator = '/';

constexpr bool gIsSeparator(char inCharacter)
{
    return sSeparators.find(inCharacter) != std::string_view::npos;
}

// The stack of components that is left when "." and ".." are resolved.
std::vector<std::string> gResolveDots(std::vector<std::string> inComponents)
{
    std::vector<std::string> stack;
    for (std::string& component : inComponents)
    {
        if (component == ".")
            continue;
        if (component == ".." && !stack.empty() && stack.back() != "..")
            stack.pop_back();
        else
            stack.push_back(std::move(component));
    }
    return stack;
}

} // namespace

std::string gGetDirectory(std::string_view inPath)
{
    const size_t separator = inPath.find_last_of(sSeparators);
    return separator == std::string_view::npos ? std::string() : std::string(inPath.substr(0, separator));
}

std::string gGetFileName(std::string_view inPath)
{
    const size_t separator = inPath.find_last_of(sSeparators);
    return std::string(separator == std::string_view::npos ? inPath : inPath.substr(separator + 1));
}

std::string gGetFileStem(std::string_view inPath)
{
    std::string name = gGetFileName(inPath);
    if (const size_t dot = name.rfind('.'); dot != std::string::npos)
        name.resize(dot);
    return name;
}

std::string gGetExtension(std::string_view inPath)
{
    const size_t dot = inPath.rfind('.');
    return dot == std::string_view::npos ? std::string() : Utility::gToLower(inPath.substr(dot + 1));
}

std::string gChangeExtension(std::string_view inPath, std::string_view inExtension)
{
    std::string path(inPath.substr(0, inPath.rfind('.')));
    path += '.';
    path += inExtension;
    return path;
}

std::string gChangeStem(std::string_view inPath, std::string_view inStem)
{
    std::string name(inStem);
    if (const std::string extension = gGetExtension(inPath); !extension.empty())
        name += '.' + extension;
    const bool hasSeparator = inPath.find_first_of(sSeparators) != std::string_view::npos;
    return hasSeparator ? gCombinePath(gGetDirectory(inPath), name) : name;
}

std::string gChangeFileName(std::string_view inPath, std::string_view inName)
{
    return gCombinePath(gGetDirectory(inPath), inName);
}

void gSplitPath(std::string_view inPath, std::vector<std::string>& outComponents)
{
    std::vector<std::string> components;
    for (size_t begin = 0; (begin = inPath.find_first_not_of(sSeparators, begin)) != std::string_view::npos;)
    {
        const size_t end = std::min(inPath.find_first_of(sSeparators, begin), inPath.size());
        components.emplace_back(inPath.substr(begin, end - begin));
        begin = end;
    }
    if (gIsAbsolutePath(inPath))
    {
        if (components.empty())
            components.emplace_back();
        components.front().insert(0, 1, sSeparator);
    }
    outComponents = std::move(components);
}

std::string gNormalizePath(std::string_view inPath, char inSeparator)
{
    std::vector<std::string> components;
    gSplitPath(inPath, components);
    components = gResolveDots(std::move(components));

    std::string path;
    for (size_t i = 0; i < components.size(); ++i)
    {
        if (i != 0)
            path += inSeparator;
        path += components[i];
    }
    return path;
}

std::string gCombinePath(std::string_view inFirst, std::string_view inSecond)
{
    std::string first = gNormalizePath(inFirst);
    std::string second = gNormalizePath(inSecond);
    if (first.empty())
        return second;
    if (second.empty())
        return first;

    const bool firstEnds = gIsSeparator(first.back());
    const bool secondStarts = gIsSeparator(second.front());
    if (firstEnds && secondStarts)
        second.erase(0, 1);
    else if (!firstEnds && !secondStarts)
        first += sSeparator;
    return gNormalizePath(first + second);
}

std::string gToForwardSlashes(std::string_view inPath)
{
    std::string path(inPath);
    std::replace(path.begin(), path.end(), '\\', sSeparator);
    return path;
}

bool gIsAbsolutePath(std::string_view inPath)
{
    return !inPath.empty() && inPath.front() == sSeparator;
}

std::string gGetComparablePath(std::string_view inPath)
{
    std::string path(inPath);
    for (char& character : path)
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    std::replace(path.begin(), path.end(), '\\', sSeparator);
    if (!path.empty() && path.back() == sSeparator)
        path.pop_back();
    return path;
}

bool gArePathsEqual(std::string_view inFirst, std::string_view inSecond)
{
    return gGetComparablePath(inFirst) == gGetComparablePath(inSecond);
}

} // namespace FileSystem
