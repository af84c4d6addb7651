#include "Host/Linux/ReadFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace Host
{

namespace
{

constexpr size_t sPieceSize = 256 * 1024;

} // namespace

bool gReadFileInPieces(const std::string& inPath, const std::function<void(std::span<const char>)>& inTake)
{
    const int descriptor = open(inPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;

    std::vector<char> piece(sPieceSize);
    ssize_t size = 0;
    do
    {
        size = read(descriptor, piece.data(), piece.size());
        if (size > 0)
            inTake({piece.data(), static_cast<size_t>(size)});
    } while (size > 0 || (size < 0 && errno == EINTR));
    close(descriptor);
    return size == 0;
}

bool gReadWholeFile(const std::string& inPath, std::string& outText)
{
    outText.clear();
    return gReadFileInPieces(inPath, [&](std::span<const char> inPiece) { outText.append(inPiece.data(), inPiece.size()); });
}

} // namespace Host
