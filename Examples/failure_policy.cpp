// Checks an invariant through a failure policy: reports it with a stack, and goes on. No network.
#include "LogicalControls.h"

// The policy decides: AssertFailStdErrAbort would end the process, AssertFailStdErrHalt stop it for a debugger.
static AssertDoNothing g_Policy;

#define CHECK(condition, message)                                                                                                  \
    do                                                                                                                             \
    {                                                                                                                              \
        if (!(condition))                                                                                                          \
        {                                                                                                                          \
            g_Policy.ReportWhat("CHECK", __PRETTY_FUNCTION__, __FILE__, __LINE__, #condition, message, 0);                         \
            g_Policy.DoAction();                                                                                                   \
        }                                                                                                                          \
    } while (false)

void SetChannels(int nChannels)
{
    CHECK(nChannels <= canMaxPaths[enMicInput], "more channels than the console has");
}

int main()
{
    SetChannels(144); // says nothing
    SetChannels(145); // says so on standard error, and goes on
}
