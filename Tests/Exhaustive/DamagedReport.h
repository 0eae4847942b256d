// A golden diagnostics report, and the check of what the reader makes of it, whole or damaged.
#pragma once

#include "Diagnostics/DiagnosticsXMLReader.h"

#include "Exhaustive/GuardedBlock.h"

#include <string>

namespace Exhaustive
{

extern const char* const c_szReport;

class CReportCheck
{
public:
    // Parses the text, and reads it once more without filing it.
    bool Parse(const std::string& strText);

    // Whether all that the reader files and says of a text that it took stands between quotes in it.
    std::string Of(const std::string& strText);

    diagnostics_xml_reader& Reader() { return m_Reader; }

private:
    CGuardedBlock m_Block{4096};
    diagnostics_xml_reader m_Reader;
};

// Line ends and tabs count as blanks within quotes.
std::string Normalised(std::string strText);

} // namespace Exhaustive
