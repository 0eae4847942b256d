// Diagnostics reports of devices: made from values, and shown as a table.
#pragma once

#include "LogicalControls.h"

#include <string>
#include <vector>

constexpr unsigned int c_unReportPort = 7070;

struct stReportedValue
{
    int nNumber;
    std::string strValue;
    std::string strSecond = "0";
};

// "enUpTime=1234", "0=1234" or "0=1234,7". Throws stWrongUse with one line that says what is wrong.
stReportedValue ParseReportedValue(const std::string& strText);

// Empty, or which characters a text of a report must not hold.
std::string CheckReportText(const std::string& strText);

std::string MakeReport(const std::string& strDevice, int nId, const std::vector<stReportedValue>& values);

// The health of a device that has nothing to complain of.
std::vector<stReportedValue> SampleValues();

// Parses a report and fills the map, by the reader's steps: none of them prints a text of the report. False when it has no
// parameters, or is none.
bool ReadReport(diagnostics_xml_reader& reader, char* pBuffer, int nSize);

// "SURFACE 3"; a long name is cut, and ends in "...".
std::string DeviceText(const diagnostics_xml_reader& reader);

// A line of strHeading, then one for each parameter in the reader's map; to programs the latter alone. A report in a file has no
// sender.
void PrintReport(const std::string& strHeading, const diagnostics_xml_reader& reader, const std::string& strSender = "");
