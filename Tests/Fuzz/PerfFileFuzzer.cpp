// Any bytes as a perf.data file: opened, scanned, merged and decoded to the last field.
#include "Tests/Host/PerfCaptureReader.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData, size_t inSize)
{
    const Host::PerfCaptureReader capture(std::vector<uint8_t>(inData, inData + inSize));
    if (capture.IsOpen != capture.GetError().empty())
        std::abort();
    if (!capture.IsOpen)
        return 0;
    if (capture.Ordered.size() != capture.Stream->GetRecordCount())
        std::abort();
    for (size_t i = 1; i < capture.Ordered.size(); ++i)
        if (capture.Ordered[i].Time < capture.Ordered[i - 1].Time)
            std::abort();
    return 0;
}
