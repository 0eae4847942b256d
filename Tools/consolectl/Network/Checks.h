// What may keep a client and an MC from hearing each other: every check looks at one thing and says what it found.
#pragma once

#include "Network/Interface.h"
#include "Network/Options.h"

#include <string>
#include <vector>

enum enVerdict // the worst last
{
    enVerdictOk,
    enVerdictNote,
    enVerdictNotUsed,
    enVerdictWarning, // a client may work
    enVerdictFailed   // it can't
};

struct stFinding
{
    enVerdict enIs;
    std::string strSubject;
    std::string strFinding; // a line
    std::string strCommand; // to paste; empty when there is nothing to do
};
typedef std::vector<stFinding> tFindings;

// What the checks look at.
struct stExamined
{
    stExamined(const stMulticastLink& multicastLink, const std::string& strSchemaFile, double dLongest);

    // The interface that carries the updates; null when there is none, or the system doesn't tell.
    const stInterface* Chosen() const;

    const stMulticastLink link;
    const std::string strSchema;
    const double dTimeout; // of each wait, in seconds
    const std::vector<stInterface> interfaces;
    const std::string strAddress; // of the chosen interface; empty when there is none
};

tFindings CheckInterfaces(const stExamined& examined);
tFindings CheckChoice(const stExamined& examined);
tFindings CheckRoutes(const stExamined& examined);
tFindings CheckReversePath(const stExamined& examined);
tFindings CheckPorts(const stExamined& examined);
tFindings CheckMembership(const stExamined& examined);
tFindings CheckReceiveBuffer(const stExamined& examined);
tFindings CheckHops(const stExamined& examined);
tFindings CheckLoop(const stExamined& examined);
tFindings CheckRoundTrip(const stExamined& examined);
tFindings CheckMc(const stExamined& examined);
