// The operations whose every allocation is made to fail.
#pragma once

#include <functional>
#include <vector>

namespace Faults
{

// How an operation may end when an allocation of its failed.
enum enEndings : unsigned int
{
    enDone = 1,      // it does without
    enRefused = 2,   // false, null or a code, as the header says
    enBadAlloc = 4,  // std::bad_alloc
    enIntThrown = 8, // an int, 0
    enElse = 16
};

// Does the operation, each time it is called, on objects that live as long as it does: true when it did all that it does with
// memory, false when it refused as it should.
typedef std::function<bool()> tAction;

struct stOperation
{
    const char* szName;
    unsigned int unEndings; // of enEndings
    tAction (*pPrepare)();  // there is memory meanwhile
};

// What an action throws when it ended in a way that is not right.
struct stWrong
{
    const char* szWhat;
};

inline void Expect(bool bRight, const char* szWhat)
{
    if (!bRight)
    {
        throw stWrong{szWhat};
    }
}

typedef std::vector<stOperation> tOperations;

tOperations ImageOperations();
tOperations MessageOperations();
tOperations ClientOperations();
tOperations DiagnosticsOperations();

} // namespace Faults
