// A client of the MC, as several subcommands are one.
#pragma once

#include "Images/Address.h"
#include "Network/Options.h"

#include "LogicalControls.h"

#include <string>
#include <vector>

// Opens a follower's link: empty, or what went wrong.
std::string OpenLink(CImageFollower& follower, const stMulticastLink& link);

std::string NoImageText(const stMulticastLink& link, double dSeconds);

struct stClientOptions
{
    stMulticastLink link;
    double dTimeout = 5;
    bool bDirect = false; // a datagram a change, instead of the queue
};

// The link's options and --timeout.
void AddClientOptions(CCommand& command, stClientOptions& options);
void AddDirectOption(CCommand& command, stClientOptions& options);

// An image that follows the MC, and changes that go to it. Failures are told on standard error; what returns an exit status
// returns enExitDone when all is well.
class CClient
{
public:
    explicit CClient(const stClientOptions& options);
    ~CClient();

    CBMAContainer& Image() { return m_Image; }
    const std::string& Sender() const { return m_strSender; } // of the last update

    // Opens the link and waits until the MC's updates have brought these message types (bit t for type t).
    int Open(unsigned int unTypes = c_unWholeImage);

    // Sends changes, and those again that don't show in the MC's updates, until each of them has shown. Of several for one
    // parameter the last counts; what the image shows already is not sent.
    int Send(const std::vector<stChange>& changes);

    // Of all Send calls: how many changes were sent at first, and how many were sent again.
    long GetSent() const { return m_lSent; }
    long GetResent() const { return m_lResent; }

private:
    bool Update();

    const stClientOptions& m_Options;
    CBMAContainer m_Image;
    CImageFollower m_Follower;
    std::string m_strSender;
    long m_lSent = 0;
    long m_lResent = 0;
};
