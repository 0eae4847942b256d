// The parts of consolectl show.
#pragma once

#include "Network/Client.h"
#include "Terminal/Output.h"

#include <string>
#include <vector>

struct stShowOptions
{
    stClientOptions client;
    std::string strFile;
    std::string strName;
    std::vector<std::string> scope;
    std::vector<std::string> except;
    std::vector<std::string> safe;
    std::string strRecall;  // on, off or empty: as it is
    std::string strStore;   // off or empty
    int nCount = c_nEnough; // rows shown
    int nShows = 0;
    bool bReplace = false;
};

// Each returns the exit status. The first three bring a show and the MC together.
int RecallShow(const stShowOptions& options);
int PreviewShow(const stShowOptions& options);
int CompareShow(const stShowOptions& options);
int SaveShow(const stShowOptions& options);
int ScopeShow(const stShowOptions& options);
int ListShows(const stShowOptions& options);
int DeleteShow(const stShowOptions& options);
