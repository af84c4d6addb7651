// An import report for people and for programs.
#pragma once

#include "Host/CommandLine/JSONOutput.h"
#include "Host/Import/ImportReport.h"

#include <string>

namespace Host
{

// Lines of text. Symbol failures are a table at the end.
[[nodiscard]] std::string gFormatReport(const ImportReport& inReport);

// The members of a JSON object that has been begun.
void gWriteReport(JSONWriter& ioWriter, const ImportReport& inReport);

} // namespace Host
