// What a host's way of capturing is set up with, and what it reports while a capture starts.
//
// Threads and ownership: the host's, which derives its own records from CaptureInitProgress.
#pragma once

#include "RTTI/Declare.h"
#include "RTTI/Object.h"

#include <string>

namespace Profiler
{

struct CaptureMethodConfiguration
{
    std::string DisplayName;
};

class CaptureInitProgress : public RTTI::Object
{
public:
    const RTTI::Type& GetType() const override;
};

} // namespace Profiler

RTTI_DECLARE(Profiler::CaptureMethodConfiguration);
RTTI_DECLARE(Profiler::CaptureInitProgress);
