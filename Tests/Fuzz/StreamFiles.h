// What the fuzz targets for the two streams of a session share: the events and the broken stacks, each an index and its data.
#pragma once

#include "Tests/Fuzz/SessionInputs.h"
#include "Tests/Fuzz/SessionWorld.h"

#include <string>
#include <utility>

namespace Fuzz
{

// The files "NAME.index" and "NAME.dat" of a stream, and the folder in which a target puts one of its own in their place.
struct StreamFiles
{
    explicit StreamFiles(std::string inName) : Name(std::move(inName))
    {
        const Folder sound;
        const SessionWorld world(sound);
        Index = sound.Read(Name + ".index");
        Data = sound.Read(Name + ".dat");
        PlainData = gMakePlainRecords(sound);
    }

    // Leaves these two files, and gives them.
    Files Replace(const Bytes& inIndex, const Bytes& inData) const
    {
        Files files = {{Name + ".index", inIndex}, {Name + ".dat", inData}};
        Place.ReplaceAll(files);
        return files;
    }

    const std::string Name;
    const Folder Place;
    Bytes Index;
    Bytes Data;
    Bytes PlainData; // of the events
};

} // namespace Fuzz
