// A console as it comes: every parameter at its default, every path with its first name. No network.
#include "LogicalControls.h"

#include <cstdio>
#include <memory>

int main()
{
    const auto image = std::make_unique<CBMAContainer>();
    ApplyDefaults(*image);

    for (tagenVirtualPathType group : {enMicInput, enAuxReturn, enMaster, enVCAGroups, enKestrelDevice})
    {
        RyGConsoleString shortName;
        RyGConsoleString longName;
        image->GetPPC(enString, group, 2, 0, shortName);
        image->GetPPC(enString, group, 2, 1, longName);
        std::printf("%s 3: \"%s\", \"%s\"\n", caParameterGroupNames[group], shortName.Text().c_str(), longName.Text().c_str());
    }

    // One default by its address; false when there is no such parameter.
    float level = 0;
    if (GetDefaultPPC(enFader, enMicInput, canCommonParamTypesTable[enCommonFader][enMicInput], level))
    {
        std::printf("a mic input's fader starts at %.1f dB\n", double(level));
    }
}
