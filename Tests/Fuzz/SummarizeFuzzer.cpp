// Any bytes through the whole of `summarize`: reader, importer, dispatcher, open bars, summary and its two texts.
#include "Host/CommandLine/SummaryText.h"
#include "Tests/Support/SummaryPass.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* inData,
                                      size_t inSize) // NOLINT(readability-identifier-naming): libFuzzer's name
{
    static System::JobScheduler sScheduler(1);
    Host::Summary summary;
    Utility::ErrorState errors;
    if (Host::SummaryPass(sScheduler).Run({inData, inSize}, summary, errors))
    {
        static_cast<void>(Host::gFormatSummary(summary));
        static_cast<void>(Host::gFormatSummaryAsJSON(summary));
    }
    return 0;
}
