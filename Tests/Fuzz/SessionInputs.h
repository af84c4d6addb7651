// What the first byte of an input says of the others, for the fuzz targets of a session's files and for their seeds.
#pragma once

#include "Tests/Fuzz/Files.h"
#include "Tests/Fuzz/FitHashes.h"

#include <cstdint>

namespace Fuzz
{

// To be added where a container is chosen: the bytes are only what lies behind its header.
inline constexpr uint8_t sContainerData = 0x80;

struct ChosenInput
{
    ChosenInput(const uint8_t* inData, size_t inSize)
        : Choice(inSize > 0 ? inData[0] : uint8_t{0}),
          Content(inSize > 0 ? Bytes(inData + 1, inData + inSize) : Bytes())
    {
    }

    // The container that the input stands for, with hashes that fit. inSound is what it was made of.
    [[nodiscard]] Bytes MakeContainer(const Bytes& inSound) const
    {
        if ((Choice & sContainerData) != 0)
            return gReplaceContainerData(inSound, Content);
        Bytes container = Content;
        gMakeHashesFit(container);
        return container;
    }

    uint8_t Choice;
    Bytes Content;
};

enum class EEventStreamInput : uint8_t
{
    Index = 0,
    Data = 1,
    ChunkContent = 2, // behind the number of its events, as uint64
    PlainData = 3,
};
inline constexpr uint8_t sNumEventStreamInputs = 4;

enum class EBrokenStackInput : uint8_t
{
    Index = 0,
    Data = 1,
    ChunkContent = 2,
};
inline constexpr uint8_t sNumBrokenStackInputs = 3;

enum class ESessionInput : uint8_t
{
    SessionFile = 0,
    SessionFileAlone = 1, // without the file of the stacks
    SharedModel = 2,
    PlainEvents = 3, // events.dat in the plain layout
};
inline constexpr uint8_t sNumSessionInputs = 4;

// To be added to the above: the models can be loaded.
inline constexpr uint8_t sLoadableModels = sNumSessionInputs;

} // namespace Fuzz
